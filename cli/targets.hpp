#pragma once

#include <string>
#include <vector>

#include "cli/command_line.hpp"
#include "pelmo/transport/device_link.hpp"

namespace pelmo::cli {

// A checked target: where the device is and its name in reports ("udp:192.168.1.15").
struct Target {
  DeviceAddress address;
  std::string name;
};

struct ResolvedTargets {
  std::vector<Target> targets;
  std::string error;  // set when a target is refused; `targets` is then incomplete
};

// Checks every target the command line names: UDP addresses of exactly four numbers of 0..255,
// serial ports not empty, no device twice.
ResolvedTargets resolve_targets(const std::vector<TargetText>& texts);

}  // namespace pelmo::cli
