// What the block transfers send (codes, offsets, lengths, payloads, waits, progress) and what
// the chunked reads ask for and keep.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <utility>
#include <vector>

#include "pelmo/commands/commands.hpp"
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
  device.respond_with([](const SentRequest& r) { return ack(r.address); });
  ASSERT_EQ(run(device.driver(), data), RC_OK);
  const std::size_t first_block = steps.size();
  for (const auto& [offset, length] : blocks) {
    steps.push_back({code, offset, length, 12, timeout_ms});
  }
  steps.insert(steps.end(), end.begin(), end.end());
  expect_steps(device, steps);
  for (std::size_t i = 0; i < blocks.size(); ++i) {
    const auto& [offset, length] = blocks[i];
    Bytes expected(data.begin() + offset,
                   data.begin() + std::min<std::size_t>(offset + length, data.size()));
    expected.resize(length, 0xFF);
    EXPECT_EQ(device.requests()[first_block + i].payload, expected) << "block at " << offset;
  }
  EXPECT_EQ(device.progress_calls(), static_cast<int>(steps.size()));
}

TEST(BlockPlans, FirmwareWriteWaitsTheWriteTimeOutPerBlock) {
  // The last block reaches into the caller's buffer (4 bytes longer than the image), then 0xFF.
  expect_plan([](auto l, auto& d) { return write_firmware(l, d, 1001); }, pattern(1005), 244,
              {PROBE}, 0x84, WRITE, {{0, 240}, {240, 240}, {480, 240}, {720, 240}, {960, 48}},
              {{0x14, 0, 0, 12, WRITE}});
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

TEST(ChunkedRead, SixteenEmptyAnswersInARowAreATimeout) {
  // Data after 15 empty answers starts the count anew.
  ScriptedDevice device;
  device.script(std::vector<Reply>(15, ack(0))).then(answer(0, 0, pattern(10)));
  device.respond_with([](const SentRequest& r) { return ack(r.address); });
  Bytes destination(100);
  EXPECT_EQ(read_firmware(device.driver(), destination), RC_TIMEOUT);
  EXPECT_EQ(device.requests().size(), 32u);
  EXPECT_EQ(device.request_headers().back(), (RequestHeader{0x04, 10, 244}));
  EXPECT_EQ(device.progress_calls(), 31);
}

}  // namespace
}  // namespace pelmo
