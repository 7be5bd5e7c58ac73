#pragma once

#include <filesystem>
#include <vector>

#include "pelmo/transport/serial_port_list.hpp"

namespace pelmo::port::posix {

// The serial ports of a tree laid out as Linux lays it out: every <sysfs_tty>/<name> with a
// `device` entry is a port whose node is <dev>/<name> (listed when that node exists), its driver
// the name `device/driver` links to, its aliases the links in <dev>/serial/by-id that lead to it.
// The ports PelmoWin's numbering opens as COMn get that name; those that a PELMO_COM<n> variable
// names outside the tree (a pseudo-terminal) are listed too. Paths under /dev that the numbering
// gives are taken under `dev`, so a test tree stands in for the whole system.
std::vector<SerialPortEntry> list_serial_ports(const std::filesystem::path& sysfs_tty,
                                               const std::filesystem::path& dev);

}  // namespace pelmo::port::posix
