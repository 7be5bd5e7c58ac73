#include "cli/intel_hex_output.hpp"

#include <algorithm>
#include <vector>

namespace pelmo::cli {
namespace {

constexpr std::size_t RECORD_BYTES = 16;

void append_record(std::string& text, std::uint8_t type, std::uint16_t offset,
                   std::span<const std::uint8_t> data) {
  static constexpr char DIGITS[] = "0123456789ABCDEF";
  std::vector<std::uint8_t> body{static_cast<std::uint8_t>(data.size()),
                                 static_cast<std::uint8_t>(offset >> 8),
                                 static_cast<std::uint8_t>(offset & 0xFF), type};
  body.insert(body.end(), data.begin(), data.end());
  std::uint8_t sum = 0;
  for (const std::uint8_t byte : body) {
    sum = static_cast<std::uint8_t>(sum + byte);
  }
  body.push_back(static_cast<std::uint8_t>(0x100 - sum));
  text += ':';
  for (const std::uint8_t byte : body) {
    text += DIGITS[byte >> 4];
    text += DIGITS[byte & 0x0F];
  }
  text += "\r\n";
}

}  // namespace

std::string intel_hex_text(std::uint32_t address, std::span<const std::uint8_t> bytes) {
  std::string text;
  std::uint64_t at = address;
  std::size_t index = 0;
  bool first = true;
  while (index < bytes.size()) {
    const auto upper = static_cast<std::uint16_t>(at >> 16);
    if (first || (at & 0xFFFF) == 0) {
      const std::uint8_t base[] = {static_cast<std::uint8_t>(upper >> 8),
                                   static_cast<std::uint8_t>(upper & 0xFF)};
      append_record(text, 0x04, 0, base);
      first = false;
    }
    const std::size_t to_boundary = 0x10000 - static_cast<std::size_t>(at & 0xFFFF);
    const std::size_t count = std::min({RECORD_BYTES, bytes.size() - index, to_boundary});
    append_record(text, 0x00, static_cast<std::uint16_t>(at & 0xFFFF), bytes.subspan(index, count));
    index += count;
    at += count;
  }
  append_record(text, 0x01, 0, {});
  return text;
}

}  // namespace pelmo::cli
