#pragma once

#include <cstdint>
#include <functional>
#include <span>

#include "pelmo/protocol/result_code.hpp"
#include "pelmo/protocol/retransmission.hpp"

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

// Called by the chunked transfers after each acknowledged chunk: bytes done and bytes in total.
using TransferProgressFunction = std::function<void(std::uint32_t done, std::uint32_t total)>;

// How the last exchange that gave up went: the sends it made and the time it waited in all (the
// adaptive way only; the classic way leaves the time 0). Lets a caller report a silent device
// with the wait and the attempts it got.
struct ExchangeTally {
  unsigned attempts = 0;
  std::uint32_t waited_ms = 0;
};

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

  // The adaptive engine; all of these may stay empty for the classic way.
  TransferProgressFunction transfer_progress{};
  // Non-null: the exchange retries the adaptive way with this link's estimate.
  RoundTripEstimator* estimator = nullptr;
  // Millisecond clock of the link (wraps at 32 bits), for deadlines and round-trip samples.
  std::function<std::uint32_t()> clock_ms{};
  // True once the caller wants the link's work to stop; the exchange then ends with
  // RC_CANCELLED.
  std::function<bool()> cancelled{};
  // Non-null: filled in when an exchange ends with RC_TIMEOUT.
  ExchangeTally* tally = nullptr;
};

// True when `driver` can carry an exchange (it exists and has both transport functions).
inline bool link_usable(const LinkDriver* driver) {
  return driver != nullptr && driver->send && driver->receive;
}

}  // namespace pelmo
