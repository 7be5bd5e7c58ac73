#pragma once

#include <string_view>

namespace pelmo::port::win32 {

// How many COM ports the program can reach: index 0 is COM1, index 15 is COM16.
inline constexpr int COM_PORT_COUNT = 16;

// The device path of COM port `port_index` + 1, or an empty text outside 0..15. The "\\.\"
// prefix is needed from COM10 up and harmless below, so every port is opened through it.
std::string_view com_port_path(int port_index);

}  // namespace pelmo::port::win32
