#pragma once

#include <string_view>

#include "pelmo/transport/port_layer.hpp"

namespace pelmo::port::posix {

// Opens COM<port_index + 1> (see serial_device_path) for exclusive use, in raw mode with the line
// settings of `settings`, with reads that return at once. The step that failed decides the status.
SerialOpenResult open_serial_device(int port_index, std::string_view settings);

}  // namespace pelmo::port::posix
