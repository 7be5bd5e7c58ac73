#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "app/operation_handlers.hpp"
#include "pelmo/commands/records.hpp"
#include "tests/app/sandbox.hpp"
#include "tests/support/scripted_device.hpp"

namespace pelmo {
namespace {

using enum Operation;

struct Outcome {
  ResultCode result;
  std::string console;
  std::size_t requests;
};

// One handler run the way the run sequence starts it: after an empty, hidden status label.
Outcome run_handler(Operation operation, std::vector<test_support::Reply> script,
                    const std::function<void(Console&)>& at_each_request = {}) {
  app_test::Sandbox box;
  test_support::ScriptedDevice device;
  device.script(std::move(script));
  if (at_each_request) {
    device.respond_with([&](const test_support::SentRequest&) {
      at_each_request(box.console);
      return test_support::silence();
    });
  }
  CommandLine line;
  line.operation = operation;
  line.file_name = box.path("file");
  std::vector<std::uint8_t> image(IMAGE_BUFFER_SIZE);
  RunRecords records;
  RunContext context{box.console, device.driver(), image, line, records};
  box.console.begin_status("", false);
  const ResultCode result = run_operation(context);
  return {result, box.console_text(), device.requests().size()};
}

TEST(OperationHandlers, Cases) {
  struct Case {
    Operation operation;
    std::vector<test_support::Reply> script;
    ResultCode result;
    std::string console;
    std::size_t requests;
  };
  // Text fields that fill their whole width, with no terminating zero, stop at their end.
  FirmwareInfo info{};
  info.magic = FIRMWARE_MAGIC;
  std::memset(info.name, 'N', sizeof info.name);
  std::memset(info.compile_date, 'D', sizeof info.compile_date);
  std::memset(info.compile_time, 'T', sizeof info.compile_time);
  const std::vector<Case> cases{
      {OP_READ_FIRMWARE_INFO,
       {test_support::answer(0, 0, to_wire(info))},
       RC_OK,
       "\rReading FW information \rReading FW information OK            \nName:       " +
           std::string(32, 'N') + "\nVersion:    0.00.000\nCompiled:   " + std::string(16, 'D') +
           " " + std::string(16, 'T') + "\nSize:       0\nCRC32:      0x00000000\n",
       1},
      // A code without handler fails without a word.
      {static_cast<Operation>(50), {}, RC_FAILED, "", 0},
  };
  for (const Case& c : cases) {
    const Outcome outcome = run_handler(c.operation, c.script);
    EXPECT_EQ(outcome.result, c.result) << operation_code(c.operation);
    EXPECT_EQ(outcome.console, c.console) << operation_code(c.operation);
    EXPECT_EQ(outcome.requests, c.requests) << operation_code(c.operation);
  }
}

TEST(OperationHandlers, FirmwareInfoLabelIsSetOnlyAfterTheRequest) {
  // Progress while the request waits shows the previous, empty label.
  const Outcome outcome =
      run_handler(OP_READ_FIRMWARE_INFO, {}, [](Console& console) { console.show_progress(); });
  EXPECT_EQ(outcome.result, RC_TIMEOUT);
  EXPECT_EQ(outcome.console,
            "\r 0 [s]\r 0 [s]\r 0 [s]\rReading FW information \rReading FW information "
            "Error         \n\nReceive timeout\n");
}

}  // namespace
}  // namespace pelmo
