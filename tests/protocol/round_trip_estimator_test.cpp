#include "pelmo/protocol/round_trip_estimator.hpp"

#include <gtest/gtest.h>

#include <optional>
#include <tuple>
#include <vector>

namespace pelmo {
namespace {

// Adaptive: RTO 200 ms before any sample, floor 20, ceiling 2000; on a serial line of 11520 bytes
// a second the floor adds the line time of the request and the answer.
constexpr RetransmissionSettings SETTINGS{true, 200, 20, 2000, 0, 10000};
constexpr RetransmissionSettings SERIAL{true, 200, 20, 2000, 11520, 10000};

TEST(RoundTripEstimator, SmoothsSamplesAndClampsTheTimeOut) {
  // samples, frame bytes of the exchange; SRTT, RTTVAR (both rounded up to whole ms), RTO
  using Row = std::tuple<RetransmissionSettings, std::vector<std::uint32_t>, std::size_t,
                         std::optional<std::uint32_t>, std::optional<std::uint32_t>, std::uint32_t>;
  for (const auto& [settings, samples, bytes, srtt, rttvar, rto] : std::vector<Row>{
           {SETTINGS, {}, 24, std::nullopt, std::nullopt, 200},  // the initial RTO
           // RTTVAR = 3/4 50 + 1/4 100 = 62.5, SRTT = 7/8 100 + 1/8 200 = 112.5: RTO 362.5
           {SETTINGS, {100, 200}, 24, 113, 63, 363},
           {SETTINGS, {5000}, 24, 5000, 2500, 2000},  // the ceiling
           // RTO 15 is below the floor: 20 + 2.08 ms of line, 20 + 23.3 for a full chunk; the floor
           // wins over the ceiling, as no answer comes before its own line time.
           {SERIAL, {5}, 24, 5, 3, 23},
           {SERIAL, {5}, 12 + 256, 5, 3, 44},
           {SERIAL, {5}, 40000, 5, 3, 3493}}) {
    RoundTripEstimator estimator(settings);
    for (const std::uint32_t sample : samples)
      estimator.sample(sample);
    EXPECT_EQ(std::tuple(estimator.srtt_ms(), estimator.rttvar_ms(), estimator.rto_ms(bytes)),
              std::tuple(srtt, rttvar, rto));
  }
}

TEST(RoundTripEstimator, BackoffDoublesWithSeededJitterUntilTheNextSample) {
  constexpr RetransmissionSettings JITTERED{true, 200, 20, 2000, 0, 10000, 0, 10};
  const auto waits = [&](std::uint64_t seed) {
    RoundTripEstimator estimator(JITTERED, seed);
    std::vector<std::uint32_t> result;
    for (int attempt = 0; attempt < 6; ++attempt) {
      result.push_back(estimator.next_wait_ms(24));
      estimator.silent_attempt();
    }
    estimator.sample(100);  // a first-send answer ends the backoff
    result.push_back(estimator.next_wait_ms(24));
    return result;
  };
  const std::vector<std::uint32_t> first = waits(7);
  EXPECT_EQ(first, waits(7));  // one seed, one sequence
  EXPECT_NE(first, waits(8));  // another link retries apart
  EXPECT_EQ(first[0], 200u);   // the first send is never jittered
  for (std::size_t i = 1; i < 4; ++i) {
    EXPECT_LE(first[i] - (200u << i), 20u << i) << i;  // doubled, plus at most a tenth
  }
  EXPECT_EQ(std::vector(first.begin() + 4, first.end()),
            (std::vector<std::uint32_t>{2000, 2000, 300}));  // the ceiling, then RTO 100 + 4 x 50

  RoundTripEstimator estimator({true, 200, 20, 2000, 0, 10000, 70});
  estimator.silent_attempt();
  EXPECT_EQ(estimator.next_wait_ms(24), 70u);  // no estimate, no backoff
}

}  // namespace
}  // namespace pelmo
