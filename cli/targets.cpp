#include "cli/targets.hpp"

#include <algorithm>

#include "pelmo/session/target.hpp"

namespace pelmo::cli {

ResolvedTargets resolve_targets(const std::vector<TargetText>& texts) {
  ResolvedTargets resolved;
  for (const TargetText& text : texts) {
    std::optional<DeviceAddress> address;
    if (text.kind == TargetKind::udp) {
      if (const auto device = parse_udp_target(text.text)) {
        address = *device;
      } else {
        resolved.error =
            "--udp " + text.text + ": an address is exactly four numbers of 0..255 joined by dots";
      }
    } else if (const auto port = parse_serial_target(text.text)) {
      address = *port;
    } else {
      resolved.error = "--serial: a port name is empty";
    }
    if (!address) {
      return resolved;
    }
    std::string name = device_name(*address);
    const bool repeated = std::any_of(resolved.targets.begin(), resolved.targets.end(),
                                      [&](const Target& target) { return target.name == name; });
    if (repeated) {
      resolved.error = name + " is given more than once";
      return resolved;
    }
    resolved.targets.push_back({*address, std::move(name)});
  }
  return resolved;
}

}  // namespace pelmo::cli
