#include <gtest/gtest.h>

#include <csignal>
#include <functional>
#include <regex>
#include <string>
#include <vector>

#include "app/interruption.hpp"
#include "app/run.hpp"
#include "tests/app/sandbox.hpp"

namespace pelmo {
namespace {

// A port layer whose clock moves only when the program sleeps, with a device that never answers.
class SilentPorts : public port::PortLayer {
 public:
  explicit SilentPorts(std::uint32_t& clock) : clock_(clock) {}

  struct Socket : port::DatagramSocket {
    explicit Socket(SilentPorts& owner) : ports(owner) {}
    bool bind(const port::Ipv4Endpoint&) override { return true; }
    bool set_non_blocking() override { return true; }
    bool set_receive_timeout(std::uint32_t, std::uint32_t) override { return true; }
    std::int32_t send_to(const port::Ipv4Endpoint& to,
                         std::span<const std::uint8_t> bytes) override {
      ports.sent_to.push_back(to);
      return static_cast<std::int32_t>(bytes.size());
    }
    std::int32_t receive_from(std::span<std::uint8_t>, port::Ipv4Endpoint&) override { return 0; }
    SilentPorts& ports;
  };

  port::SerialOpenResult open_serial(int, std::string_view) override { return {}; }
  bool start_sockets(std::uint8_t, std::uint8_t) override { return true; }
  std::unique_ptr<port::DatagramSocket> open_datagram_socket() override {
    return std::make_unique<Socket>(*this);
  }
  std::vector<std::array<std::uint8_t, 4>> host_addresses() override { return {}; }
  std::uint32_t tick_ms() override { return clock_; }
  void sleep_ms(std::uint32_t milliseconds) override {
    clock_ += milliseconds;
    if (on_sleep) {
      on_sleep(clock_);
    }
  }
  void stop_sockets() override { ++sockets_stopped; }

  std::vector<port::Ipv4Endpoint> sent_to;
  std::function<void(std::uint32_t clock)> on_sleep;
  int sockets_stopped = 0;

 private:
  std::uint32_t& clock_;
};

TEST(Run, SilentDeviceOverUdpGetsThreeRequestsAndTheRunEndsWithTheTimeout) {
  app_test::Sandbox box;
  box.tick = 0xFFFFF000u;  // the run crosses the tick's wrap-around
  SilentPorts ports(box.tick);
  const std::vector<const char*> arguments{"PelmoWin.exe", "#10.0.0.7", "-i"};
  EXPECT_EQ(run_program(arguments, box.console, ports), -1);
  EXPECT_EQ(ports.sent_to, std::vector<port::Ipv4Endpoint>(3, {{10, 0, 0, 7}, 57998}));
  const std::string text = box.console_text();
  EXPECT_NE(text.find("\r 5 [s]"), std::string::npos);  // progress of the whole step
  static const std::regex progress("\r[^\r\n]* [0-9]+ \\[s\\]");
  EXPECT_EQ(std::regex_replace(text, progress, ""),
            "PelmoWin (version 1.19) - Quillmark bootloader (serial line/ IP UDP)\n\n"
            "\rReading FW information \rReading FW information Error         \n"
            "\nReceive timeout\n"
            "Last operation error code: -25\n"
            "\nOperations last 6 s\n");
}

TEST(Run, SignalWhileWaitingUnwindsTheRunAndReleasesTheLink) {
  const struct {
    const char* option;
    std::string shown;  // the step's line as the interrupt leaves it, and what follows
  } cases[] = {
      {"-e",
       "\rErasing FW \nInterrupted: the run was stopped by signal 2 (SIGINT)\n"
       "The device's firmware is incomplete: write it again\n"},
      {"-rctrl",
       "\rReading PELMO Control \nInterrupted: the run was stopped by signal 2 (SIGINT)\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.option);
    app_test::Sandbox box;
    SilentPorts ports(box.tick);
    ports.on_sleep = [](std::uint32_t clock) {
      if (clock == 1000) {
        note_interrupt(SIGINT);
      }
    };
    const std::vector<const char*> arguments{"PelmoWin.exe", "#10.0.0.7", c.option};
    EXPECT_EQ(run_until_interrupted(box.console,
                                    [&] { return run_program(arguments, box.console, ports); }),
              -1);
    clear_interrupt();
    EXPECT_EQ(ports.sockets_stopped, 1);
    EXPECT_EQ(ports.sent_to.size(), 1u);  // the waited-for request, and nothing after it
    static const std::regex progress("\r[^\r\n]* [0-9]+ \\[s\\]");
    EXPECT_EQ(std::regex_replace(box.console_text(), progress, ""),
              "PelmoWin (version 1.19) - Quillmark bootloader (serial line/ IP UDP)\n\n" + c.shown);
  }
}

}  // namespace
}  // namespace pelmo
