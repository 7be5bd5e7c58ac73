#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "pelmo/formats/intel_hex.hpp"

namespace pelmo {

// How a firmware file is read, decided by its name alone.
enum class ImageFileKind : std::uint8_t { raw, intel_hex, unknown };

// ".bin" anywhere in the name makes a raw image, else ".hex" anywhere an Intel HEX file; letter
// case counts, and ".bin" is tested first ("fw.bin.hex" is raw).
ImageFileKind image_file_kind(std::string_view file_name);

// Where the bootloader keeps the firmware: HEX records carry device addresses, placed from
// `address`, at most `max_size` bytes.
struct FirmwareArea {
  std::uint32_t address = 0;
  std::uint32_t max_size = 0;
};

enum class ImageStatus : std::uint8_t {
  loaded,
  unknown_kind,  // the name holds neither ".bin" nor ".hex"
  cannot_open,   // the file does not open, or opens but cannot be read (a directory)
  empty,         // a raw file without a byte
  no_area,       // a HEX file, but the firmware area could not be learnt
  // The image does not fit the buffer. Raw: the buffer holds the file's first bytes and `length`
  // is the buffer's size. HEX: a record inside the firmware area reaches past the buffer; the read
  // stopped there (`hex.line`).
  too_large,
  bad_hex,  // the HEX reader failed: `hex.error` says why, `hex.line` where
};

// What loading a firmware file did.
struct FirmwareImageLoad {
  ImageStatus status = ImageStatus::unknown_kind;
  ImageFileKind kind = ImageFileKind::unknown;
  // The image: bytes from its start through the highest byte placed (raw: the bytes read). 0 unless
  // loaded, or too_large for a raw file.
  std::uint32_t length = 0;
  std::uint32_t bytes_placed = 0;     // raw: the bytes read; HEX: the data bytes of its records
  std::uint32_t highest_address = 0;  // HEX, loaded: device address of the image's last byte
  HexReadResult hex{};                // HEX: the reader's account, its failing line included
};

// Gives the firmware area, or nothing when it cannot be learnt (typically by asking the device).
using FirmwareAreaSource = std::function<std::optional<FirmwareArea>()>;

// Loads the firmware file `file_name` into `image` for a write or verify. The buffer is first
// filled with 0xFF, the value of erased flash, so that gaps between HEX records and the padding of
// the last write block hold what an erased device holds. A raw file is read from the buffer's
// start. A HEX file is opened first; then `firmware_area` is asked (only then) where the records
// belong, and they are placed from the area's address, within the smaller of its size and the
// buffer's. Prints nothing.
FirmwareImageLoad load_firmware_image(const std::string& file_name, std::span<std::uint8_t> image,
                                      const FirmwareAreaSource& firmware_area);

}  // namespace pelmo
