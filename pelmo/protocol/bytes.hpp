#pragma once

#include <cstdint>

#include "pelmo/protocol/result_code.hpp"

namespace pelmo {

enum class ByteOrder : std::uint8_t { little = 0, big = 1 };

// Copies `count` bytes in the widest unit (4, 2 or 1 bytes) that both addresses and the count
// allow. The areas must not overlap.
ResultCode copy_memory(void* destination, const void* source, std::uint16_t count);

// Sets `count` bytes to the low byte of `value`, in the widest unit the address and count allow.
ResultCode fill_memory(void* destination, std::uint32_t value, std::uint32_t count);

// Stores `value` in four bytes; returns 4, or 0 when `destination` is null.
std::uint32_t store_u32(ByteOrder order, std::uint32_t value, std::uint8_t* destination);

// Loads four bytes; returns 0 when `source` is null.
std::uint32_t load_u32(ByteOrder order, const std::uint8_t* source);

// 16-bit little-endian helpers used by the frame codec and the records.
inline void store_u16_le(std::uint16_t value, std::uint8_t* destination) {
  destination[0] = static_cast<std::uint8_t>(value);
  destination[1] = static_cast<std::uint8_t>(value >> 8);
}
inline std::uint16_t load_u16_le(const std::uint8_t* source) {
  return static_cast<std::uint16_t>(source[0] | (source[1] << 8));
}

}  // namespace pelmo
