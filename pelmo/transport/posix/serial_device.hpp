#pragma once

#include <string>

#include "pelmo/transport/port_layer.hpp"

namespace pelmo::port::posix {

// Opens the serial device at `path` for exclusive use, in raw mode with `line`, with reads that
// return at once. The step that failed decides the status.
SerialOpenResult open_serial_device(const std::string& path, const LineSettings& line);

}  // namespace pelmo::port::posix
