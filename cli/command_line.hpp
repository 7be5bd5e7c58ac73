#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "cli/command.hpp"

namespace pelmo::cli {

enum class TargetKind : std::uint8_t { udp, serial };

// A target as the user wrote it, before it is checked.
struct TargetText {
  TargetKind kind = TargetKind::udp;
  std::string text;
};

// The run a command line asks for; nothing in it is checked against files or devices yet.
struct CommandLine {
  Command command = Command::info;
  std::vector<TargetText> targets;  // in the order given, lists split at commas
  std::string file;                 // FILE, when the command takes one and it was given
  bool json = false;
  bool no_progress = false;
  bool no_verify = false;
  bool skip_identical = false;
  bool backup = false;           // calib: the backup table
  std::uint16_t attempts = 0;    // 0: as many as the deadline allows
  std::uint32_t timeout_ms = 0;  // 0: the adaptive wait
};

// What parsing gave: a command line to run, or text to print and the exit status to end with
// (help and version: their text for standard output, status 0; a usage error: a one-line reason
// for standard error, status 2).
struct ParsedCommandLine {
  std::optional<CommandLine> line;
  std::string help;   // for standard output
  std::string error;  // for standard error, without the program's name
  int exit_status = 0;
};

// `arguments` without the program's name.
ParsedCommandLine parse_command_line(const std::vector<std::string>& arguments);

}  // namespace pelmo::cli
