#pragma once

#include <string>

namespace pelmo::port::win32 {

// The device path of COM port `port_index` + 1, or an empty text outside the COM port range. The
// "\\.\" prefix is needed from COM10 up and harmless below, so every port is opened through it.
std::string com_port_path(int port_index);

}  // namespace pelmo::port::win32
