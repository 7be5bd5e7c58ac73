#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace pelmo {

enum class Parity : char { none = 'n', even = 'e', odd = 'o' };

// The line settings of a serial port, as carried by a settings text such as
// "baud=115200 data=8 parity=n stop=1 dtr=on rts=on".
struct LineSettings {
  std::int32_t baud_rate = 0;
  std::uint8_t data_bits = 8;
  Parity parity = Parity::none;
  std::uint8_t stop_bits = 1;
  bool dtr = false;
  bool rts = false;
  friend bool operator==(const LineSettings&, const LineSettings&) = default;
};

// "baud=<n> data=<d> parity=<p> stop=<s> dtr=<on|off> rts=<on|off>".
std::string format_line_settings(const LineSettings& settings);

// Reads a settings text back: blank-separated key=value pieces in any order. "baud" is required,
// the others keep their defaults when absent (dtr and rts then stay off). None when a key is
// unknown or a value does not fit its key.
std::optional<LineSettings> parse_line_settings(std::string_view text);

}  // namespace pelmo
