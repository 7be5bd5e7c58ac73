#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "commands/table_commands.hpp"
#include "tests/commands/command_test_support.hpp"

namespace pelmo {
namespace {

using namespace test_support;

constexpr std::uint32_t WRITE_TIMEOUT = 200;
constexpr std::uint32_t ERASE_TIMEOUT = 25000;

FactoryTable sample_table(std::uint8_t seed = 0) {
  const auto bytes = pattern(FACTORY_TABLE_SIZE, seed);
  return factory_table_from_wire(
      std::span<const std::uint8_t, FACTORY_TABLE_SIZE>(bytes.data(), bytes.size()));
}

std::vector<std::uint8_t> slice(const FactoryTable& table, std::size_t offset, std::size_t size) {
  const auto bytes = to_wire(table);
  return {bytes.begin() + offset, bytes.begin() + offset + size};
}

struct FactoryPlan {
  std::uint16_t chunk_size;
  std::vector<std::pair<std::uint32_t, std::uint16_t>> write_blocks;
  std::vector<std::pair<std::uint32_t, std::uint16_t>> verify_blocks;
};

class FactoryTablePlan : public ::testing::TestWithParam<FactoryPlan> {};

TEST_P(FactoryTablePlan, WriteSendsAllBytesVerifySkipsTheFirstEight) {
  const FactoryPlan& plan = GetParam();
  const FactoryTable table = sample_table(11);

  ScriptedDevice writer;
  writer.link().chunk_size = plan.chunk_size;
  writer.respond_with(acknowledge_all());
  ASSERT_EQ(write_factory_table(writer.driver(), &table), RC_OK);
  std::vector<ExpectedStep> steps{PROBE_STEP};
  for (const auto& [offset, length] : plan.write_blocks) {
    steps.push_back({0x81, offset, length, 12, WRITE_TIMEOUT});
  }
  steps.push_back({0x11, 0, 0, 12, WRITE_TIMEOUT});
  expect_steps(writer, steps);
  for (std::size_t i = 0; i < plan.write_blocks.size(); ++i) {
    const auto& [offset, length] = plan.write_blocks[i];
    EXPECT_EQ(writer.requests()[i + 1].payload, slice(table, offset, length));
  }
  EXPECT_EQ(writer.progress_calls(), static_cast<int>(plan.write_blocks.size()) + 2);

  ScriptedDevice verifier;
  verifier.link().chunk_size = plan.chunk_size;
  verifier.respond_with(acknowledge_all());
  ASSERT_EQ(verify_factory_table(verifier.driver(), &table), RC_OK);
  steps.clear();
  for (const auto& [offset, length] : plan.verify_blocks) {
    steps.push_back({0xC1, offset, length, 12, 0});
  }
  expect_steps(verifier, steps);
  for (std::size_t i = 0; i < plan.verify_blocks.size(); ++i) {
    const auto& [offset, length] = plan.verify_blocks[i];
    EXPECT_EQ(verifier.requests()[i].payload, slice(table, offset, length));
  }
  EXPECT_EQ(verifier.progress_calls(), static_cast<int>(plan.verify_blocks.size()));
}

INSTANTIATE_TEST_SUITE_P(
    Tables, FactoryTablePlan,
    ::testing::Values(FactoryPlan{244, {{0, 120}}, {{8, 112}}},
                      FactoryPlan{
                          50, {{0, 50}, {50, 50}, {100, 20}}, {{8, 50}, {58, 50}, {108, 12}}},
                      // Two even blocks for the write; the verify's second block is cut at the end.
                      FactoryPlan{60, {{0, 60}, {60, 60}}, {{8, 60}, {68, 52}}}));

TEST(FactoryTable, TablesDifferingInTheFirstEightBytesVerifyAlike) {
  FactoryTable first = sample_table(1);
  auto bytes = to_wire(first);
  std::fill_n(bytes.begin(), 8, 0xA5);
  const FactoryTable second = factory_table_from_wire(bytes);
  ScriptedDevice a;
  ScriptedDevice b;
  a.respond_with(acknowledge_all());
  b.respond_with(acknowledge_all());
  ASSERT_EQ(verify_factory_table(a.driver(), &first), RC_OK);
  ASSERT_EQ(verify_factory_table(b.driver(), &second), RC_OK);
  ASSERT_EQ(a.requests().size(), b.requests().size());
  for (std::size_t i = 0; i < a.requests().size(); ++i) {
    EXPECT_EQ(a.requests()[i].bytes, b.requests()[i].bytes);
  }
}

TEST(FactoryTable, NullRecordSendsNothing) {
  ScriptedDevice device;
  device.respond_with(acknowledge_all());
  EXPECT_EQ(write_factory_table(device.driver(), nullptr), RC_NULL_POINTER);
  EXPECT_EQ(verify_factory_table(device.driver(), nullptr), RC_NULL_POINTER);
  EXPECT_EQ(read_factory_table(device.driver(), nullptr), RC_NULL_POINTER);
  EXPECT_EQ(write_factory_table(nullptr, nullptr), RC_NO_DRIVER);
  EXPECT_TRUE(device.events().empty());
}

TEST(FactoryTable, ReadFillsTheRecord) {
  const FactoryTable expected = sample_table(42);
  const auto wire = to_wire(expected);
  ScriptedDevice device;
  device.respond_with(serve_area({wire.begin(), wire.end()}));
  FactoryTable table{};
  ASSERT_EQ(read_factory_table(device.driver(), &table), RC_OK);
  EXPECT_EQ(to_wire(table), wire);
  expect_steps(device, {{0x01, 0, 244, 0, 0}, {0x01, 120, 244, 0, 0}});
}

TEST(FactoryTable, ReadNeverPassesTheRecordsEnd) {
  ScriptedDevice device;
  device.link().chunk_size = 50;
  const std::vector<std::uint8_t> area = pattern(130, 1);
  device.respond_with(serve_area(area));
  FactoryTable table = sample_table(200);
  const auto before = to_wire(table);
  EXPECT_EQ(read_factory_table(device.driver(), &table), RC_BAD_LENGTH);
  // The two blocks that fitted landed at their offsets; the rest is as it was.
  const auto after = to_wire(table);
  EXPECT_TRUE(std::equal(area.begin(), area.begin() + 100, after.begin()));
  EXPECT_TRUE(std::equal(before.begin() + 100, before.end(), after.begin() + 100));
}

TEST(FactoryTable, EraseUsesTheLongTimeout) {
  ScriptedDevice device;
  device.then(ack(0));
  ASSERT_EQ(erase_factory_table(device.driver()), RC_OK);
  expect_steps(device, {{0x41, 0, 0, 12, ERASE_TIMEOUT}});
  EXPECT_EQ(device.progress_calls(), 1);
}

struct CalibrationCodes {
  bool backup;
  std::uint8_t read, write, end, erase, verify;
};

class Calibration : public ::testing::TestWithParam<CalibrationCodes> {};

TEST_P(Calibration, WriteSendsProbeSecondBeginBlocksAndEnd) {
  const CalibrationCodes& c = GetParam();
  ScriptedDevice device;
  device.respond_with(acknowledge_all());
  const std::vector<std::uint8_t> data = pattern(600, 5);
  ASSERT_EQ(write_calibration_table(device.driver(), c.backup, data), RC_OK);
  expect_steps(device, {PROBE_STEP,
                        {0x8F, 0, 0, 12, WRITE_TIMEOUT},
                        {c.write, 0, 244, 12, 0},
                        {c.write, 244, 244, 12, 0},
                        {c.write, 488, 112, 12, 0},
                        {c.end, 0, 0, 12, 0}});
  EXPECT_EQ(device.requests()[4].payload,
            std::vector<std::uint8_t>(data.begin() + 488, data.end()));
  EXPECT_EQ(device.progress_calls(), 6);
}

TEST_P(Calibration, EmptyWriteStillBeginsAndEnds) {
  ScriptedDevice device;
  device.respond_with(acknowledge_all());
  ASSERT_EQ(write_calibration_table(device.driver(), GetParam().backup, {}), RC_OK);
  expect_steps(device,
               {PROBE_STEP, {0x8F, 0, 0, 12, WRITE_TIMEOUT}, {GetParam().end, 0, 0, 12, 0}});
}

TEST_P(Calibration, VerifyBlocksFromOffsetZero) {
  const CalibrationCodes& c = GetParam();
  ScriptedDevice device;
  device.respond_with(acknowledge_all());
  const std::vector<std::uint8_t> data = pattern(600, 9);
  ASSERT_EQ(verify_calibration_table(device.driver(), c.backup, data), RC_OK);
  expect_steps(
      device,
      {{c.verify, 0, 244, 12, 0}, {c.verify, 244, 244, 12, 0}, {c.verify, 488, 112, 12, 0}});
  EXPECT_EQ(device.requests()[0].payload,
            std::vector<std::uint8_t>(data.begin(), data.begin() + 244));
  // An empty table has nothing to compare.
  ScriptedDevice idle;
  EXPECT_EQ(verify_calibration_table(idle.driver(), c.backup, {}), RC_OK);
  EXPECT_TRUE(idle.events().empty());
}

TEST_P(Calibration, ReadReportsTheSize) {
  const CalibrationCodes& c = GetParam();
  ScriptedDevice device;
  device.respond_with(serve_area(pattern(300, 2)));
  std::vector<std::uint8_t> destination(1024);
  std::uint32_t size = 0;
  ASSERT_EQ(read_calibration_table(device.driver(), c.backup, destination, &size), RC_OK);
  EXPECT_EQ(size, 300u);
  expect_steps(device,
               {{c.read, 0, 244, 0, 0}, {c.read, 244, 244, 0, 0}, {c.read, 300, 244, 0, 0}});
  EXPECT_TRUE(std::equal(destination.begin(), destination.begin() + 300, pattern(300, 2).begin()));
}

TEST_P(Calibration, EraseUsesTheDefaultTimeout) {
  ScriptedDevice device;
  device.link().extra_timeout_ms = 30;
  device.then(ack(0));
  ASSERT_EQ(erase_calibration_table(device.driver(), GetParam().backup), RC_OK);
  expect_steps(device, {{GetParam().erase, 0, 0, 12, 30}});
}

TEST_P(Calibration, SecondBeginMustDecode) {
  // Unlike the probe, the second begin command fails on an answer that does not decode.
  ScriptedDevice device;
  device.script({ack(0), raw(with_bad_crc(response_frame(0, 0)))});
  device.respond_with(acknowledge_all());
  EXPECT_EQ(write_calibration_table(device.driver(), GetParam().backup, pattern(10)), RC_BAD_CRC);
  EXPECT_EQ(device.requests().size(), 2u);
  EXPECT_EQ(device.progress_calls(), 1);
}

INSTANTIATE_TEST_SUITE_P(Tables, Calibration,
                         ::testing::Values(CalibrationCodes{false, 0x02, 0x82, 0x12, 0x42, 0xC2},
                                           CalibrationCodes{true, 0x03, 0x83, 0x13, 0x43, 0xC3}),
                         [](const auto& info) {
                           return std::string(info.param.backup ? "Backup" : "Table");
                         });

TEST(TableRefusals, ChunkSizeZeroSendsNothing) {
  ScriptedDevice device;
  device.link().chunk_size = 0;
  device.respond_with(acknowledge_all());
  const FactoryTable table = sample_table();
  FactoryTable destination{};
  std::vector<std::uint8_t> buffer(64);
  EXPECT_EQ(write_factory_table(device.driver(), &table), RC_BAD_LENGTH);
  EXPECT_EQ(verify_factory_table(device.driver(), &table), RC_BAD_LENGTH);
  EXPECT_EQ(read_factory_table(device.driver(), &destination), RC_BAD_LENGTH);
  EXPECT_EQ(write_calibration_table(device.driver(), false, buffer), RC_BAD_LENGTH);
  EXPECT_EQ(verify_calibration_table(device.driver(), false, buffer), RC_BAD_LENGTH);
  EXPECT_EQ(read_calibration_table(device.driver(), true, buffer), RC_BAD_LENGTH);
  EXPECT_EQ(read_calibration_table(device.driver(), true, {}), RC_NULL_POINTER);
  EXPECT_TRUE(device.events().empty());
}

TEST(TableFailures, MidwayFailureLeavesNoEndCommand) {
  ScriptedDevice device;
  device.script({ack(0), ack(0), ack(0), answer(0, 243)});
  device.respond_with(acknowledge_all());
  EXPECT_EQ(write_calibration_table(device.driver(), false, pattern(600)), RC_MISMATCH);
  EXPECT_EQ(device.request_headers().back(), (RequestHeader{0x82, 244, 244}));
}

}  // namespace
}  // namespace pelmo
