#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace pelmo::cli {

// Every command the program runs; one per leaf of the command line.
enum class Command : std::uint8_t {
  info,
  flash,
  write,
  verify,
  erase,
  read,
  factory_read,
  factory_write,
  factory_verify,
  factory_erase,
  calib_read,
  calib_write,
  calib_verify,
  calib_erase,
  control_read,
  control_clear,
  restart,
  ports,
};

// What a command's FILE argument is to it.
enum class FileUse : std::uint8_t {
  none,
  firmware_in,     // an image in any firmware format
  factory_in,      // factory table text
  calibration_in,  // raw calibration table
  output,          // written with what the device gave (optional for factory read)
};

struct CommandTraits {
  Command command;
  std::string_view name;  // as typed: "flash", "factory read"
  FileUse file;
};

const CommandTraits& traits_of(Command command);

// The command typed as `name` ("calib erase"), if there is one.
std::optional<Command> command_named(std::string_view name);

}  // namespace pelmo::cli
