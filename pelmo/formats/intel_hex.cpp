#include "pelmo/formats/intel_hex.hpp"

#include <algorithm>
#include <cstring>
#include <string>

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

// A start segment address record (03) names where execution begins, no image data. The flat read
// has always refused it; the segment read skips it like a start linear address (05), since tools
// write it with segment-addressed files.
enum class StartSegmentRecord : bool { ends_read, skipped };

// The record walk both reads share, one record line at a time, so the same rules serve text in
// memory and a file read in blocks: decoding, line counting, extended addresses and the end
// record. What becomes of a data record is the sink's: `take_data(address, bytes)` answers
// HexError::none or the error that ends the read, `has_data()` whether any byte was taken.
template <typename Sink>
class HexRecordWalk {
 public:
  // `upper_address`: what load addresses count from until an extended address record.
  HexRecordWalk(Sink& sink, std::uint32_t upper_address, StartSegmentRecord start_segment)
      : sink_(sink), upper_address_(upper_address), start_segment_(start_segment) {}

  // Takes one line piece (its line end included or not); false once the read has ended, either
  // at the end-of-file record or at a failure.
  bool take_line(std::string_view piece) {
    const bool continues = take_record(strip_line_end(piece));
    if (!piece.empty() && piece.back() == '\n') {
      ++line_;
    }
    return continues;
  }

  // Once the text has ended or the walk stopped taking lines: none after a good end-of-file
  // record, else the error and its line (0 when the text ended without an end record).
  HexError error() const { return ended_ ? error_ : HexError::missing_end_record; }
  std::uint32_t error_line() const { return ended_ ? error_line_ : 0; }

 private:
  bool take_record(std::string_view line) {
    if (const HexError error = decode_record(line, record_); error != HexError::none) {
      return fail(error);
    }
    switch (static_cast<HexRecordType>(record_.record_type)) {
      case HexRecordType::data: {
        const std::uint32_t start = upper_address_ + record_.load_address;  // wraps like the device
        const HexError error =
            sink_.take_data(start, std::span(record_.data.data(), record_.byte_count));
        return error == HexError::none || fail(error);
      }
      case HexRecordType::end_of_file:
        if (!sink_.has_data()) {
          return fail(HexError::no_data);
        }
        ended_ = true;
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
      case HexRecordType::start_segment_address:
        return start_segment_ == StartSegmentRecord::skipped || fail(HexError::unsupported_type);
      default:
        return fail(HexError::unsupported_type);
    }
  }

  bool fail(HexError error) {
    ended_ = true;
    error_ = error;
    error_line_ = line_;
    return false;
  }

  Sink& sink_;
  std::uint32_t upper_address_;
  StartSegmentRecord start_segment_;
  std::uint32_t line_ = 1;
  bool ended_ = false;
  HexError error_ = HexError::none;
  std::uint32_t error_line_ = 0;
  HexRecord record_{};
};

// Places data records into a flat image from `base`, within `limit` and the image's end.
class FlatImageSink {
 public:
  FlatImageSink(std::span<std::uint8_t> image, std::uint32_t limit, std::uint32_t base)
      : image_(image),
        base_(base),
        // Bounds in 64 bits so that neither base + limit nor start + count can wrap.
        end_bound_(std::uint64_t{base} + std::min<std::uint64_t>(limit, image.size())) {}

  HexError take_data(std::uint32_t start, std::span<const std::uint8_t> bytes) {
    const std::uint64_t end = std::uint64_t{start} + bytes.size();
    if (start < base_ || end > end_bound_) {
      result_.record_address = start;
      result_.record_bytes = static_cast<std::uint8_t>(bytes.size());
      return HexError::outside_bounds;
    }
    if (!bytes.empty()) {
      std::memcpy(image_.data() + (start - base_), bytes.data(), bytes.size());
      highest_end_ = std::max(highest_end_, end);
      result_.data_bytes += static_cast<std::uint32_t>(bytes.size());
    }
    return HexError::none;
  }

  bool has_data() const { return highest_end_ != 0; }

  HexReadResult result(HexError error, std::uint32_t line) const {
    HexReadResult result = result_;
    result.error = error;
    result.line = line;
    result.length = error == HexError::none ? static_cast<std::uint32_t>(highest_end_ - base_) : 0;
    return result;
  }

 private:
  std::span<std::uint8_t> image_;
  std::uint32_t base_;
  std::uint64_t end_bound_;
  std::uint64_t highest_end_ = 0;  // one past the highest device address written; 0: nothing yet
  HexReadResult result_{};
};

// Collects data records as segments at their device addresses.
class SegmentSink {
 public:
  explicit SegmentSink(std::size_t max_bytes) : builder_(max_bytes) {}

  HexError take_data(std::uint32_t start, std::span<const std::uint8_t> bytes) {
    return builder_.add(start, bytes) ? HexError::none : HexError::too_much_data;
  }
  bool has_data() const { return builder_.data_bytes() != 0; }
  std::vector<ImageSegment> take() { return builder_.take(); }

 private:
  SegmentBuilder builder_;
};

}  // namespace

bool parse_hex_record(std::string_view line, HexRecord& record) {
  return decode_record(line, record) == HexError::none;
}

std::string_view hex_error_text(HexError error) {
  switch (error) {
    case HexError::none:
      return "no error";
    case HexError::malformed_record:
      return "malformed record";
    case HexError::bad_checksum:
      return "checksum mismatch";
    case HexError::unsupported_type:
      return "unsupported record type";
    case HexError::short_address:
      return "address record with fewer than two data bytes";
    case HexError::outside_bounds:
      return "data record outside the image";
    case HexError::missing_end_record:
      return "no end-of-file record";
    case HexError::no_data:
      return "end-of-file record before any data";
    case HexError::too_much_data:
      return "more data than a firmware file may hold";
  }
  return "unknown error";
}

HexReadResult read_hex_image(std::string_view text, std::span<std::uint8_t> image,
                             std::uint32_t limit, std::uint32_t base) {
  FlatImageSink sink(image, limit, base);
  // Without an extended address record, load addresses count from the base.
  HexRecordWalk walk(sink, base, StartSegmentRecord::ends_read);
  while (!text.empty() && walk.take_line(take_line_piece(text, HEX_LINE_MAX_CHARS))) {
  }
  return sink.result(walk.error(), walk.error_line());
}

HexReadResult read_hex_image(std::FILE* input, std::span<std::uint8_t> image, std::uint32_t limit,
                             std::uint32_t base) {
  FlatImageSink sink(image, limit, base);
  HexRecordWalk walk(sink, base, StartSegmentRecord::ends_read);
  // Blocks rather than the whole file: a multi-megabyte text would otherwise cost a buffer of its
  // size, and its page faults dominate the load time.
  for_each_line_piece(input, HEX_LINE_MAX_CHARS,
                      [&walk](std::string_view piece) { return walk.take_line(piece); });
  return sink.result(walk.error(), walk.error_line());
}

SegmentRead read_hex_segments(std::string_view text, std::size_t max_bytes) {
  SegmentSink sink(max_bytes);
  HexRecordWalk walk(sink, 0, StartSegmentRecord::skipped);
  while (!text.empty() && walk.take_line(take_line_piece(text, HEX_LINE_MAX_CHARS))) {
  }
  SegmentRead read;
  if (const HexError error = walk.error(); error != HexError::none) {
    if (walk.error_line() != 0) {
      read.where = "line " + std::to_string(walk.error_line());
    }
    read.error = hex_error_text(error);
  } else {
    read.segments = sink.take();
  }
  return read;
}

}  // namespace pelmo
