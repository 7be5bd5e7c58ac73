#pragma once

#include <array>
#include <cstdint>
#include <cstdio>
#include <span>
#include <string_view>

namespace pelmo {

// Record types the reader knows; any other type (start segment address 03 included) ends a read.
enum class HexRecordType : std::uint8_t {
  data = 0x00,
  end_of_file = 0x01,
  extended_segment_address = 0x02,
  start_segment_address = 0x03,
  extended_linear_address = 0x04,
  start_linear_address = 0x05,
};

inline constexpr std::size_t HEX_MAX_DATA_BYTES = 255;

// One decoded record line. Only the first `byte_count` bytes of `data` belong to the record.
struct HexRecord {
  std::array<std::uint8_t, HEX_MAX_DATA_BYTES> data;
  std::uint16_t load_address;
  std::uint8_t byte_count;
  std::uint8_t record_type;
};

// Decodes one record line given without its line end: a colon, then hexadecimal digit pairs for the
// byte count, load address, record type, data bytes and checksum; anything after the checksum is
// ignored. Returns true for a well-formed record whose bytes sum to 0 modulo 256; on false,
// `record` holds no meaningful value.
bool parse_hex_record(std::string_view line, HexRecord& record);

// Builds a memory image from Intel HEX text. Device address a lands at image[a - base]; the image
// may cover device addresses from `base` up to, not including, `base + limit` (and never past the
// end of `image`). Bytes that no data record covers are left as they were. Returns the image
// length, from `base` up to and including the highest byte written, or 0 on any failure: a line
// that is not a good record, an unknown record type, data outside the bounds, or text that ends
// before an end-of-file record. An end-of-file record before any data byte gives 0 as well. Lines
// after the end-of-file record are not looked at.
std::uint32_t read_intel_hex(std::string_view text, std::span<std::uint8_t> image,
                             std::uint32_t limit, std::uint32_t base);

// The same over an open stream, read from its current position to its end in one go. The stream is
// not closed.
std::uint32_t read_intel_hex(std::FILE* input, std::span<std::uint8_t> image, std::uint32_t limit,
                             std::uint32_t base);

}  // namespace pelmo
