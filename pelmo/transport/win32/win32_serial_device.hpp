#pragma once

#include <string_view>

#include "pelmo/transport/port_layer.hpp"

namespace pelmo::port::win32 {

// Opens the communications device at `path` for this program alone and configures it from
// `settings` (a device-settings text such as "baud=115200 data=8 parity=n stop=1 dtr=on rts=on")
// so that reads return at once with whatever has arrived.
SerialOpenResult open_serial_device(std::string_view path, std::string_view settings);

}  // namespace pelmo::port::win32
