#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace pelmo::cli {

// `bytes` as Intel HEX text placed from device address `address`: data records of 16 bytes that
// never cross a 64 KiB boundary, an extended linear address record before the first data record
// and at each boundary, the end-of-file record last; CR LF line ends, upper-case digits.
std::string intel_hex_text(std::uint32_t address, std::span<const std::uint8_t> bytes);

}  // namespace pelmo::cli
