#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "pelmo/protocol/link_driver.hpp"
#include "pelmo/transport/link_profile.hpp"

namespace pelmo {

// How an open went: on failure one line that says why (no line feed) and the system's error
// code where a system call failed (0 when an argument was refused). The library prints nothing;
// the caller decides what the user reads.
struct OpenResult {
  bool ok = false;
  std::string message;
  int os_error = 0;

  static OpenResult success() { return {true, {}, 0}; }
  static OpenResult failure(std::string message, int os_error = 0) {
    return {false, std::move(message), os_error};
  }
};

// The waits that decide when a response is complete: the first byte (when a receive is given no
// time-out of its own), then the quiet time that ends a response once bytes have arrived; or,
// framed, the whole response frame, with the quiet time only telling a false start.
struct ResponseTimes {
  std::uint32_t first_byte_ms = 1;
  std::uint32_t quiet_ms = 1;
  Reception reception = Reception::quiet_time;
};

// Moves bytes to and from one device. Each transport has its own open, with the arguments its
// kind of link needs, returning an OpenResult.
class Transport {
 public:
  // What send returns when nothing was sent (no open link, or the system refused).
  static constexpr std::int32_t SEND_FAILED = -1;

  virtual ~Transport() = default;

  // Sends `bytes` as one request: the count taken, or SEND_FAILED. Framed, it first discards
  // whatever arrived and was not taken, so a late answer is never taken for this request's.
  virtual std::int32_t send(std::span<const std::uint8_t> bytes) = 0;

  // Collects one response into `buffer` (its size is the capacity, cut to 65535).
  // Quiet time: waits `timeout_ms` (0: the first-byte time-out given at open) for a first byte,
  // then ends after the quiet time, or at the first quiet poll once `min_count` (> 0) bytes are
  // in, or when the buffer is full; calls `idle` (when set) on every poll that does not end the
  // receive.
  // Framed: returns the first whole response frame with a good CRC that arrives within
  // `timeout_ms` (0: the first-byte time-out) of the call, cut to the buffer; `min_count` plays
  // no part; waits on the device in slices of at most 50 ms and calls `idle` after each.
  // Returns the count placed, 0 for silence, errors or when not open; never negative.
  virtual std::int32_t receive(std::span<std::uint8_t> buffer, std::uint16_t min_count,
                               std::uint32_t timeout_ms, const ProgressFunction& idle) = 0;

  // Releases the device; nothing happens when none is open.
  virtual void close() = 0;
  virtual bool is_open() const = 0;
};

}  // namespace pelmo
