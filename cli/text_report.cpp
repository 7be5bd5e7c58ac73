#include "cli/text_report.hpp"

#include <algorithm>
#include <cstdarg>
#include <cstdio>

#include "pelmo/formats/factory_table_text.hpp"

namespace pelmo::cli {
namespace {

#if defined(__GNUC__)
__attribute__((format(printf, 2, 3)))
#endif
void append(std::string& text, const char* format, ...) {
  char line[512];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(line, sizeof line, format, arguments);
  va_end(arguments);
  text += line;
}

template <std::size_t N>
int width(const char (&field)[N]) {
  return static_cast<int>(field_text(field).size());
}

void firmware_lines(std::string& text, const TargetReport& report) {
  append(text, "%s firmware:\n", report.target.c_str());
  if (!report.firmware) {
    append(text, "  %s\n", report.firmware_error.c_str());
    return;
  }
  const FirmwareInfo& info = *report.firmware;
  const bool debug = is_debug_build(info);
  append(text, "  Name:        %.*s\n", width(info.name), info.name);
  append(text, "  Version:     %d.%02d.%03d%s\n", info.version_major, info.version_minor,
         info.version_patch, debug ? " (DEBUG)" : "");
  append(text, "  Compiled:    %.*s %.*s\n", width(info.compile_date), info.compile_date,
         width(info.compile_time), info.compile_time);
  if (!debug) {
    append(text, "  Size:        %u\n", static_cast<unsigned>(info.size));
    append(text, "  CRC32:       0x%08X\n", static_cast<unsigned>(info.crc32));
  }
}

void bootloader_lines(std::string& text, const TargetReport& report) {
  const BootloaderInfo& info = *report.bootloader;
  append(text, "%s bootloader:\n", report.target.c_str());
  append(text, "  Name:        %.*s\n", width(info.name), info.name);
  append(text, "  Version:     %d.%02d\n", info.version_major, info.version_minor);
  append(text, "  Compiled:    %.*s %.*s\n", width(info.compile_date), info.compile_date,
         width(info.compile_time), info.compile_time);
  append(text, "  FW Address:  %08X\n", static_cast<unsigned>(info.fw_address));
  append(text, "  FW Max.size: %08X\n", static_cast<unsigned>(info.fw_max_size));
}

void record_lines(std::string& text, const TargetReport& report) {
  if (report.bootloader) {
    firmware_lines(text, report);
    bootloader_lines(text, report);
  }
  if (report.control) {
    append(text, "%s control record:\n", report.target.c_str());
    append(text, "  Struct version:    %d\n", report.control->struct_version);
    append(text, "  Reset count:       %d\n", report.control->reset_count);
  }
  if (report.factory) {
    append(text, "%s factory table:\n", report.target.c_str());
    const std::string table = factory_table_text(*report.factory);
    // Its first line is the file's comment; the value lines follow.
    std::size_t line = table.find('\n');
    while (line != std::string::npos && line + 1 < table.size()) {
      const std::size_t end = table.find('\n', line + 1);
      text += "  " + table.substr(line + 1, end - line);
      line = end;
    }
  }
}

}  // namespace

std::string text_report(const RunReport& run) {
  std::string text;
  for (const TargetReport& report : run.targets) {
    record_lines(text, report);
  }
  int target_width = 6;
  for (const TargetReport& report : run.targets) {
    target_width = std::max(target_width, static_cast<int>(report.target.size()));
  }
  append(text, "%-*s  %-13s %8s %9s  %s\n", target_width, "TARGET", "RESULT", "SECONDS", "BYTES",
         "MESSAGE");
  for (const TargetReport& report : run.targets) {
    append(text, "%-*s  %-13s %8.3f %9llu  ", target_width, report.target.c_str(),
           report.result().c_str(), report.seconds,
           static_cast<unsigned long long>(report.outcome.bytes));
    text += report.outcome.message + "\n";
  }
  return text;
}

std::string text_ports(const std::vector<SerialPortEntry>& ports) {
  if (ports.empty()) {
    return "no serial ports found\n";
  }
  std::string text;
  for (const SerialPortEntry& port : ports) {
    text += port.path;
    if (!port.com.empty()) {
      text += "  " + port.com;
    }
    if (!port.driver.empty()) {
      text += "  (" + port.driver + ")";
    }
    text += "\n";
    for (const std::string& alias : port.aliases) {
      text += "  " + alias + "\n";
    }
  }
  return text;
}

}  // namespace pelmo::cli
