#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace pelmo::sim {

// What the simulated bootloader reports about itself and how large its areas are.
struct DeviceConfig {
  std::uint32_t fw_address = 0x08000000u;
  std::uint32_t fw_max_size = 512u * 1024u;
  std::uint32_t calib_max_size = 4u * 1024u;
  // 0: a chunked read answers as many bytes as the request asks for; otherwise always this many.
  std::uint16_t read_chunk = 0;
  std::uint16_t bl_version_major = 1;
  std::uint16_t bl_version_minor = 0;
  std::string bl_name = "PELMO-DEVICE BOOT";
  std::string bl_compile_date = "Jan  1 2026";
  std::string bl_compile_time = "12:00:00";
  std::uint16_t control_struct_version = 1;
};

// Largest text a record's char[N] field holds with its terminating zero.
inline constexpr std::size_t BL_NAME_MAX = 31;
inline constexpr std::size_t BL_STAMP_MAX = 15;

}  // namespace pelmo::sim
