#include "pelmo/protocol/frame_assembler.hpp"

#include <algorithm>
#include <cstring>

#include "pelmo/protocol/bytes.hpp"

namespace pelmo {

namespace {

std::uint8_t start_byte(Direction direction) {
  return direction == Direction::request ? REQUEST_START : RESPONSE_START;
}

// The full size of the frame whose header starts at `header`.
std::size_t frame_size(Direction direction, const std::uint8_t* header) {
  const std::size_t length = load_u16_le(header + 6);
  if (direction == Direction::request && !code_carries_payload(header[1])) {
    return FRAME_OVERHEAD;
  }
  return FRAME_OVERHEAD + length;
}

}  // namespace

FrameAssembler::FrameAssembler(Direction direction) : direction_(direction) {}

std::size_t FrameAssembler::feed(std::span<const std::uint8_t> bytes) {
  std::size_t taken = 0;
  while (taken < bytes.size()) {
    if (begin_ > 0) {
      std::memmove(bytes_.data(), bytes_.data() + begin_, end_ - begin_);
      end_ -= begin_;
      begin_ = 0;
    }
    const std::size_t count = std::min(CAPACITY - end_, bytes.size() - taken);
    if (count == 0) {
      break;  // only complete frames that wait to be taken fill the buffer
    }
    std::copy_n(bytes.begin() + static_cast<std::ptrdiff_t>(taken), count, bytes_.begin() + end_);
    end_ += count;
    taken += count;
    stale_ = false;
    // Dropping garbage as it comes keeps the room for the rest; with no frame waiting, what is
    // held is shorter than one frame.
    scan();
  }
  return taken;
}

std::span<const std::uint8_t> FrameAssembler::take_frame() {
  const std::size_t size = scan();
  if (size == 0) {
    return {};
  }
  const std::span<const std::uint8_t> frame(bytes_.data() + begin_, size);
  begin_ += size;
  return frame;
}

void FrameAssembler::expire() {
  stale_ = true;
}

void FrameAssembler::clear() {
  begin_ = end_ = 0;
  stale_ = false;
  dropped_ = {};
}

DroppedBytes FrameAssembler::take_dropped() {
  const DroppedBytes dropped = dropped_;
  dropped_ = {};
  return dropped;
}

void FrameAssembler::drop_one(ResultCode reason) {
  if (dropped_.count == 0) {
    dropped_.first_reason = reason;
  }
  ++dropped_.count;
  ++begin_;
}

std::size_t FrameAssembler::scan() {
  const std::uint8_t start = start_byte(direction_);
  while (begin_ < end_) {
    const std::uint8_t* front = bytes_.data() + begin_;
    const std::size_t held = end_ - begin_;
    if (front[0] != start) {
      const std::uint8_t* const held_end = front + held;
      const auto next = std::find(front, held_end, start);
      drop_one(RC_BAD_HEADER);
      const auto skipped = static_cast<std::size_t>(next - front) - 1;
      dropped_.count += skipped;
      begin_ += skipped;
      continue;
    }
    // A candidate still short of its header or its frame waits for more bytes, unless none will
    // come: then it was a false start.
    if (held < FRAME_HEADER_SIZE) {
      if (!stale_) {
        return 0;
      }
      drop_one(RC_BAD_LENGTH);
      continue;
    }
    const std::size_t size = frame_size(direction_, front);
    if (size > FRAME_BUFFER_SIZE) {
      drop_one(RC_BAD_LENGTH);
      continue;
    }
    if (held < size) {
      if (!stale_) {
        return 0;
      }
      drop_one(RC_BAD_LENGTH);
      continue;
    }
    FrameFields fields;
    if (decode_frame(direction_, std::span(front, size), fields) != RC_OK) {
      drop_one(RC_BAD_CRC);
      continue;
    }
    return size;
  }
  return 0;
}

}  // namespace pelmo
