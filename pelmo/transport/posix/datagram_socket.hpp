#pragma once

#include <memory>

#include "pelmo/transport/port_layer.hpp"

namespace pelmo::port::posix {

// A new IPv4 datagram socket, or null when the system refuses one.
std::unique_ptr<DatagramSocket> open_datagram_socket();

}  // namespace pelmo::port::posix
