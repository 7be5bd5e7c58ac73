#include "cli/command_line.hpp"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <sstream>
#include <string_view>

#include "pelmo/version.hpp"

namespace pelmo::cli {
namespace {

constexpr std::string_view FOOTER =
    "Every command runs on every target at the same time.\n"
    "FILE: .bin (raw, from the firmware area's start), .hex (Intel HEX), .srec/.s19/.s28/.s37\n"
    "(Motorola S-record) or .elf (loadable segments at their physical addresses).\n"
    "Exit status: 0 every target succeeded, 1 at least one target failed, 2 the run was refused\n"
    "before any device was contacted (usage, a target or an input file); a refused run sends\n"
    "nothing.";

// The leaves of the command tree: where each one hangs, its help, and what it adds.
struct Leaf {
  Command command;
  std::string_view group;  // "" for a top-level command
  std::string_view name;
  std::string_view help;
};

constexpr Leaf LEAVES[] = {
    {Command::info, "", "info", "show the firmware and bootloader information"},
    {Command::flash, "", "flash", "erase, write and verify a firmware image"},
    {Command::write, "", "write", "write a firmware image without erasing first"},
    {Command::verify, "", "verify", "compare the device's firmware with an image"},
    {Command::erase, "", "erase", "erase the firmware"},
    {Command::read, "", "read", "read the firmware into FILE (.bin raw, .hex Intel HEX)"},
    {Command::factory_read, "factory", "read", "show the factory table, and write it to FILE"},
    {Command::factory_write, "factory", "write", "erase, write and verify the table in FILE"},
    {Command::factory_verify, "factory", "verify", "compare the device's table with FILE"},
    {Command::factory_erase, "factory", "erase", "erase the factory table"},
    {Command::calib_read, "calib", "read", "read the calibration table into FILE"},
    {Command::calib_write, "calib", "write", "erase, write and verify the table in FILE"},
    {Command::calib_verify, "calib", "verify", "compare the device's table with FILE"},
    {Command::calib_erase, "calib", "erase", "erase the calibration table"},
    {Command::control_read, "control", "read", "show the bootloader's control record"},
    {Command::control_clear, "control", "clear", "clear the bootloader's control record"},
    {Command::restart, "", "restart", "leave the bootloader and start the firmware"},
    {Command::ports, "", "ports", "list this host's serial ports (no targets)"},
};

struct Group {
  std::string_view name;
  std::string_view help;
};
constexpr Group GROUPS[] = {
    {"factory", "the factory table, in the text form PelmoWin reads and writes"},
    {"calib", "the calibration table (raw bytes); --backup for the backup table"},
    {"control", "the bootloader's control record"},
};

std::string_view file_help(FileUse use) {
  switch (use) {
    case FileUse::firmware_in:
      return "firmware image: .bin, .hex, .srec/.s19/.s28/.s37 or .elf";
    case FileUse::factory_in:
      return "factory table text (KEY: value lines)";
    case FileUse::calibration_in:
      return "calibration table, raw bytes";
    case FileUse::output:
      return "file to write; with several targets each gets the target's name before the "
             "extension";
    case FileUse::none:
      break;
  }
  return {};
}

class Parser {
 public:
  Parser()
      : app_("pelmo: flash and service devices through their bootloader, many at once", "pelmo") {
    app_.set_version_flag("--version", "pelmo " + std::string(VERSION));
    app_.footer(std::string(FOOTER));
    app_.require_subcommand(1);
    app_.get_formatter()->column_width(30);
    add_target_option("--udp", "ADDR", TargetKind::udp,
                      "device(s) over UDP: IPv4 addresses, comma-separated; repeatable");
    add_target_option("--serial", "PORT", TargetKind::serial,
                      "device(s) on serial ports: COMn (as PelmoWin numbers them) or a device "
                      "path; comma-separated; repeatable");
    app_.add_flag("--json", line_.json, "print exactly one JSON object on standard output");
    app_.add_flag("--no-progress", line_.no_progress, "no progress output on standard error");
    app_.add_option("--attempts", line_.attempts,
                    "sends per request, the first included (default 0: as many as the "
                    "10-second deadline of each exchange allows)")
        ->type_name("N")
        ->check(CLI::Range(0, 65535).description(""));
    app_.add_option("--timeout-ms", line_.timeout_ms,
                    "a fixed wait per attempt in milliseconds instead of the adaptive one")
        ->type_name("MS")
        ->check(CLI::Range(1, 600000).description(""));

    for (const Leaf& leaf : LEAVES) {
      add_leaf(leaf);
    }
  }

