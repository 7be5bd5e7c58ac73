#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <tuple>
#include <vector>

#include "pelmo/protocol/exchange.hpp"
#include "pelmo/protocol/link_driver.hpp"
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

}  // namespace
}  // namespace pelmo
