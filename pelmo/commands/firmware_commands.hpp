#pragma once

#include <cstdint>
#include <span>

#include "pelmo/protocol/link_driver.hpp"
#include "pelmo/protocol/result_code.hpp"

namespace pelmo {

// Commands on the device's firmware area. Offsets count from the start of the area; byte 0 of an
// image is the area's first byte. Every command takes the link first; a null link or one without
// send/receive gives RC_NO_DRIVER and nothing is sent.

// Firmware write and verify advance by the chunk size rounded down to whole 8-byte units, and
// need a chunk size of at least 8 (RC_BAD_LENGTH before anything is sent otherwise).
inline constexpr std::uint16_t MIN_FIRMWARE_CHUNK = 8;

// A verify needs at least a firmware header's worth of image.
inline constexpr std::uint32_t MIN_VERIFY_LENGTH = 96;

// Reads the firmware until the device reports the end of data. The bytes land in `destination`
// at their offsets; an answer that would cross its end fails with RC_BAD_LENGTH. `size_out`
// (optional) receives the number of bytes read.
ResultCode read_firmware(const LinkDriver* link, std::span<std::uint8_t> destination,
                         std::uint32_t* size_out = nullptr);

// Erases the firmware area (long time-out).
ResultCode erase_firmware(const LinkDriver* link);

// Writes the first `length` bytes of `buffer`. Every block is a whole number of 8-byte units, so
// the last one carries up to 7 bytes past `length`: they are taken from `buffer` where it extends
// that far and are 0xFF beyond its end. `length` above `buffer.size()` gives RC_BAD_LENGTH.
ResultCode write_firmware(const LinkDriver* link, std::span<const std::uint8_t> buffer,
                          std::uint32_t length);

// Has the device compare bytes 8 to the end of `image` with its firmware; RC_MISMATCH when they
// differ, RC_BAD_LENGTH for an image shorter than MIN_VERIFY_LENGTH.
ResultCode verify_firmware(const LinkDriver* link, std::span<const std::uint8_t> image);

}  // namespace pelmo
