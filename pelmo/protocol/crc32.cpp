#include "pelmo/protocol/crc32.hpp"

#include <array>

namespace pelmo {
namespace {

constexpr std::uint32_t POLYNOMIAL = 0x04C11DB7u;

// Entry i is the register after shifting i << 24 through eight most-significant-bit-first steps.
constexpr std::array<std::uint32_t, 256> make_table() {
  std::array<std::uint32_t, 256> table{};
  for (std::uint32_t i = 0; i < 256; ++i) {
    std::uint32_t reg = i << 24;
    for (int bit = 0; bit < 8; ++bit) {
      reg = (reg & 0x80000000u) != 0 ? (reg << 1) ^ POLYNOMIAL : reg << 1;
    }
    table[i] = reg;
  }
  return table;
}

constexpr std::array<std::uint32_t, 256> TABLE = make_table();

}  // namespace

std::uint32_t crc32_mpeg2_update(std::uint32_t crc, std::span<const std::uint8_t> bytes) {
  if (bytes.data() == nullptr) {
    return crc;
  }
  for (const std::uint8_t byte : bytes) {
    crc = (crc << 8) ^ TABLE[((crc >> 24) ^ byte) & 0xFFu];
  }
  return crc;
}

std::uint32_t crc32_mpeg2(std::span<const std::uint8_t> bytes) {
  return crc32_mpeg2_update(CRC32_MPEG2_INITIAL, bytes);
}

}  // namespace pelmo
