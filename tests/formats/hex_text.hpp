#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace pelmo::test {

// One Intel HEX record line (without line end) with its checksum, for building test files.
inline std::string hex_line(std::uint8_t type, std::uint16_t address,
                            const std::vector<std::uint8_t>& data) {
  static constexpr char DIGITS[] = "0123456789ABCDEF";
  std::string line = ":";
  unsigned sum = 0;
  auto put = [&](std::uint8_t byte) {
    line += DIGITS[byte >> 4];
    line += DIGITS[byte & 0x0F];
    sum += byte;
  };
  put(static_cast<std::uint8_t>(data.size()));
  put(static_cast<std::uint8_t>(address >> 8));
  put(static_cast<std::uint8_t>(address));
  put(type);
  for (std::uint8_t byte : data) {
    put(byte);
  }
  put(static_cast<std::uint8_t>(0x100 - (sum & 0xFF)));
  return line;
}

// The bytes 0, 1, ..., count - 1.
inline std::vector<std::uint8_t> counting(std::size_t count) {
  std::vector<std::uint8_t> bytes(count);
  for (std::size_t index = 0; index < count; ++index) {
    bytes[index] = static_cast<std::uint8_t>(index);
  }
  return bytes;
}

inline const std::string EOF_LINE = ":00000001FF";

}  // namespace pelmo::test
