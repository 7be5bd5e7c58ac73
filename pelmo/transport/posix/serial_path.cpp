#include "pelmo/transport/posix/serial_path.hpp"

#include <cstdlib>

#include "pelmo/transport/port_layer.hpp"

namespace pelmo::port::posix {

std::string serial_device_path(int port_index) {
  if (port_index < 0 || port_index >= COM_PORT_COUNT) {
    return {};
  }
  const std::string variable = "PELMO_COM" + std::to_string(port_index + 1);
  const char* configured = std::getenv(variable.c_str());
  if (configured != nullptr && *configured != '\0') {
    return configured;
  }
  return "/dev/ttyS" + std::to_string(port_index);
}

}  // namespace pelmo::port::posix
