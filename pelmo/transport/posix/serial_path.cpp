#include "pelmo/transport/posix/serial_path.hpp"

#include <cstdlib>

namespace pelmo::port::posix {

std::string serial_device_path(int port_index) {
  const std::string variable = "PELMO_COM" + std::to_string(port_index + 1);
  const char* configured = std::getenv(variable.c_str());
  if (configured != nullptr && *configured != '\0') {
    return configured;
  }
  return "/dev/ttyS" + std::to_string(port_index);
}

}  // namespace pelmo::port::posix
