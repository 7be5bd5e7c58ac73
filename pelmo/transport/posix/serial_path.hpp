#pragma once

#include <string>

namespace pelmo::port::posix {

// The device behind COM<port_index + 1>: the path in the environment variable PELMO_COM<n> when it
// is set and not empty (a USB adapter, a stable by-id name, a pseudo-terminal), otherwise the
// built-in UART /dev/ttyS<port_index>. Empty outside the COM port range.
std::string serial_device_path(int port_index);

}  // namespace pelmo::port::posix
