#include "pelmo/formats/firmware_image.hpp"

#include <algorithm>
#include <cstdio>
#include <limits>

#include "pelmo/formats/binary_file.hpp"

namespace pelmo {
namespace {

constexpr std::uint8_t ERASED_FLASH = 0xFF;

FirmwareImageLoad load_raw(const std::string& file_name, std::span<std::uint8_t> image) {
  FirmwareImageLoad load{.kind = ImageFileKind::raw};
  const FileReadResult read = read_binary_file(file_name, image);
  load.length = load.bytes_placed = read.length;
  switch (read.status) {
    case FileReadStatus::cannot_open:
      load.status = ImageStatus::cannot_open;
      break;
    case FileReadStatus::too_large:
      load.status = ImageStatus::too_large;
      break;
    case FileReadStatus::ok:
      load.status = read.length == 0 ? ImageStatus::empty : ImageStatus::loaded;
      break;
  }
  return load;
}

// Whether a data record the reader refused lies inside the area: then only the buffer was short.
bool inside_area(const HexReadResult& hex, const FirmwareArea& area) {
  const std::uint64_t end = std::uint64_t{hex.record_address} + hex.record_bytes;
  return hex.record_address >= area.address && end <= std::uint64_t{area.address} + area.max_size;
}

FirmwareImageLoad load_hex(const std::string& file_name, std::span<std::uint8_t> image,
                           const FirmwareAreaSource& firmware_area) {
  FirmwareImageLoad load{.kind = ImageFileKind::intel_hex};
  std::FILE* file = std::fopen(file_name.c_str(), "rb");
  if (file == nullptr) {
    load.status = ImageStatus::cannot_open;
    return load;
  }
  const std::optional<FirmwareArea> area = firmware_area ? firmware_area() : std::nullopt;
  if (!area) {
    std::fclose(file);
    load.status = ImageStatus::no_area;
    return load;
  }
  const auto capacity = static_cast<std::uint32_t>(
      std::min<std::size_t>(image.size(), std::numeric_limits<std::uint32_t>::max()));
  load.hex = read_hex_image(file, image, std::min(area->max_size, capacity), area->address);
  std::fclose(file);
  load.length = load.hex.length;
  load.bytes_placed = load.hex.data_bytes;
  if (load.hex.error == HexError::none) {
    load.status = ImageStatus::loaded;
    load.highest_address = area->address + load.length - 1;
  } else if (load.hex.error == HexError::outside_bounds && inside_area(load.hex, *area)) {
    load.status = ImageStatus::too_large;
  } else {
    load.status = ImageStatus::bad_hex;
  }
  return load;
}

}  // namespace

ImageFileKind image_file_kind(std::string_view file_name) {
  if (file_name.find(".bin") != std::string_view::npos) {
    return ImageFileKind::raw;
  }
  if (file_name.find(".hex") != std::string_view::npos) {
    return ImageFileKind::intel_hex;
  }
  return ImageFileKind::unknown;
}

FirmwareImageLoad load_firmware_image(const std::string& file_name, std::span<std::uint8_t> image,
                                      const FirmwareAreaSource& firmware_area) {
  std::fill(image.begin(), image.end(), ERASED_FLASH);
  switch (image_file_kind(file_name)) {
    case ImageFileKind::raw:
      return load_raw(file_name, image);
    case ImageFileKind::intel_hex:
      return load_hex(file_name, image, firmware_area);
    case ImageFileKind::unknown:
      break;
  }
  return {};
}

}  // namespace pelmo
