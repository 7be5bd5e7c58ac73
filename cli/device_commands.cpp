#include <cstdio>
#include <string>

#include "cli/target_commands.hpp"

namespace pelmo::cli {
namespace {

std::string version_text(int major, int minor) {
  char text[16];
  std::snprintf(text, sizeof text, "%d.%02d", major, minor);
  return text;
}

// "bootloader Boot 1.00; firmware App 1.02.003", for the results table.
std::string info_summary(const TargetReport& report) {
  const BootloaderInfo& boot = *report.bootloader;
  std::string summary = "bootloader " + std::string(field_text(boot.name)) + " " +
                        version_text(boot.version_major, boot.version_minor) + "; ";
  if (!report.firmware) {
    return summary + "no valid firmware";
  }
  const FirmwareInfo& firmware = *report.firmware;
  char patch[8];
  std::snprintf(patch, sizeof patch, ".%03d", firmware.version_patch);
  return summary + "firmware " + std::string(field_text(firmware.name)) + " " +
         version_text(firmware.version_major, firmware.version_minor) + patch +
         (is_debug_build(firmware) ? " (debug)" : "");
}

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
    return;
  }
  report.outcome.message = info_summary(report);
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
