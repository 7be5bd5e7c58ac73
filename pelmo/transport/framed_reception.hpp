#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "pelmo/protocol/frame.hpp"
#include "pelmo/protocol/frame_assembler.hpp"
#include "pelmo/protocol/link_driver.hpp"
#include "pelmo/transport/port_layer.hpp"

namespace pelmo {

// What a framed receive reads from: a serial device, or the device's datagrams on a socket.
class ByteSource {
 public:
  // Waits until something can be read or `timeout_ms` passes; true when something can.
  virtual bool wait_readable(std::uint32_t timeout_ms) = 0;
  // Reads what is there without waiting: none when nothing was there (or the read failed), else
  // the count of response bytes placed in `buffer`, 0 for something ignored (a stray datagram).
  virtual std::optional<std::size_t> read(std::span<std::uint8_t> buffer) = 0;

 protected:
  ~ByteSource() = default;
};

// The framed way to receive: a response ends as soon as one whole response frame with a good
// CRC is in. Between reads it waits on the device itself, so it wakes the moment bytes arrive
// instead of sleeping a fixed poll. Bytes that are not part of a good frame are never
// delivered; a corrupted answer reads as silence. What follows a frame stays for the next
// receive unless a send drains it first.
class FramedReception {
 public:
  // The longest single wait, so the idle callback runs often enough to show progress or cancel.
  static constexpr std::uint32_t WAIT_SLICE_MS = 50;
  // A drain gives up after this many reads, so a device that never stops talking cannot hold a
  // send forever.
  static constexpr std::size_t MAX_DRAIN_READS = 256;

  // Waits until `timeout_ms` has passed since the call for a frame; copies it (cut to `buffer`)
  // and returns its length, or 0 at the deadline. A frame candidate that stays incomplete for
  // `quiet_ms` without new bytes was a false start and is scanned past. Calls `idle` (when set)
  // after every wait; when it throws, the receive ends with its exception and the bytes held
  // stay until the next drain.
  std::int32_t receive(ByteSource& source, port::PortLayer& clock, std::span<std::uint8_t> buffer,
                       std::uint32_t timeout_ms, std::uint32_t quiet_ms,
                       const ProgressFunction& idle);

  // Discards what has arrived and not been taken (reads without waiting until nothing is there),
  // so a late or repeated answer to an earlier request is never taken for the next one's.
  void drain(ByteSource& source);

 private:
  FrameAssembler assembler_{Direction::response};
  // One read: a whole datagram, or what a serial line has, up to the largest frame. With no
  // frame waiting, the assembler always has room for it.
  std::array<std::uint8_t, FRAME_BUFFER_SIZE> scratch_{};
};

}  // namespace pelmo
