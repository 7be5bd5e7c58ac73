#pragma once

#include <string>

#include "pelmo/transport/port_layer.hpp"

namespace pelmo::port::win32 {

// Opens the communications device at `path` for this program alone and configures it with `line`
// (through the device-settings text, e.g. "baud=115200 data=8 parity=n stop=1 dtr=on rts=on") so
// that reads return at once with whatever has arrived.
SerialOpenResult open_serial_device(const std::string& path, const LineSettings& line);

}  // namespace pelmo::port::win32
