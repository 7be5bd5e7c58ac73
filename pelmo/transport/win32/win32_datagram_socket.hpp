#pragma once

#include <memory>

#include "pelmo/transport/port_layer.hpp"

namespace pelmo::port::win32 {

// A fresh non-blocking IPv4 datagram socket, or the reason none could be created. The socket
// library must have been started.
DatagramSocketResult open_datagram_socket();

}  // namespace pelmo::port::win32
