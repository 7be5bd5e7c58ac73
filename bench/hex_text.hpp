#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace pelmo::bench {

// Intel HEX text for `image` placed at device address `base`: 16-byte data records, an extended
// linear address record at every 64 KiB boundary, CR LF line ends and an end-of-file record, the
// shape most firmware files have.
std::string make_intel_hex(std::span<const std::uint8_t> image, std::uint32_t base);

// Bytes that are not all alike, so the decoder cannot profit from repetition.
std::vector<std::uint8_t> pseudo_random_bytes(std::size_t count);

}  // namespace pelmo::bench
