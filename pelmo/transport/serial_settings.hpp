#pragma once

#include <array>
#include <cstdint>
#include <string>

namespace pelmo {

// The line speeds a serial port can be opened with, in bits per second.
inline constexpr std::array<std::int32_t, 15> BAUD_RATES = {
    110,   300,   600,    1200,   2400,   4800,   9600,   19200,
    38400, 57600, 115200, 128000, 256000, 500000, 1000000};

enum class Parity : char { none = 'n', even = 'e', odd = 'o' };

// The line settings of a serial port.
struct LineSettings {
  std::int32_t baud_rate = 115200;
  std::uint8_t data_bits = 8;
  Parity parity = Parity::none;
  std::uint8_t stop_bits = 1;
  bool dtr = true;
  bool rts = true;
  friend bool operator==(const LineSettings&, const LineSettings&) = default;
};

// The Windows device-settings text of `settings`, e.g.
// "baud=115200 data=8 parity=n stop=1 dtr=on rts=on"; the Windows backend builds the port's
// control block from it.
std::string format_line_settings(const LineSettings& settings);

}  // namespace pelmo
