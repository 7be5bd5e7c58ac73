#include "pelmo/protocol/round_trip_estimator.hpp"

#include <gtest/gtest.h>

#include <optional>
#include <tuple>
#include <vector>

namespace pelmo {
namespace {

constexpr RetransmissionSettings SETTINGS{.adaptive = true,
                                          .initial_rto_ms = 200,
                                          .min_rto_ms = 20,
                                          .max_rto_ms = 2000,
                                          .deadline_ms = 10000};

TEST(RoundTripEstimator, SmoothsSamplesAndClampsTheTimeOut) {
  // samples; SRTT, RTTVAR (both rounded up to whole ms); RTO of an exchange of 24 bytes
  for (const auto& [samples, srtt, rttvar, rto] :
       std::vector<std::tuple<std::vector<std::uint32_t>, std::optional<std::uint32_t>,
                              std::optional<std::uint32_t>, std::uint32_t>>{
           {{}, std::nullopt, std::nullopt, 200},  // the initial RTO
           {{100}, 100, 50, 300},
           // RTTVAR = 3/4 50 + 1/4 100 = 62.5, SRTT = 7/8 100 + 1/8 200 = 112.5: RTO 362.5
           {{100, 200}, 113, 63, 363},
           // Steady samples shrink RTTVAR: 37.5, 28.125, 21.09375
           {{100, 100, 100, 100}, 100, 22, 185},
           {{1}, 1, 1, 20},             // the floor
           {{5000}, 5000, 2500, 2000},  // the ceiling
           {{0, 0}, 0, 0, 20},
       }) {
    RoundTripEstimator estimator(SETTINGS);
    for (const std::uint32_t sample : samples) {
      estimator.sample(sample);
    }
    EXPECT_EQ(std::tuple(estimator.srtt_ms(), estimator.rttvar_ms(), estimator.rto_ms(24)),
              std::tuple(srtt, rttvar, rto))
        << samples.size() << " samples";
  }
}

TEST(RoundTripEstimator, SerialFloorAddsTheFramesLineTime) {
  RetransmissionSettings serial = SETTINGS;
  serial.line_bytes_per_second = 11520;
  RoundTripEstimator estimator(serial);
  estimator.sample(5);  // RTO 15: below any floor
  // frame bytes (request and answer); floor = 20 + their line time, rounded up
  for (const auto& [bytes, rto] : std::vector<std::tuple<std::size_t, std::uint32_t>>{
           {24, 23},        // 2.08 ms of line
           {12 + 256, 44},  // a read of a full 244-byte chunk: 23.3 ms
           {256 + 12, 44},  // a full write block and its acknowledgement
           // The floor wins over the ceiling: no answer comes before its own line time.
           {40000, 3493}}) {
    EXPECT_EQ(estimator.rto_ms(bytes), rto) << bytes;
  }
}

TEST(RoundTripEstimator, BackoffDoublesWithSeededJitterUntilTheNextSample) {
  RetransmissionSettings jittered = SETTINGS;
  jittered.jitter_percent = 10;
  const auto waits = [&](std::uint64_t seed) {
    RoundTripEstimator estimator(jittered, seed);
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
    const std::uint32_t doubled = 200u << i;
    EXPECT_GE(first[i], doubled) << i;
    EXPECT_LE(first[i], doubled + doubled / 10) << i;
  }
  EXPECT_EQ(std::vector(first.begin() + 4, first.end()),
            (std::vector<std::uint32_t>{2000, 2000, 300}));  // the ceiling, then RTO 100 + 4 x 50

  RetransmissionSettings fixed = SETTINGS;
  fixed.fixed_wait_ms = 70;
  RoundTripEstimator estimator(fixed);
  estimator.sample(1000);
  estimator.silent_attempt();
  EXPECT_EQ(estimator.next_wait_ms(24), 70u);  // no estimate, no backoff
}

}  // namespace
}  // namespace pelmo
