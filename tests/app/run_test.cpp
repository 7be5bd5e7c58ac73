#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <vector>

#include "app/run.hpp"
#include "pelmo/protocol/link_driver.hpp"
#include "tests/app/sandbox.hpp"

namespace pelmo {
namespace {

// A port layer whose clock moves only when the program sleeps, with a device that never answers
// and no serial port to open.
class SilentPorts : public port::PortLayer {
 public:
  explicit SilentPorts(std::uint32_t& clock) : clock_(clock) {}

  struct Socket : port::DatagramSocket {
    explicit Socket(SilentPorts& owner) : ports(owner) {}
    port::OsError bind(const port::Ipv4Endpoint&) override { return {}; }
    std::int32_t send_to(const port::Ipv4Endpoint& to,
                         std::span<const std::uint8_t> bytes) override {
      ports.sent_to.push_back(to);
      return static_cast<std::int32_t>(bytes.size());
    }
    std::int32_t receive_from(std::span<std::uint8_t>, port::Ipv4Endpoint&) override { return 0; }
    bool wait_readable(std::uint32_t) override { return false; }
    SilentPorts& ports;
  };

  std::string com_port_path(int index) override { return "COM" + std::to_string(index + 1); }
  port::SerialOpenResult open_serial(const std::string& path, const LineSettings&) override {
    opened.push_back(path);
    return {port::SerialOpenStatus::config_failed, nullptr, 22};
  }
  port::OsError start_sockets(std::uint8_t, std::uint8_t) override { return {}; }
  void stop_sockets() override {}
  port::DatagramSocketResult open_datagram_socket() override {
    return {std::make_unique<Socket>(*this), {}};
  }
  std::vector<std::array<std::uint8_t, 4>> host_addresses() override { return {}; }
  std::uint32_t tick_ms() override { return clock_; }
  void sleep_ms(std::uint32_t milliseconds) override { clock_ += milliseconds; }

  std::vector<port::Ipv4Endpoint> sent_to;
  std::vector<std::string> opened;

 private:
  std::uint32_t& clock_;
};

const std::string BANNER =
    "PelmoWin (version 1.19) - Quillmark bootloader (serial line/ IP UDP)\n\n";

TEST(Run, SilentDeviceOverUdpGetsThreeRequestsAndTheRunEndsWithTheTimeout) {
  app_test::Sandbox box;
  box.tick = 0xFFFFF000u;  // the run crosses the tick's wrap-around
  SilentPorts ports(box.tick);
  const std::vector<const char*> arguments{"PelmoWin.exe", "#10.0.0.7", "-i"};
  EXPECT_EQ(run_program(arguments, box.console, ports), -1);
  EXPECT_EQ(bound_link_driver(), nullptr);  // the run's link is gone
  EXPECT_EQ(ports.sent_to, std::vector<port::Ipv4Endpoint>(3, {{10, 0, 0, 7}, 57998}));
  const std::string text = box.console_text();
  EXPECT_NE(text.find("\r 5 [s]"), std::string::npos);  // progress of the whole step
  static const std::regex progress("\r[^\r\n]* [0-9]+ \\[s\\]");
  EXPECT_EQ(std::regex_replace(text, progress, ""),
            BANNER +
                "\rReading FW information \rReading FW information Error         \n"
                "\nReceive timeout\n"
                "Last operation error code: -25\n"
                "\nOperations last 6 s\n");
}

// The port's own reason comes first, then the program's line; nothing else runs.
TEST(Run, SerialPortThatCannotBeSetUpEndsTheRunAtOnce) {
  app_test::Sandbox box;
  SilentPorts ports(box.tick);
  const std::vector<const char*> arguments{"PelmoWin.exe", "@12", "-i"};
  EXPECT_EQ(run_program(arguments, box.console, ports), -1);
  EXPECT_EQ(ports.opened, std::vector<std::string>{"COM12"});
  EXPECT_EQ(box.console_text(),
            BANNER + "unable to set comport cfg settings\nCan not open comport\n");
}

}  // namespace
}  // namespace pelmo
