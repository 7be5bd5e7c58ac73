#include "pelmo/transport/posix/serial_port_list.hpp"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include "pelmo/transport/port_layer.hpp"

namespace pelmo::port::posix {
namespace {

namespace fs = std::filesystem;

// A tree in the shape of /sys/class/tty and /dev:
//   ttyS0, ttyS1    built-in UARTs (serial8250), with nodes
//   ttyUSB0         an adapter (ftdi_sio) with two by-id links and a node
//   ttyACM0         a device without a node: not a port here
//   tty0            a node without a device: a console, not a port
//   ttyS2           a node that sysfs does not show
//   pts/3           a pseudo-terminal outside both
class SerialPortListTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char name[] = "/tmp/pelmo-ports-XXXXXX";
    ASSERT_NE(mkdtemp(name), nullptr);
    root_ = name;
    for (const auto& [tty, driver] :
         std::vector<std::pair<std::string, std::string>>{{"ttyS0", "serial8250"},
                                                          {"ttyS1", "serial8250"},
                                                          {"ttyUSB0", "ftdi_sio"},
                                                          {"ttyACM0", "cdc_acm"},
                                                          {"tty0", ""}}) {
      const fs::path device = sysfs() / tty / "device";
      fs::create_directories(driver.empty() ? device.parent_path() : device);
      if (!driver.empty()) {  // dangling, as the driver's folder is not part of the tree
        fs::create_directory_symlink("../../../../bus/drivers/" + driver, device / "driver");
      }
    }
    fs::create_directories(dev() / "serial" / "by-id");
    fs::create_directories(root_ / "pts");
    for (const char* node :
         {"dev/ttyS0", "dev/ttyS1", "dev/ttyS2", "dev/ttyUSB0", "dev/tty0", "pts/3"}) {
      std::ofstream(root_ / node).put('\n');
    }
    fs::create_symlink("../../ttyUSB0", by_id("usb-Maker_Adapter_A1-if00-port0"));
    fs::create_symlink(dev() / "ttyUSB0", by_id("usb-Maker_Adapter_A1-if01"));
    fs::create_symlink("../../ttyUSB9", by_id("usb-Gone-if00"));
    clear_com_variables();
  }
  void TearDown() override {
    clear_com_variables();
    fs::remove_all(root_);
  }

  static void clear_com_variables() {
    for (int n = 1; n <= COM_PORT_COUNT; ++n) {
      unsetenv(("PELMO_COM" + std::to_string(n)).c_str());
    }
  }

  fs::path sysfs() const { return root_ / "sys" / "class" / "tty"; }
  fs::path dev() const { return root_ / "dev"; }
  fs::path by_id(const std::string& name) const { return dev() / "serial" / "by-id" / name; }

  // "path com driver alias..." per port, the root written as "@".
  std::vector<std::string> listed(const fs::path& sysfs_tty, const fs::path& dev) const {
    const std::string root = root_.string();
    const auto shown = [&](std::string path) {
      return path.starts_with(root) ? "@" + path.substr(root.size()) : path;
    };
    std::vector<std::string> lines;
    for (const SerialPortEntry& port : list_serial_ports(sysfs_tty, dev)) {
      std::string line = shown(port.path) + " " + port.com + " " + port.driver;
      for (const std::string& alias : port.aliases) {
        line += " " + shown(alias);
      }
      lines.push_back(line);
    }
    return lines;
  }

  fs::path root_;
};

TEST_F(SerialPortListTest, ListsPortsWithTheirComNamesDriversAndAliases) {
  const std::string a0 = " @/dev/serial/by-id/usb-Maker_Adapter_A1-if00-port0";
  const std::string a1 = " @/dev/serial/by-id/usb-Maker_Adapter_A1-if01";
  struct Case {
    std::vector<std::pair<int, std::string>> variables;  // PELMO_COM<n> and what it names
    std::vector<std::string> expected;
  };
  for (const Case& c : std::vector<Case>{
           // The built-in numbering alone: ttyS<n-1> is COMn, wherever sysfs shows it or not.
           {{},
            {"@/dev/ttyS0 COM1 serial8250", "@/dev/ttyS1 COM2 serial8250", "@/dev/ttyS2 COM3 ",
             "@/dev/ttyUSB0  ftdi_sio" + a0 + a1}},
           // A variable moves COMn to the port its path leads to, through a by-id link too, or
           // to a port outside the tree; /dev in a variable means the tree's dev; a variable
           // naming nothing lists nothing; of two numbers for one port the lower is shown.
           {{{2, by_id("usb-Maker_Adapter_A1-if01").string()},
             {3, (root_ / "pts" / "3").string()},
             {5, "/dev/ttyS1"},
             {6, (root_ / "pts" / "3").string()},
             {7, (root_ / "pts" / "9").string()},
             {9, "/dev/ttyS0"}},
            {"@/dev/ttyS0 COM1 serial8250", "@/dev/ttyS1 COM5 serial8250",
             "@/dev/ttyUSB0 COM2 ftdi_sio" + a0 + a1, "@/pts/3 COM3 "}}}) {
    for (const auto& [n, path] : c.variables) {
      setenv(("PELMO_COM" + std::to_string(n)).c_str(), path.c_str(), 1);
    }
    EXPECT_EQ(listed(sysfs(), dev()), c.expected);
    clear_com_variables();
  }
}

// Roots that do not exist give an empty list, not an error.
TEST_F(SerialPortListTest, MissingRootsListNothing) {
  EXPECT_TRUE(list_serial_ports(root_ / "none", root_ / "none").empty());
}

}  // namespace
}  // namespace pelmo::port::posix
