#pragma once

#include <string_view>

#include "app/run_context.hpp"
#include "pelmo/protocol/result_code.hpp"

namespace pelmo {

// Which calibration table an operation works on, with the labels of its steps.
struct CalibrationTable {
  bool backup;
  std::string_view reading;
  std::string_view writing;
  std::string_view verifying;
  std::string_view erasing;
};

inline constexpr CalibrationTable CALIBRATION_TABLE{
    false, "Reading calibration table ", "Writing calibration table ",
    "Verificating calibration table ", "Erasing calibration table "};
inline constexpr CalibrationTable CALIBRATION_BACKUP_TABLE{
    true, "Reading backup calibration table ", "Writing backup calibration table ",
    "Verificating backup calibration table ", "Erasing backup calibration table "};

// Handlers of the calibration table operations; the table travels as raw bytes through the image
// buffer.
ResultCode handle_read_calibration(RunContext& run, const CalibrationTable& table);
ResultCode handle_write_calibration(RunContext& run, const CalibrationTable& table);
ResultCode handle_verify_calibration(RunContext& run, const CalibrationTable& table);
ResultCode handle_erase_calibration(RunContext& run, const CalibrationTable& table);
ResultCode handle_erase_write_verify_calibration(RunContext& run, const CalibrationTable& table);

}  // namespace pelmo
