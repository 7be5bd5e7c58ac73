#include "cli/target_commands.hpp"

namespace pelmo::cli {
namespace {

void read_info(DeviceSession& session, TargetReport& report) {
  BootloaderInfo bootloader{};
  report.outcome = session.bootloader_info(bootloader);
  if (!report.outcome.ok()) {
    return;
  }
  report.bootloader = bootloader;
  FirmwareInfo firmware{};
  const Outcome asked = session.firmware_info(firmware);
  if (asked.ok()) {
    report.firmware = firmware;
  } else if (asked.kind == FailureKind::device_status) {
    // An erased or broken firmware is what the device holds, not a failure to find out.
    report.firmware_error = asked.message;
  } else {
    report.outcome = asked;
  }
}

}  // namespace

void run_device_command(DeviceSession& session, const Job& job, TargetReport& report) {
  switch (job.command) {
    case Command::info:
      read_info(session, report);
      break;
    case Command::control_read: {
      ControlRecord record{};
      report.outcome = session.read_control(record);
      if (report.outcome.ok()) {
        report.control = record;
      }
      break;
    }
    case Command::control_clear:
      report.outcome = session.clear_control();
      break;
    case Command::restart:
      report.outcome = session.restart();
      break;
    default:
      break;
  }
}

}  // namespace pelmo::cli
