#pragma once

#include <cstdint>
#include <string_view>

namespace pelmo {

// One-byte bootloader command codes. Area commands: low nibble the area (1 factory table,
// 2 calibration table, 3 calibration backup table, 4 firmware), high nibble the action (0 read,
// 1 end of write, 4 erase, 8 write block, C verify block).
enum class CommandCode : std::uint8_t {
  CMD_READ_FACTORY = 0x01,
  CMD_READ_CALIB = 0x02,
  CMD_READ_CALIB_BACKUP = 0x03,
  CMD_READ_FW = 0x04,
  CMD_END_FACTORY = 0x11,
  CMD_END_CALIB = 0x12,
  CMD_END_CALIB_BACKUP = 0x13,
  CMD_END_FW = 0x14,
  CMD_FW_INFO = 0x24,
  CMD_READ_CONTROL = 0x2E,
  CMD_BOOTLOADER_INFO = 0x2F,
  CMD_ERASE_FACTORY = 0x41,
  CMD_ERASE_CALIB = 0x42,
  CMD_ERASE_CALIB_BACKUP = 0x43,
  CMD_ERASE_FW = 0x44,
  CMD_CLEAR_CONTROL = 0x4E,
  CMD_RESTART = 0x4F,
  CMD_WRITE_FACTORY = 0x81,
  CMD_WRITE_CALIB = 0x82,
  CMD_WRITE_CALIB_BACKUP = 0x83,
  CMD_WRITE_FW = 0x84,
  CMD_BEGIN_WRITE = 0x8F,
  CMD_VERIFY_FACTORY = 0xC1,
  CMD_VERIFY_CALIB = 0xC2,
  CMD_VERIFY_CALIB_BACKUP = 0xC3,
  CMD_VERIFY_FW = 0xC4,
};

constexpr std::uint8_t to_byte(CommandCode code) {
  return static_cast<std::uint8_t>(code);
}

// The code's name without its prefix ("READ_FW"), or an empty view for a byte that is no command.
std::string_view command_name(std::uint8_t code);

}  // namespace pelmo
