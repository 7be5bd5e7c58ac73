#include "pelmo/transport/device_link.hpp"

#include <gtest/gtest.h>

#include "fake_port_layer.hpp"

namespace pelmo::test {
namespace {

// The classic profiles reach the commands through the driver, and the transport waits with the
// profile's first-byte time-out, calling the link's one progress callback on every idle poll.
TEST(DeviceLink, DrivesItsTransportWithTheClassicProfiles) {
  const struct {
    DeviceAddress address;
    LinkProfile profile;
    std::uint32_t write_timeout_ms;
    std::uint16_t chunk_size;
    std::vector<std::uint32_t> sleeps;  // of a receive that meets silence
    int progress;
  } cases[] = {
      {ComPort{2}, CLASSIC_SERIAL_PROFILE, 200, 244, std::vector<std::uint32_t>(24, 10), 24},
      {UdpDevice{{10, 0, 0, 7}}, CLASSIC_UDP_PROFILE, 4000, 1012,
       std::vector<std::uint32_t>(400, 5), 399},
  };
  for (const auto& c : cases) {
    FakePortLayer ports;
    int progress = 0;
    DeviceLink link(ports, [&] { ++progress; });
    ASSERT_TRUE(link.open(c.address, with_extra_timeout(c.profile, -5)).ok);
    ASSERT_TRUE(link.open(c.address, with_extra_timeout(c.profile, 100)).ok);
    const LinkDriver& driver = *link.driver();
    EXPECT_EQ(driver.erase_timeout_ms, 25000u);
    EXPECT_EQ(driver.write_timeout_ms, c.write_timeout_ms);
    EXPECT_EQ(driver.extra_timeout_ms, 100u);
    EXPECT_EQ(driver.chunk_size, c.chunk_size);
    EXPECT_EQ(driver.max_attempts, 3);
    EXPECT_EQ(driver.send(sequence(12)), 12);
    std::array<std::uint8_t, 16> buffer{};
    EXPECT_EQ(driver.receive(buffer, 12, 0), 0);
    EXPECT_EQ(ports.sleeps, c.sleeps);
    EXPECT_EQ(progress, c.progress);
    link.close();
    EXPECT_EQ(link.driver(), nullptr);
    EXPECT_TRUE(ports.held.empty());
    // A failed open leaves no driver behind.
    ports.serial_status = port::SerialOpenStatus::open_failed;
    ports.start_error = {10091};
    EXPECT_FALSE(link.open(c.address, c.profile).ok);
    EXPECT_EQ(link.driver(), nullptr);
  }
}

// The fast profiles give the link an estimate and a clock, the erase wait follows the area, and
// every transfer step is reported with the device's name.
TEST(DeviceLink, FastProfilesScaleTheEraseAndNameTheDeviceInProgress) {
  const struct {
    DeviceAddress address;
    LinkProfile profile;
    std::string name;
  } cases[] = {
      {ComPort{2}, FAST_SERIAL_PROFILE, "serial:COM3"},
      {std::string("/dev/ttyUSB0"), FAST_SERIAL_PROFILE, "serial:/dev/ttyUSB0"},
      {UdpDevice{{10, 0, 0, 7}}, FAST_UDP_PROFILE, "udp:10.0.0.7"},
      {UdpDevice{{10, 0, 0, 7}, 6000}, FAST_UDP_PROFILE, "udp:10.0.0.7:6000"},
  };
  for (const auto& c : cases) {
    FakePortLayer ports;
    DeviceLink link(ports);
    ASSERT_TRUE(link.open(c.address, c.profile).ok);
    EXPECT_EQ(link.name(), c.name);
    const LinkDriver& driver = *link.driver();
    EXPECT_NE(driver.estimator, nullptr);
    EXPECT_EQ(driver.erase_timeout_ms, 25000u);
    link.set_erase_area(512 * 1024 + 1);  // 513 KiB begun
    EXPECT_EQ(driver.erase_timeout_ms, 1000u + 513u * 20u);
    std::vector<std::string> events;
    link.set_transfer_observer([&](const TransferProgress& step) {
      events.push_back(std::string(step.device) + " " + std::to_string(step.done) + "/" +
                       std::to_string(step.total));
    });
    driver.transfer_progress(1012, 4096);
    EXPECT_EQ(events, std::vector<std::string>{c.name + " 1012/4096"});
  }
}

}  // namespace
}  // namespace pelmo::test
