#include "simulator/stream_framer.hpp"

#include "pelmo/protocol/bytes.hpp"
#include "pelmo/protocol/frame.hpp"

namespace pelmo::sim {

std::vector<FramerEvent> StreamFramer::feed(std::span<const std::uint8_t> bytes,
                                            std::uint64_t now_ms) {
  std::vector<FramerEvent> events;
  if (!bytes.empty()) {
    pending_.insert(pending_.end(), bytes.begin(), bytes.end());
    last_byte_ms_ = now_ms;
  }
  parse(events, false);
  return events;
}

std::vector<FramerEvent> StreamFramer::expire(std::uint64_t now_ms) {
  std::vector<FramerEvent> events;
  if (!pending_.empty() && now_ms - last_byte_ms_ >= QUIET_MS) {
    parse(events, true);
  }
  return events;
}

std::optional<std::uint64_t> StreamFramer::deadline() const {
  if (pending_.empty()) {
    return std::nullopt;
  }
  return last_byte_ms_ + QUIET_MS;
}

void StreamFramer::parse(std::vector<FramerEvent>& events, bool stale) {
  FramerEvent garbage;
  const auto drop_one = [&](ResultCode reason) {
    if (garbage.dropped == 0) {
      garbage.reason = reason;
    }
    ++garbage.dropped;
    pending_.erase(pending_.begin());
  };
  const auto flush_garbage = [&] {
    if (garbage.dropped > 0) {
      events.push_back(garbage);
      garbage = FramerEvent{};
    }
  };

  while (!pending_.empty()) {
    if (pending_[0] != REQUEST_START) {
      drop_one(RC_BAD_HEADER);
      continue;
    }
    // No more bytes will come for stale data: a header or frame that is still short was a false
    // start, and a real frame may hide behind it.
    if (pending_.size() < FRAME_HEADER_SIZE) {
      if (!stale) {
        break;
      }
      drop_one(RC_BAD_LENGTH);
      continue;
    }
    const std::uint16_t length_field = load_u16_le(pending_.data() + 6);
    const std::size_t frame_size =
        code_carries_payload(pending_[1]) ? FRAME_OVERHEAD + length_field : FRAME_OVERHEAD;
    if (frame_size > FRAME_BUFFER_SIZE) {
      drop_one(RC_BAD_LENGTH);
      continue;
    }
    if (pending_.size() < frame_size) {
      if (!stale) {
        break;
      }
      drop_one(RC_BAD_LENGTH);
      continue;
    }
    FrameFields fields;
    const std::span<const std::uint8_t> candidate(pending_.data(), frame_size);
    if (decode_frame(Direction::request, candidate, fields) != RC_OK) {
      drop_one(RC_BAD_CRC);
      continue;
    }
    flush_garbage();
    events.push_back({{candidate.begin(), candidate.end()}, 0, RC_OK});
    pending_.erase(pending_.begin(), pending_.begin() + static_cast<std::ptrdiff_t>(frame_size));
  }
  flush_garbage();
}

}  // namespace pelmo::sim
