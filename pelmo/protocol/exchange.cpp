#include "pelmo/protocol/exchange.hpp"

#include <algorithm>
#include <chrono>
#include <thread>

namespace pelmo {
namespace {

constexpr std::uint32_t FLUSH_TIMEOUT_MS = 2;

std::uint16_t low16(std::int32_t value) {
  return static_cast<std::uint16_t>(value & 0xFFFF);
}

std::span<std::uint8_t> capped(std::span<std::uint8_t> buffer) {
  return buffer.first(std::min<std::size_t>(buffer.size(), 0xFFFF));
}

}  // namespace

ResultCode exchange(const LinkDriver* driver, std::span<const std::uint8_t> request,
                    std::span<std::uint8_t> response, std::uint16_t min_count,
                    std::uint32_t timeout_ms, std::uint16_t* response_length) {
  if (!link_usable(driver)) {
    return RC_NO_DRIVER;
  }
  const auto buffer = capped(response);
  if (driver->flush_before_exchange != 0) {
    // Discard whatever the device sent unasked. A receive that keeps returning data would hold
    // us here forever, so the drain is bounded by what a sane link can deliver.
    for (int round = 0; round < 1024; ++round) {
      if (low16(driver->receive(buffer, min_count, FLUSH_TIMEOUT_MS)) == 0) {
        break;
      }
    }
  }
  const std::uint32_t effective_timeout = timeout_ms + driver->extra_timeout_ms;
  const auto request_length = low16(static_cast<std::int32_t>(request.size()));
  for (std::uint16_t attempt = 0; attempt < driver->max_attempts; ++attempt) {
    if (low16(driver->send(request)) != request_length) {
      continue;
    }
    if (driver->settle_delay_ms != 0) {
      std::this_thread::sleep_for(std::chrono::milliseconds(driver->settle_delay_ms));
    }
    const std::uint16_t received = low16(driver->receive(buffer, min_count, effective_timeout));
    if (received != 0) {
      if (response_length != nullptr) {
        *response_length = received;
      }
      return RC_OK;
    }
  }
  return RC_TIMEOUT;
}

}  // namespace pelmo
