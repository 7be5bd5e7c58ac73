#include <gtest/gtest.h>

#include <algorithm>
#include <tuple>
#include <vector>

#include "commands/commands.hpp"
#include "tests/commands/command_test_support.hpp"

namespace pelmo {
namespace {

using namespace test_support;

TEST(ChunkedRead, UntilEndOfDataWithinTheDestination) {
  // area size, destination size, result, requests
  for (const auto& [area_size, size, rc, requests] : {std::tuple{1000u, 4096u, RC_OK, 6u},
                                                      {1000u, 500u, RC_BAD_LENGTH, 3u},
                                                      {488u, 488u, RC_OK, 3u}}) {
    ScriptedDevice device;
    const std::vector<std::uint8_t> area = pattern(area_size, 9);
    device.respond_with(serve_area(area));
    std::vector<std::uint8_t> destination(size + 16, 0xEE);
    std::uint32_t read = 77;
    EXPECT_EQ(read_firmware(device.driver(), std::span(destination).first(size), &read), rc);
    EXPECT_EQ(read, rc == RC_OK ? area_size : 77u);
    // Each request asks for a chunk at the offset reached, advancing by what arrived.
    std::vector<ExpectedStep> steps;
    for (std::uint32_t i = 0; i < requests; ++i) {
      steps.push_back({0x04, std::min(i * 244, area_size), 244, 0, 0});
    }
    expect_steps(device, steps);
    EXPECT_EQ(device.progress_calls(), static_cast<int>(requests) - 1);
    const std::uint32_t landed = std::min((requests - 1) * 244, area_size);
    EXPECT_TRUE(std::equal(area.begin(), area.begin() + landed, destination.begin()));
    EXPECT_EQ(std::count(destination.begin() + landed, destination.end(), 0xEE),
              destination.size() - landed);
  }
}

TEST(ChunkedRead, SixteenEmptyAnswersInARowAreATimeout) {
  // Data after 15 empty answers starts the count anew.
  ScriptedDevice device;
  for (int i = 0; i < 15; ++i) {
    device.then(ack(0));
  }
  device.then(answer(0, 0, pattern(10)));
  device.respond_with([](const SentRequest& r) { return ack(r.address); });
  std::vector<std::uint8_t> destination(100);
  EXPECT_EQ(read_firmware(device.driver(), destination), RC_TIMEOUT);
  EXPECT_EQ(device.requests().size(), 32u);
  EXPECT_EQ(device.request_headers().back(), (RequestHeader{0x04, 10, 244}));
  EXPECT_EQ(device.progress_calls(), 31);
}

TEST(ChunkedRead, FactoryRecordKeepsWhatLandedBeforeAFailure) {
  ScriptedDevice device;
  device.link().chunk_size = 50;
  const std::vector<std::uint8_t> area = pattern(130, 1);
  device.respond_with(serve_area(area));
  FactoryTable table{};
  EXPECT_EQ(read_factory_table(device.driver(), &table), RC_BAD_LENGTH);
  const auto after = to_wire(table);
  EXPECT_TRUE(std::equal(area.begin(), area.begin() + 100, after.begin()));
  EXPECT_TRUE(std::all_of(after.begin() + 100, after.end(), [](auto b) { return b == 0; }));
}

}  // namespace
}  // namespace pelmo
