#include "pelmo/formats/intel_hex.hpp"

#include <algorithm>
#include <cstring>

#include "pelmo/formats/number_text.hpp"
#include "pelmo/formats/stream_text.hpp"

namespace pelmo {
namespace {

// A line read takes at most this many characters; a longer line goes on as a line of its own.
constexpr std::size_t HEX_LINE_MAX_CHARS = 999;

// Decodes the two digits at `text`; false when either is not a hexadecimal digit.
inline bool decode_hex_byte(const char* text, std::uint8_t& value) {
  const std::uint8_t high = digit_value(text[0]);
  const std::uint8_t low = digit_value(text[1]);
  value = static_cast<std::uint8_t>((high << 4) | low);
  return (high | low) < 16;  // both digits valid
}

// Record line layout, counting the colon as position 0: byte count, load address, type, data.
constexpr std::size_t MIN_RECORD_CHARS = 11;
constexpr std::size_t DATA_POSITION = 9;

// Decodes one record line; none, malformed_record or bad_checksum.
HexError decode_record(std::string_view line, HexRecord& record) {
  if (line.size() < MIN_RECORD_CHARS || line[0] != ':') {
    return HexError::malformed_record;
  }
  const char* text = line.data();
  std::uint8_t count = 0;
  std::uint8_t address_high = 0;
  std::uint8_t address_low = 0;
  std::uint8_t type = 0;
  if (!decode_hex_byte(text + 1, count) || line.size() < MIN_RECORD_CHARS + 2u * count ||
      !decode_hex_byte(text + 3, address_high) || !decode_hex_byte(text + 5, address_low) ||
      !decode_hex_byte(text + 7, type)) {
    return HexError::malformed_record;
  }
  unsigned sum = count + address_high + address_low + type;
  const char* digits = text + DATA_POSITION;
  for (unsigned index = 0; index < count; ++index, digits += 2) {
    if (!decode_hex_byte(digits, record.data[index])) {
      return HexError::malformed_record;
    }
    sum += record.data[index];
  }
  std::uint8_t checksum = 0;
  if (!decode_hex_byte(digits, checksum)) {
    return HexError::malformed_record;
  }
  sum += checksum;
  record.load_address = static_cast<std::uint16_t>((address_high << 8) | address_low);
  record.byte_count = count;
  record.record_type = type;
  return (sum & 0xFFu) == 0 ? HexError::none : HexError::bad_checksum;
}

// Builds the image one record line at a time, so the same rules serve text in memory and a file
// read in blocks.
class HexImageReader {
 public:
  HexImageReader(std::span<std::uint8_t> image, std::uint32_t limit, std::uint32_t base)
      : image_(image),
        base_(base),
        // Bounds in 64 bits so that neither base + limit nor start + count can wrap.
        end_bound_(std::uint64_t{base} + std::min<std::uint64_t>(limit, image.size())),
        // Without an extended address record, load addresses count from the base.
        upper_address_(base) {}

  // Takes one line piece (its line end included or not); false once the read has ended, either
  // at the end-of-file record or at a failure.
  bool take_line(std::string_view piece) {
    const bool continues = take_record(strip_line_end(piece));
    if (!piece.empty() && piece.back() == '\n') {
      ++line_;
    }
    return continues;
  }

  // The outcome once the text has ended or the reader stopped taking lines.
  HexReadResult result() {
    if (!ended_) {
      fail(HexError::missing_end_record);
      result_.line = 0;
    }
    return result_;
  }

 private:
  bool take_record(std::string_view line) {
    if (const HexError error = decode_record(line, record_); error != HexError::none) {
      return fail(error);
    }
    switch (static_cast<HexRecordType>(record_.record_type)) {
      case HexRecordType::data:
        return take_data();
      case HexRecordType::end_of_file:
        ended_ = true;
        if (highest_end_ == 0) {
          return fail(HexError::no_data);
        }
        result_.length = static_cast<std::uint32_t>(highest_end_ - base_);
        return false;
      case HexRecordType::extended_segment_address:
        if (record_.byte_count < 2) {
          return fail(HexError::short_address);
        }
        upper_address_ = static_cast<std::uint32_t>((record_.data[0] << 8) | record_.data[1]) << 4;
        return true;
      case HexRecordType::extended_linear_address:
        if (record_.byte_count < 2) {
          return fail(HexError::short_address);
        }
        upper_address_ =
            (std::uint32_t{record_.data[0]} << 24) | (std::uint32_t{record_.data[1]} << 16);
        return true;
      case HexRecordType::start_linear_address:
        return true;
      default:
        return fail(HexError::unsupported_type);
    }
  }

  bool take_data() {
    const std::uint32_t start = upper_address_ + record_.load_address;  // wraps like the device
    const std::uint64_t end = std::uint64_t{start} + record_.byte_count;
    if (start < base_ || end > end_bound_) {
      result_.record_address = start;
      result_.record_bytes = record_.byte_count;
      return fail(HexError::outside_bounds);
    }
    if (record_.byte_count != 0) {
      std::memcpy(image_.data() + (start - base_), record_.data.data(), record_.byte_count);
      highest_end_ = std::max(highest_end_, end);
      result_.data_bytes += record_.byte_count;
    }
    return true;
  }

  bool fail(HexError error) {
    ended_ = true;
    result_.length = 0;
    result_.error = error;
    result_.line = line_;
    return false;
  }

  std::span<std::uint8_t> image_;
  std::uint32_t base_;
  std::uint64_t end_bound_;
  std::uint32_t upper_address_;
  std::uint64_t highest_end_ = 0;  // one past the highest device address written; 0: nothing yet
  std::uint32_t line_ = 1;
  bool ended_ = false;
  HexReadResult result_{};
  HexRecord record_{};
};

}  // namespace

bool parse_hex_record(std::string_view line, HexRecord& record) {
  return decode_record(line, record) == HexError::none;
}

HexReadResult read_hex_image(std::string_view text, std::span<std::uint8_t> image,
                             std::uint32_t limit, std::uint32_t base) {
  HexImageReader reader(image, limit, base);
  while (!text.empty() && reader.take_line(take_line_piece(text, HEX_LINE_MAX_CHARS))) {
  }
  return reader.result();
}

HexReadResult read_hex_image(std::FILE* input, std::span<std::uint8_t> image, std::uint32_t limit,
                             std::uint32_t base) {
  HexImageReader reader(image, limit, base);
  // Blocks rather than the whole file: a multi-megabyte text would otherwise cost a buffer of its
  // size, and its page faults dominate the load time.
  for_each_line_piece(input, HEX_LINE_MAX_CHARS,
                      [&reader](std::string_view piece) { return reader.take_line(piece); });
  return reader.result();
}

}  // namespace pelmo
