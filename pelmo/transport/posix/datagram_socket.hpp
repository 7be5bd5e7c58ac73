#pragma once

#include <memory>

#include "pelmo/transport/port_layer.hpp"

namespace pelmo::port::posix {

// A new non-blocking IPv4 datagram socket, or the system's reason for refusing one.
DatagramSocketResult open_datagram_socket();

}  // namespace pelmo::port::posix
