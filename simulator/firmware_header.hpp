#pragma once

#include <cstdint>

#include "simulator/memory_area.hpp"

namespace pelmo::sim {

// The firmware area begins with its 96-byte information header. When a write ends, the bootloader
// records the firmware's size (bytes 0..3) and the CRC-32/MPEG-2 of bytes 8..size-1 (bytes 4..7),
// both little endian; that is why the host verifies from offset 8 on.
inline constexpr std::size_t FIRMWARE_SEAL_SIZE = 8;

// Writes size and CRC into the header of a written area; an empty area stays erased.
void seal_firmware(MemoryArea& firmware);

// The status the firmware information command answers: 0 for a valid header, STATUS_BAD_HEADER
// when the header is missing or its magic is foreign, STATUS_BAD_CRC when size or CRC do not fit
// the content.
std::uint8_t firmware_header_status(const MemoryArea& firmware);

}  // namespace pelmo::sim
