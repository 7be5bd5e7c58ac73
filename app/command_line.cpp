#include "app/command_line.hpp"

#include <string_view>

#include "app/option_table.hpp"
#include "pelmo/formats/number_text.hpp"

namespace pelmo {
namespace {

std::string ascii_upper(std::string_view text) {
  std::string upper(text);
  for (char& c : upper) {
    if (c >= 'a' && c <= 'z') {
      c = static_cast<char>(c - 'a' + 'A');
    }
  }
  return upper;
}

struct ParseState {
  CommandLine line;
  bool connection_given = false;
  bool option_given = false;
  bool file_expected = false;
};

// Numbers on the command line saturate at the ends of the 32-bit range, as "%d" scanning does.
bool take_com_port(std::string_view argument, ParseState& state) {
  std::string_view text = argument.substr(1);
  const auto port = scan_decimal_saturating(text);
  if (!port || *port <= 0) {
    return false;
  }
  state.line.connection = static_cast<std::uint32_t>(*port - 1);
  state.connection_given = true;
  return true;
}

// Consumes the dot that must follow an address number at once.
bool take_dot(std::string_view& text) {
  if (text.empty() || text.front() != '.') {
    return false;
  }
  text.remove_prefix(1);
  return true;
}

bool take_ip_address(std::string_view argument, ParseState& state) {
  std::string_view text = argument.substr(1);
  std::array<std::uint8_t, 4> address{};
  for (std::size_t i = 0; i < address.size(); ++i) {
    if (i > 0 && !take_dot(text)) {
      return false;
    }
    const auto number = scan_decimal_saturating(text);
    if (!number) {
      return false;
    }
    address[i] = static_cast<std::uint8_t>(static_cast<std::uint32_t>(*number) & 0xFFu);
  }
  state.line.ip_address = address;
  state.connection_given = true;
  return true;
}

bool take_extra_timeout(std::string_view argument, ParseState& state) {
  std::string_view text = argument.substr(1);
  const auto milliseconds = scan_decimal_saturating(text);
  if (!milliseconds) {
    return false;
  }
  state.line.extra_timeout = *milliseconds;
  return true;
}

bool take_option(std::string_view argument, ParseState& state) {
  const OptionEntry* entry = find_option(ascii_upper(argument));
  if (entry == nullptr) {
    return false;
  }
  state.line.operation = entry->operation;
  state.option_given = true;
  state.file_expected = state.file_expected || entry->needs_file;
  return true;
}

bool take_file_name(std::string_view argument, ParseState& state) {
  // A name before any option that needs one is not ours to judge: it is skipped.
  if (!state.file_expected) {
    return true;
  }
  if (argument.empty()) {
    return false;
  }
  state.line.file_name = std::string(argument);
  return true;
}

bool take_argument(std::string_view argument, ParseState& state) {
  switch (argument.empty() ? '\0' : argument.front()) {
    case '@':
      return take_com_port(argument, state);
    case '#':
      return take_ip_address(argument, state);
    case '*':
      return take_extra_timeout(argument, state);
    case '-':
      return take_option(argument, state);
    default:
      return take_file_name(argument, state);
  }
}

}  // namespace

std::optional<CommandLine> parse_command_line(std::span<const char* const> arguments) {
  if (arguments.size() < 3) {
    return std::nullopt;
  }
  ParseState state;
  for (const char* argument : arguments.subspan(1)) {
    if (!take_argument(argument == nullptr ? std::string_view{} : std::string_view{argument},
                       state)) {
      return std::nullopt;
    }
  }
  if (!state.option_given || !state.connection_given) {
    return std::nullopt;
  }
  return state.line;
}

}  // namespace pelmo
