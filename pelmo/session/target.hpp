#pragma once

#include <optional>
#include <string_view>

#include "pelmo/transport/device_link.hpp"

namespace pelmo {

// A UDP device named by its IPv4 address: exactly four decimal numbers of 0..255 joined by dots.
std::optional<UdpDevice> parse_udp_target(std::string_view text);

// A serial port named as the user writes it: "COMn" (any letter case, n from 1 to COM_PORT_COUNT)
// is PelmoWin's numbered port; anything else non-empty is a device path.
std::optional<SerialPort> parse_serial_target(std::string_view text);

}  // namespace pelmo
