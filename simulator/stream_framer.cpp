#include "simulator/stream_framer.hpp"

namespace pelmo::sim {

std::vector<FramerEvent> StreamFramer::feed(std::span<const std::uint8_t> bytes,
                                            std::uint64_t now_ms) {
  std::vector<FramerEvent> events;
  if (!bytes.empty()) {
    last_byte_ms_ = now_ms;
  }
  // The assembler takes less only while frames wait in it; taking them makes room.
  std::span<const std::uint8_t> rest = bytes;
  do {
    rest = rest.subspan(assembler_.feed(rest));
    take_frames(events);
  } while (!rest.empty());
  take_dropped(events);
  return events;
}

std::vector<FramerEvent> StreamFramer::expire(std::uint64_t now_ms) {
  std::vector<FramerEvent> events;
  if (assembler_.buffered() > 0 && now_ms - last_byte_ms_ >= QUIET_MS) {
    assembler_.expire();
    take_frames(events);
    take_dropped(events);
  }
  return events;
}

std::optional<std::uint64_t> StreamFramer::deadline() const {
  if (assembler_.buffered() == 0) {
    return std::nullopt;
  }
  return last_byte_ms_ + QUIET_MS;
}

void StreamFramer::take_frames(std::vector<FramerEvent>& events) {
  for (auto frame = assembler_.take_frame(); !frame.empty(); frame = assembler_.take_frame()) {
    take_dropped(events);
    events.push_back({{frame.begin(), frame.end()}, 0, RC_OK});
  }
}

void StreamFramer::take_dropped(std::vector<FramerEvent>& events) {
  const DroppedBytes dropped = assembler_.take_dropped();
  if (dropped.count > 0) {
    events.push_back({{}, dropped.count, dropped.first_reason});
  }
}

}  // namespace pelmo::sim
