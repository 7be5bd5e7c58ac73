// What each block transfer sends: the request sequence with codes, offsets, lengths and payloads,
// how each answer is awaited, and one progress call per acknowledged step.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <utility>
#include <vector>

#include "commands/commands.hpp"
#include "tests/commands/command_test_support.hpp"

namespace pelmo {
namespace {

using namespace test_support;
using Bytes = std::vector<std::uint8_t>;
using Blocks = std::vector<std::pair<std::uint32_t, std::uint16_t>>;  // offset, length

// The link waits 4000 ms for a write step and adds 100 ms to every wait.
constexpr std::uint32_t WRITE = 4100;
constexpr std::uint32_t DEFAULT = 100;
constexpr ExpectedStep PROBE{0x8F, 0, 0, 12, DEFAULT, 32};

using Transfer = std::function<ResultCode(const LinkDriver*, const Bytes&)>;

// Runs a transfer of `data` against an accepting device and checks what reached it: `steps`, then
// the blocks of `data` (0xFF past its end) with `code`, each awaited within `timeout_ms`, then
// `end`; and one progress call per step.
void expect_plan(const Transfer& run, const Bytes& data, std::uint16_t chunk_size,
                 std::vector<ExpectedStep> steps, std::uint8_t code, std::uint32_t timeout_ms,
                 const Blocks& blocks, const std::vector<ExpectedStep>& end) {
  ScriptedDevice device;
  device.link().chunk_size = chunk_size;
  device.link().write_timeout_ms = 4000;
  device.link().extra_timeout_ms = 100;
  device.respond_with(acknowledge_all());
  ASSERT_EQ(run(device.driver(), data), RC_OK);
  const std::size_t first_block = steps.size();
  for (const auto& [offset, length] : blocks) {
    steps.push_back({code, offset, length, 12, timeout_ms});
  }
  steps.insert(steps.end(), end.begin(), end.end());
  expect_steps(device, steps);
  for (std::size_t i = 0; i < blocks.size(); ++i) {
    const auto& [offset, length] = blocks[i];
    Bytes expected(length, 0xFF);
    std::copy(data.begin() + offset,
              data.begin() + std::min<std::size_t>(offset + length, data.size()), expected.begin());
    EXPECT_EQ(device.requests()[first_block + i].payload, expected) << "block at " << offset;
  }
  EXPECT_EQ(device.progress_calls(), static_cast<int>(steps.size()));
}

TEST(BlockPlans, FirmwareWriteInWholeUnits) {
  // The last block reaches into the caller's buffer (4 bytes longer than the image), then 0xFF.
  for (const auto& [length, blocks] : std::vector<std::pair<std::uint32_t, Blocks>>{
           {1000, {{0, 240}, {240, 240}, {480, 240}, {720, 240}, {960, 40}}},
           {1001, {{0, 240}, {240, 240}, {480, 240}, {720, 240}, {960, 48}}},
           {5, {{0, 8}}},
           {0, {}}}) {
    expect_plan([length](auto l, auto& d) { return write_firmware(l, d, length); },
                pattern(length + 4), 244, {PROBE}, 0x84, WRITE, blocks, {{0x14, 0, 0, 12, WRITE}});
  }
}

TEST(BlockPlans, FirmwareVerifyFromOffsetEight) {
  const Transfer run = [](auto l, auto& d) { return verify_firmware(l, d); };
  expect_plan(run, pattern(1001), 244, {}, 0xC4, DEFAULT,
              {{8, 240}, {248, 240}, {488, 240}, {728, 240}, {968, 33}}, {});
  expect_plan(run, pattern(96), 244, {}, 0xC4, DEFAULT, {{8, 88}}, {});
}

TEST(BlockPlans, FactoryTableWriteAllVerifyFromOffsetEight) {
  const Bytes bytes = pattern(FACTORY_TABLE_SIZE, 11);
  const FactoryTable table =
      factory_table_from_wire(std::span<const std::uint8_t, FACTORY_TABLE_SIZE>(bytes));
  expect_plan([&table](auto l, auto&) { return write_factory_table(l, &table); }, bytes, 50,
              {PROBE}, 0x81, WRITE, {{0, 50}, {50, 50}, {100, 20}}, {{0x11, 0, 0, 12, WRITE}});
  expect_plan([&table](auto l, auto&) { return verify_factory_table(l, &table); }, bytes, 50, {},
              0xC1, DEFAULT, {{8, 50}, {58, 50}, {108, 12}}, {});
}

TEST(BlockPlans, CalibrationAfterASecondBegin) {
  // The device wants a second begin, given the write time-out, before calibration data.
  const std::vector<ExpectedStep> begin{PROBE, {0x8F, 0, 0, 12, WRITE}};
  expect_plan([](auto l, auto& d) { return write_calibration_table(l, false, d); }, pattern(600),
              244, begin, 0x82, DEFAULT, {{0, 244}, {244, 244}, {488, 112}},
              {{0x12, 0, 0, 12, DEFAULT}});
  expect_plan([](auto l, auto& d) { return write_calibration_table(l, true, d); }, pattern(10), 244,
              begin, 0x83, DEFAULT, {{0, 10}}, {{0x13, 0, 0, 12, DEFAULT}});
  expect_plan([](auto l, auto& d) { return verify_calibration_table(l, true, d); }, pattern(300),
              244, {}, 0xC3, DEFAULT, {{0, 244}, {244, 56}}, {});
  // Unlike the probe, the second begin fails on an answer that does not decode.
  ScriptedDevice device;
  device.script({ack(0), raw(with_bad_crc(response_frame(0, 0)))});
  EXPECT_EQ(write_calibration_table(device.driver(), false, pattern(10)), RC_BAD_CRC);
  EXPECT_EQ(device.requests().size(), 2u);
  EXPECT_EQ(device.progress_calls(), 1);
}

}  // namespace
}  // namespace pelmo
