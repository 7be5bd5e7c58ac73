#include <gtest/gtest.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "commands/firmware_commands.hpp"
#include "tests/commands/command_test_support.hpp"

namespace pelmo {
namespace {

using namespace test_support;
using Block = std::pair<std::uint32_t, std::uint16_t>;  // offset, length

constexpr std::uint32_t WRITE_TIMEOUT = 200;

struct PlanCase {
  const char* name;
  std::uint16_t chunk_size;
  std::uint32_t length;
  std::vector<Block> blocks;
};

class WriteFirmwarePlan : public ::testing::TestWithParam<PlanCase> {};

TEST_P(WriteFirmwarePlan, ProbeBlocksOfWholeUnitsThenEnd) {
  const PlanCase& c = GetParam();
  ScriptedDevice device;
  device.link().chunk_size = c.chunk_size;
  device.respond_with(acknowledge_all());
  // The buffer reaches past the image, as the program's does; its bytes there are sent too.
  const std::vector<std::uint8_t> buffer = pattern(c.length + 64, 3);
  ASSERT_EQ(write_firmware(device.driver(), buffer, c.length), RC_OK);

  std::vector<ExpectedStep> steps{PROBE_STEP};
  for (const auto& [offset, length] : c.blocks) {
    steps.push_back({0x84, offset, length, 12, WRITE_TIMEOUT});
  }
  steps.push_back({0x14, 0, 0, 12, WRITE_TIMEOUT});
  expect_steps(device, steps);
  for (std::size_t i = 0; i < c.blocks.size(); ++i) {
    const auto& [offset, length] = c.blocks[i];
    EXPECT_EQ(device.requests()[i + 1].payload,
              std::vector<std::uint8_t>(buffer.begin() + offset, buffer.begin() + offset + length));
  }
  EXPECT_EQ(device.progress_calls(), static_cast<int>(c.blocks.size()) + 2);
}

INSTANTIATE_TEST_SUITE_P(
    Firmware, WriteFirmwarePlan,
    ::testing::Values(
        PlanCase{
            "Serial1000", 244, 1000, {{0, 240}, {240, 240}, {480, 240}, {720, 240}, {960, 40}}},
        PlanCase{
            "Serial1001", 244, 1001, {{0, 240}, {240, 240}, {480, 240}, {720, 240}, {960, 48}}},
        PlanCase{"FiveBytes", 244, 5, {{0, 8}}}, PlanCase{"Empty", 244, 0, {}},
        PlanCase{"Udp2100", 1012, 2100, {{0, 1008}, {1008, 1008}, {2016, 88}}},
        PlanCase{"ChunkOfEight", 8, 20, {{0, 8}, {8, 8}, {16, 8}}}),
    [](const auto& info) { return std::string(info.param.name); });

class VerifyFirmwarePlan : public ::testing::TestWithParam<PlanCase> {};

TEST_P(VerifyFirmwarePlan, BlocksFromOffsetEightWithoutProbeOrEnd) {
  const PlanCase& c = GetParam();
  ScriptedDevice device;
  device.link().chunk_size = c.chunk_size;
  device.respond_with(acknowledge_all());
  const std::vector<std::uint8_t> image = pattern(c.length, 7);
  ASSERT_EQ(verify_firmware(device.driver(), image), RC_OK);

  std::vector<ExpectedStep> steps;
  for (const auto& [offset, length] : c.blocks) {
    steps.push_back({0xC4, offset, length, 12, 0});
  }
  expect_steps(device, steps);
  for (std::size_t i = 0; i < c.blocks.size(); ++i) {
    const auto& [offset, length] = c.blocks[i];
    EXPECT_EQ(device.requests()[i].payload,
              std::vector<std::uint8_t>(image.begin() + offset, image.begin() + offset + length));
  }
  EXPECT_EQ(device.progress_calls(), static_cast<int>(c.blocks.size()));
}

INSTANTIATE_TEST_SUITE_P(
    Firmware, VerifyFirmwarePlan,
    ::testing::Values(
        PlanCase{
            "Serial1000", 244, 1000, {{8, 240}, {248, 240}, {488, 240}, {728, 240}, {968, 32}}},
        PlanCase{"Minimum96", 244, 96, {{8, 88}}},
        PlanCase{"Udp2100", 1012, 2100, {{8, 1008}, {1016, 1008}, {2024, 76}}},
        // The last block is not rounded: the device compares exactly the image's bytes.
        PlanCase{"Serial251", 244, 251, {{8, 240}, {248, 3}}}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(WriteFirmware, PadsWithErasedBytesPastTheCallersBuffer) {
  ScriptedDevice device;
  device.respond_with(acknowledge_all());
  const std::vector<std::uint8_t> buffer = pattern(1001, 1);
  ASSERT_EQ(write_firmware(device.driver(), buffer, 1001), RC_OK);
  const std::vector<std::uint8_t>& last = device.requests()[5].payload;
  ASSERT_EQ(last.size(), 48u);
  EXPECT_TRUE(std::equal(buffer.begin() + 960, buffer.end(), last.begin()));
  EXPECT_EQ(std::vector<std::uint8_t>(last.begin() + 41, last.end()),
            std::vector<std::uint8_t>(7, 0xFF));
}

TEST(WriteFirmware, ExtraTimeLengthensEveryWait) {
  ScriptedDevice device;
  device.link().extra_timeout_ms = 100;
  device.link().write_timeout_ms = 4000;
  device.respond_with(acknowledge_all());
  const std::vector<std::uint8_t> buffer(16, 0);
  ASSERT_EQ(write_firmware(device.driver(), buffer, 16), RC_OK);
  expect_steps(device,
               {{0x8F, 0, 0, 12, 100, 32}, {0x84, 0, 16, 12, 4100}, {0x14, 0, 0, 12, 4100}});
}

TEST(WriteFirmware, FailureMidwayStopsWithoutEndCommand) {
  ScriptedDevice device;
  device.script({ack(0), ack(0), ack(240), answer(0x01, 480)});
  device.respond_with(acknowledge_all());
  const std::vector<std::uint8_t> buffer(1000, 0);
  EXPECT_EQ(write_firmware(device.driver(), buffer, 1000), -255);
  EXPECT_EQ(device.request_headers().back(), (RequestHeader{0x84, 480, 240}));
  EXPECT_EQ(device.requests().size(), 4u);
  EXPECT_EQ(device.progress_calls(), 3);
}

TEST(WriteFirmware, FailedProbeSendsNoBlock) {
  ScriptedDevice device;
  device.then(answer(0xFA, 0));
  device.respond_with(acknowledge_all());
  const std::vector<std::uint8_t> buffer(100, 0);
  EXPECT_EQ(write_firmware(device.driver(), buffer, 100), RC_BAD_HEADER);
  EXPECT_EQ(device.requests().size(), 1u);
}

TEST(WriteFirmware, EndCommandAddressIsNotExamined) {
  ScriptedDevice device;
  device.script({ack(0), ack(0), answer(0, 0x1234)});
  const std::vector<std::uint8_t> buffer(8, 0);
  EXPECT_EQ(write_firmware(device.driver(), buffer, 8), RC_OK);
}

struct RefusalCase {
  const char* name;
  std::uint16_t chunk_size;
  std::size_t buffer_size;
  std::uint32_t length;
  bool write_refused;
  bool verify_refused;
};

class FirmwareRefusals : public ::testing::TestWithParam<RefusalCase> {};

TEST_P(FirmwareRefusals, BadLengthWithNothingSent) {
  const RefusalCase& c = GetParam();
  const std::vector<std::uint8_t> buffer(c.buffer_size, 0);
  if (c.write_refused) {
    ScriptedDevice device;
    device.link().chunk_size = c.chunk_size;
    EXPECT_EQ(write_firmware(device.driver(), buffer, c.length), RC_BAD_LENGTH);
    EXPECT_TRUE(device.events().empty());
  }
  if (c.verify_refused) {
    ScriptedDevice device;
    device.link().chunk_size = c.chunk_size;
    EXPECT_EQ(verify_firmware(device.driver(), buffer), RC_BAD_LENGTH);
    EXPECT_TRUE(device.events().empty());
  }
}

INSTANTIATE_TEST_SUITE_P(Firmware, FirmwareRefusals,
                         ::testing::Values(RefusalCase{"ChunkZero", 0, 200, 200, true, true},
                                           RefusalCase{"ChunkSeven", 7, 200, 200, true, true},
                                           RefusalCase{"LengthPastBuffer", 244, 100, 101, true,
                                                       false},
                                           RefusalCase{"VerifyBelow96", 244, 95, 95, false, true}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(FirmwareRefusals, NullBytes) {
  ScriptedDevice device;
  EXPECT_EQ(write_firmware(device.driver(), {}, 8), RC_NULL_POINTER);
  EXPECT_EQ(read_firmware(device.driver(), {}), RC_NULL_POINTER);
  EXPECT_TRUE(device.events().empty());
  // An empty image needs no bytes at all.
  device.respond_with(acknowledge_all());
  EXPECT_EQ(write_firmware(device.driver(), {}, 0), RC_OK);
}

TEST(EraseFirmware, LongTimeoutAndOneProgress) {
  ScriptedDevice device;
  device.link().extra_timeout_ms = 7;
  device.then(ack(0));
  ASSERT_EQ(erase_firmware(device.driver()), RC_OK);
  expect_steps(device, {{0x44, 0, 0, 12, 25007}});
  EXPECT_EQ(device.progress_calls(), 1);
}

TEST(ReadFirmware, ChunksUntilEndOfData) {
  ScriptedDevice device;
  const std::vector<std::uint8_t> area = pattern(1000, 9);
  device.respond_with(serve_area(area));
  std::vector<std::uint8_t> destination(4096, 0xEE);
  std::uint32_t size = 0;
  ASSERT_EQ(read_firmware(device.driver(), destination, &size), RC_OK);
  EXPECT_EQ(size, 1000u);
  EXPECT_TRUE(std::equal(area.begin(), area.end(), destination.begin()));
  EXPECT_EQ(destination[1000], 0xEE);
  expect_steps(device, {{0x04, 0, 244, 0, 0},
                        {0x04, 244, 244, 0, 0},
                        {0x04, 488, 244, 0, 0},
                        {0x04, 732, 244, 0, 0},
                        {0x04, 976, 244, 0, 0},
                        {0x04, 1000, 244, 0, 0}});
  EXPECT_EQ(device.progress_calls(), 5);
}

TEST(ReadFirmware, AdvancesByWhatTheDeviceSent) {
  ScriptedDevice device;
  const std::vector<std::uint8_t> first(100, 1);
  const std::vector<std::uint8_t> second(30, 2);
  device.script({answer(0, 0, first), answer(0, 100, second), answer(0xFD, 130)});
  std::vector<std::uint8_t> destination(200, 0);
  std::uint32_t size = 0;
  ASSERT_EQ(read_firmware(device.driver(), destination, &size), RC_OK);
  EXPECT_EQ(size, 130u);
  EXPECT_EQ(device.request_headers()[1], (RequestHeader{0x04, 100, 244}));
  EXPECT_EQ(device.request_headers()[2], (RequestHeader{0x04, 130, 244}));
  EXPECT_EQ(destination[99], 1);
  EXPECT_EQ(destination[129], 2);
  EXPECT_EQ(destination[130], 0);
}

TEST(ReadFirmware, FirstAnswerEndOfDataIsAnEmptyFirmware) {
  ScriptedDevice device;
  device.then(answer(0xFD, 0));
  std::vector<std::uint8_t> destination(16);
  std::uint32_t size = 99;
  ASSERT_EQ(read_firmware(device.driver(), destination, &size), RC_OK);
  EXPECT_EQ(size, 0u);
  EXPECT_EQ(device.progress_calls(), 0);
  // size_out is optional.
  device.then(answer(0xFD, 0));
  EXPECT_EQ(read_firmware(device.driver(), destination), RC_OK);
}

TEST(ReadFirmware, NeverWritesPastTheDestination) {
  ScriptedDevice device;
  device.respond_with(serve_area(pattern(1000)));
  std::vector<std::uint8_t> destination(500, 0xEE);
  std::uint32_t size = 77;
  EXPECT_EQ(read_firmware(device.driver(), destination, &size), RC_BAD_LENGTH);
  EXPECT_EQ(size, 77u);
  EXPECT_EQ(device.requests().size(), 3u);
  EXPECT_EQ(destination[487], pattern(1000)[487]);
  EXPECT_EQ(std::count(destination.begin() + 488, destination.end(), 0xEE), 12);
}

TEST(ReadFirmware, ExactFitSucceeds) {
  ScriptedDevice device;
  device.respond_with(serve_area(pattern(488)));
  std::vector<std::uint8_t> destination(488);
  std::uint32_t size = 0;
  EXPECT_EQ(read_firmware(device.driver(), destination, &size), RC_OK);
  EXPECT_EQ(size, 488u);
}

TEST(ReadFirmware, EmptyAnswersAreBounded) {
  ScriptedDevice device;
  device.respond_with([](const SentRequest& r) { return ack(r.address); });
  std::vector<std::uint8_t> destination(100);
  EXPECT_EQ(read_firmware(device.driver(), destination), RC_TIMEOUT);
  EXPECT_EQ(device.requests().size(), 16u);
  for (const RequestHeader& header : device.request_headers()) {
    EXPECT_EQ(header, (RequestHeader{0x04, 0, 244}));
  }
  EXPECT_EQ(device.progress_calls(), 15);
}

TEST(ReadFirmware, EmptyAnswerCountRestartsAfterData) {
  ScriptedDevice device;
  for (int i = 0; i < 15; ++i) {
    device.then(ack(0));
  }
  const std::vector<std::uint8_t> data(10, 5);
  device.then(answer(0, 0, data));
  for (int i = 0; i < 15; ++i) {
    device.then(ack(10));
  }
  device.then(answer(0xFD, 10));
  std::vector<std::uint8_t> destination(100);
  std::uint32_t size = 0;
  EXPECT_EQ(read_firmware(device.driver(), destination, &size), RC_OK);
  EXPECT_EQ(size, 10u);
  EXPECT_EQ(device.requests().size(), 32u);
}

}  // namespace
}  // namespace pelmo
