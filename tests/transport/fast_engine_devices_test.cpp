// The fast engine against the real simulator on a faulty link: lost requests and answers,
// corrupted and duplicated answers, answers split in two, answers late enough to cross a
// retransmission, and copies sent from another port. Every flash must end with the device holding
// the image, and a duplicate must never make the engine send again.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "pelmo/commands/firmware_commands.hpp"
#include "pelmo/transport/device_link.hpp"
#include "pelmo/transport/udp_hub.hpp"
#include "tests/transport/device_process.hpp"

namespace pelmo::test {
namespace {

namespace fs = std::filesystem;

port::PortLayer& SYSTEM = port::system_port_layer();
constexpr port::Ipv4Endpoint HUB{{127, 0, 98, 1}, DEVICE_UDP_PORT};
constexpr Ipv4Address DEVICE{127, 0, 98, 2};

enum class Medium { udp, serial };

struct FaultCase {
  const char* name;
  Medium medium;
  std::vector<std::string> faults;
  std::size_t image_size;
  bool same_requests_as_clean;  // nothing may be sent again: as many requests as without faults
};

const std::vector<FaultCase> CASES = {
    {"udp_clean", Medium::udp, {}, 64 * 1024, false},
    {"udp_duplicates", Medium::udp, {"--duplicate", "100"}, 64 * 1024, true},
    {"udp_split", Medium::udp, {"--split", "--split-gap-ms", "2"}, 64 * 1024, true},
    {"udp_stray_copies", Medium::udp, {"--stray-rate", "30"}, 64 * 1024, true},
    {"udp_loss_and_corruption",
     Medium::udp,
     {"--drop-requests", "5", "--drop-responses", "5", "--corrupt-crc", "5", "--seed", "7"},
     64 * 1024,
     false},
    {"udp_late_answers", Medium::udp, {"--delay-ms", "250"}, 8 * 1024, false},
    {"serial_clean", Medium::serial, {}, 16 * 1024, false},
    // Not both at once: the simulator would send the next answer between the two halves of a
    // duplicate, which no receiver can take apart on a byte stream.
    {"serial_duplicates", Medium::serial, {"--duplicate", "50"}, 16 * 1024, true},
    {"serial_splits", Medium::serial, {"--split", "--split-gap-ms", "2"}, 16 * 1024, true},
    {"serial_loss_and_corruption",
     Medium::serial,
     {"--drop-responses", "5", "--corrupt-crc", "5", "--seed", "3"},
     16 * 1024,
     false},
};

class FastEngineOnFaultyLinks : public ::testing::Test {
 protected:
  void SetUp() override {
    char name[] = "/tmp/pelmo-fast-XXXXXX";
    ASSERT_NE(mkdtemp(name), nullptr);
    folder_ = name;
  }
  void TearDown() override { fs::remove_all(folder_); }

  fs::path folder_;
};

// Erases, writes, verifies and reads back `image`; the number of requests the device logged.
std::size_t flash_and_read_back(const FaultCase& row, const fs::path& folder, const Bytes& image) {
  const fs::path own = folder / row.name;
  fs::create_directories(own);
  std::vector<std::string> options = row.faults;
  const bool udp = row.medium == Medium::udp;
  const fs::path tty = own / "tty";
  if (udp) {
    options.insert(options.begin(), {"--udp", dotted_address(DEVICE)});
  } else {
    options.insert(options.begin(), {"--pty-link", tty.string()});
  }
  DeviceProcess device(own, options);
  EXPECT_TRUE(device.ready()) << device.output();

  UdpHub hub(SYSTEM);
  DeviceLink link(SYSTEM);
  const OpenResult opened =
      udp ? (hub.open(HUB).ok ? link.open(hub, UdpDevice{DEVICE}, FAST_UDP_PROFILE)
                              : OpenResult::failure("hub"))
          : link.open(SerialPort{tty.string()}, FAST_SERIAL_PROFILE);
  EXPECT_TRUE(opened.ok) << opened.message;
  link.set_erase_area(image.size());
  const LinkDriver* driver = link.driver();
  EXPECT_EQ(erase_firmware(driver), RC_OK);
  EXPECT_EQ(write_firmware(driver, image, static_cast<std::uint32_t>(image.size())), RC_OK);
  EXPECT_EQ(verify_firmware(driver, image), RC_OK);
  Bytes read(image.size() + 4096);
  std::uint32_t length = 0;
  EXPECT_EQ(read_firmware(driver, read, &length), RC_OK);
  read.resize(length);
  EXPECT_EQ(read, image);
  link.close();
  device.stop();
  return device.log_count("rx");
}

TEST_F(FastEngineOnFaultyLinks, EveryFlashLandsAndDuplicatesNeverCauseASend) {
  if (SYSTEM.open_datagram_socket().socket->bind(HUB).failed()) {
    GTEST_SKIP() << "UDP port 57998 on 127.0.98.1 is not free here";
  }
  std::size_t clean_requests[2] = {0, 0};
  for (const FaultCase& row : CASES) {
    SCOPED_TRACE(row.name);
    const Bytes image = sealed_firmware(row.image_size, row.name, 1);
    const std::size_t requests = flash_and_read_back(row, folder_, image);
    std::size_t& clean = clean_requests[static_cast<int>(row.medium)];
    if (row.faults.empty()) {
      clean = requests;
    } else if (row.same_requests_as_clean) {
      EXPECT_EQ(requests, clean);
    }
  }
}

// Cancelled half way through a write on a serial port: the write ends at once with RC_CANCELLED,
// the progress seen so far names the device, and the port is free for the next link.
TEST_F(FastEngineOnFaultyLinks, ACancelledWriteEndsAtOnceAndReleasesThePort) {
  const fs::path tty = folder_ / "tty";
  DeviceProcess device(folder_, {"--pty-link", tty.string(), "--baud-pace"});
  ASSERT_TRUE(device.ready()) << device.output();
  const Bytes image = sealed_firmware(16 * 1024, "cancelled", 1);
  std::vector<std::uint32_t> done;
  {
    DeviceLink link(SYSTEM);
    ASSERT_TRUE(link.open(SerialPort{tty.string()}, FAST_SERIAL_PROFILE).ok);
    link.set_transfer_observer([&](const TransferProgress& step) {
      EXPECT_EQ(step.device, "serial:" + tty.string());
      EXPECT_EQ(step.total, image.size());
      done.push_back(step.done);
    });
    link.set_cancel([&] { return done.size() >= 3; });
    EXPECT_EQ(write_firmware(link.driver(), image, static_cast<std::uint32_t>(image.size())),
              RC_CANCELLED);
  }
  EXPECT_EQ(done, (std::vector<std::uint32_t>{240, 480, 720}));
  DeviceLink next(SYSTEM);
  const OpenResult reopened = next.open(SerialPort{tty.string()}, FAST_SERIAL_PROFILE);
  EXPECT_TRUE(reopened.ok) << reopened.message;
}

}  // namespace
}  // namespace pelmo::test
