#pragma once

#include <optional>
#include <string>
#include <vector>

#include "cli/command.hpp"
#include "pelmo/commands/records.hpp"
#include "pelmo/session/outcome.hpp"

namespace pelmo::cli {

// What one command did on one target, with the records it read.
struct TargetReport {
  std::string target;  // "udp:192.168.1.15", "serial:/dev/ttyUSB0"
  Outcome outcome;
  double seconds = 0;
  std::string file;            // the file written, once it is in place
  bool output_failed = false;  // the device's data could not be written to the file
  std::optional<FirmwareInfo> firmware;
  std::string firmware_error;  // info: why the device holds no valid firmware
  std::optional<BootloaderInfo> bootloader;
  std::optional<ControlRecord> control;
  std::optional<FactoryTable> factory;

  bool ok() const { return outcome.ok() && !output_failed; }
  // "ok", "skipped", "output", or the failure's kind ("timeout", "mismatch", ...).
  std::string result() const;
};

struct RunReport {
  Command command = Command::info;
  std::vector<TargetReport> targets;

  bool ok() const;
};

}  // namespace pelmo::cli
