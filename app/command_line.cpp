#include "app/command_line.hpp"

#include <algorithm>
#include <limits>
#include <string_view>

#include "app/option_table.hpp"

namespace pelmo {
namespace {

// Reads a decimal integer the way the classic "%d" conversion does: leading white space
// skipped, an optional sign, at least one digit; what follows the digits is left for the caller.
// Values beyond the 32-bit range saturate instead of overflowing.
class NumberScanner {
 public:
  explicit NumberScanner(std::string_view text) : text_(text) {}

  std::optional<std::int32_t> number() {
    while (position_ < text_.size() && is_space(text_[position_])) {
      ++position_;
    }
    bool negative = false;
    if (position_ < text_.size() && (text_[position_] == '+' || text_[position_] == '-')) {
      negative = text_[position_] == '-';
      ++position_;
    }
    constexpr std::int64_t LIMIT = std::int64_t{std::numeric_limits<std::int32_t>::max()} + 1;
    std::int64_t magnitude = 0;
    const std::size_t first_digit = position_;
    while (position_ < text_.size() && text_[position_] >= '0' && text_[position_] <= '9') {
      if (magnitude < LIMIT) {
        magnitude = magnitude * 10 + (text_[position_] - '0');
      }
      ++position_;
    }
    if (position_ == first_digit) {
      return std::nullopt;
    }
    if (magnitude > LIMIT) {
      magnitude = LIMIT;
    }
    const std::int64_t value = negative ? -magnitude : std::min(magnitude, LIMIT - 1);
    return static_cast<std::int32_t>(value);
  }

  // Consumes `expected` when it is the very next character.
  bool literal(char expected) {
    if (position_ < text_.size() && text_[position_] == expected) {
      ++position_;
      return true;
    }
    return false;
  }

 private:
  static bool is_space(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

  std::string_view text_;
  std::size_t position_ = 0;
};

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

bool take_com_port(std::string_view argument, ParseState& state) {
  NumberScanner scanner(argument.substr(1));
  const auto port = scanner.number();
  if (!port || *port <= 0) {
    return false;
  }
  state.line.connection = static_cast<std::uint32_t>(*port - 1);
  state.connection_given = true;
  return true;
}

bool take_ip_address(std::string_view argument, ParseState& state) {
  NumberScanner scanner(argument.substr(1));
  std::array<std::uint8_t, 4> address{};
  for (std::size_t i = 0; i < address.size(); ++i) {
    if (i > 0 && !scanner.literal('.')) {
      return false;
    }
    const auto number = scanner.number();
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
  NumberScanner scanner(argument.substr(1));
  const auto milliseconds = scanner.number();
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
