#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "pelmo/protocol/exchange.hpp"
#include "pelmo/protocol/link_driver.hpp"
#include "pelmo/protocol/round_trip_estimator.hpp"
#include "tests/support/scripted_device.hpp"

namespace pelmo {
namespace {

using namespace test_support;

// A 12-byte request (begin-write); exchange does not look into it.
const std::vector<std::uint8_t> REQUEST{0xB5, 0x8F, 0, 0, 0, 0, 0, 0, 0x96, 0x39, 0xC7, 0x65};

TEST(Exchange, RetriesOnlySilenceAndFailedSends) {
  const std::vector<Reply> failing{failed_send(11), failed_send(-1), failed_send(0), ack()};
  // 0x1000C reads as the 12 bytes of the request: only the low 16 bits of a send count.
  const Reply counted{0x1000C, response_frame(0, 0)};
  // replies, time-out, extra time, wait the transport sees, result, sends, receives, length
  for (const auto& [replies, timeout, extra, wait, rc, sends, receives, length] :
       std::vector<std::tuple<std::vector<Reply>, unsigned, unsigned, unsigned, ResultCode,
                              std::size_t, std::size_t, int>>{
           {{}, 0, 100, 100, RC_TIMEOUT, 3, 3, 0xBEEF},  // 0xBEEF: length not stored
           {failing, 0, 0, 0, RC_TIMEOUT, 3, 0, 0xBEEF},
           {{failed_send(5), ack()}, 25000, 100, 25100, RC_OK, 2, 1, 12},
           {{silence(), answer(0, 0x20)}, 200, 0, 200, RC_OK, 2, 2, 12},
           // Whatever arrives is the answer: garbage is not retried.
           {{raw({0x01, 0x02, 0x03}), ack()}, 0, 0, 0, RC_OK, 1, 1, 3},
           {{counted, ack()}, 0, 0, 0, RC_OK, 1, 1, 12}}) {
    ScriptedDevice device;
    device.script(replies);
    device.link().extra_timeout_ms = extra;
    std::array<std::uint8_t, 64> response{};
    std::uint16_t response_length = 0xBEEF;
    EXPECT_EQ(exchange(device.driver(), REQUEST, response, 7, timeout, &response_length), rc);
    EXPECT_EQ(std::tuple(device.requests().size(), device.receives().size(), response_length),
              std::tuple(sends, receives, length));
    for (const ReceiveCall& call : device.receives())
      EXPECT_EQ(std::tuple(call.timeout_ms, call.min_count, call.capacity),
                std::tuple(wait, 7, 64u));
  }
}

TEST(Exchange, FlushDrainsStaleInputBeforeSending) {
  ScriptedDevice device;
  device.link().flush_before_exchange = 1;
  device.inject_input({0xAA});
  device.inject_input({0xBB});
  device.then(ack());
  std::array<std::uint8_t, 64> response{};
  ASSERT_EQ(exchange(device.driver(), REQUEST, response, 12, 0), RC_OK);
  // Three drains (the last finds nothing) before the one send, then the answer.
  ASSERT_EQ(device.receives().size(), 4u);
  EXPECT_EQ(device.receives()[2].sends_before, 0u);
  EXPECT_EQ(device.receives()[3].sends_before, 1u);
  EXPECT_EQ(device.receives()[2].timeout_ms, 2u);
  EXPECT_EQ(device.receives()[3].result, 12);
}

// The adaptive way against a clocked device: RTO 200 ms before any sample, floor 20, ceiling
// 2000, deadline 1000 ms on top of the device's work, no jitter.
constexpr RetransmissionSettings ADAPTIVE{.adaptive = true,
                                          .initial_rto_ms = 200,
                                          .min_rto_ms = 20,
                                          .max_rto_ms = 2000,
                                          .deadline_ms = 1000};

const AnswerExpectation ECHO{.echo = 0x100}, ERASE{.wait = AnswerWait::erase};

struct AdaptiveCase {
  std::vector<Reply> replies;                                              // then silence
  std::vector<std::pair<std::vector<std::uint8_t>, std::uint32_t>> stale;  // bytes, arrival
  AnswerExpectation expect;
  std::uint32_t timeout_ms;  // the device's work time the command allows
  std::uint16_t max_attempts;
  ResultCode rc;
  std::vector<std::uint32_t> waits;  // each receive's time-out
  std::size_t sends;
  std::optional<std::uint32_t> srtt;  // the estimate after the exchange
  std::uint32_t end_ms;               // the clock when the exchange returned
  std::uint32_t start_ms = 0;
};

TEST(AdaptiveExchange, WaitsTheEstimateWithinADeadlineAndDropsStaleAnswers) {
  const auto stale_ack = response_frame(0, 0xF0);  // the previous block's acknowledgement
  // replies, stale answers, what the answer echoes, the command's time-out, max_attempts; result,
  // waits, sends, estimate, clock at the end (and at the start)
  const std::vector<AdaptiveCase> cases{
      // 0: answered first, one sample
      {{after(30, ack(0x100))}, {}, ECHO, 0, 0, RC_OK, {200}, 1, 30, 30},
      // 1: answered after a resend, no sample (Karn)
      {{silence(), after(30, ack(0x100))}, {}, ECHO, 0, 0, RC_OK, {200, 400}, 2, {}, 230},
      // 2: the deadline ends it, across the clock's wrap
      {{}, {}, ECHO, 0, 0, RC_TIMEOUT, {200, 400, 400}, 3, {}, 0xFFFFFF00u + 1000, 0xFFFFFF00u},
      // 3: the device's work time lengthens the deadline
      {{}, {}, ECHO, 600, 0, RC_TIMEOUT, {200, 400, 800, 200}, 4, {}, 1600},
      // 4: max_attempts bounds the sends
      {{}, {}, ECHO, 0, 2, RC_TIMEOUT, {200, 400}, 2, {}, 600},
      // 5: a late answer to the previous offset is dropped
      {{after(40, ack(0x100))}, {{stale_ack, 10}}, ECHO, 0, 0, RC_OK, {200, 190}, 1, 40, 40},
      // 6: a failing status is taken whatever it echoes
      {{after(10, answer(0xFA, 0))}, {}, ECHO, 0, 0, RC_OK, {200}, 1, 10, 10},
      // 7: without an echo the first answer is taken
      {{}, {{stale_ack, 10}}, {}, 0, 0, RC_OK, {200}, 1, 10, 10},
      // 8: a failed send waits out its attempt
      {{failed_send(-1), after(10, ack(0x100))}, {}, ECHO, 0, 0, RC_OK, {200, 400}, 2, {}, 210},
      // 9: an erase waits its allowance each time, three allowances and the deadline in all
      {{}, {}, ERASE, 0, 0, RC_TIMEOUT, {3000, 3000, 3000, 1000}, 4, {}, 10000},
      // 10: an answered erase gives no sample
      {{after(2500, ack(0))}, {}, ERASE, 0, 0, RC_OK, {3000}, 1, {}, 2500}};
  for (std::size_t row = 0; row < cases.size(); ++row) {
    const AdaptiveCase& c = cases[row];
    ScriptedDevice device;
    RoundTripEstimator estimator(ADAPTIVE);
    device.use_clock(c.start_ms);
    device.script(c.replies);
    for (const auto& [bytes, at] : c.stale)
      device.inject_input(bytes, at);
    device.link().estimator = &estimator;
    device.link().max_attempts = c.max_attempts;
    device.link().erase_timeout_ms = 3000;
    std::array<std::uint8_t, 64> response{};
    EXPECT_EQ(exchange(device.driver(), REQUEST, response, 12, c.timeout_ms, nullptr, c.expect),
              c.rc)
        << row;
    std::vector<std::uint32_t> waits;
    for (const ReceiveCall& call : device.receives())
      waits.push_back(call.timeout_ms);
    EXPECT_EQ(waits, c.waits) << row;
    EXPECT_EQ(device.requests().size(), c.sends) << row;
    EXPECT_EQ(estimator.srtt_ms(), c.srtt) << row;
    EXPECT_EQ(device.now_ms(), c.end_ms) << row;
  }
}

TEST(AdaptiveExchange, CancellationStopsBeforeASendOrBetweenAnswers) {
  // cancelled() answers true from its nth call on; stale answer or not; sends, receives, clock
  for (const auto& [nth, stale, sends, receives, end_ms] :
       std::vector<std::tuple<int, bool, std::size_t, std::size_t, std::uint32_t>>{
           {1, false, 0, 0, 0},     // before the first send
           {2, false, 1, 1, 200},   // before the resend
           {2, true, 1, 1, 10}}) {  // after a dropped answer
    ScriptedDevice device;
    RoundTripEstimator estimator(ADAPTIVE);
    device.use_clock();
    if (stale)
      device.inject_input(response_frame(0, 0xF0), 10);
    int calls = 0;
    device.link().estimator = &estimator;
    device.link().cancelled = [&] { return ++calls >= nth; };
    std::array<std::uint8_t, 64> response{};
    EXPECT_EQ(exchange(device.driver(), REQUEST, response, 12, 0, nullptr, ECHO), RC_CANCELLED);
    EXPECT_EQ(std::tuple(device.requests().size(), device.receives().size(), device.now_ms()),
              std::tuple(sends, receives, end_ms));
  }
}

}  // namespace
}  // namespace pelmo
