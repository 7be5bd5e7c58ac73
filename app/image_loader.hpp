#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "app/console.hpp"
#include "pelmo/protocol/link_driver.hpp"

namespace pelmo {

// Loads the firmware image named `file_name` into `image` for a write or verify, the library's
// way (pelmo/formats/firmware_image.hpp), with the program's own policy around it: the firmware
// area of a HEX file comes from the bootloader information, read over `link` as a status step;
// a raw image longer than the buffer is cut at the buffer's size without a message; an unknown
// name or a file that does not open is reported on the console. Returns the image length, 0 on
// any failure.
std::uint32_t load_firmware_for_run(Console& console, const LinkDriver* link,
                                    const std::string& file_name, std::span<std::uint8_t> image);

}  // namespace pelmo
