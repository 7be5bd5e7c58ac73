#include "simulator/paced_line.hpp"

#include <algorithm>

namespace pelmo::sim {
namespace {

// About a millisecond of line time per wake-up at 115200 8N1.
constexpr std::size_t WRITE_BATCH = 12;

}  // namespace

PacedLine::PacedLine(std::uint32_t bytes_per_second)
    : byte_ns_(bytes_per_second == 0 ? 0 : 1000000000ull / bytes_per_second) {}

void PacedLine::push(std::span<const std::uint8_t> bytes, std::uint64_t now_ns) {
  if (queue_.empty()) {
    // An idle line starts the next byte at once.
    line_free_ns_ = std::max(line_free_ns_, now_ns);
  }
  queue_.insert(queue_.end(), bytes.begin(), bytes.end());
}

std::size_t PacedLine::ready(std::uint64_t now_ns) const {
  if (byte_ns_ == 0) {
    return queue_.size();
  }
  if (now_ns < line_free_ns_) {
    return 0;
  }
  const std::uint64_t due = (now_ns - line_free_ns_) / byte_ns_ + 1;
  return static_cast<std::size_t>(std::min<std::uint64_t>(due, queue_.size()));
}

std::size_t PacedLine::peek(std::span<std::uint8_t> out) const {
  const std::size_t count = std::min(out.size(), queue_.size());
  std::copy_n(queue_.begin(), count, out.begin());
  return count;
}

void PacedLine::consume(std::size_t count) {
  count = std::min(count, queue_.size());
  queue_.erase(queue_.begin(), queue_.begin() + static_cast<std::ptrdiff_t>(count));
  // Each byte holds the line for one byte time after the previous one.
  line_free_ns_ += count * byte_ns_;
}

std::optional<std::uint64_t> PacedLine::next_due_ns() const {
  if (queue_.empty()) {
    return std::nullopt;
  }
  const std::size_t batch = std::min(queue_.size(), WRITE_BATCH);
  return line_free_ns_ + (batch - 1) * byte_ns_;
}

}  // namespace pelmo::sim
