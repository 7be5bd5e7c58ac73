#include "pelmo/session/target.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace pelmo {
namespace {

struct UdpRow {
  const char* text;
  std::optional<Ipv4Address> expected;
};

TEST(UdpTarget, TakesExactlyFourNumbersUpTo255) {
  const std::vector<UdpRow> rows = {
      {"192.168.1.15", Ipv4Address{192, 168, 1, 15}},
      {"0.0.0.0", Ipv4Address{0, 0, 0, 0}},
      {"192.168.1.300", std::nullopt},  // never wrapped to .44
      {"192.168.1", std::nullopt},
      {"192.168.1.15.7", std::nullopt},
      {"192.168.1.15 ", std::nullopt},
      {"192.168.01x.1", std::nullopt},
      {"", std::nullopt},
  };
  for (const UdpRow& row : rows) {
    const std::optional<UdpDevice> device = parse_udp_target(row.text);
    ASSERT_EQ(device.has_value(), row.expected.has_value()) << row.text;
    if (device) {
      EXPECT_EQ(device->address, *row.expected) << row.text;
      EXPECT_EQ(device->port, DEVICE_UDP_PORT);
    }
  }
}

TEST(SerialTarget, NumberedPortsAndPaths) {
  EXPECT_EQ(std::get<ComPort>(*parse_serial_target("COM3")).index, 2);
  EXPECT_EQ(std::get<ComPort>(*parse_serial_target("com16")).index, 15);
  EXPECT_EQ(std::get<std::string>(*parse_serial_target("/dev/ttyUSB0")), "/dev/ttyUSB0");
  for (const char* wrong : {"COM0", "COM17", "COMx", "COM-1", ""}) {
    EXPECT_FALSE(parse_serial_target(wrong).has_value()) << wrong;
  }
}

}  // namespace
}  // namespace pelmo
