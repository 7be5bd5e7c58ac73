#include "cli/target_commands.hpp"
#include "pelmo/formats/factory_table_text.hpp"

namespace pelmo::cli {
namespace {

std::span<const std::uint8_t> bytes_of(const std::string& text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

}  // namespace

void run_table_command(DeviceSession& session, const Job& job, OutputFile* output,
                       TargetReport& report) {
  const CalibrationTableKind calibration = job.calibration_table;
  switch (job.command) {
    case Command::factory_read: {
      FactoryTable table{};
      report.outcome = session.read_factory(table);
      if (report.outcome.ok()) {
        report.factory = table;
        if (output != nullptr) {
          store_output(*output, bytes_of(factory_table_text(table)), report);
        }
      }
      break;
    }
    case Command::factory_write:
      report.outcome = session.write_factory(job.factory);
      break;
    case Command::factory_verify:
      report.outcome = session.verify_factory(job.factory);
      break;
    case Command::factory_erase:
      report.outcome = session.erase_factory();
      break;
    case Command::calib_read: {
      std::vector<std::uint8_t> data;
      report.outcome = session.read_calibration(calibration, data);
      if (report.outcome.ok()) {
        store_output(*output, data, report);
      }
      break;
    }
    case Command::calib_write:
      report.outcome = session.write_calibration(calibration, job.calibration);
      break;
    case Command::calib_verify:
      report.outcome = session.verify_calibration(calibration, job.calibration);
      break;
    case Command::calib_erase:
      report.outcome = session.erase_calibration(calibration);
      break;
    default:
      break;
  }
}

}  // namespace pelmo::cli
