#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <span>

namespace pelmo::sim {

// One direction of a UART: queued bytes pass no faster than the line rate allows (11520 bytes/s
// at 115200 8N1). The device's pty uses one for what it sends and one for what it reads, so the
// program sees the real line time in both directions. A rate of 0 lets everything pass at once.
// Times are in nanoseconds of a monotonic clock.
class PacedLine {
 public:
  static constexpr std::uint32_t UART_115200_8N1 = 11520;

  explicit PacedLine(std::uint32_t bytes_per_second);

  void push(std::span<const std::uint8_t> bytes, std::uint64_t now_ns);
  // How many queued bytes the line can have carried by `now_ns`.
  std::size_t ready(std::uint64_t now_ns) const;
  // Copies up to `out.size()` queued bytes from the front without removing them.
  std::size_t peek(std::span<std::uint8_t> out) const;
  // Removes `count` bytes that have passed the line.
  void consume(std::size_t count);

  bool empty() const { return queue_.empty(); }
  // When it is worth looking again: once a small batch of bytes is due (not one wake-up per byte).
  std::optional<std::uint64_t> next_due_ns() const;

 private:
  std::uint64_t byte_ns_ = 0;
  std::uint64_t line_free_ns_ = 0;  // when the byte after the last one passed may start
  std::deque<std::uint8_t> queue_;
};

}  // namespace pelmo::sim
