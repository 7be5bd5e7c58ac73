#include "pelmo/transport/posix/serial_port_list.hpp"

#include <algorithm>
#include <string>
#include <string_view>
#include <system_error>

#include "pelmo/transport/port_layer.hpp"
#include "pelmo/transport/posix/serial_path.hpp"

namespace pelmo::port::posix {
namespace fs = std::filesystem;

namespace {

// A path from the COM numbering, with /dev standing for `dev`.
fs::path under_dev(const std::string& path, const fs::path& dev) {
  constexpr std::string_view SYSTEM_DEV = "/dev/";
  if (path.starts_with(SYSTEM_DEV)) {
    return dev / path.substr(SYSTEM_DEV.size());
  }
  return path;
}

// True when both paths lead to one existing file, whatever links stand between.
bool same_file(const fs::path& a, const fs::path& b) {
  std::error_code error;
  return fs::equivalent(a, b, error) && !error;
}

std::string driver_of(const fs::path& tty) {
  std::error_code error;
  const fs::path driver = fs::read_symlink(tty / "device" / "driver", error);
  return error ? std::string{} : driver.filename().string();
}

std::vector<std::string> aliases_of(const fs::path& node, const fs::path& by_id) {
  std::vector<std::string> aliases;
  std::error_code error;
  for (fs::directory_iterator link(by_id, error), end; !error && link != end;
       link.increment(error)) {
    if (link->is_symlink(error) && same_file(link->path(), node)) {
      aliases.push_back(link->path().string());
    }
  }
  std::sort(aliases.begin(), aliases.end());
  return aliases;
}

// The devices under `sysfs_tty` with a device behind them and a node under `dev`.
std::vector<SerialPortEntry> sysfs_ports(const fs::path& sysfs_tty, const fs::path& dev) {
  std::vector<SerialPortEntry> ports;
  std::error_code error;
  for (fs::directory_iterator tty(sysfs_tty, error), end; !error && tty != end;
       tty.increment(error)) {
    std::error_code probe;
    const fs::path node = dev / tty->path().filename();
    if (!fs::exists(tty->path() / "device", probe) || !fs::exists(node, probe)) {
      continue;
    }
    ports.push_back({.path = node.string(),
                     .com = {},
                     .aliases = aliases_of(node, dev / "serial" / "by-id"),
                     .driver = driver_of(tty->path())});
  }
  return ports;
}

}  // namespace

std::vector<SerialPortEntry> list_serial_ports(const fs::path& sysfs_tty, const fs::path& dev) {
  std::vector<SerialPortEntry> ports = sysfs_ports(sysfs_tty, dev);
  for (int index = 0; index < COM_PORT_COUNT; ++index) {
    const fs::path path = under_dev(serial_device_path(index), dev);
    const std::string com = "COM" + std::to_string(index + 1);
    const auto port = std::find_if(ports.begin(), ports.end(), [&](const SerialPortEntry& entry) {
      return entry.path == path.string() || same_file(entry.path, path);
    });
    if (port != ports.end()) {
      if (port->com.empty()) {  // COM1 before COM5 when two numbers name one port
        port->com = com;
      }
    } else if (std::error_code error; fs::exists(path, error)) {
      // A port the tree does not show, such as a pseudo-terminal a PELMO_COM<n> variable names.
      ports.push_back({.path = path.string(), .com = com, .aliases = {}, .driver = {}});
    }
  }
  std::sort(ports.begin(), ports.end(),
            [](const SerialPortEntry& a, const SerialPortEntry& b) { return a.path < b.path; });
  return ports;
}

}  // namespace pelmo::port::posix

namespace pelmo {

std::vector<SerialPortEntry> list_serial_ports() {
  return port::posix::list_serial_ports("/sys/class/tty", "/dev");
}

}  // namespace pelmo
