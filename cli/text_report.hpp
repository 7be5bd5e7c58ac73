#pragma once

#include <string>
#include <vector>

#include "cli/report.hpp"
#include "pelmo/transport/serial_port_list.hpp"

namespace pelmo::cli {

// The records each target read (information, control record, factory table), then a short
// table: target, result, seconds, bytes, message.
std::string text_report(const RunReport& run);

// One port a line: its path, COM name, driver and the stable names that lead to it.
std::string text_ports(const std::vector<SerialPortEntry>& ports);

}  // namespace pelmo::cli
