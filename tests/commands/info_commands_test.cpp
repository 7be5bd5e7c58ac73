#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "commands/info_commands.hpp"
#include "tests/commands/command_test_support.hpp"

namespace pelmo {
namespace {

using namespace test_support;

TEST(ReadFirmwareInfo, CopiesTheRecordWithoutProgress) {
  ScriptedDevice device;
  device.link().extra_timeout_ms = 100;
  const std::vector<std::uint8_t> payload = pattern(FIRMWARE_INFO_SIZE, 17);
  device.then(answer(0, 0, payload));
  FirmwareInfo info{};
  ASSERT_EQ(read_firmware_info(device.driver(), info), RC_OK);
  const auto wire = to_wire(info);
  EXPECT_TRUE(std::equal(wire.begin(), wire.end(), payload.begin()));
  expect_steps(device, {{0x24, 0, 0, 0, 100}});
  EXPECT_EQ(device.progress_calls(), 0);
}

TEST(ReadBootloaderInfo, CopiesTheRecord) {
  ScriptedDevice device;
  const std::vector<std::uint8_t> payload = pattern(BOOTLOADER_INFO_SIZE, 3);
  device.then(answer(0, 0, payload));
  BootloaderInfo info{};
  ASSERT_EQ(read_bootloader_info(device.driver(), info), RC_OK);
  const auto wire = to_wire(info);
  EXPECT_TRUE(std::equal(wire.begin(), wire.end(), payload.begin()));
  expect_steps(device, {{0x2F, 0, 0, 0, 0}});
}

// A record read that fails leaves the record as it was.
struct RecordCase {
  const char* name;
  std::uint8_t status;
  std::uint32_t address;
  std::size_t payload_size;
  ResultCode expected;
};

class FixedRecords : public ::testing::TestWithParam<RecordCase> {};

TEST_P(FixedRecords, FirmwareInfoIsExactly96Bytes) {
  const RecordCase& c = GetParam();
  ScriptedDevice device;
  device.then(answer(c.status, c.address, pattern(c.payload_size == 76 ? 96 : c.payload_size)));
  FirmwareInfo info{};
  EXPECT_EQ(read_firmware_info(device.driver(), info), c.expected);
  if (c.expected != RC_OK) {
    EXPECT_EQ(to_wire(info), (std::array<std::uint8_t, FIRMWARE_INFO_SIZE>{}));
  }
}

TEST_P(FixedRecords, BootloaderInfoIsExactly76Bytes) {
  const RecordCase& c = GetParam();
  ScriptedDevice device;
  device.then(answer(c.status, c.address, pattern(c.payload_size == 96 ? 76 : c.payload_size)));
  BootloaderInfo info{};
  std::memset(&info, 0x3C, sizeof info);
  const auto before = to_wire(info);
  EXPECT_EQ(read_bootloader_info(device.driver(), info), c.expected);
  if (c.expected != RC_OK) {
    EXPECT_EQ(to_wire(info), before);
  }
}

// Payload size 96 stands for "the record's own size" in both tests.
INSTANTIATE_TEST_SUITE_P(Records, FixedRecords,
                         ::testing::Values(RecordCase{"Exact", 0, 0, 96, RC_OK},
                                           RecordCase{"OneShort", 0, 0, 75, RC_MISMATCH},
                                           RecordCase{"OneLong", 0, 0, 97, RC_MISMATCH},
                                           RecordCase{"Empty", 0, 0, 0, RC_MISMATCH},
                                           RecordCase{"WrongAddress", 0, 4, 96, RC_MISMATCH},
                                           RecordCase{"EndOfData", 0xFD, 0, 96, RC_OUT_OF_RANGE},
                                           RecordCase{"BadHeader", 0xFA, 0, 96, RC_BAD_HEADER}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(FixedRecords, FirmwareInfo95And97Bytes) {
  for (const std::size_t size : {95u, 97u}) {
    ScriptedDevice device;
    device.then(answer(0, 0, pattern(size)));
    FirmwareInfo info{};
    EXPECT_EQ(read_firmware_info(device.driver(), info), RC_MISMATCH);
    EXPECT_EQ(to_wire(info), (std::array<std::uint8_t, FIRMWARE_INFO_SIZE>{}));
  }
}

struct ControlCase {
  std::size_t payload_size;
  std::size_t copied;
};

class ReadControl : public ::testing::TestWithParam<ControlCase> {};

TEST_P(ReadControl, CopiesUpTo76BytesAndZeroesTheRest) {
  ScriptedDevice device;
  const std::vector<std::uint8_t> payload = pattern(GetParam().payload_size, 1);
  device.then(answer(0, 0, payload));
  ControlRecord record{};
  std::memset(&record, 0xEE, sizeof record);
  ASSERT_EQ(read_control(device.driver(), record), RC_OK);
  std::array<std::uint8_t, CONTROL_RECORD_SIZE> expected{};
  std::copy_n(payload.begin(), GetParam().copied, expected.begin());
  EXPECT_EQ(to_wire(record), expected);
  expect_steps(device, {{0x2E, 0, 0, 0, 0}});
  EXPECT_EQ(device.progress_calls(), 0);
}

INSTANTIATE_TEST_SUITE_P(Records, ReadControl,
                         ::testing::Values(ControlCase{10, 10}, ControlCase{100, 76},
                                           ControlCase{76, 76}, ControlCase{0, 0}));

TEST(ReadControlFields, StructVersionAndOneByteResetCount) {
  ScriptedDevice device;
  const std::vector<std::uint8_t> payload{0x01, 0x00, 0x02, 0x00, 0x07, 0x01};
  device.then(answer(0, 0, payload));
  ControlRecord record{};
  ASSERT_EQ(read_control(device.driver(), record), RC_OK);
  EXPECT_EQ(record.struct_version, 2);
  EXPECT_EQ(record.reset_count, 7);
}

TEST(ReadControlFields, WrongAddressLeavesRecordUntouched) {
  ScriptedDevice device;
  device.then(answer(0, 4, pattern(76)));
  ControlRecord record{};
  std::memset(&record, 0xEE, sizeof record);
  EXPECT_EQ(read_control(device.driver(), record), RC_MISMATCH);
  EXPECT_EQ(record.reset_count, 0xEE);
}

struct ActionCase {
  const char* name;
  std::uint32_t address;
  std::size_t payload_size;
  ResultCode expected;
};

class Actions : public ::testing::TestWithParam<ActionCase> {};

TEST_P(Actions, ClearAndRestartWantAnEmptyAnswerAtZero) {
  const ActionCase& c = GetParam();
  for (const auto& [code, command] :
       {std::pair{0x4E, &clear_control}, std::pair{0x4F, &restart_device}}) {
    ScriptedDevice device;
    device.then(answer(0, c.address, pattern(c.payload_size)));
    EXPECT_EQ(command(device.driver()), c.expected) << "code " << code;
    expect_steps(device, {{static_cast<std::uint8_t>(code), 0, 0, 0, 0}});
    EXPECT_EQ(device.progress_calls(), 0);
  }
}

INSTANTIATE_TEST_SUITE_P(Records, Actions,
                         ::testing::Values(ActionCase{"Accepted", 0, 0, RC_OK},
                                           ActionCase{"OnePayloadByte", 0, 1, RC_MISMATCH},
                                           ActionCase{"WrongAddress", 1, 0, RC_MISMATCH}),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace pelmo
