#include <string_view>

#include "cli/intel_hex_output.hpp"
#include "cli/target_commands.hpp"

namespace pelmo::cli {
namespace {

void read_firmware(DeviceSession& session, const Job& job, OutputFile& output,
                   TargetReport& report) {
  std::vector<std::uint8_t> firmware;
  report.outcome = session.read(firmware);
  if (!report.outcome.ok()) {
    return;
  }
  if (job.output_format != OutputFormat::intel_hex) {
    store_output(output, firmware, report);
    return;
  }
  // HEX records carry device addresses: the firmware starts at the area's address.
  FirmwareArea area;
  if (const Outcome asked = session.firmware_area(area); !asked.ok()) {
    report.outcome = asked;
    return;
  }
  const std::string text = intel_hex_text(area.address, firmware);
  store_output(output, std::span(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()),
               report);
}

}  // namespace

void run_firmware_command(DeviceSession& session, const Job& job, OutputFile* output,
                          TargetReport& report) {
  switch (job.command) {
    case Command::flash:
      report.outcome = session.flash(*job.firmware, job.flash);
      break;
    case Command::write:
      report.outcome = session.write(*job.firmware);
      break;
    case Command::verify:
      report.outcome = session.verify(*job.firmware);
      break;
    case Command::erase:
      report.outcome = session.erase();
      break;
    case Command::read:
      read_firmware(session, job, *output, report);
      break;
    default:
      break;
  }
}

}  // namespace pelmo::cli
