#pragma once

#include <array>
#include <cstdint>
#include <cstdio>
#include <span>
#include <string_view>

#include "pelmo/formats/image_segment.hpp"

namespace pelmo {

// Record types the reader knows; any other type ends a read, and so does a start segment address
// record (03) in read_hex_image.
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

// Why a read failed.
enum class HexError : std::uint8_t {
  none,
  malformed_record,    // no colon first, too short for its byte count, or a non-hexadecimal digit
  bad_checksum,        // a well-formed record whose bytes do not sum to 0 modulo 256
  unsupported_type,    // a record type other than 00, 01, 02, 04 and 05
  short_address,       // an 02 or 04 record with fewer than two data bytes
  outside_bounds,      // a data record below the base or past base + limit
  missing_end_record,  // the text ended before an end-of-file record
  no_data,             // the end-of-file record came before any data byte
  too_much_data,       // the segment read only: the records carry more data than its bound
};

// A short lower-case wording of `error` for messages ("checksum mismatch").
std::string_view hex_error_text(HexError error);

// What a read did. On failure the image holds whatever the records before the failing one placed.
struct HexReadResult {
  std::uint32_t length = 0;  // from the base through the highest byte written; 0 on failure
  HexError error = HexError::none;
  std::uint32_t line = 0;        // 1-based line of the failing record; 0 when no line is at fault
  std::uint32_t data_bytes = 0;  // data bytes the records placed (overlaps counted each time)
  // outside_bounds: the failing data record's first device address and its byte count.
  std::uint32_t record_address = 0;
  std::uint8_t record_bytes = 0;
};

// Builds a memory image from Intel HEX text. Device address a lands at image[a - base]; the image
// may cover device addresses from `base` up to, not including, `base + limit` (and never past the
// end of `image`). Bytes that no data record covers are left as they were. Lines after the
// end-of-file record are not looked at; a line longer than 999 characters is read as several.
HexReadResult read_hex_image(std::string_view text, std::span<std::uint8_t> image,
                             std::uint32_t limit, std::uint32_t base);

// The same over an open stream, read from its current position to its end in blocks. The stream
// is not closed; a read error ends the text where it happened.
HexReadResult read_hex_image(std::FILE* input, std::span<std::uint8_t> image, std::uint32_t limit,
                             std::uint32_t base);

// The image length alone (0 on any failure), for callers that need no reason.
inline std::uint32_t read_intel_hex(std::string_view text, std::span<std::uint8_t> image,
                                    std::uint32_t limit, std::uint32_t base) {
  return read_hex_image(text, image, limit, base).length;
}
inline std::uint32_t read_intel_hex(std::FILE* input, std::span<std::uint8_t> image,
                                    std::uint32_t limit, std::uint32_t base) {
  return read_hex_image(input, image, limit, base).length;
}

// Reads Intel HEX text as segments at the device addresses its records name, by the same record
// rules as read_hex_image (line ends, extended addresses, the end-of-file record), without a base
// or limit: the caller places the segments. Unlike read_hex_image it skips a start segment address
// record (03), as it does 05. The records may carry at most `max_bytes` of data.
// Errors are located by line ("line 12").
SegmentRead read_hex_segments(std::string_view text, std::size_t max_bytes);

}  // namespace pelmo
