#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "protocol/exchange.hpp"
#include "protocol/frame.hpp"
#include "protocol/link_driver.hpp"
#include "tests/support/scripted_device.hpp"

namespace pelmo {
namespace {

using test_support::Event;
using test_support::Reply;
using test_support::ScriptedDevice;
using Bytes = std::vector<std::uint8_t>;

// The 12-byte begin-write request, as every write sends it first.
const Bytes BEGIN_WRITE_REQUEST{0xB5, 0x8F, 0, 0, 0, 0, 0, 0, 0x96, 0x39, 0xC7, 0x65};

class Exchange : public ::testing::Test {
 protected:
  ResultCode run(std::uint16_t min_count = 12, std::uint32_t timeout_ms = 0) {
    return exchange(device.driver(), BEGIN_WRITE_REQUEST, response, min_count, timeout_ms,
                    &response_length);
  }
  std::size_t count(Event kind) const {
    return static_cast<std::size_t>(
        std::count(device.events().begin(), device.events().end(), kind));
  }

  ScriptedDevice device;
  std::array<std::uint8_t, 64> response{};
  std::uint16_t response_length = 0xBEEF;
};

TEST_F(Exchange, SilentDeviceCostsEveryAttempt) {
  EXPECT_EQ(run(), RC_TIMEOUT);
  EXPECT_EQ(device.events(), (std::vector<Event>{Event::send, Event::receive, Event::send,
                                                 Event::receive, Event::send, Event::receive}));
  for (const auto& request : device.requests()) {
    EXPECT_EQ(request.bytes, BEGIN_WRITE_REQUEST);
  }
  EXPECT_EQ(response_length, 0xBEEF);
}

TEST_F(Exchange, NoAttemptsSendsNothing) {
  device.link().max_attempts = 0;
  device.then(test_support::ack());
  EXPECT_EQ(run(), RC_TIMEOUT);
  EXPECT_TRUE(device.events().empty());
}

TEST_F(Exchange, FailedSendsCostAttemptsWithoutReceive) {
  for (const std::int32_t result : {11, -1, 0}) {
    ScriptedDevice failing;
    failing.script({test_support::failed_send(result), test_support::failed_send(result),
                    test_support::failed_send(result), test_support::ack()});
    EXPECT_EQ(exchange(failing.driver(), BEGIN_WRITE_REQUEST, response, 12, 0), RC_TIMEOUT);
    EXPECT_EQ(failing.requests().size(), 3u) << "send result " << result;
    EXPECT_TRUE(failing.receives().empty()) << "send result " << result;
  }
}

TEST_F(Exchange, SendResultIsJudgedByItsLow16Bits) {
  // 0x1000C reads as the 12 bytes of the request: the answer is awaited at once.
  Reply counted = test_support::ack();
  counted.send_result = 0x1000C;
  device.script({counted, test_support::ack()});
  EXPECT_EQ(run(), RC_OK);
  EXPECT_EQ(device.requests().size(), 1u);
  EXPECT_EQ(device.unused_replies(), 1u);
}

TEST_F(Exchange, ShortSendThenAnswer) {
  device.script({test_support::failed_send(5), test_support::ack()});
  EXPECT_EQ(run(), RC_OK);
  EXPECT_EQ(count(Event::send), 2u);
  EXPECT_EQ(count(Event::receive), 1u);
}

TEST_F(Exchange, AnswerToTheSecondRequest) {
  device.script({test_support::silence(), test_support::answer(0, 0x20)});
  EXPECT_EQ(run(), RC_OK);
  EXPECT_EQ(response_length, 12);
  EXPECT_EQ(Bytes(response.begin(), response.begin() + 12), test_support::response_frame(0, 0x20));
  EXPECT_EQ(device.requests().size(), 2u);
  EXPECT_EQ(device.requests()[1].bytes, BEGIN_WRITE_REQUEST);
}

TEST_F(Exchange, GarbageIsAnAnswerAndNotRetried) {
  device.script({test_support::raw({0x01, 0x02, 0x03}), test_support::ack()});
  EXPECT_EQ(run(), RC_OK);
  EXPECT_EQ(response_length, 3);
  EXPECT_EQ(device.requests().size(), 1u);
  EXPECT_EQ(device.unused_replies(), 1u);
}

TEST_F(Exchange, ReceiveResultWithZeroLow16BitsIsSilence) {
  LinkDriver link = device.link();
  int receives = 0;
  link.receive = [&receives](std::span<std::uint8_t>, std::uint16_t, std::uint32_t) {
    ++receives;
    return 0x10000;
  };
  EXPECT_EQ(exchange(&link, BEGIN_WRITE_REQUEST, response, 12, 0), RC_TIMEOUT);
  EXPECT_EQ(receives, 3);
}

struct TimeoutCase {
  std::uint32_t timeout_ms;
  std::uint32_t extra_timeout_ms;
  std::uint32_t expected;
};

class ExchangeTimeout : public Exchange, public ::testing::WithParamInterface<TimeoutCase> {};

TEST_P(ExchangeTimeout, ExtraTimeIsAddedBeforeTheTransportSeesIt) {
  device.link().extra_timeout_ms = GetParam().extra_timeout_ms;
  device.then(test_support::ack());
  ASSERT_EQ(run(7, GetParam().timeout_ms), RC_OK);
  ASSERT_EQ(device.receives().size(), 1u);
  EXPECT_EQ(device.receives()[0].timeout_ms, GetParam().expected);
  EXPECT_EQ(device.receives()[0].min_count, 7);
  EXPECT_EQ(device.receives()[0].capacity, response.size());
}

INSTANTIATE_TEST_SUITE_P(Exchange, ExchangeTimeout,
                         ::testing::Values(TimeoutCase{0, 0, 0}, TimeoutCase{0, 100, 100},
                                           TimeoutCase{25000, 100, 25100},
                                           TimeoutCase{200, 0, 200}));

TEST_F(Exchange, FlushDrainsStaleInputBeforeSending) {
  device.link().flush_before_exchange = 1;
  device.inject_input({0xAA});
  device.inject_input({0xBB});
  device.then(test_support::ack());
  ASSERT_EQ(run(12, 0), RC_OK);
  EXPECT_EQ(device.events(), (std::vector<Event>{Event::receive, Event::receive, Event::receive,
                                                 Event::send, Event::receive}));
  const auto& receives = device.receives();
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(receives[i].timeout_ms, 2u);
  }
  EXPECT_EQ(receives[2].result, 0);
  EXPECT_EQ(response_length, 12);
  EXPECT_EQ(response[0], RESPONSE_START);
}

TEST_F(Exchange, UnusableDriver) {
  EXPECT_EQ(exchange(nullptr, BEGIN_WRITE_REQUEST, response, 12, 0), RC_NO_DRIVER);
  LinkDriver no_receive = device.link();
  no_receive.receive = nullptr;
  EXPECT_EQ(exchange(&no_receive, BEGIN_WRITE_REQUEST, response, 12, 0), RC_NO_DRIVER);
  EXPECT_TRUE(device.events().empty());
}

struct ProbeCase {
  const char* name;
  Reply reply;
  ResultCode expected;
  int progress_calls;
  std::size_t sends;
};

class Probe : public ::testing::TestWithParam<ProbeCase> {};

TEST_P(Probe, BeforeWrite) {
  ScriptedDevice device;
  device.respond_with([reply = GetParam().reply](const auto&) { return reply; });
  EXPECT_EQ(probe_before_write(device.driver()), GetParam().expected);
  EXPECT_EQ(device.progress_calls(), GetParam().progress_calls);
  ASSERT_EQ(device.requests().size(), GetParam().sends);
  EXPECT_EQ(device.requests()[0].bytes, BEGIN_WRITE_REQUEST);
  EXPECT_EQ(device.receives()[0].min_count, 12);
  EXPECT_EQ(device.receives()[0].timeout_ms, 0u);
  EXPECT_EQ(device.receives()[0].capacity, 32u);
}

INSTANTIATE_TEST_SUITE_P(
    Exchange, Probe,
    ::testing::Values(ProbeCase{"Accepted", test_support::ack(), RC_OK, 1, 1},
                      ProbeCase{"DeviceStatus", test_support::answer(0xFA, 0), RC_BAD_HEADER, 0, 1},
                      ProbeCase{"StatusOne", test_support::answer(0x01, 0), -255, 0, 1},
                      // An answer that does not decode lets the write go on, without progress.
                      ProbeCase{"BadCrcPasses",
                                test_support::raw(test_support::with_bad_crc(
                                    test_support::response_frame(0x01, 0))),
                                RC_OK, 0, 1},
                      ProbeCase{"ShortGarbagePasses", test_support::raw({0xBA, 0x00}), RC_OK, 0, 1},
                      ProbeCase{"Silence", test_support::silence(), RC_TIMEOUT, 0, 3}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(Probe, WorksWithoutProgressCallback) {
  ScriptedDevice device;
  device.link().progress = nullptr;
  device.then(test_support::ack());
  EXPECT_EQ(probe_before_write(device.driver()), RC_OK);
  EXPECT_EQ(probe_before_write(nullptr), RC_NO_DRIVER);
}

TEST(BindLinkDriver, RefusalsKeepTheEarlierBinding) {
  ScriptedDevice first;
  ScriptedDevice second;
  LinkDriver without_progress = first.link();
  without_progress.progress = nullptr;
  ASSERT_EQ(bind_link_driver(&without_progress), RC_OK);
  EXPECT_EQ(bound_link_driver(), &without_progress);

  EXPECT_EQ(bind_link_driver(nullptr), RC_NULL_POINTER);
  LinkDriver no_receive = second.link();
  no_receive.receive = nullptr;
  EXPECT_EQ(bind_link_driver(&no_receive), RC_NO_DRIVER);
  LinkDriver no_send = second.link();
  no_send.send = nullptr;
  EXPECT_EQ(bind_link_driver(&no_send), RC_NO_DRIVER);
  EXPECT_EQ(bound_link_driver(), &without_progress);

  ASSERT_EQ(bind_link_driver(&second.link()), RC_OK);
  EXPECT_EQ(bound_link_driver(), &second.link());
}

}  // namespace
}  // namespace pelmo
