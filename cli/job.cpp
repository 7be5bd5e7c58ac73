#include "cli/job.hpp"

#include <filesystem>
#include <fstream>
#include <iterator>

#include "cli/output_name.hpp"
#include "pelmo/formats/factory_table_text.hpp"

namespace pelmo::cli {
namespace {

// The whole file, or nothing when it cannot be read or holds more than `limit` bytes.
struct FileContent {
  std::string bytes;
  std::string error;
};

FileContent read_whole(const std::string& path, std::size_t limit) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    return {{}, path + ": cannot be opened"};
  }
  FileContent content;
  content.bytes.assign(std::istreambuf_iterator<char>(file), {});
  if (file.bad()) {
    return {{}, path + ": cannot be read"};
  }
  if (content.bytes.size() > limit) {
    return {{}, path + ": larger than " + std::to_string(limit) + " bytes"};
  }
  return content;
}

std::string load_input(const CommandLine& line, Job& job) {
  switch (traits_of(line.command).file) {
    case FileUse::firmware_in: {
      FirmwareFileLoad load = load_firmware_file(line.file);
      if (!load.file) {
        return load.error;
      }
      job.firmware = std::move(*load.file);
      return {};
    }
    case FileUse::factory_in: {
      FileContent text = read_whole(line.file, FACTORY_TEXT_MAX_BYTES);
      if (!text.error.empty()) {
        return text.error;
      }
      const FactoryTextCheck check = check_factory_table_text(text.bytes, job.factory);
      return check.ok ? std::string() : line.file + ": " + check.message();
    }
    case FileUse::calibration_in: {
      FileContent table = read_whole(line.file, CALIBRATION_MAX_BYTES);
      if (!table.error.empty()) {
        return table.error;
      }
      if (table.bytes.empty()) {
        return line.file + ": empty";
      }
      job.calibration.assign(table.bytes.begin(), table.bytes.end());
      return {};
    }
    case FileUse::output:
    case FileUse::none:
      break;
  }
  return {};
}

// The format a firmware read is written in, from the name's extension; a device or a pipe
// (/dev/stdout) takes the raw bytes.
std::optional<OutputFormat> firmware_output_format(const std::string& path) {
  std::error_code error;
  const auto status = std::filesystem::status(path, error);
  if (std::filesystem::exists(status) && !std::filesystem::is_regular_file(status) &&
      !std::filesystem::is_directory(status)) {
    return OutputFormat::raw;
  }
  const auto format = firmware_format_of(path);
  if (format == FirmwareFormat::raw) {
    return OutputFormat::raw;
  }
  if (format == FirmwareFormat::intel_hex) {
    return OutputFormat::intel_hex;
  }
  return std::nullopt;
}

std::string create_outputs(const CommandLine& line, const std::vector<Target>& targets, Job& job) {
  if (traits_of(line.command).file != FileUse::output || line.file.empty()) {
    return {};
  }
  if (line.command == Command::read) {
    const auto format = firmware_output_format(line.file);
    if (!format) {
      return line.file + ": a firmware is read into a .bin (raw) or a .hex (Intel HEX) file";
    }
    job.output_format = *format;
  } else {
    job.output_format =
        line.command == Command::factory_read ? OutputFormat::factory_text : OutputFormat::raw;
  }
  for (const Target& target : targets) {
    const std::string path =
        targets.size() == 1 ? line.file : per_target_path(line.file, target.name);
    OutputFile::Opened opened = OutputFile::open(path);
    if (!opened.file) {
      return opened.error;
    }
    job.outputs.push_back(std::move(opened.file));
  }
  return {};
}

}  // namespace

PreparedJob prepare_job(const CommandLine& line, const std::vector<Target>& targets) {
  auto job = std::make_unique<Job>();
  job->command = line.command;
  job->flash = {.verify = !line.no_verify, .skip_identical = line.skip_identical};
  job->calibration_table = line.backup ? CalibrationTableKind::backup : CalibrationTableKind::main;
  if (std::string error = load_input(line, *job); !error.empty()) {
    return {nullptr, std::move(error)};
  }
  if (std::string error = create_outputs(line, targets, *job); !error.empty()) {
    return {nullptr, std::move(error)};  // the files created so far go with the job
  }
  return {std::move(job), {}};
}

}  // namespace pelmo::cli
