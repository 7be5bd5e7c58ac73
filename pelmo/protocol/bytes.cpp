#include "pelmo/protocol/bytes.hpp"

#include <cstring>

namespace pelmo {
namespace {

std::uintptr_t address_of(const void* pointer) {
  return reinterpret_cast<std::uintptr_t>(pointer);
}

// Widest of 4, 2 and 1 that divides every given value.
unsigned unit_width(std::uintptr_t combined) {
  if (combined % 4 == 0) {
    return 4;
  }
  return combined % 2 == 0 ? 2 : 1;
}

}  // namespace

ResultCode copy_memory(void* destination, const void* source, std::uint16_t count) {
  if (destination == nullptr || source == nullptr) {
    return RC_NULL_POINTER;
  }
  if (count == 0) {
    return RC_ZERO_LENGTH;
  }
  const unsigned width = unit_width(address_of(destination) | address_of(source) | count);
  auto* to = static_cast<std::uint8_t*>(destination);
  const auto* from = static_cast<const std::uint8_t*>(source);
  for (unsigned offset = 0; offset < count; offset += width) {
    std::memcpy(to + offset, from + offset, width);
  }
  return RC_OK;
}

ResultCode fill_memory(void* destination, std::uint32_t value, std::uint32_t count) {
  if (destination == nullptr) {
    return RC_NULL_POINTER;
  }
  const unsigned width = unit_width(address_of(destination) | count);
  const auto byte = static_cast<std::uint8_t>(value);
  const std::uint8_t unit[4] = {byte, byte, byte, byte};
  auto* to = static_cast<std::uint8_t*>(destination);
  for (std::uint32_t offset = 0; offset < count; offset += width) {
    std::memcpy(to + offset, unit, width);
  }
  return RC_OK;
}

std::uint32_t store_u32(ByteOrder order, std::uint32_t value, std::uint8_t* destination) {
  if (destination == nullptr) {
    return 0;
  }
  for (unsigned i = 0; i < 4; ++i) {
    const unsigned shift = order == ByteOrder::little ? 8 * i : 8 * (3 - i);
    destination[i] = static_cast<std::uint8_t>(value >> shift);
  }
  return 4;
}

std::uint32_t load_u32(ByteOrder order, const std::uint8_t* source) {
  if (source == nullptr) {
    return 0;
  }
  std::uint32_t value = 0;
  for (unsigned i = 0; i < 4; ++i) {
    const unsigned shift = order == ByteOrder::little ? 8 * i : 8 * (3 - i);
    value |= static_cast<std::uint32_t>(source[i]) << shift;
  }
  return value;
}

}  // namespace pelmo
