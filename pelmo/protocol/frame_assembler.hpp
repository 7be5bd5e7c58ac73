#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "pelmo/protocol/frame.hpp"
#include "pelmo/protocol/result_code.hpp"

namespace pelmo {

// What the assembler threw away since it was last asked: how many bytes, and why the first of
// them went (RC_BAD_HEADER: not a start byte; RC_BAD_LENGTH: a length no frame buffer holds, or a
// start that never completed; RC_BAD_CRC: a complete candidate whose CRC failed).
struct DroppedBytes {
  std::size_t count = 0;
  ResultCode first_reason = RC_OK;
};

// Cuts complete frames of one direction out of a byte stream that arrives in any pieces. Bytes
// before a start byte are skipped; once a candidate's 8-byte header is in, its full size is known
// (a request code below 0x80 never carries a payload). A size beyond FRAME_BUFFER_SIZE or a CRC
// that fails marks a false start: that one start byte is dropped and the scan goes on from the
// next byte, so a real frame hidden behind a false start is still found. A corrupted frame is
// therefore never delivered. Holds at most CAPACITY bytes and never allocates.
class FrameAssembler {
 public:
  // Room for one incomplete frame behind a complete one that has not been taken yet.
  static constexpr std::size_t CAPACITY = 2 * FRAME_BUFFER_SIZE;

  explicit FrameAssembler(Direction direction);

  // Takes as many of `bytes` as there is room for and returns that count. Everything is taken
  // unless complete frames are waiting to be taken: take them and feed the rest.
  std::size_t feed(std::span<const std::uint8_t> bytes);

  // The next complete frame with a good CRC, taken out of the assembler; empty when none is in.
  // The span stays valid until the next feed or clear.
  std::span<const std::uint8_t> take_frame();

  // The line went quiet: what is held will never be completed. Starts that are still short are
  // dropped one start byte at a time (RC_BAD_LENGTH), so complete frames behind them still come
  // out of take_frame. Lasts until the next feed.
  void expire();

  // Forgets every byte held (and the dropped tally).
  void clear();

  // Bytes held: a partial frame, frames not taken yet, or bytes not scanned yet.
  std::size_t buffered() const { return end_ - begin_; }

  // The bytes dropped since the last call, then starts a new tally.
  DroppedBytes take_dropped();

 private:
  // Scans from the front until a complete good frame is there (returns its size) or more bytes
  // are needed (returns 0).
  std::size_t scan();
  void drop_one(ResultCode reason);

  Direction direction_;
  std::array<std::uint8_t, CAPACITY> bytes_{};
  std::size_t begin_ = 0;  // the held bytes are bytes_[begin_, end_)
  std::size_t end_ = 0;
  bool stale_ = false;
  DroppedBytes dropped_{};
};

}  // namespace pelmo
