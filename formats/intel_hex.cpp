#include "formats/intel_hex.hpp"

#include <algorithm>
#include <cstring>
#include <string>

#include "formats/stream_text.hpp"

namespace pelmo {
namespace {

// A line read takes at most this many characters; a longer line goes on as a line of its own.
constexpr std::size_t HEX_LINE_MAX_CHARS = 999;

// Characters that are not hexadecimal digits decode to this marker.
constexpr std::uint8_t NOT_HEX = 0xFF;

constexpr std::array<std::uint8_t, 256> make_hex_digit_table() {
  std::array<std::uint8_t, 256> table{};
  table.fill(NOT_HEX);
  for (int digit = 0; digit < 10; ++digit) {
    table['0' + digit] = static_cast<std::uint8_t>(digit);
  }
  for (int digit = 0; digit < 6; ++digit) {
    table['A' + digit] = static_cast<std::uint8_t>(10 + digit);
    table['a' + digit] = static_cast<std::uint8_t>(10 + digit);
  }
  return table;
}

constexpr std::array<std::uint8_t, 256> HEX_DIGIT = make_hex_digit_table();

// Decodes the two digits at `text`; false when either is not a hexadecimal digit.
inline bool decode_hex_byte(const char* text, std::uint8_t& value) {
  const std::uint8_t high = HEX_DIGIT[static_cast<unsigned char>(text[0])];
  const std::uint8_t low = HEX_DIGIT[static_cast<unsigned char>(text[1])];
  value = static_cast<std::uint8_t>((high << 4) | low);
  return (high | low) < 16;  // both digits valid
}

// Record line layout, counting the colon as position 0: byte count, load address, type, data.
constexpr std::size_t MIN_RECORD_CHARS = 11;
constexpr std::size_t DATA_POSITION = 9;

}  // namespace

bool parse_hex_record(std::string_view line, HexRecord& record) {
  if (line.size() < MIN_RECORD_CHARS || line[0] != ':') {
    return false;
  }
  const char* text = line.data();
  std::uint8_t count = 0;
  std::uint8_t address_high = 0;
  std::uint8_t address_low = 0;
  std::uint8_t type = 0;
  if (!decode_hex_byte(text + 1, count) || line.size() < MIN_RECORD_CHARS + 2u * count ||
      !decode_hex_byte(text + 3, address_high) || !decode_hex_byte(text + 5, address_low) ||
      !decode_hex_byte(text + 7, type)) {
    return false;
  }
  unsigned sum = count + address_high + address_low + type;
  const char* digits = text + DATA_POSITION;
  for (unsigned index = 0; index < count; ++index, digits += 2) {
    if (!decode_hex_byte(digits, record.data[index])) {
      return false;
    }
    sum += record.data[index];
  }
  std::uint8_t checksum = 0;
  if (!decode_hex_byte(digits, checksum)) {
    return false;
  }
  sum += checksum;
  record.load_address = static_cast<std::uint16_t>((address_high << 8) | address_low);
  record.byte_count = count;
  record.record_type = type;
  return (sum & 0xFFu) == 0;
}

std::uint32_t read_intel_hex(std::string_view text, std::span<std::uint8_t> image,
                             std::uint32_t limit, std::uint32_t base) {
  // Bounds in 64 bits so that neither base + limit nor start + count can wrap.
  const std::uint64_t bound_limit = std::min<std::uint64_t>(limit, image.size());
  const std::uint64_t end_bound = std::uint64_t{base} + bound_limit;

  // Without an extended address record, load addresses count from the base.
  std::uint32_t upper_address = base;
  std::uint64_t highest_end = 0;  // one past the highest device address written; 0: nothing yet
  HexRecord record;
  while (!text.empty()) {
    const std::string_view line = strip_line_end(take_line_piece(text, HEX_LINE_MAX_CHARS));
    if (!parse_hex_record(line, record)) {
      return 0;
    }
    switch (static_cast<HexRecordType>(record.record_type)) {
      case HexRecordType::data: {
        const std::uint32_t start = upper_address + record.load_address;  // wraps like the device
        const std::uint64_t end = std::uint64_t{start} + record.byte_count;
        if (start < base || end > end_bound) {
          return 0;
        }
        if (record.byte_count != 0) {
          std::memcpy(image.data() + (start - base), record.data.data(), record.byte_count);
          highest_end = std::max(highest_end, end);
        }
        break;
      }
      case HexRecordType::end_of_file:
        return highest_end == 0 ? 0 : static_cast<std::uint32_t>(highest_end - base);
      case HexRecordType::extended_segment_address:
        if (record.byte_count < 2) {
          return 0;
        }
        upper_address = static_cast<std::uint32_t>((record.data[0] << 8) | record.data[1]) << 4;
        break;
      case HexRecordType::extended_linear_address:
        if (record.byte_count < 2) {
          return 0;
        }
        upper_address =
            (std::uint32_t{record.data[0]} << 24) | (std::uint32_t{record.data[1]} << 16);
        break;
      case HexRecordType::start_linear_address:
        break;
      default:
        return 0;
    }
  }
  return 0;  // the text ended before an end-of-file record
}

std::uint32_t read_intel_hex(std::FILE* input, std::span<std::uint8_t> image, std::uint32_t limit,
                             std::uint32_t base) {
  if (input == nullptr) {
    return 0;
  }
  const std::string text = read_stream_text(input);
  return read_intel_hex(std::string_view{text}, image, limit, base);
}

}  // namespace pelmo
