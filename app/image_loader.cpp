#include "app/image_loader.hpp"

#include <algorithm>
#include <cstdio>

#include "app/data_files.hpp"
#include "app/info_operations.hpp"
#include "app/operation_step.hpp"
#include "pelmo/commands/info_commands.hpp"
#include "pelmo/formats/intel_hex.hpp"

namespace pelmo {
namespace {

constexpr std::uint8_t ERASED_FLASH = 0xFF;

std::uint32_t load_raw_image(Console& console, const std::string& file_name,
                             std::span<std::uint8_t> image) {
  const FileReadResult read = read_binary_file(file_name, image);
  if (read.status == FileReadStatus::cannot_open) {
    console.print("Error while opening file %s\n", file_name.c_str());
    return 0;
  }
  return read.length;
}

std::uint32_t load_hex_image(Console& console, const LinkDriver* link, const std::string& file_name,
                             std::span<std::uint8_t> image) {
  std::FILE* file = std::fopen(file_name.c_str(), "rb");
  if (file == nullptr) {
    console.print("Error while opening file %s\n", file_name.c_str());
    return 0;
  }
  // HEX records carry device addresses; the bootloader says where the firmware area begins.
  BootloaderInfo info{};
  const ResultCode result = run_step(console, READ_BOOTLOADER_INFO_STEP,
                                     [&] { return read_bootloader_info(link, info); });
  std::uint32_t length = 0;
  if (result == RC_OK) {
    const auto capacity = static_cast<std::uint32_t>(image.size());
    length = read_intel_hex(file, image, std::min(info.fw_max_size, capacity), info.fw_address);
  }
  std::fclose(file);
  return length;
}

}  // namespace

std::uint32_t load_firmware_image(Console& console, const LinkDriver* link,
                                  const std::string& file_name, std::span<std::uint8_t> image) {
  std::fill(image.begin(), image.end(), ERASED_FLASH);
  if (file_name.find(".bin") != std::string::npos) {
    return load_raw_image(console, file_name, image);
  }
  if (file_name.find(".hex") != std::string::npos) {
    return load_hex_image(console, link, file_name, image);
  }
  console.print("Unknown file type (%s)\n", file_name.c_str());
  return 0;
}

}  // namespace pelmo
