#include "cli/command.hpp"

#include <algorithm>
#include <array>

namespace pelmo::cli {
namespace {

constexpr std::array<CommandTraits, 18> COMMANDS{{
    {Command::info, "info", FileUse::none},
    {Command::flash, "flash", FileUse::firmware_in},
    {Command::write, "write", FileUse::firmware_in},
    {Command::verify, "verify", FileUse::firmware_in},
    {Command::erase, "erase", FileUse::none},
    {Command::read, "read", FileUse::output},
    {Command::factory_read, "factory read", FileUse::output},
    {Command::factory_write, "factory write", FileUse::factory_in},
    {Command::factory_verify, "factory verify", FileUse::factory_in},
    {Command::factory_erase, "factory erase", FileUse::none},
    {Command::calib_read, "calib read", FileUse::output},
    {Command::calib_write, "calib write", FileUse::calibration_in},
    {Command::calib_verify, "calib verify", FileUse::calibration_in},
    {Command::calib_erase, "calib erase", FileUse::none},
    {Command::control_read, "control read", FileUse::none},
    {Command::control_clear, "control clear", FileUse::none},
    {Command::restart, "restart", FileUse::none},
    {Command::ports, "ports", FileUse::none},
}};

constexpr bool in_enum_order() {
  for (std::size_t i = 0; i < COMMANDS.size(); ++i) {
    if (static_cast<std::size_t>(COMMANDS[i].command) != i) {
      return false;
    }
  }
  return true;
}
static_assert(in_enum_order(), "traits_of indexes the table by the enum's value");

}  // namespace

const CommandTraits& traits_of(Command command) {
  return COMMANDS[static_cast<std::size_t>(command)];
}

std::optional<Command> command_named(std::string_view name) {
  const auto found = std::find_if(COMMANDS.begin(), COMMANDS.end(),
                                  [&](const CommandTraits& traits) { return traits.name == name; });
  return found == COMMANDS.end() ? std::nullopt : std::optional{found->command};
}

}  // namespace pelmo::cli
