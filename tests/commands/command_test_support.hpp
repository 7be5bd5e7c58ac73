#pragma once

#include <cstdint>
#include <vector>

#include "tests/support/scripted_device.hpp"

namespace pelmo::test_support {

// How a test expects one request to look and to be awaited.
struct ExpectedStep {
  std::uint8_t code = 0;
  std::uint32_t address = 0;
  std::uint16_t length = 0;
  std::uint16_t min_count = 0;
  std::uint32_t timeout_ms = 0;
  std::size_t capacity = 2048;
};

// Checks the requests the device got, and the receive each was awaited with, step by step.
inline void expect_steps(const ScriptedDevice& device, const std::vector<ExpectedStep>& steps) {
  const auto headers = device.request_headers();
  ASSERT_EQ(headers.size(), steps.size());
  ASSERT_EQ(device.receives().size(), steps.size());
  for (std::size_t i = 0; i < steps.size(); ++i) {
    EXPECT_EQ(headers[i], (RequestHeader{steps[i].code, steps[i].address, steps[i].length}))
        << "request " << i;
    EXPECT_EQ(device.receives()[i].min_count, steps[i].min_count) << "request " << i;
    EXPECT_EQ(device.receives()[i].timeout_ms, steps[i].timeout_ms) << "request " << i;
    EXPECT_EQ(device.receives()[i].capacity, steps[i].capacity) << "request " << i;
  }
}

// Bytes 0, 1, 2, ... wrapping at 251 so that no two nearby blocks look alike.
inline std::vector<std::uint8_t> pattern(std::size_t size, std::uint8_t seed = 0) {
  std::vector<std::uint8_t> bytes(size);
  for (std::size_t i = 0; i < size; ++i) {
    bytes[i] = static_cast<std::uint8_t>((i + seed) % 251);
  }
  return bytes;
}

}  // namespace pelmo::test_support
