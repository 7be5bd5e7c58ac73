#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "pelmo/formats/firmware_image.hpp"
#include "pelmo/formats/image_segment.hpp"

namespace pelmo {

// Firmware files as a toolchain writes them, read whole before any device is asked anything, then
// placed into a device's firmware area once its address and size are known. This is the strict
// loader of the modern front ends; PelmoWin keeps load_firmware_image (firmware_image.hpp).

enum class FirmwareFormat : std::uint8_t {
  raw,        // .bin: byte 0 is the first byte of the firmware area
  intel_hex,  // .hex
  srecord,    // .srec, .s19, .s28, .s37 (Motorola S-record)
  elf,        // .elf: the file contents of its PT_LOAD segments at their physical addresses
};

// The format a file name's extension names (letter case ignored); none for any other name.
std::optional<FirmwareFormat> firmware_format_of(std::string_view file_name);

// "raw", "intel-hex", "s-record", "elf".
std::string_view firmware_format_name(FirmwareFormat format);

// ImageSegment (image_segment.hpp): bytes that belong at consecutive device addresses (raw: at
// offsets from the area's start).

// A firmware file as read, not yet placed. Segments keep the file's order; where two overlap, the
// later one's bytes count, as the device would hold them after writing the records in order.
struct FirmwareFile {
  FirmwareFormat format = FirmwareFormat::raw;
  std::vector<ImageSegment> segments;

  // Raw images count from the area's start; every other format carries device addresses.
  bool addressed() const { return format != FirmwareFormat::raw; }
  // The data bytes of all segments (overlaps counted each time).
  std::uint64_t data_bytes() const;
};

// The most data a firmware file may carry, and the largest raw file read. Far above any firmware
// area; it bounds the memory an endless or hostile input can take.
inline constexpr std::size_t FIRMWARE_FILE_MAX_BYTES = 64u * 1024u * 1024u;

// A load's result: the file, or a one-line reason that names the file and where in it the fault
// lies ("fw.hex line 12: checksum mismatch", "fw.elf segment 2: file size 4096 is above its memory
// size 1024"). Exactly one of the two is set.
struct FirmwareFileLoad {
  std::optional<FirmwareFile> file;
  std::string error;
};

// Reads `path` in the format its extension names (the last one, letter case ignored). The file is
// read no further than FIRMWARE_FILE_MAX_BYTES + 1 bytes: a longer one is refused. A file that does
// not open is refused with the system's reason ("fw.bin: No such file or directory"). An empty
// image (no data byte) is an error.
FirmwareFileLoad load_firmware_file(const std::string& path);

// The same for contents already in memory (Python's bytes, the fuzzers); `name` is used in errors.
FirmwareFileLoad parse_firmware_file(FirmwareFormat format, std::span<const std::uint8_t> content,
                                     std::string_view name);

// A file placed into one device's firmware area: `image[0]` belongs at area.address, bytes no
// segment covers are 0xFF (erased flash), and the image ends at the highest byte placed; segments
// are written in the file's order, so a later one overwrites an earlier one where they overlap.
// Or, when a byte lies outside [area.address, area.address + area.max_size) (raw: the image is
// longer than max_size), a one-line reason naming the offending segment's first and last address
// and the area ("the image reaches 0x08095FFF (bytes 0x08090000..0x08095FFF), past the end of the
// device's firmware area 0x08000000..0x0807FFFF (512 KiB)"). Exactly one of `image` (non-empty)
// and `error` set.
struct PlacedFirmware {
  std::vector<std::uint8_t> image;
  std::string error;
};
PlacedFirmware place_firmware(const FirmwareFile& file, const FirmwareArea& area);

}  // namespace pelmo
