#pragma once

#include <cstdint>
#include <functional>
#include <span>

#include "pelmo/protocol/result_code.hpp"

namespace pelmo {

// Transmits one request frame; returns the number of bytes taken (a short count or -1 fails the
// attempt).
using SendFunction = std::function<std::int32_t(std::span<const std::uint8_t> bytes)>;

// Collects one response into `buffer` (its size is the capacity, at most 65535): waits up to
// `timeout_ms` for a first byte (0 selects the transport's default), then until the link is quiet,
// or until `min_count` bytes are in and the link is quiet, or the buffer is full. Returns the
// number of bytes placed, 0 for silence, never negative.
using ReceiveFunction = std::function<std::int32_t(
    std::span<std::uint8_t> buffer, std::uint16_t min_count, std::uint32_t timeout_ms)>;

// Called after each step the device acknowledged and while transports wait.
using ProgressFunction = std::function<void()>;

// How the library reaches one device. The caller owns it; every command takes it explicitly, so
// one process can drive several links.
struct LinkDriver {
  SendFunction send;
  ReceiveFunction receive;
  ProgressFunction progress;
  std::uint32_t erase_timeout_ms = 0;
  std::uint32_t write_timeout_ms = 0;
  std::uint32_t extra_timeout_ms = 0;
  std::uint16_t chunk_size = 0;
  std::uint16_t max_attempts = 0;
  std::uint8_t flush_before_exchange = 0;
  std::uint32_t settle_delay_ms = 0;
};

// True when `driver` can carry an exchange (it exists and has both transport functions).
inline bool link_usable(const LinkDriver* driver) {
  return driver != nullptr && driver->send && driver->receive;
}

}  // namespace pelmo
