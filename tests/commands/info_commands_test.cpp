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

// Answers to the fixed-size record reads; the payload is the record's size plus `size_delta`.
// A read that fails leaves the record as it was.
struct RecordCase {
  const char* name;
  std::uint8_t status;
  std::uint32_t address;
  int size_delta;
  ResultCode expected;
};

class FixedRecords : public ::testing::TestWithParam<RecordCase> {
 protected:
  std::vector<std::uint8_t> payload(std::size_t record_size) const {
    return pattern(static_cast<std::size_t>(static_cast<int>(record_size) + GetParam().size_delta));
  }
};

TEST_P(FixedRecords, FirmwareInfo) {
  ScriptedDevice device;
  device.then(answer(GetParam().status, GetParam().address, payload(FIRMWARE_INFO_SIZE)));
  FirmwareInfo info{};  // cleared, as the program does before asking
  EXPECT_EQ(read_firmware_info(device.driver(), info), GetParam().expected);
  if (GetParam().expected != RC_OK) {
    EXPECT_EQ(to_wire(info), (std::array<std::uint8_t, FIRMWARE_INFO_SIZE>{}));
  }
}

TEST_P(FixedRecords, BootloaderInfo) {
  ScriptedDevice device;
  device.then(answer(GetParam().status, GetParam().address, payload(BOOTLOADER_INFO_SIZE)));
  BootloaderInfo info{};
  std::memset(&info, 0x3C, sizeof info);
  const auto before = to_wire(info);
  EXPECT_EQ(read_bootloader_info(device.driver(), info), GetParam().expected);
  if (GetParam().expected != RC_OK) {
    EXPECT_EQ(to_wire(info), before);
  }
}

INSTANTIATE_TEST_SUITE_P(Records, FixedRecords,
                         ::testing::Values(RecordCase{"Exact", 0, 0, 0, RC_OK},
                                           RecordCase{"OneShort", 0, 0, -1, RC_MISMATCH},
                                           RecordCase{"OneLong", 0, 0, 1, RC_MISMATCH},
                                           RecordCase{"WrongAddress", 0, 4, 0, RC_MISMATCH},
                                           RecordCase{"EndOfData", 0xFD, 0, 0, RC_OUT_OF_RANGE},
                                           RecordCase{"InvalidHeader", 0xFA, 0, 0, RC_BAD_HEADER},
                                           RecordCase{"InvalidCrc", 0xF9, 0, 0, RC_BAD_CRC}),
                         [](const auto& info) { return std::string(info.param.name); });

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
