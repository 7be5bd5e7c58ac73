#include "pelmo/formats/srecord.hpp"

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "pelmo/formats/number_text.hpp"
#include "pelmo/formats/stream_text.hpp"

namespace pelmo {
namespace {

enum class RecordRole : std::uint8_t { header, data, count, termination, reserved };

// What each type digit S0..S9 means and how many bytes its address field has.
struct RecordKind {
  RecordRole role;
  std::uint8_t address_bytes;
};
constexpr std::array<RecordKind, 10> RECORD_KINDS{{
    {RecordRole::header, 2},       // S0
    {RecordRole::data, 2},         // S1
    {RecordRole::data, 3},         // S2
    {RecordRole::data, 4},         // S3
    {RecordRole::reserved, 0},     // S4
    {RecordRole::count, 2},        // S5
    {RecordRole::count, 3},        // S6
    {RecordRole::termination, 4},  // S7
    {RecordRole::termination, 3},  // S8
    {RecordRole::termination, 2},  // S9
}};

// Count byte, up to four address bytes, up to 250 data bytes and the checksum.
constexpr std::size_t MAX_RECORD_BYTES = 256;

struct Record {
  RecordKind kind{};
  std::uint32_t address = 0;
  std::span<const std::uint8_t> data;
};

// Decodes one line (its line end removed) into `record`, its bytes kept in `storage`; the reason
// when the line is no well-formed record.
std::optional<std::string> decode_record(std::string_view line,
                                         std::array<std::uint8_t, MAX_RECORD_BYTES>& storage,
                                         Record& record) {
  if (line.size() < 4 || line[0] != 'S' || !is_decimal_digit(line[1])) {
    return "not an S-record";
  }
  record.kind = RECORD_KINDS[digit_value(line[1])];
  if (record.kind.role == RecordRole::reserved) {
    return "unsupported record type S" + std::string(1, line[1]);
  }
  const std::string_view digits = line.substr(2);
  const std::size_t byte_count = digits.size() / 2;
  for (std::size_t index = 0; index < byte_count && index < storage.size(); ++index) {
    const std::uint8_t high = digit_value(digits[2 * index]);
    const std::uint8_t low = digit_value(digits[2 * index + 1]);
    if ((high | low) >= 16) {
      return "malformed record: a character that is not a hexadecimal digit";
    }
    storage[index] = static_cast<std::uint8_t>((high << 4) | low);
  }
  if (digits.size() % 2 != 0 || byte_count > storage.size() || byte_count != 1u + storage[0]) {
    return "malformed record: its byte count does not match the line's length";
  }
  if (storage[0] < record.kind.address_bytes + 1u) {
    return "malformed record: its byte count is too small for its address";
  }
  unsigned sum = 0;
  for (std::size_t index = 0; index + 1 < byte_count; ++index) {
    sum += storage[index];
  }
  if (static_cast<std::uint8_t>(~sum) != storage[byte_count - 1]) {
    return "checksum mismatch";
  }
  record.address = 0;
  for (std::size_t index = 1; index <= record.kind.address_bytes; ++index) {
    record.address = (record.address << 8) | storage[index];
  }
  record.data = std::span(storage).subspan(1u + record.kind.address_bytes,
                                           byte_count - 2u - record.kind.address_bytes);
  return std::nullopt;
}

}  // namespace

SegmentRead read_srecord_segments(std::string_view text, std::size_t max_bytes) {
  SegmentRead read;
  SegmentBuilder builder(max_bytes);
  std::array<std::uint8_t, MAX_RECORD_BYTES> storage{};
  std::uint32_t data_records = 0;
  std::uint32_t line_number = 0;
  const auto fail = [&read, &line_number](std::string error) {
    read.where = "line " + std::to_string(line_number);
    read.error = std::move(error);
    return std::move(read);
  };
  while (!text.empty()) {
    ++line_number;
    const std::size_t line_feed = text.find('\n');
    const std::string_view line = strip_line_end(text.substr(0, line_feed));
    text.remove_prefix(line_feed == std::string_view::npos ? text.size() : line_feed + 1);
    Record record;
    if (std::optional<std::string> error = decode_record(line, storage, record)) {
      return fail(std::move(*error));
    }
    switch (record.kind.role) {
      case RecordRole::data:
        if (!builder.add(record.address, record.data)) {
          return fail("more data than a firmware file may hold");
        }
        ++data_records;
        break;
      case RecordRole::count:
        if (record.address != data_records) {
          return fail("the count record says " + std::to_string(record.address) +
                      " data records, the file has " + std::to_string(data_records));
        }
        break;
      case RecordRole::termination:
        read.segments = builder.take();
        return read;
      case RecordRole::header:
      case RecordRole::reserved:
        break;
    }
  }
  read.error = "no termination record (S7, S8 or S9)";
  return read;
}

}  // namespace pelmo
