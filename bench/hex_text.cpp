#include "bench/hex_text.hpp"

#include <algorithm>
#include <array>

#include "pelmo/formats/number_text.hpp"

namespace pelmo::bench {
namespace {

constexpr std::size_t RECORD_BYTES = 16;

void append_record(std::string& text, std::uint8_t type, std::uint16_t address,
                   std::span<const std::uint8_t> data) {
  unsigned sum = 0;
  const auto put = [&](std::uint8_t byte) {
    text.push_back(hex_digit_char(byte >> 4));
    text.push_back(hex_digit_char(byte));
    sum += byte;
  };
  text.push_back(':');
  put(static_cast<std::uint8_t>(data.size()));
  put(static_cast<std::uint8_t>(address >> 8));
  put(static_cast<std::uint8_t>(address));
  put(type);
  for (const std::uint8_t byte : data) {
    put(byte);
  }
  put(static_cast<std::uint8_t>(-sum));
  text += "\r\n";
}

}  // namespace

std::string make_intel_hex(std::span<const std::uint8_t> image, std::uint32_t base) {
  std::string text;
  text.reserve(image.size() / RECORD_BYTES * 45 + 64);
  std::uint32_t upper = 0xFFFFFFFF;  // forces the first extended address record
  for (std::size_t offset = 0; offset < image.size(); offset += RECORD_BYTES) {
    const std::uint32_t address = base + static_cast<std::uint32_t>(offset);
    if ((address >> 16) != upper) {
      upper = address >> 16;
      const std::array<std::uint8_t, 2> value{static_cast<std::uint8_t>(upper >> 8),
                                              static_cast<std::uint8_t>(upper)};
      append_record(text, 0x04, 0, value);
    }
    const std::size_t count = std::min(RECORD_BYTES, image.size() - offset);
    append_record(text, 0x00, static_cast<std::uint16_t>(address), image.subspan(offset, count));
  }
  append_record(text, 0x01, 0, {});
  return text;
}

std::vector<std::uint8_t> pseudo_random_bytes(std::size_t count) {
  std::vector<std::uint8_t> bytes(count);
  std::uint32_t state = 0x12345678;
  for (std::uint8_t& byte : bytes) {
    state = state * 1664525u + 1013904223u;  // a small linear congruential generator
    byte = static_cast<std::uint8_t>(state >> 24);
  }
  return bytes;
}

}  // namespace pelmo::bench
