// Several pelmo-device processes driven at once from one process through one UDP hub, each from a
// thread of its own, with the classic commands. The devices serve on loopback addresses 127.0.99.x
// and keep their areas in state folders, which are read back after they stopped.
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "pelmo/commands/info_commands.hpp"
#include "pelmo/commands/table_commands.hpp"
#include "pelmo/protocol/bytes.hpp"
#include "pelmo/protocol/crc32.hpp"
#include "pelmo/transport/device_link.hpp"
#include "tests/transport/device_process.hpp"

namespace pelmo::test {
namespace {

namespace fs = std::filesystem;
using Bytes = std::vector<std::uint8_t>;

port::PortLayer& SYSTEM = port::system_port_layer();
constexpr port::Ipv4Endpoint HUB{{127, 0, 99, 1}, DEVICE_UDP_PORT};
constexpr int DEVICES = 3;

// A sealed firmware of 128 bytes whose header names device `index`.
Bytes firmware_of(int index) {
  return sealed_firmware(128, "hub-device-" + std::to_string(index),
                         static_cast<std::uint8_t>(index + 1));
}

// Different lengths (one block, two, three) and contents per device.
Bytes table_of(int index) {
  Bytes table(static_cast<std::size_t>(300 + 1000 * index));
  for (std::size_t i = 0; i < table.size(); ++i) {
    table[i] = static_cast<std::uint8_t>(i * (index + 3) + index);
  }
  return table;
}

// What one thread did with its device.
struct DeviceRun {
  OpenResult opened;
  ResultCode info = RC_OK, write = RC_OK, verify = RC_OK, verify_other = RC_OK;
  std::string name;
  std::uint16_t version = 0;
};

DeviceRun drive(UdpHub& hub, const UdpDevice& device, const Bytes& table, const Bytes& other) {
  DeviceRun run;
  DeviceLink link(SYSTEM);
  run.opened = link.open(hub, device, CLASSIC_UDP_PROFILE);
  if (!run.opened.ok) {
    return run;
  }
  FirmwareInfo info{};
  run.info = read_firmware_info(link.driver(), info);
  run.name = std::string(info.name, strnlen(info.name, sizeof info.name));
  run.version = info.version_major;
  run.write = write_calibration_table(link.driver(), false, table);
  run.verify = verify_calibration_table(link.driver(), false, table);
  run.verify_other = verify_calibration_table(link.driver(), false, other);
  return run;
}

Ipv4Address device_address(int index) {
  return {127, 0, 99, static_cast<std::uint8_t>(2 + index)};
}

// Each thread reads its own device's firmware header and writes and verifies its own table, all at
// once over the hub's one socket; afterwards each device holds exactly its table.
TEST(UdpHubDevices, ThreeDevicesDrivenAtOnceEachGetsItsOwnTable) {
  for (int index = -1; index < DEVICES; ++index) {
    const Ipv4Address address = index < 0 ? HUB.address : device_address(index);
    if (SYSTEM.open_datagram_socket().socket->bind({address, DEVICE_UDP_PORT}).failed()) {
      GTEST_SKIP() << "UDP port 57998 on " << dotted_address(address) << " is not free here";
    }
  }
  char name[] = "/tmp/pelmo-hub-XXXXXX";
  ASSERT_NE(mkdtemp(name), nullptr);
  const fs::path folder = name;
  std::vector<std::unique_ptr<DeviceProcess>> devices;
  for (int index = 0; index < DEVICES; ++index) {
    const fs::path own = folder / std::to_string(index);
    fs::create_directories(own / "state");
    write_file(own / "firmware.bin", firmware_of(index));
    devices.push_back(std::make_unique<DeviceProcess>(
        own, std::vector<std::string>{"--udp", dotted_address(device_address(index)), "--state",
                                      (own / "state").string(), "--load-firmware",
                                      (own / "firmware.bin").string()}));
  }
  for (const auto& device : devices) {
    ASSERT_TRUE(device->ready()) << device->output();
  }

  UdpHub hub(SYSTEM);
  ASSERT_TRUE(hub.open(HUB).ok);
  std::vector<DeviceRun> runs(DEVICES);
  {
    std::vector<std::jthread> threads;
    for (int index = 0; index < DEVICES; ++index) {
      threads.emplace_back([&, index] {
        runs[static_cast<std::size_t>(index)] =
            drive(hub, UdpDevice{device_address(index)}, table_of(index),
                  table_of((index + 1) % DEVICES));
      });
    }
  }
  EXPECT_EQ(hub.counters().unknown_sender, 0u);
  hub.close();

  for (int index = 0; index < DEVICES; ++index) {
    SCOPED_TRACE("device " + std::to_string(index));
    const DeviceRun& run = runs[static_cast<std::size_t>(index)];
    ASSERT_TRUE(run.opened.ok) << run.opened.message;
    EXPECT_EQ(run.info, RC_OK);
    EXPECT_EQ(run.name, "hub-device-" + std::to_string(index));
    EXPECT_EQ(run.version, index + 1);
    EXPECT_EQ(run.write, RC_OK);
    EXPECT_EQ(run.verify, RC_OK);
    EXPECT_NE(run.verify_other, RC_OK);  // another device's table is not this one's
    EXPECT_EQ(devices[static_cast<std::size_t>(index)]->stop(), 0);
    const fs::path state = folder / std::to_string(index) / "state";
    EXPECT_EQ(file_bytes(state / "calib.bin"), table_of(index));
  }
  fs::remove_all(folder);
}

}  // namespace
}  // namespace pelmo::test
