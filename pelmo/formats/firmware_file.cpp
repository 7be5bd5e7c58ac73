#include "pelmo/formats/firmware_file.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <system_error>
#include <utility>

#include "pelmo/formats/elf_file.hpp"
#include "pelmo/formats/intel_hex.hpp"
#include "pelmo/formats/srecord.hpp"
#include "pelmo/formats/stream_text.hpp"

namespace pelmo {
namespace {

constexpr std::uint8_t ERASED_FLASH = 0xFF;

struct ExtensionFormat {
  std::string_view extension;  // lower case, with its dot
  FirmwareFormat format;
};
constexpr std::array<ExtensionFormat, 7> EXTENSIONS{{
    {".bin", FirmwareFormat::raw},
    {".hex", FirmwareFormat::intel_hex},
    {".srec", FirmwareFormat::srecord},
    {".s19", FirmwareFormat::srecord},
    {".s28", FirmwareFormat::srecord},
    {".s37", FirmwareFormat::srecord},
    {".elf", FirmwareFormat::elf},
}};

bool ends_with_ignoring_case(std::string_view text, std::string_view lower_suffix) {
  if (text.size() < lower_suffix.size()) {
    return false;
  }
  return std::equal(lower_suffix.begin(), lower_suffix.end(),
                    text.end() - static_cast<std::ptrdiff_t>(lower_suffix.size()),
                    [](char lower, char c) {
                      return lower == (c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c);
                    });
}

// "0x08000000..0x0807FFFF (512 KiB)".
std::string area_text(const FirmwareArea& area) {
  std::string size = area.max_size % 1024 == 0 && area.max_size != 0
                         ? std::to_string(area.max_size / 1024) + " KiB"
                         : std::to_string(area.max_size) + " bytes";
  if (area.max_size == 0) {
    return address_text(area.address) + " (" + size + ")";
  }
  return address_text(area.address) + ".." +
         address_text(std::uint64_t{area.address} + area.max_size - 1) + " (" + size + ")";
}

FirmwareFileLoad failure(std::string error) {
  return {std::nullopt, std::move(error)};
}

SegmentRead read_raw(std::span<const std::uint8_t> content) {
  if (content.size() > FIRMWARE_FILE_MAX_BYTES) {
    return {{}, {}, "more data than a firmware file may hold"};
  }
  SegmentRead read;
  if (!content.empty()) {
    read.segments.push_back({0, {content.begin(), content.end()}});
  }
  return read;
}

SegmentRead read_segments(FirmwareFormat format, std::span<const std::uint8_t> content) {
  const std::string_view text(reinterpret_cast<const char*>(content.data()), content.size());
  switch (format) {
    case FirmwareFormat::raw:
      return read_raw(content);
    case FirmwareFormat::intel_hex:
      return read_hex_segments(text, FIRMWARE_FILE_MAX_BYTES);
    case FirmwareFormat::srecord:
      return read_srecord_segments(text, FIRMWARE_FILE_MAX_BYTES);
    case FirmwareFormat::elf:
      return read_elf_segments(content, FIRMWARE_FILE_MAX_BYTES);
  }
  return {{}, {}, "unknown format"};
}

}  // namespace

std::optional<FirmwareFormat> firmware_format_of(std::string_view file_name) {
  for (const ExtensionFormat& entry : EXTENSIONS) {
    if (ends_with_ignoring_case(file_name, entry.extension)) {
      return entry.format;
    }
  }
  return std::nullopt;
}

std::string_view firmware_format_name(FirmwareFormat format) {
  switch (format) {
    case FirmwareFormat::raw:
      return "raw";
    case FirmwareFormat::intel_hex:
      return "intel-hex";
    case FirmwareFormat::srecord:
      return "s-record";
    case FirmwareFormat::elf:
      return "elf";
  }
  return "unknown";
}

std::uint64_t FirmwareFile::data_bytes() const {
  std::uint64_t total = 0;
  for (const ImageSegment& segment : segments) {
    total += segment.bytes.size();
  }
  return total;
}

FirmwareFileLoad load_firmware_file(const std::string& path) {
  const std::optional<FirmwareFormat> format = firmware_format_of(path);
  if (!format) {
    return failure(path + ": unknown firmware file type (the name must end in .bin, .hex, .srec, " +
                   ".s19, .s28, .s37 or .elf)");
  }
  std::FILE* file = std::fopen(path.c_str(), "rb");
  if (file == nullptr) {
    return failure(path + ": " + std::generic_category().message(errno));
  }
  // A file that tells its length is refused before it is read; one that cannot (a pipe, a device)
  // is read no further than one byte past the bound.
  const bool too_long = std::fseek(file, 0, SEEK_END) == 0 &&
                        std::ftell(file) > static_cast<long>(FIRMWARE_FILE_MAX_BYTES);
  std::rewind(file);
  errno = 0;
  std::optional<std::string> content;
  if (too_long) {
    std::fgetc(file);  // a directory on Linux reports a huge length: its read fails at once
  } else {
    content = read_stream_text(file, FIRMWARE_FILE_MAX_BYTES);
  }
  const int read_error = std::ferror(file) != 0 ? (errno != 0 ? errno : EIO) : 0;
  std::fclose(file);
  if (read_error != 0) {
    return failure(path + ": " + std::generic_category().message(read_error));
  }
  if (!content) {
    return failure(path + ": the file is larger than " +
                   std::to_string(FIRMWARE_FILE_MAX_BYTES / (1024 * 1024)) +
                   " MiB, more than any firmware");
  }
  return parse_firmware_file(
      *format, std::span(reinterpret_cast<const std::uint8_t*>(content->data()), content->size()),
      path);
}

FirmwareFileLoad parse_firmware_file(FirmwareFormat format, std::span<const std::uint8_t> content,
                                     std::string_view name) {
  SegmentRead read = read_segments(format, content);
  if (read.error.empty() && read.segments.empty()) {
    read.error = "the file holds no firmware bytes";
  }
  if (!read.error.empty()) {
    std::string error(name);
    if (!read.where.empty()) {
      error += " " + read.where;
    }
    return failure(error + ": " + read.error);
  }
  return {FirmwareFile{format, std::move(read.segments)}, {}};
}

PlacedFirmware place_firmware(const FirmwareFile& file, const FirmwareArea& area) {
  if (file.data_bytes() == 0) {
    return {{}, "the file holds no firmware bytes"};
  }
  // Raw images count from the area's start; the others carry device addresses.
  const std::uint64_t origin = file.addressed() ? 0 : area.address;
  const std::uint64_t area_end = std::uint64_t{area.address} + area.max_size;
  std::uint64_t image_end = 0;  // one past the highest byte placed, as an offset in the area
  for (const ImageSegment& segment : file.segments) {
    if (segment.bytes.empty()) {
      continue;
    }
    const std::uint64_t first = origin + segment.address;
    const std::uint64_t last = first + segment.bytes.size() - 1;
    if (!file.addressed() && last >= area_end) {
      return {{},
              "the image is " + std::to_string(segment.bytes.size()) +
                  " bytes, more than the device's firmware area " + area_text(area) + " holds"};
    }
    const std::string bytes = "bytes " + address_text(first) + ".." + address_text(last);
    if (first < area.address) {
      return {{}, bytes + " lie below the start of the device's firmware area " + area_text(area)};
    }
    if (last >= area_end) {
      return {{},
              "the image reaches " + address_text(last) + " (" + bytes +
                  "), past the end of the device's firmware area " + area_text(area)};
    }
    image_end = std::max(image_end, last + 1 - area.address);
  }
  PlacedFirmware placed;
  placed.image.assign(image_end, ERASED_FLASH);
  for (const ImageSegment& segment : file.segments) {
    if (segment.bytes.empty()) {
      continue;
    }
    std::copy(segment.bytes.begin(), segment.bytes.end(),
              placed.image.begin() +
                  static_cast<std::ptrdiff_t>(origin + segment.address - area.address));
  }
  return placed;
}

}  // namespace pelmo
