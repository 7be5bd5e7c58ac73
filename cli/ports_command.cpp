#include "cli/ports_command.hpp"

#include "cli/json_report.hpp"
#include "cli/text_report.hpp"
#include "pelmo/transport/serial_port_list.hpp"

namespace pelmo::cli {

std::string ports_listing(bool json) {
  const std::vector<SerialPortEntry> ports = list_serial_ports();
  return json ? json_ports(ports) : text_ports(ports);
}

}  // namespace pelmo::cli
