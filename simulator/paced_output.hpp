#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <span>

namespace pelmo::sim {

// The transmit side of a UART: queued bytes may leave no faster than the line rate allows
// (11520 bytes/s at 115200 8N1). A rate of 0 lets everything go at once. Times are in
// nanoseconds of a monotonic clock.
class PacedOutput {
 public:
  static constexpr std::uint32_t UART_115200_8N1 = 11520;

  explicit PacedOutput(std::uint32_t bytes_per_second);

  void push(std::span<const std::uint8_t> bytes, std::uint64_t now_ns);
  // How many queued bytes the line can have taken by `now_ns`.
  std::size_t ready(std::uint64_t now_ns) const;
  // Copies up to `out.size()` queued bytes from the front without removing them.
  std::size_t peek(std::span<std::uint8_t> out) const;
  // Removes `count` bytes that were handed to the device.
  void consume(std::size_t count);

  bool empty() const { return queue_.empty(); }
  // When it is worth writing again: once a small batch of bytes is due (not one wake-up per byte).
  std::optional<std::uint64_t> next_write_ns() const;

 private:
  std::uint64_t byte_ns_ = 0;
  std::uint64_t line_free_ns_ = 0;  // when the byte after the last one sent may start
  std::deque<std::uint8_t> queue_;
};

}  // namespace pelmo::sim
