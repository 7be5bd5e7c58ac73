#include "app/calibration_operations.hpp"

#include <optional>

#include "app/data_files.hpp"
#include "app/operation_step.hpp"
#include "pelmo/commands/table_commands.hpp"

namespace pelmo {
namespace {

constexpr std::string_view TABLE_DIFFERS = "Calibration table is different";

// How a missing input file is reported: the combined operation closes its (still empty) status
// line with a bare Error; the others name the file.
enum class MissingFileReport { file_name, bare_status };

// Reads the input file into the image buffer; its length, or none after saying why not.
std::optional<std::uint32_t> load_table_file(RunContext& run, MissingFileReport report) {
  const std::string& name = run.command_line.file_name;
  const FileReadResult read = read_binary_file(name, run.image);
  switch (read.status) {
    case FileReadStatus::ok:
      return read.length;
    case FileReadStatus::cannot_open:
      if (report == MissingFileReport::bare_status) {
        run.console.print_status(error_status({13}));
      } else {
        run.console.print("Error while opening file %s\n", name.c_str());
      }
      return std::nullopt;
    case FileReadStatus::too_large:
      run.console.print("File %s is larger than %u bytes\n", name.c_str(),
                        static_cast<unsigned>(run.image.size()));
      return std::nullopt;
  }
  return std::nullopt;
}

ResultCode write_step(RunContext& run, const CalibrationTable& table, const OperationStep& step,
                      std::uint32_t length) {
  return run_step(run.console, step, [&] {
    return write_calibration_table(run.link, table.backup, run.image.first(length));
  });
}

ResultCode verify_step(RunContext& run, const CalibrationTable& table, const OperationStep& step,
                       std::uint32_t length) {
  return run_step(run.console, step, [&] {
    return verify_calibration_table(run.link, table.backup, run.image.first(length));
  });
}

ResultCode erase_step(RunContext& run, const CalibrationTable& table, const OperationStep& step) {
  return run_step(run.console, step,
                  [&] { return erase_calibration_table(run.link, table.backup); });
}

}  // namespace

ResultCode handle_read_calibration(RunContext& run, const CalibrationTable& table) {
  const OperationStep step{.label = table.reading, .ok_width = {11}, .error_width = {11}};
  std::uint32_t length = 0;
  const ResultCode result = run_step(run.console, step, [&] {
    return read_calibration_table(run.link, table.backup, run.image, &length);
  });
  if (result == RC_OK && !write_binary_file(run.command_line.file_name, run.image.first(length))) {
    return report_write_failure(run.console, run.command_line.file_name);
  }
  return result;
}

ResultCode handle_write_calibration(RunContext& run, const CalibrationTable& table) {
  const auto length = load_table_file(run, MissingFileReport::file_name);
  if (!length) {
    return RC_FAILED;
  }
  return write_step(run, table, {.label = table.writing, .ok_width = {13}, .error_width = {13}},
                    *length);
}

ResultCode handle_verify_calibration(RunContext& run, const CalibrationTable& table) {
  const auto length = load_table_file(run, MissingFileReport::file_name);
  if (!length) {
    return RC_FAILED;
  }
  return verify_step(run, table,
                     {.label = table.verifying,
                      .ok_width = {8},
                      .error_width = {11},
                      .mismatch_line = TABLE_DIFFERS},
                     *length);
}

ResultCode handle_erase_calibration(RunContext& run, const CalibrationTable& table) {
  return erase_step(run, table, {.label = table.erasing, .ok_width = {11}, .error_width = {11}});
}

ResultCode handle_erase_write_verify_calibration(RunContext& run, const CalibrationTable& table) {
  const auto length = load_table_file(run, MissingFileReport::bare_status);
  if (!length) {
    return RC_FAILED;
  }
  ResultCode result =
      erase_step(run, table, {.label = table.erasing, .ok_width = {10}, .error_width = {13}});
  if (result != RC_OK) {
    return result;
  }
  result = write_step(run, table, {.label = table.writing, .ok_width = {10}, .error_width = {12}},
                      *length);
  if (result != RC_OK) {
    return result;
  }
  return verify_step(run, table,
                     {.label = table.verifying,
                      .ok_width = {10},
                      .error_width = {12},
                      .mismatch_line = TABLE_DIFFERS,
                      .failure_line = "Error while verificating calibration table"},
                     *length);
}

}  // namespace pelmo
