#include "pelmo/commands/info_commands.hpp"

#include <algorithm>
#include <array>

#include "pelmo/commands/transfer.hpp"
#include "pelmo/protocol/bytes.hpp"

namespace pelmo {
namespace {

// Answer of a command that only acts: an empty payload.
ResultCode expect_empty(std::span<const std::uint8_t> payload) {
  return payload.empty() ? RC_OK : RC_MISMATCH;
}

}  // namespace

ResultCode read_firmware_info(const LinkDriver* link, FirmwareInfo& info) {
  if (!link_usable(link)) {
    return RC_NO_DRIVER;
  }
  return query_command(*link, CommandCode::CMD_FW_INFO, FIRMWARE_INFO_SIZE, [&info](auto payload) {
    if (payload.size() != FIRMWARE_INFO_SIZE) {
      return RC_MISMATCH;
    }
    info = firmware_info_from_wire(payload.template first<FIRMWARE_INFO_SIZE>());
    return RC_OK;
  });
}

ResultCode read_bootloader_info(const LinkDriver* link, BootloaderInfo& info) {
  if (!link_usable(link)) {
    return RC_NO_DRIVER;
  }
  return query_command(
      *link, CommandCode::CMD_BOOTLOADER_INFO, BOOTLOADER_INFO_SIZE, [&info](auto payload) {
        if (payload.size() != BOOTLOADER_INFO_SIZE) {
          return RC_MISMATCH;
        }
        info = bootloader_info_from_wire(payload.template first<BOOTLOADER_INFO_SIZE>());
        return RC_OK;
      });
}

ResultCode read_control(const LinkDriver* link, ControlRecord& record) {
  if (!link_usable(link)) {
    return RC_NO_DRIVER;
  }
  // Bootloaders differ in how much control data they keep: a shorter record reads as zeros
  // behind its end, a longer one is cut to the fields the host knows.
  return query_command(
      *link, CommandCode::CMD_READ_CONTROL, CONTROL_RECORD_SIZE, [&record](auto payload) {
        std::array<std::uint8_t, CONTROL_RECORD_SIZE> bytes{};
        const std::size_t count = std::min(payload.size(), CONTROL_RECORD_SIZE);
        if (count > 0) {
          copy_memory(bytes.data(), payload.data(), static_cast<std::uint16_t>(count));
        }
        record = control_record_from_wire(bytes);
        return RC_OK;
      });
}

ResultCode clear_control(const LinkDriver* link) {
  if (!link_usable(link)) {
    return RC_NO_DRIVER;
  }
  return query_command(*link, CommandCode::CMD_CLEAR_CONTROL, 0, expect_empty);
}

ResultCode restart_device(const LinkDriver* link) {
  if (!link_usable(link)) {
    return RC_NO_DRIVER;
  }
  return query_command(*link, CommandCode::CMD_RESTART, 0, expect_empty);
}

}  // namespace pelmo
