#include "simulator/paced_output.hpp"

#include <gtest/gtest.h>

#include <vector>

namespace pelmo::sim {
namespace {

constexpr std::uint64_t MS = 1000000;

// Drains the output the way the server does, waking at next_write_ns(), and returns when the
// last byte left.
std::uint64_t drain(PacedOutput& output, std::uint64_t now) {
  std::uint64_t last = now;
  for (int guard = 0; guard < 100000 && !output.empty(); ++guard) {
    const std::size_t due = output.ready(now);
    if (due > 0) {
      output.consume(due);
      last = now;
    }
    if (const auto next = output.next_write_ns()) {
      now = std::max(now, *next);
    }
  }
  return last;
}

TEST(PacedOutput, HoldsTheUartRate) {
  const struct {
    std::size_t bytes;
    std::uint64_t min_ms;
    std::uint64_t max_ms;
  } cases[] = {{1, 0, 0}, {256, 21, 23}, {1024, 87, 90}};
  for (const auto& c : cases) {
    PacedOutput output(PacedOutput::UART_115200_8N1);
    const std::vector<std::uint8_t> data(c.bytes, 0x55);
    output.push(data, 5 * MS);
    EXPECT_EQ(1u, output.ready(5 * MS)) << "the first byte goes at once";
    const std::uint64_t took = drain(output, 5 * MS) - 5 * MS;
    EXPECT_GE(took, c.min_ms * MS) << c.bytes;
    EXPECT_LE(took, c.max_ms * MS) << c.bytes;
  }
}

TEST(PacedOutput, KeepsOrderAndLineTimeAcrossPushes) {
  PacedOutput output(PacedOutput::UART_115200_8N1);
  const std::uint64_t byte_ns = 1000000000 / PacedOutput::UART_115200_8N1;
  output.push(std::vector<std::uint8_t>{1, 2, 3}, 0);
  EXPECT_EQ(1u, output.ready(0));
  EXPECT_EQ(3u, output.ready(2 * byte_ns));
  output.consume(3);
  // The second piece comes while the line is still busy with the first.
  output.push(std::vector<std::uint8_t>{4, 5}, 10000);
  EXPECT_EQ(0u, output.ready(10000));
  std::vector<std::uint8_t> peeked(5);
  EXPECT_EQ(2u, output.peek(peeked));
  EXPECT_EQ(std::vector<std::uint8_t>({4, 5, 0, 0, 0}), peeked);
  EXPECT_EQ(0u, output.ready(3 * byte_ns - 1));
  EXPECT_EQ(1u, output.ready(3 * byte_ns));
  EXPECT_EQ(2u, output.ready(4 * byte_ns));
}

TEST(PacedOutput, WithoutRateEverythingGoesAtOnce) {
  PacedOutput output(0);
  output.push(std::vector<std::uint8_t>(1000, 1), 0);
  EXPECT_EQ(1000u, output.ready(0));
  output.consume(1000);
  EXPECT_TRUE(output.empty());
  EXPECT_FALSE(output.next_write_ns());
}

}  // namespace
}  // namespace pelmo::sim
