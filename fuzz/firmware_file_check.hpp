#pragma once

// The properties every firmware file reader must keep on any input, checked by the S-record and the
// ELF harness: a load gives a file or a reason, never both; a file's segments hold data and stay
// within the bound; placing it gives an image within the area or a reason, and the last segment,
// which nothing overwrites, lies in the image as it was read.
#include <algorithm>
#include <cstdint>
#include <span>

#include "fuzz/fuzz_check.hpp"
#include "pelmo/formats/firmware_file.hpp"

inline void check_placement(const pelmo::FirmwareFile& file, const pelmo::FirmwareArea& area) {
  const pelmo::PlacedFirmware placed = pelmo::place_firmware(file, area);
  FUZZ_CHECK(placed.image.empty() != placed.error.empty());
  const auto inside = [&area](const pelmo::ImageSegment& segment) {
    return segment.address >= area.address &&
           std::uint64_t{segment.address} + segment.bytes.size() <=
               std::uint64_t{area.address} + area.max_size;
  };
  const bool all_inside = std::all_of(file.segments.begin(), file.segments.end(), inside);
  FUZZ_CHECK(all_inside == placed.error.empty());
  if (!all_inside) {
    return;
  }
  FUZZ_CHECK(placed.image.size() <= area.max_size);
  const pelmo::ImageSegment& last = file.segments.back();
  const std::size_t offset = last.address - area.address;
  FUZZ_CHECK(offset + last.bytes.size() <= placed.image.size());
  FUZZ_CHECK(std::equal(last.bytes.begin(), last.bytes.end(), placed.image.begin() + offset));
}

inline void check_firmware_file(pelmo::FirmwareFormat format, const std::uint8_t* data,
                                std::size_t size) {
  const pelmo::FirmwareFileLoad load =
      pelmo::parse_firmware_file(format, std::span(data, size), "fuzz");
  FUZZ_CHECK(load.file.has_value() == load.error.empty());
  if (!load.file) {
    return;
  }
  FUZZ_CHECK(load.file->format == format && !load.file->segments.empty());
  // Text records hold each data byte as two digits; ELF segments may share file bytes.
  FUZZ_CHECK(load.file->data_bytes() <= pelmo::FIRMWARE_FILE_MAX_BYTES);
  FUZZ_CHECK(format == pelmo::FirmwareFormat::elf || load.file->data_bytes() <= size / 2);
  for (const pelmo::ImageSegment& segment : load.file->segments) {
    FUZZ_CHECK(!segment.bytes.empty());
    if (format == pelmo::FirmwareFormat::elf) {
      FUZZ_CHECK(std::uint64_t{segment.address} + segment.bytes.size() <= 0x100000000u);
    }
  }
  // Two fixed areas: one that 16-bit addresses reach, one where firmware for a microcontroller's
  // flash usually starts.
  check_placement(*load.file, pelmo::FirmwareArea{0x00000000, 0x10000});
  check_placement(*load.file, pelmo::FirmwareArea{0x08000000, 0x100000});
}
