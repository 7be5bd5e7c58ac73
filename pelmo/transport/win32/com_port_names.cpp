#include "pelmo/transport/win32/com_port_names.hpp"

#include "pelmo/transport/port_layer.hpp"

namespace pelmo::port::win32 {

std::string com_port_path(int port_index) {
  if (port_index < 0 || port_index >= COM_PORT_COUNT) {
    return {};
  }
  return R"(\\.\COM)" + std::to_string(port_index + 1);
}

}  // namespace pelmo::port::win32
