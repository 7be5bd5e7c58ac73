#include "app/operation_handlers.hpp"

#include <array>

#include "app/calibration_operations.hpp"
#include "app/factory_operations.hpp"
#include "app/firmware_operations.hpp"
#include "app/info_operations.hpp"

namespace pelmo {
namespace {

using enum Operation;

struct HandlerEntry {
  Operation operation;
  OperationHandler handler;
};

// A calibration handler bound to one of the two tables.
template <ResultCode (*handler)(RunContext&, const CalibrationTable&),
          const CalibrationTable& table>
ResultCode on_table(RunContext& run) {
  return handler(run, table);
}

constexpr std::array<HandlerEntry, 25> HANDLERS{{
    {OP_READ_CALIBRATION, on_table<handle_read_calibration, CALIBRATION_TABLE>},
    {OP_READ_CALIBRATION_BACKUP, on_table<handle_read_calibration, CALIBRATION_BACKUP_TABLE>},
    {OP_READ_FACTORY, handle_read_factory},
    {OP_READ_FIRMWARE, handle_read_firmware},
    {OP_WRITE_CALIBRATION, on_table<handle_write_calibration, CALIBRATION_TABLE>},
    {OP_WRITE_CALIBRATION_BACKUP, on_table<handle_write_calibration, CALIBRATION_BACKUP_TABLE>},
    {OP_WRITE_FACTORY, handle_write_factory},
    {OP_WRITE_FIRMWARE, handle_write_firmware},
    {OP_VERIFY_CALIBRATION, on_table<handle_verify_calibration, CALIBRATION_TABLE>},
    {OP_VERIFY_CALIBRATION_BACKUP, on_table<handle_verify_calibration, CALIBRATION_BACKUP_TABLE>},
    {OP_VERIFY_FACTORY, handle_verify_factory},
    {OP_VERIFY_FIRMWARE, handle_verify_firmware},
    {OP_ERASE_CALIBRATION, on_table<handle_erase_calibration, CALIBRATION_TABLE>},
    {OP_ERASE_CALIBRATION_BACKUP, on_table<handle_erase_calibration, CALIBRATION_BACKUP_TABLE>},
    {OP_ERASE_FACTORY, handle_erase_factory},
    {OP_ERASE_FIRMWARE, handle_erase_firmware},
    {OP_ERASE_WRITE_VERIFY_CALIBRATION,
     on_table<handle_erase_write_verify_calibration, CALIBRATION_TABLE>},
    {OP_ERASE_WRITE_VERIFY_CALIBRATION_BACKUP,
     on_table<handle_erase_write_verify_calibration, CALIBRATION_BACKUP_TABLE>},
    {OP_ERASE_WRITE_VERIFY_FACTORY, handle_erase_write_verify_factory},
    {OP_ERASE_WRITE_VERIFY_FIRMWARE, handle_erase_write_verify_firmware},
    {OP_READ_FIRMWARE_INFO, handle_read_firmware_info},
    {OP_READ_BOOTLOADER_INFO, handle_read_bootloader_info},
    {OP_CLEAR_CONTROL, handle_clear_control},
    {OP_READ_CONTROL, handle_read_control},
    {OP_RESTART, handle_restart},
}};

}  // namespace

OperationHandler find_handler(Operation operation) {
  for (const HandlerEntry& entry : HANDLERS) {
    if (entry.operation == operation) {
      return entry.handler;
    }
  }
  return nullptr;
}

ResultCode run_operation(RunContext& run) {
  const OperationHandler handler = find_handler(run.command_line.operation);
  return handler == nullptr ? RC_FAILED : handler(run);
}

}  // namespace pelmo
