// The Intel HEX reader on arbitrary text. The input starts with the image's base (4 bytes), its
// limit (4 bytes) and the size of the image buffer (2 bytes); the rest is the file's text. The
// buffer is a heap block of exactly that size, so any write past it is caught.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string_view>

#include "fuzz/fuzz_check.hpp"
#include "pelmo/formats/firmware_file.hpp"
#include "pelmo/formats/intel_hex.hpp"
#include "pelmo/protocol/bytes.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 10) {
    return 0;
  }
  const std::uint32_t base = pelmo::load_u32(pelmo::ByteOrder::little, data);
  const std::uint32_t limit = pelmo::load_u32(pelmo::ByteOrder::little, data + 4);
  const std::size_t capacity = data[8] | (data[9] << 8);
  const std::string_view text(reinterpret_cast<const char*>(data + 10), size - 10);

  // The first line alone as one record: a good record's count never exceeds its data.
  pelmo::HexRecord record;
  if (pelmo::parse_hex_record(text.substr(0, text.find('\n')), record)) {
    FUZZ_CHECK(text.size() >= 11u + 2u * record.byte_count);
  }

  const auto image = std::make_unique<std::uint8_t[]>(capacity);
  const std::uint32_t length =
      pelmo::read_intel_hex(text, std::span(image.get(), capacity), limit, base);
  FUZZ_CHECK(length <= capacity && length <= limit);

  // The segment read shares the flat read's record walk: from base 0, where both count load
  // addresses alike, a text the flat read takes must place to the same bytes.
  if (base == 0 && length != 0) {
    const pelmo::FirmwareFileLoad segments = pelmo::parse_firmware_file(
        pelmo::FirmwareFormat::intel_hex, std::span(data + 10, size - 10), "fuzz.hex");
    FUZZ_CHECK(segments.file.has_value());
    const pelmo::PlacedFirmware placed =
        pelmo::place_firmware(*segments.file, pelmo::FirmwareArea{0, length});
    FUZZ_CHECK(placed.image.size() == length);
    for (std::size_t at = 0; at < length; ++at) {
      // Bytes no record covers: erased in the placed image, untouched (zero) in the flat one.
      FUZZ_CHECK(placed.image[at] == image[at] || (placed.image[at] == 0xFF && image[at] == 0));
    }
  }

  // The stream reader takes the file in blocks; it must come to the very same image.
  std::FILE* file = fmemopen(const_cast<char*>(text.data()), text.size(), "rb");
  if (file != nullptr) {
    const auto again = std::make_unique<std::uint8_t[]>(capacity);
    FUZZ_CHECK(pelmo::read_intel_hex(file, std::span(again.get(), capacity), limit, base) ==
               length);
    FUZZ_CHECK(std::equal(image.get(), image.get() + capacity, again.get()));
    std::fclose(file);
  }
  return 0;
}
