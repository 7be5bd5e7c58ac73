#pragma once

#include <cstdint>
#include <span>

namespace pelmo {

inline constexpr std::uint32_t CRC32_MPEG2_INITIAL = 0xFFFFFFFFu;

// CRC-32/MPEG-2: polynomial 0x04C11DB7, initial 0xFFFFFFFF, not reflected, no final XOR.
// An empty span (or a null one) gives the initial value.
std::uint32_t crc32_mpeg2(std::span<const std::uint8_t> bytes);

// Continues a running CRC over more bytes (for data that arrives in pieces).
std::uint32_t crc32_mpeg2_update(std::uint32_t crc, std::span<const std::uint8_t> bytes);

}  // namespace pelmo
