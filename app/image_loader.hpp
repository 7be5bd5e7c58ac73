#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "app/console.hpp"
#include "pelmo/protocol/link_driver.hpp"

namespace pelmo {

// Loads the firmware image named `file_name` into `image` for a write or verify. A name holding
// ".bin" is a raw image (cut at the buffer's capacity); else one holding ".hex" is Intel HEX,
// placed by the firmware address and size limit the bootloader reports over `link`. The buffer
// is first filled with 0xFF, the value of erased flash, so gaps between HEX records and the
// padding of the last write block hold what an erased device holds. Returns the image length, 0
// on any failure after printing its own message.
std::uint32_t load_firmware_image(Console& console, const LinkDriver* link,
                                  const std::string& file_name, std::span<std::uint8_t> image);

}  // namespace pelmo
