#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "pelmo/protocol/frame_assembler.hpp"
#include "pelmo/protocol/result_code.hpp"

namespace pelmo::sim {

// What the framer found in the serial stream: a complete request frame whose CRC matched, or a
// run of bytes it dropped (with the reason for the first of them).
struct FramerEvent {
  std::vector<std::uint8_t> frame;  // empty for dropped bytes
  std::size_t dropped = 0;
  ResultCode reason = RC_OK;
};

// Cuts request frames out of a serial byte stream with the library's FrameAssembler (the host cuts
// responses with the same one). A frame starts with 0xB5; its 8-byte header gives the length (a
// code below 0x80 never has a payload), then payload and CRC follow. On a wrong start byte, a
// length no request buffer holds or a CRC that fails, one byte is dropped and the search goes on
// from the next, so the framer falls back into step after garbage. A partial frame is given up
// after QUIET_MS without new bytes, as a device's receiver would reset; the bytes it held are
// searched for a frame all the same, one dropped byte at a time. This class adds the clock and
// reports each run of dropped bytes before the frame that ends it.
class StreamFramer {
 public:
  static constexpr std::uint32_t QUIET_MS = 100;

  std::vector<FramerEvent> feed(std::span<const std::uint8_t> bytes, std::uint64_t now_ms);
  // Gives up a partial frame whose line has been quiet long enough.
  std::vector<FramerEvent> expire(std::uint64_t now_ms);
  // When the partial frame held now expires; none when nothing is held.
  std::optional<std::uint64_t> deadline() const;

 private:
  // Takes every complete frame, each after the bytes dropped before it.
  void take_frames(std::vector<FramerEvent>& events);
  void take_dropped(std::vector<FramerEvent>& events);

  FrameAssembler assembler_{Direction::request};
  std::uint64_t last_byte_ms_ = 0;
};

}  // namespace pelmo::sim
