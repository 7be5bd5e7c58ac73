#pragma once

#include <cstdint>

namespace pelmo {

// The one operation a run performs. Tens digit: the action (0 read, 1 write, 2 verify, 3 erase,
// 4 erase-write-verify); units digit: the area (1 calibration table, 2 calibration backup table,
// 3 factory table, 4 firmware). The 50s read information and control; 255 restarts the device.
enum class Operation : std::uint32_t {
  OP_READ_CALIBRATION = 1,
  OP_READ_CALIBRATION_BACKUP = 2,
  OP_READ_FACTORY = 3,
  OP_READ_FIRMWARE = 4,
  OP_WRITE_CALIBRATION = 11,
  OP_WRITE_CALIBRATION_BACKUP = 12,
  OP_WRITE_FACTORY = 13,
  OP_WRITE_FIRMWARE = 14,
  OP_VERIFY_CALIBRATION = 21,
  OP_VERIFY_CALIBRATION_BACKUP = 22,
  OP_VERIFY_FACTORY = 23,
  OP_VERIFY_FIRMWARE = 24,
  OP_ERASE_CALIBRATION = 31,
  OP_ERASE_CALIBRATION_BACKUP = 32,
  OP_ERASE_FACTORY = 33,
  OP_ERASE_FIRMWARE = 34,
  OP_ERASE_WRITE_VERIFY_CALIBRATION = 41,
  OP_ERASE_WRITE_VERIFY_CALIBRATION_BACKUP = 42,
  OP_ERASE_WRITE_VERIFY_FACTORY = 43,
  OP_ERASE_WRITE_VERIFY_FIRMWARE = 44,
  OP_READ_FIRMWARE_INFO = 54,
  OP_READ_BOOTLOADER_INFO = 55,
  OP_CLEAR_CONTROL = 56,
  OP_READ_CONTROL = 57,
  OP_RESTART = 255,
};

constexpr std::uint32_t operation_code(Operation operation) {
  return static_cast<std::uint32_t>(operation);
}

}  // namespace pelmo
