#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "pelmo/formats/image_segment.hpp"

namespace pelmo {

// Reads an ELF executable (32- or 64-bit, little-endian, any machine) as the file contents of its
// loadable segments (PT_LOAD with a file size above 0), each at its physical address: where a
// linker puts initialised data in flash to be copied to RAM at start-up, the physical address is
// the flash address. A segment's memory beyond its file size is zero-initialised RAM, which the
// start-up code clears and flash does not hold. Addresses must fit 32 bits; at most `max_bytes` of
// data. Errors are located by program header ("segment 2 at 0x08000000").
SegmentRead read_elf_segments(std::span<const std::uint8_t> content, std::size_t max_bytes);

}  // namespace pelmo
