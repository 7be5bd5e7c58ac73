#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "cli/command_line.hpp"
#include "cli/output_file.hpp"
#include "cli/targets.hpp"
#include "pelmo/commands/records.hpp"
#include "pelmo/formats/firmware_file.hpp"
#include "pelmo/session/device_session.hpp"

namespace pelmo::cli {

// What the device's data is written as.
enum class OutputFormat : std::uint8_t { raw, intel_hex, factory_text };

// One run's work with every input read and checked, before any device is contacted.
struct Job {
  Command command = Command::info;
  FlashOptions flash;
  CalibrationTableKind calibration_table = CalibrationTableKind::main;
  std::optional<FirmwareFile> firmware;
  FactoryTable factory{};
  std::vector<std::uint8_t> calibration;
  OutputFormat output_format = OutputFormat::raw;
  // One per target, in the targets' order, when the command writes a file (created already: a
  // file that cannot be written refuses the run).
  std::vector<std::unique_ptr<OutputFile>> outputs;
};

struct PreparedJob {
  std::unique_ptr<Job> job;
  std::string error;  // why the run is refused: names the file and, where known, the place in it
};

// Reads and checks the command's input file (firmware image, factory text, calibration table) and
// creates its output files, one per target.
PreparedJob prepare_job(const CommandLine& line, const std::vector<Target>& targets);

}  // namespace pelmo::cli
