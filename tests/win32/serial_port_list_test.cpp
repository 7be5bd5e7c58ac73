#include "pelmo/transport/serial_port_list.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "pelmo/transport/win32/win32_api.hpp"

namespace pelmo {
namespace {

constexpr const char* SERIAL_MAP = R"(HARDWARE\DEVICEMAP\SERIALCOMM)";

// Ports registered in the system's serial port map for the test's duration, the way a driver
// registers its ports: the device's name, the port's name as data.
class SerialMapTest : public ::testing::Test {
 protected:
  struct Port {
    std::string device;
    std::string name;
    std::string com;  // what the listing calls it in PelmoWin's numbering
  };
  const std::vector<Port> ports_ = {{R"(\Device\PelmoTest5)", "COM5", "COM5"},
                                    {R"(\Device\PelmoTest12)", "COM12", "COM12"},
                                    {R"(\Device\PelmoTest17)", "COM17", ""}};

  void SetUp() override {
    if (RegCreateKeyExA(HKEY_LOCAL_MACHINE, SERIAL_MAP, 0, nullptr, REG_OPTION_VOLATILE,
                        KEY_SET_VALUE, nullptr, &key_, nullptr) != ERROR_SUCCESS) {
      GTEST_SKIP() << "the serial port map cannot be written here";
    }
    for (const Port& port : ports_) {
      // Stored with its terminating zero, as drivers store it.
      ASSERT_EQ(ERROR_SUCCESS, RegSetValueExA(key_, port.device.c_str(), 0, REG_SZ,
                                              reinterpret_cast<const BYTE*>(port.name.c_str()),
                                              static_cast<DWORD>(port.name.size() + 1)));
    }
  }
  void TearDown() override {
    if (key_ != nullptr) {
      for (const Port& port : ports_) {
        RegDeleteValueA(key_, port.device.c_str());
      }
      RegCloseKey(key_);
    }
  }

  HKEY key_ = nullptr;
};

// Every registered port is listed under its name, with its device as the driver; only COM1 to
// COM16 have a PelmoWin COM name. The list is sorted by path.
TEST_F(SerialMapTest, ListsTheRegisteredPorts) {
  const std::vector<SerialPortEntry> listed = list_serial_ports();
  for (const Port& port : ports_) {
    const auto entry = std::find_if(listed.begin(), listed.end(), [&](const SerialPortEntry& e) {
      return e.driver == port.device;
    });
    ASSERT_NE(entry, listed.end()) << port.device;
    EXPECT_EQ(entry->path, port.name);
    EXPECT_EQ(entry->com, port.com);
    EXPECT_TRUE(entry->aliases.empty());
  }
  EXPECT_TRUE(std::is_sorted(
      listed.begin(), listed.end(),
      [](const SerialPortEntry& a, const SerialPortEntry& b) { return a.path < b.path; }));
}

}  // namespace
}  // namespace pelmo
