// What the commands tell the exchange: the address each answer echoes, the kind of wait, and the
// transfer progress after each chunk.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "pelmo/commands/commands.hpp"
#include "pelmo/protocol/round_trip_estimator.hpp"
#include "tests/commands/command_test_support.hpp"

namespace pelmo {
namespace {

using namespace test_support;
using Bytes = std::vector<std::uint8_t>;
using Command = std::function<ResultCode(const LinkDriver*)>;

// Adaptive: RTO 200 ms before any sample, floor 20, ceiling 2000, deadline 1000 ms.
constexpr RetransmissionSettings ADAPTIVE{true, 200, 20, 2000, 0, 1000};

// A device holding `area` that answers reads from it and acknowledges everything else.
Reply serve(const Bytes& area, const SentRequest& request) {
  if (request.code < 0x01 || request.code > 0x04) {
    return ack(request.address);
  }
  const std::size_t at = std::min<std::size_t>(request.address, area.size());
  const std::size_t count = std::min<std::size_t>(request.length, area.size() - at);
  return at < area.size() ? answer(0, at, std::span(area).subspan(at, count)) : answer(0xFD, at);
}

TEST(AdaptiveCommands, StaleCopiesOfEarlierAnswersAreDroppedNotMismatched) {
  // The device answers every request twice: the copy reaches the next request's exchange first.
  const Bytes area = pattern(600);
  Bytes read(600);
  // command; sends the adaptive way (all) and the classic way (up to the mismatch)
  for (const auto& [name, run, sends, classic_sends] :
       std::vector<std::tuple<std::string, Command, std::size_t, std::size_t>>{
           {"read", [&](auto l) { return read_calibration_table(l, false, read, nullptr); }, 4, 2},
           // The probe's copy echoes 0 as the first block does.
           {"write", [&](auto l) { return write_firmware(l, area, 600); }, 5, 3}}) {
    for (const bool adaptive : {false, true}) {
      ScriptedDevice device;
      RoundTripEstimator estimator(ADAPTIVE);
      device.use_clock();
      device.respond_with([&](const SentRequest& request) {
        Reply reply = after(5, serve(area, request));
        device.inject_input(reply.answer, device.now_ms() + 6);
        return reply;
      });
      device.link().estimator = adaptive ? &estimator : nullptr;
      // The classic way takes the copy as the next answer: its address is the previous one's.
      EXPECT_EQ(run(device.driver()), adaptive ? RC_OK : RC_MISMATCH) << name;
      EXPECT_EQ(device.requests().size(), adaptive ? sends : classic_sends) << name;
    }
  }
  EXPECT_EQ(read, area);  // the classic way's part, then all of it the adaptive way
}

// Each command's progress after each chunk, and the first wait the adaptive way: the erase
// allowance (3000 ms) for an erase, which gives no round-trip sample, else the initial RTO.
TEST(AdaptiveCommands, ReportProgressAndWaitTheEraseAllowanceOnlyForErases) {
  using Calls = std::vector<std::pair<std::uint32_t, std::uint32_t>>;
  const Bytes area = pattern(300);
  Bytes to(1000);
  // The reads count against the destination's size; the last block written is rounded up to 8
  // bytes but counted to the end; a verify starts at 8.
  for (const auto& [run, wait, calls] : std::vector<std::tuple<Command, std::uint32_t, Calls>>{
           {[&](auto l) { return read_firmware(l, to, nullptr); }, 200, {{244, 1000}, {300, 1000}}},
           {[&](auto l) { return write_firmware(l, area, 250); }, 200, {{240, 250}, {250, 250}}},
           {[&](auto l) { return verify_firmware(l, area); }, 200, {{248, 300}, {300, 300}}},
           {erase_firmware, 3000, {}},
           {erase_factory_table, 3000, {}},
           {[](auto l) { return erase_calibration_table(l, true); }, 3000, {}}}) {
    ScriptedDevice device;
    RoundTripEstimator estimator(ADAPTIVE);
    device.use_clock();
    device.link().estimator = &estimator;
    device.link().erase_timeout_ms = 3000;
    device.respond_with([&](const SentRequest& request) { return after(5, serve(area, request)); });
    Calls seen;
    device.link().transfer_progress = [&](auto done, auto of) { seen.emplace_back(done, of); };
    const ResultCode rc = run(device.driver());
    EXPECT_EQ(std::tuple(rc, seen, device.receives().at(0).timeout_ms, !estimator.srtt_ms()),
              std::tuple(RC_OK, calls, wait, wait == 3000));
  }
}

}  // namespace
}  // namespace pelmo
