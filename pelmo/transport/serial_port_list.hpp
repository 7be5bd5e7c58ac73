#pragma once

#include <string>
#include <vector>

namespace pelmo {

// One serial port this host has, for `pelmo ports` and the Python module.
struct SerialPortEntry {
  std::string path;  // what a link opens: "/dev/ttyUSB0"; on Windows "COM3"
  std::string com;   // the COMn name PelmoWin's numbering gives this port ("COM1" for /dev/ttyS0,
                     // or a PELMO_COM<n> variable that names it; on Windows the port's own name
                     // from COM1 to COM16); empty when none does
  std::vector<std::string> aliases;  // stable names that lead to it (/dev/serial/by-id/...)
  std::string driver;                // the kernel driver or the registry's device name, if known
};

// This host's serial ports, sorted by path. Linux: the devices under /sys/class/tty that have a
// device behind them and a node in /dev, with their /dev/serial/by-id links, and any other path
// PelmoWin's numbering opens as COMn (a pseudo-terminal in a PELMO_COM<n> variable); Windows: the
// registry's SERIALCOMM map. An empty list when none is found or the lookup fails.
std::vector<SerialPortEntry> list_serial_ports();

}  // namespace pelmo