  ParsedCommandLine parse(const std::vector<std::string>& arguments) {
    ParsedCommandLine parsed;
    std::vector<std::string> reversed(arguments.rbegin(), arguments.rend());
    try {
      app_.parse(reversed);
    } catch (const CLI::ParseError& error) {
      std::ostringstream out;
      std::ostringstream err;
      parsed.exit_status = app_.exit(error, out, err) == 0 ? 0 : 2;
      parsed.help = out.str();
      if (parsed.exit_status != 0) {
        parsed.error = reason(error);
      }
      return parsed;
    }
    for (const auto& [leaf, sub] : leaves_) {
      if (sub->parsed()) {
        line_.command = leaf;
      }
    }
    parsed.line = line_;
    return parsed;
  }

 private:
  void add_target_option(const std::string& name, const std::string& value_name, TargetKind kind,
                         const std::string& help) {
    // Parsed as they come, so that --udp and --serial targets keep the order given.
    app_.add_option_function<std::vector<std::string>>(
            name,
            [this, kind](const std::vector<std::string>& values) {
              for (const std::string& value : values) {
                line_.targets.push_back({kind, value});
              }
            },
            help)
        ->type_name(value_name)
        ->delimiter(',')
        ->allow_extra_args(false)  // one value (a comma list) per --udp, so a command follows
        ->trigger_on_parse();
  }

  // A missing command is worded for people, naming the word that was not one.
  std::string reason(const CLI::ParseError& error) const {
    const bool no_command = app_.get_subcommands().empty() && !app_.get_help_ptr()->count();
    if (!no_command || dynamic_cast<const CLI::RequiredError*>(&error) == nullptr) {
      return error.what();
    }
    const std::vector<std::string> rest = app_.remaining();
    const std::string commands =
        "info, flash, write, verify, erase, read, factory, calib, control, restart, ports";
    return rest.empty() ? "a command is required: " + commands
                        : "unknown command " + rest.front() + " (commands: " + commands + ")";
  }

  // A group's subcommand (factory, calib, control), made when its first leaf is added.
  CLI::App* group_of(std::string_view name) {
    const std::string key(name);
    for (CLI::App* existing : app_.get_subcommands({})) {
      if (existing->get_name() == key) {
        return existing;
      }
    }
    const auto* group =
        std::find_if(std::begin(GROUPS), std::end(GROUPS),
                     [&](const Group& candidate) { return candidate.name == name; });
    CLI::App* sub = app_.add_subcommand(key, std::string(group->help));
    sub->require_subcommand(1);
    sub->fallthrough();
    if (name == "calib") {
      sub->add_flag("--backup", line_.backup, "the backup calibration table");
    }
    return sub;
  }

  void add_leaf(const Leaf& leaf) {
    CLI::App* parent = leaf.group.empty() ? &app_ : group_of(leaf.group);
    CLI::App* sub = parent->add_subcommand(std::string(leaf.name), std::string(leaf.help));
    sub->fallthrough();  // the options of the program (and of calib) may follow the command
    leaves_.emplace_back(leaf.command, sub);
    const FileUse use = traits_of(leaf.command).file;
    if (use != FileUse::none) {
      CLI::Option* file = sub->add_option("FILE", line_.file, std::string(file_help(use)));
      // factory read lists the table; the file is optional there.
      if (leaf.command != Command::factory_read) {
        file->required();
      }
    }
    if (leaf.command == Command::flash) {
      sub->add_flag("--no-verify", line_.no_verify, "skip the verify after writing");
      sub->add_flag("--skip-identical", line_.skip_identical,
                    "erase and write nothing when the device already holds exactly this image");
    }
  }

  CLI::App app_;
  CommandLine line_;
  std::vector<std::pair<Command, CLI::App*>> leaves_;
};

}  // namespace

ParsedCommandLine parse_command_line(const std::vector<std::string>& arguments) {
  return Parser().parse(arguments);
}

}  // namespace pelmo::cli
