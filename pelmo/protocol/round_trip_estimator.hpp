#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "pelmo/protocol/retransmission.hpp"

namespace pelmo {

// The round-trip estimate of one link and the wait it gives each attempt of an exchange.
//
// Samples are smoothed the way TCP does it: the first sample R sets SRTT = R and RTTVAR = R/2,
// later ones RTTVAR = 3/4 RTTVAR + 1/4 |SRTT - R| and SRTT = 7/8 SRTT + 1/8 R; the time-out is
// RTO = SRTT + 4 RTTVAR (initial_rto_ms before any sample), kept between a floor and max_rto_ms.
// The floor is min_rto_ms plus, on a serial line, the time the request and the answer take on the
// line: an answer cannot come sooner, whatever the estimate says.
//
// Each silent attempt doubles the wait, with up to jitter_percent more drawn from the estimator's
// own seeded generator (so that devices behind one socket do not retry in step). The backoff stays
// until a new sample arrives, so a link that has become slower is not flooded with retries while
// no first-send answer can teach the estimate better (Karn).
//
// Pure and deterministic: it reads no clock; the exchange measures and hands in the samples.
class RoundTripEstimator {
 public:
  explicit RoundTripEstimator(const RetransmissionSettings& settings, std::uint64_t seed = 0);

  const RetransmissionSettings& settings() const { return settings_; }

  // The round trip of an exchange answered on its first send, in milliseconds.
  void sample(std::uint32_t rtt_ms);
  // An attempt went unanswered: the next wait doubles.
  void silent_attempt();

  // RTO kept within [floor, max] for an exchange whose request and answer together are
  // `frame_bytes` long; no backoff.
  std::uint32_t rto_ms(std::size_t frame_bytes) const;
  // The wait of the next attempt: the RTO backed off, with jitter, at most the max; fixed_wait_ms
  // instead when that is set. Draws from the generator when backed off.
  std::uint32_t next_wait_ms(std::size_t frame_bytes);

  std::optional<std::uint32_t> srtt_ms() const;
  std::optional<std::uint32_t> rttvar_ms() const;
  unsigned backoff() const { return backoff_; }

 private:
  std::uint32_t floor_ms(std::size_t frame_bytes) const;
  std::uint64_t next_random();

  RetransmissionSettings settings_;
  // In 1/1024 ms.
  std::uint64_t srtt_ = 0;
  std::uint64_t rttvar_ = 0;
  bool sampled_ = false;
  unsigned backoff_ = 0;
  std::uint64_t random_state_;
};

}  // namespace pelmo
