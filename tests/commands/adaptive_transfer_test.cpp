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

constexpr RetransmissionSettings ADAPTIVE{.adaptive = true,
                                          .initial_rto_ms = 200,
                                          .min_rto_ms = 20,
                                          .max_rto_ms = 2000,
                                          .deadline_ms = 1000};

// A device holding `area` that answers reads from it and acknowledges everything else.
Reply serve(const Bytes& area, const SentRequest& request) {
  if (request.code >= 0x01 && request.code <= 0x04) {
    if (request.address >= area.size()) {
      return answer(0xFD, request.address);
    }
    const std::size_t count = std::min<std::size_t>(request.length, area.size() - request.address);
    return answer(0, request.address, std::span(area).subspan(request.address, count));
  }
  return ack(request.address);
}

TEST(AdaptiveCommands, StaleCopiesOfEarlierAnswersAreDroppedNotMismatched) {
  // The device answers every request twice: the copy reaches the next request's exchange first.
  const Bytes area = pattern(600);
  Bytes read(600);
  // command; sends the adaptive way (all) and the classic way (up to the mismatch)
  for (const auto& [name, run, sends, classic_sends] :
       std::vector<std::tuple<std::string, Command, std::size_t, std::size_t>>{
           {"read", [&](auto l) { return read_calibration_table(l, false, read, nullptr); }, 4, 2},
           {"verify", [&](auto l) { return verify_calibration_table(l, false, area); }, 3, 2},
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
      if (adaptive) {
        device.link().estimator = &estimator;
      }
      std::fill(read.begin(), read.end(), 0);
      // The classic way takes the copy as the next answer: its address is the previous one's.
      EXPECT_EQ(run(device.driver()), adaptive ? RC_OK : RC_MISMATCH) << name;
      EXPECT_EQ(device.requests().size(), adaptive ? sends : classic_sends) << name;
    }
    if (name == "read") {
      EXPECT_EQ(read, area);
    }
  }
}

TEST(AdaptiveCommands, EraseCommandsWaitTheEraseAllowanceOthersTheEstimate) {
  // command; the first wait of a silent device (erase allowance 3000 ms, initial RTO 200 ms)
  const FactoryTable table{};
  for (const auto& [name, run, wait] : std::vector<std::tuple<std::string, Command, std::uint32_t>>{
           {"erase firmware", erase_firmware, 3000},
           {"erase factory", erase_factory_table, 3000},
           {"erase calibration", [](auto l) { return erase_calibration_table(l, true); }, 3000},
           {"write firmware", [](auto l) { return write_firmware(l, pattern(16), 16); }, 200},
           {"verify factory", [&](auto l) { return verify_factory_table(l, &table); }, 200},
           {"firmware info",
            [](auto l) {
              FirmwareInfo info;
              return read_firmware_info(l, info);
            },
            200}}) {
    ScriptedDevice device;
    RoundTripEstimator estimator(ADAPTIVE);
    device.use_clock();
    device.link().estimator = &estimator;
    device.link().erase_timeout_ms = 3000;
    device.link().write_timeout_ms = 4000;
    EXPECT_EQ(run(device.driver()), RC_TIMEOUT) << name;
    ASSERT_FALSE(device.receives().empty());
    EXPECT_EQ(device.receives()[0].timeout_ms, wait) << name;
    // An erase silence says nothing of the round trip.
    EXPECT_EQ(estimator.backoff() == 0, wait == 3000) << name;
  }
}

TEST(TransferProgress, ReportsBytesDoneAfterEachChunk) {
  using Calls = std::vector<std::pair<std::uint32_t, std::uint32_t>>;
  const Bytes area = pattern(300);
  Bytes destination(1000);
  for (const auto& [name, run, calls] : std::vector<std::tuple<std::string, Command, Calls>>{
           // The reads count against the destination's size.
           {"read",
            [&](auto l) { return read_firmware(l, destination, nullptr); },
            {{244, 1000}, {300, 1000}}},
           // The last block is rounded up to 8 bytes but counted to the end.
           {"write",
            [&](auto l) { return write_firmware(l, area, 250); },
            {{240, 250}, {250, 250}}},
           {"verify from 8",
            [&](auto l) { return verify_firmware(l, area); },
            {{248, 300}, {300, 300}}}}) {
    ScriptedDevice device;
    device.respond_with([&](const SentRequest& request) { return serve(area, request); });
    Calls seen;
    device.link().transfer_progress = [&](std::uint32_t done, std::uint32_t total) {
      seen.emplace_back(done, total);
    };
    EXPECT_EQ(run(device.driver()), RC_OK) << name;
    EXPECT_EQ(seen, calls) << name;
  }
}

}  // namespace
}  // namespace pelmo
