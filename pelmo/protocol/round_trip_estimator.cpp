#include "pelmo/protocol/round_trip_estimator.hpp"

#include <algorithm>

namespace pelmo {
namespace {

// Doubling stops here; the max clamps long before on any sane profile.
constexpr unsigned MAX_BACKOFF = 16;

// Milliseconds are kept in 1/1024 steps, so the 1/8 and 1/4 steps of the smoothing keep their
// fractions over many samples.
constexpr std::uint64_t SCALE = 1024;

std::uint32_t to_ms(std::uint64_t scaled) {
  // Rounded up: never wait too little.
  return static_cast<std::uint32_t>(
      std::min<std::uint64_t>((scaled + SCALE - 1) / SCALE, UINT32_MAX));
}

}  // namespace

RoundTripEstimator::RoundTripEstimator(const RetransmissionSettings& settings, std::uint64_t seed)
    : settings_(settings), random_state_(seed) {}

void RoundTripEstimator::sample(std::uint32_t rtt_ms) {
  const std::uint64_t r = std::uint64_t{rtt_ms} * SCALE;
  if (!sampled_) {
    srtt_ = r;
    rttvar_ = r / 2;
    sampled_ = true;
  } else {
    const std::uint64_t deviation = srtt_ > r ? srtt_ - r : r - srtt_;
    rttvar_ = (3 * rttvar_ + deviation) / 4;
    srtt_ = (7 * srtt_ + r) / 8;
  }
  backoff_ = 0;
}

void RoundTripEstimator::silent_attempt() {
  backoff_ = std::min(backoff_ + 1, MAX_BACKOFF);
}

std::uint32_t RoundTripEstimator::floor_ms(std::size_t frame_bytes) const {
  std::uint64_t line_ms = 0;
  if (settings_.line_bytes_per_second != 0) {
    line_ms = (std::uint64_t{frame_bytes} * 1000 + settings_.line_bytes_per_second - 1) /
              settings_.line_bytes_per_second;
  }
  return static_cast<std::uint32_t>(
      std::min<std::uint64_t>(settings_.min_rto_ms + line_ms, UINT32_MAX));
}

std::uint32_t RoundTripEstimator::rto_ms(std::size_t frame_bytes) const {
  const std::uint32_t rto = sampled_ ? to_ms(srtt_ + 4 * rttvar_) : settings_.initial_rto_ms;
  const std::uint32_t floor = floor_ms(frame_bytes);
  // The floor wins over the max: no answer arrives before its own line time.
  const std::uint32_t ceiling =
      settings_.max_rto_ms == 0 ? UINT32_MAX : std::max(settings_.max_rto_ms, floor);
  return std::clamp(rto, floor, ceiling);
}

std::uint32_t RoundTripEstimator::next_wait_ms(std::size_t frame_bytes) {
  if (settings_.fixed_wait_ms != 0) {
    return settings_.fixed_wait_ms;
  }
  const std::uint32_t rto = rto_ms(frame_bytes);
  if (backoff_ == 0) {
    return rto;
  }
  const std::uint64_t backed_off = std::uint64_t{rto} << backoff_;
  const std::uint64_t spread = backed_off * settings_.jitter_percent / 100;
  const std::uint64_t jittered = backed_off + next_random() % (spread + 1);
  const std::uint32_t ceiling =
      settings_.max_rto_ms == 0 ? UINT32_MAX : std::max(settings_.max_rto_ms, rto);
  return static_cast<std::uint32_t>(std::min<std::uint64_t>(jittered, ceiling));
}

std::optional<std::uint32_t> RoundTripEstimator::srtt_ms() const {
  return sampled_ ? std::optional(to_ms(srtt_)) : std::nullopt;
}

std::optional<std::uint32_t> RoundTripEstimator::rttvar_ms() const {
  return sampled_ ? std::optional(to_ms(rttvar_)) : std::nullopt;
}

// splitmix64: small, fast and the same sequence on every platform for a given seed.
std::uint64_t RoundTripEstimator::next_random() {
  std::uint64_t z = (random_state_ += 0x9E3779B97F4A7C15ULL);
  z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
  z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
  return z ^ (z >> 31);
}

}  // namespace pelmo
