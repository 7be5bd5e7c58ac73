#include "pelmo/commands/command_code.hpp"

#include <array>
#include <utility>

namespace pelmo {
namespace {

constexpr std::array<std::pair<CommandCode, std::string_view>, 26> NAMES{{
    {CommandCode::CMD_READ_FACTORY, "READ_FACTORY"},
    {CommandCode::CMD_READ_CALIB, "READ_CALIB"},
    {CommandCode::CMD_READ_CALIB_BACKUP, "READ_CALIB_BACKUP"},
    {CommandCode::CMD_READ_FW, "READ_FW"},
    {CommandCode::CMD_END_FACTORY, "END_FACTORY"},
    {CommandCode::CMD_END_CALIB, "END_CALIB"},
    {CommandCode::CMD_END_CALIB_BACKUP, "END_CALIB_BACKUP"},
    {CommandCode::CMD_END_FW, "END_FW"},
    {CommandCode::CMD_FW_INFO, "FW_INFO"},
    {CommandCode::CMD_READ_CONTROL, "READ_CONTROL"},
    {CommandCode::CMD_BOOTLOADER_INFO, "BOOTLOADER_INFO"},
    {CommandCode::CMD_ERASE_FACTORY, "ERASE_FACTORY"},
    {CommandCode::CMD_ERASE_CALIB, "ERASE_CALIB"},
    {CommandCode::CMD_ERASE_CALIB_BACKUP, "ERASE_CALIB_BACKUP"},
    {CommandCode::CMD_ERASE_FW, "ERASE_FW"},
    {CommandCode::CMD_CLEAR_CONTROL, "CLEAR_CONTROL"},
    {CommandCode::CMD_RESTART, "RESTART"},
    {CommandCode::CMD_WRITE_FACTORY, "WRITE_FACTORY"},
    {CommandCode::CMD_WRITE_CALIB, "WRITE_CALIB"},
    {CommandCode::CMD_WRITE_CALIB_BACKUP, "WRITE_CALIB_BACKUP"},
    {CommandCode::CMD_WRITE_FW, "WRITE_FW"},
    {CommandCode::CMD_BEGIN_WRITE, "BEGIN_WRITE"},
    {CommandCode::CMD_VERIFY_FACTORY, "VERIFY_FACTORY"},
    {CommandCode::CMD_VERIFY_CALIB, "VERIFY_CALIB"},
    {CommandCode::CMD_VERIFY_CALIB_BACKUP, "VERIFY_CALIB_BACKUP"},
    {CommandCode::CMD_VERIFY_FW, "VERIFY_FW"},
}};

}  // namespace

std::string_view command_name(std::uint8_t code) {
  for (const auto& [command, name] : NAMES) {
    if (to_byte(command) == code) {
      return name;
    }
  }
  return {};
}

}  // namespace pelmo
