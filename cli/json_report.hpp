#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "cli/report.hpp"
#include "pelmo/transport/serial_port_list.hpp"

namespace pelmo::cli {

// The one JSON object of a run: {"command", "ok", "targets": [...]} with one object per target in
// the order given, and the records the command read. One line, ending in a line feed.
std::string json_report(const RunReport& run);

// A run refused before any device was contacted: "ok" false, "refused" true, the reason in
// "error", no targets. `command` may be "" when the command line named none.
std::string json_refusal(std::string_view command, std::string_view error);

// {"command": "ports", "ok": true, "ports": [...]}.
std::string json_ports(const std::vector<SerialPortEntry>& ports);

}  // namespace pelmo::cli
