#include <gtest/gtest.h>

#include <csignal>
#include <functional>
#include <regex>
#include <string>
#include <vector>

#include "app/interruption.hpp"
#include "app/link_binding.hpp"
#include "app/run.hpp"
#include "tests/app/sandbox.hpp"
#include "tests/support/scripted_device.hpp"
#include "tests/transport/fake_port_layer.hpp"

namespace pelmo {
namespace {

const std::string BANNER =
    "PelmoWin (version 1.19) - Quillmark bootloader (serial line/ IP UDP)\n\n";

// A device that never answers: three requests, the time-out, and the run's link is gone after.
TEST(Run, SilentDeviceOverUdpGetsThreeRequestsAndTheRunEndsWithTheTimeout) {
  app_test::Sandbox box;
  test::FakePortLayer ports;
  ports.now = 0xFFFFF000u;  // the run crosses the tick's wrap-around
  Console console(box.console.stream(), [&] { return ports.now; });
  const std::vector<const char*> arguments{"PelmoWin.exe", "#10.0.0.7", "-i"};
  EXPECT_EQ(run_program(arguments, console, ports), -1);
  EXPECT_EQ(bound_link_driver(), nullptr);
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
  test::FakePortLayer ports;
  ports.serial_status = port::SerialOpenStatus::config_failed;
  const std::vector<const char*> arguments{"PelmoWin.exe", "@12", "-i"};
  EXPECT_EQ(run_program(arguments, box.console, ports), -1);
  EXPECT_EQ(ports.serial_opens, std::vector<std::string>{"COM12"});
  EXPECT_EQ(box.console_text(),
            BANNER + "unable to set comport cfg settings\nCan not open comport\n");
}

TEST(BindLinkDriver, RefusalsKeepTheEarlierBinding) {
  test_support::ScriptedDevice device;
  LinkDriver without_progress = device.link();
  without_progress.progress = nullptr;
  ASSERT_EQ(bind_link_driver(&without_progress), RC_OK);
  EXPECT_EQ(bind_link_driver(nullptr), RC_NULL_POINTER);
  LinkDriver broken = device.link();
  broken.receive = nullptr;
  EXPECT_EQ(bind_link_driver(&broken), RC_NO_DRIVER);
  broken.receive = device.link().receive;
  broken.send = nullptr;
  EXPECT_EQ(bind_link_driver(&broken), RC_NO_DRIVER);
  EXPECT_EQ(bound_link_driver(), &without_progress);
  ASSERT_EQ(bind_link_driver(&device.link()), RC_OK);
  EXPECT_EQ(bound_link_driver(), &device.link());
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
    test::FakePortLayer ports;
    Console console(box.console.stream(), [&] { return ports.now; });
    ports.on_sleep = [](std::uint32_t now) {
      if (now == 1000) {
        note_interrupt(SIGINT);
      }
    };
    const std::vector<const char*> arguments{"PelmoWin.exe", "#10.0.0.7", c.option};
    EXPECT_EQ(
        run_until_interrupted(console, [&] { return run_program(arguments, console, ports); }), -1);
    clear_interrupt();
    EXPECT_EQ(ports.sockets_stopped, 1);
    EXPECT_EQ(ports.sent_to.size(), 1u);  // the waited-for request, and nothing after it
    static const std::regex progress("\r[^\r\n]* [0-9]+ \\[s\\]");
    EXPECT_EQ(std::regex_replace(box.console_text(), progress, ""), BANNER + c.shown);
  }
}

}  // namespace
}  // namespace pelmo
