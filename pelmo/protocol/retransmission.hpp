#pragma once

#include <cstdint>

namespace pelmo {

// How an exchange waits and tries again. The classic way (`adaptive` false) waits the command's
// fixed time-out on every attempt and tries `max_attempts` times. The adaptive way keeps a
// round-trip estimate per link (SRTT, RTTVAR, RTO = SRTT + 4 RTTVAR), takes no sample from an
// exchange that was sent more than once, doubles the wait (with jitter) after each silent
// attempt, and gives up when the exchange's deadline has passed.
struct RetransmissionSettings {
  bool adaptive = false;
  std::uint32_t initial_rto_ms = 0;  // before the first sample
  std::uint32_t min_rto_ms = 0;      // floor, on top of the line time of the frames
  std::uint32_t max_rto_ms = 0;      // ceiling of one attempt's wait
  // Serial links: the floor adds the request's and the answer's bytes at this rate (0: none).
  std::uint32_t line_bytes_per_second = 0;
  // All attempts of one exchange, on top of the time the command lets the device work (0 with a
  // command that allows none: nothing is sent).
  std::uint32_t deadline_ms = 0;
  // Non-zero: this wait per attempt instead of the adaptive one (no estimate, no backoff).
  std::uint32_t fixed_wait_ms = 0;
  std::uint32_t jitter_percent = 0;  // each backed-off wait varies by up to this much
};

// The per-link state of the adaptive way (round_trip_estimator.hpp).
class RoundTripEstimator;

}  // namespace pelmo
