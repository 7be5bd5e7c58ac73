#include "app/image_loader.hpp"

#include <optional>

#include "app/info_operations.hpp"
#include "app/operation_step.hpp"
#include "pelmo/commands/info_commands.hpp"
#include "pelmo/formats/firmware_image.hpp"

namespace pelmo {

std::uint32_t load_firmware_for_run(Console& console, const LinkDriver* link,
                                    const std::string& file_name, std::span<std::uint8_t> image) {
  const auto area_from_bootloader = [&]() -> std::optional<FirmwareArea> {
    BootloaderInfo info{};
    if (run_step(console, READ_BOOTLOADER_INFO_STEP,
                 [&] { return read_bootloader_info(link, info); }) != RC_OK) {
      return std::nullopt;
    }
    return FirmwareArea{info.fw_address, info.fw_max_size};
  };
  const FirmwareImageLoad load = load_firmware_image(file_name, image, area_from_bootloader);
  switch (load.status) {
    case ImageStatus::loaded:
      return load.length;
    case ImageStatus::too_large:
      // The raw image's first bytes are kept; a HEX file that does not fit has failed.
      return load.kind == ImageFileKind::raw ? load.length : 0;
    case ImageStatus::unknown_kind:
      console.print("Unknown file type (%s)\n", file_name.c_str());
      return 0;
    case ImageStatus::cannot_open:
      console.print("Error while opening file %s\n", file_name.c_str());
      return 0;
    case ImageStatus::empty:
    case ImageStatus::no_area:
    case ImageStatus::bad_hex:
      break;  // the operation fails without a word of the loader's own
  }
  return 0;
}

}  // namespace pelmo
