#pragma once

#include <memory>

#include "pelmo/transport/port_layer.hpp"

namespace pelmo::port::win32 {

// A fresh IPv4 datagram socket, or null when none can be created. The socket library must have
// been started.
std::unique_ptr<DatagramSocket> open_datagram_socket();

}  // namespace pelmo::port::win32
