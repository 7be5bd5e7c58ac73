#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "tests/win32/echo_ports.hpp"
#include "transport/port_layer.hpp"

namespace pelmo::port {
namespace {

constexpr std::string_view LINE_SETTINGS = "baud=115200 data=8 parity=n stop=1 dtr=on rts=on";
constexpr int ERROR_FILE_NOT_FOUND_CODE = 2;

class SerialDeviceTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ports_ = test::echo_ports();
    if (ports_.empty()) {
      GTEST_SKIP() << "no echoing COM port; run through tools/wine/with-echo-ports.py";
    }
  }

  // Polls `device` every 10 ms until `count` bytes are in or two seconds have passed.
  std::vector<std::uint8_t> read_back(SerialDevice& device, std::size_t count) {
    std::vector<std::uint8_t> received(count);
    std::size_t filled = 0;
    const std::uint32_t start = layer_.tick_ms();
    while (filled < count && layer_.tick_ms() - start < 2000) {
      const std::int32_t n = device.read(std::span(received).subspan(filled));
      if (n > 0) {
        filled += static_cast<std::size_t>(n);
      } else {
        layer_.sleep_ms(10);
      }
    }
    received.resize(filled);
    return received;
  }

  PortLayer& layer_ = system_port_layer();
  std::vector<int> ports_;
};

// COM10 and up only open through the "\\.\" device prefix; the peer wires one port on each side
// of that line.
TEST_F(SerialDeviceTest, EveryWiredPortOpensAndCarriesBytesBothWays) {
  for (const int com : ports_) {
    SCOPED_TRACE("COM" + std::to_string(com));
    SerialOpenResult opened = layer_.open_serial(com - 1, LINE_SETTINGS);
    ASSERT_EQ(SerialOpenStatus::ok, opened.status) << "os error " << opened.os_error;
    ASSERT_NE(nullptr, opened.device);

    std::vector<std::uint8_t> request(300);
    for (std::size_t i = 0; i < request.size(); ++i) {
      request[i] = static_cast<std::uint8_t>(i * 7 + com);  // every byte value, CR and LF too
    }
    EXPECT_EQ(300, opened.device->write(request));
    EXPECT_EQ(request, read_back(*opened.device, request.size()));
  }
}

TEST_F(SerialDeviceTest, ReadsReturnAtOnceWhenNothingHasArrived) {
  SerialOpenResult opened = layer_.open_serial(ports_.front() - 1, LINE_SETTINGS);
  ASSERT_EQ(SerialOpenStatus::ok, opened.status);
  std::array<std::uint8_t, 64> buffer{};
  const std::uint32_t start = layer_.tick_ms();
  for (int poll = 0; poll < 20; ++poll) {
    EXPECT_EQ(0, opened.device->read(buffer));
  }
  // Twenty polls of a port that waited for data would take seconds (or forever).
  EXPECT_LT(layer_.tick_ms() - start, 500u);
}

TEST_F(SerialDeviceTest, ReadsAFragmentAndLeavesTheRestWaiting) {
  SerialOpenResult opened = layer_.open_serial(ports_.front() - 1, LINE_SETTINGS);
  ASSERT_EQ(SerialOpenStatus::ok, opened.status);
  const std::vector<std::uint8_t> sent = {0xB5, 0x44, 0, 0, 0, 0, 0, 0, 0xDE, 0xAD, 0xBE, 0xEF};
  ASSERT_EQ(12, opened.device->write(sent));
  const std::vector<std::uint8_t> head = read_back(*opened.device, 5);
  const std::vector<std::uint8_t> tail = read_back(*opened.device, 7);
  EXPECT_EQ(std::vector<std::uint8_t>(sent.begin(), sent.begin() + 5), head);
  EXPECT_EQ(std::vector<std::uint8_t>(sent.begin() + 5, sent.end()), tail);
}

struct OpenFailure {
  const char* name;
  int port_index;  // -1 picks the first wired port
  std::string_view settings;
  SerialOpenStatus status;
};

TEST_F(SerialDeviceTest, FailedStepsAreReportedWithTheSystemError) {
  const OpenFailure cases[] = {
      {"port without a device", 15, LINE_SETTINGS, SerialOpenStatus::open_failed},
      {"index past COM16", 16, LINE_SETTINGS, SerialOpenStatus::open_failed},
      {"negative index", -5, LINE_SETTINGS, SerialOpenStatus::open_failed},
      {"settings text not understood", -1, "baud=fast data=8", SerialOpenStatus::settings_failed},
      // Nothing sets the data bits, so they stay 0 in the cleared control block.
      {"settings the port refuses", -1, "baud=115200 parity=n stop=1",
       SerialOpenStatus::config_failed},
  };
  if (std::find(ports_.begin(), ports_.end(), 16) != ports_.end()) {
    GTEST_SKIP() << "COM16 is wired";
  }
  for (const OpenFailure& c : cases) {
    SCOPED_TRACE(c.name);
    const int index = c.port_index == -1 ? ports_.front() - 1 : c.port_index;
    const SerialOpenResult opened = layer_.open_serial(index, c.settings);
    EXPECT_EQ(c.status, opened.status);
    EXPECT_EQ(nullptr, opened.device);
    EXPECT_NE(0, opened.os_error);
    if (c.status == SerialOpenStatus::open_failed) {
      EXPECT_EQ(ERROR_FILE_NOT_FOUND_CODE, opened.os_error);
    }
  }
  // The failed configurations closed the port again: it opens and works as before.
  SerialOpenResult opened = layer_.open_serial(ports_.front() - 1, LINE_SETTINGS);
  ASSERT_EQ(SerialOpenStatus::ok, opened.status);
  const std::vector<std::uint8_t> byte = {0x5A};
  ASSERT_EQ(1, opened.device->write(byte));
  EXPECT_EQ(byte, read_back(*opened.device, 1));
}

}  // namespace
}  // namespace pelmo::port
