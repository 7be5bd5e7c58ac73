#include "transport/udp_transport.hpp"

#include <gtest/gtest.h>

#include "fake_port_layer.hpp"

namespace pelmo::test {
namespace {

constexpr Ipv4Address DEVICE{192, 168, 1, 15};
constexpr std::uint16_t DEVICE_PORT = 57998;
const port::Ipv4Endpoint DEVICE_ENDPOINT{DEVICE, DEVICE_PORT};

class UdpTransportTest : public ::testing::Test {
 protected:
  // The runner's values: 2000 ms first datagram, 150 ms quiet.
  void open_default(std::int32_t first_byte_ms = 2000) {
    ASSERT_EQ(transport.open(DEVICE, DEVICE_PORT, first_byte_ms, 150, progress.callback()),
              UdpTransport::OPEN_OK);
    ports.starts.clear();
  }
  void arrive(Bytes bytes, std::uint32_t elapse_ms = 0,
              port::Ipv4Endpoint sender = DEVICE_ENDPOINT) {
    ports.socket->polls.push_back({std::move(bytes), sender, elapse_ms});
  }
  void quiet(int polls) {
    for (int i = 0; i < polls; ++i) {
      ports.socket->polls.push_back({});
    }
  }

  FakePortLayer ports;
  UdpTransport transport{ports};
  ProgressCounter progress;
};

// --- open ---------------------------------------------------------------------------------------

struct BindCase {
  std::vector<Ipv4Address> host;
  Ipv4Address bound;
};

class UdpOpenBinds : public ::testing::TestWithParam<BindCase> {};

TEST_P(UdpOpenBinds, OnTheInterfaceFacingTheDeviceAndTheDevicesPort) {
  FakePortLayer ports;
  ports.host = GetParam().host;
  UdpTransport transport(ports);
  ASSERT_EQ(transport.open(DEVICE, DEVICE_PORT, 2000, 150, nullptr), UdpTransport::OPEN_OK);
  const port::Ipv4Endpoint expected{GetParam().bound, DEVICE_PORT};
  ASSERT_TRUE(ports.socket->bound.has_value());
  EXPECT_EQ(*ports.socket->bound, expected);
  EXPECT_EQ(transport.local_endpoint(), expected);
  EXPECT_EQ(transport.destination(), DEVICE_ENDPOINT);
  // The socket library for the transport, then for the address lookup on its own account.
  EXPECT_EQ(ports.starts, (std::vector<std::pair<int, int>>{{2, 2}, {1, 1}}));
}

INSTANTIATE_TEST_SUITE_P(
    Hosts, UdpOpenBinds,
    ::testing::Values(BindCase{{{10, 0, 0, 5}, {192, 168, 2, 9}, {192, 168, 1, 7}},
                               {192, 168, 1, 7}},
                      BindCase{{{10, 0, 0, 5}, {192, 168, 2, 9}}, {192, 168, 2, 9}},
                      BindCase{{{192, 1, 1, 15}}, {0, 0, 0, 0}}, BindCase{{}, {0, 0, 0, 0}}));

TEST(UdpOpen, LooksAtNoMoreThan24HostAddresses) {
  FakePortLayer ports;
  ports.host.assign(24, Ipv4Address{10, 0, 0, 1});
  ports.host.push_back({192, 168, 1, 2});  // the 25th would fit best
  UdpTransport transport(ports);
  ASSERT_EQ(transport.open(DEVICE, DEVICE_PORT, 2000, 150, nullptr), UdpTransport::OPEN_OK);
  EXPECT_EQ(transport.local_endpoint().address, (Ipv4Address{0, 0, 0, 0}));
}

struct OpenFailure {
  bool start;
  bool socket;
  bool bind;
  int result;
};

class UdpOpenFailures : public ::testing::TestWithParam<OpenFailure> {};

TEST_P(UdpOpenFailures, ReturnTheirCodeAndStoreNothing) {
  FakePortLayer ports;
  ports.start_result = GetParam().start;
  ports.socket_available = GetParam().socket;
  ports.socket->bind_result = GetParam().bind;
  UdpTransport transport(ports);
  EXPECT_EQ(transport.open(DEVICE, DEVICE_PORT, 2000, 150, nullptr), GetParam().result);
  EXPECT_FALSE(transport.is_open());
  EXPECT_EQ(transport.first_byte_timeout_ms(), 1);
  EXPECT_EQ(transport.inter_byte_timeout_ms(), 1);
  EXPECT_EQ(transport.destination(), port::Ipv4Endpoint{});
  std::array<std::uint8_t, 16> buffer{};
  EXPECT_EQ(transport.send(sequence(4)), 0);
  EXPECT_EQ(transport.receive(buffer, 0, 0), 0);
  EXPECT_TRUE(ports.socket->sent.empty());
  EXPECT_EQ(ports.stops, 0);
}

INSTANTIATE_TEST_SUITE_P(
    Steps, UdpOpenFailures,
    ::testing::Values(OpenFailure{false, true, true, UdpTransport::OPEN_FAILED},
                      OpenFailure{true, false, true, UdpTransport::NO_SOCKET},
                      OpenFailure{true, true, false, UdpTransport::OPEN_FAILED}));

TEST_F(UdpTransportTest, FailedReopenKeepsTheOpenLink) {
  open_default(300);
  auto first_socket = ports.socket;
  ports.socket = std::make_shared<SocketState>();
  ports.socket->bind_result = false;
  EXPECT_EQ(transport.open({10, 1, 1, 1}, 1234, 50, 20, nullptr), UdpTransport::OPEN_FAILED);
  EXPECT_TRUE(first_socket->alive);
  EXPECT_EQ(transport.destination(), DEVICE_ENDPOINT);
  EXPECT_EQ(transport.first_byte_timeout_ms(), 300);
  EXPECT_EQ(transport.send(sequence(3)), 3);
  ASSERT_EQ(first_socket->sent.size(), 1u);
  EXPECT_EQ(first_socket->sent[0].first, DEVICE_ENDPOINT);
}

TEST_F(UdpTransportTest, CloseReleasesSocketAndLibraryOnce) {
  open_default();
  transport.close();
  transport.close();
  EXPECT_FALSE(ports.socket->alive);
  EXPECT_EQ(ports.stops, 1);
  EXPECT_EQ(transport.send(sequence(3)), 0);
}

// --- send ---------------------------------------------------------------------------------------

TEST_F(UdpTransportTest, SendIsOneDatagramToTheDevice) {
  open_default();
  EXPECT_EQ(transport.send(sequence(1024)), 1024);
  ASSERT_EQ(ports.socket->sent.size(), 1u);
  EXPECT_EQ(ports.socket->sent[0].first, DEVICE_ENDPOINT);
  EXPECT_EQ(ports.socket->sent[0].second, sequence(1024));

  ports.socket->send_result = -1;
  EXPECT_EQ(transport.send(sequence(12)), 0);
}

// --- receive: idle measured by the tick
// -----------------------------------------------------------

struct SilentCase {
  std::int32_t first_byte_timeout_ms;
  std::uint32_t timeout_ms;
  std::uint32_t start_tick;
  std::uint32_t oversleep_ms;
  std::size_t sleeps;
};

class UdpSilence : public UdpTransportTest, public ::testing::WithParamInterface<SilentCase> {};

TEST_P(UdpSilence, EndsWhenTheClockSaysTheTimeIsUp) {
  open_default(GetParam().first_byte_timeout_ms);
  ports.now = GetParam().start_tick;
  ports.oversleep_ms = GetParam().oversleep_ms;
  std::array<std::uint8_t, 64> buffer{};
  EXPECT_EQ(transport.receive(buffer, 12, GetParam().timeout_ms), 0);
  EXPECT_EQ(ports.sleeps.size(), GetParam().sleeps);
  EXPECT_EQ(ports.socket->receive_calls, static_cast<int>(GetParam().sleeps));
  // Progress after every empty poll that does not end the receive.
  EXPECT_EQ(progress.calls, static_cast<int>(GetParam().sleeps) - 1);
}

INSTANTIATE_TEST_SUITE_P(Timeouts, UdpSilence,
                         ::testing::Values(SilentCase{2000, 0, 1000, 0, 400},
                                           SilentCase{2000, 4000, 1000, 0, 800},
                                           SilentCase{2000, 2, 1000, 0, 1},
                                           SilentCase{30, 0, 1000, 0, 6},
                                           SilentCase{2000, 0, 0xFFFFFF00u, 0, 400},  // wraps
                                           SilentCase{2000, 0, 1000, 3, 250},  // 8 ms a sleep
                                           SilentCase{2000, 100, 1000, 95, 1}));

TEST_F(UdpTransportTest, EverySocketSetupHappensOnEachReceive) {
  open_default();
  std::array<std::uint8_t, 64> buffer{};
  transport.receive(buffer, 0, 5);
  transport.receive(buffer, 0, 5);
  EXPECT_EQ(ports.socket->non_blocking_calls, 2);
  EXPECT_EQ(ports.socket->receive_timeouts,
            (std::vector<std::pair<std::uint32_t, std::uint32_t>>{{0, 5000}, {0, 5000}}));
}

TEST_F(UdpTransportTest, RefusedTimeoutOptionReadsAsSilence) {
  open_default();
  ports.socket->receive_timeout_result = false;
  arrive(sequence(12));
  std::array<std::uint8_t, 64> buffer{};
  EXPECT_EQ(transport.receive(buffer, 12, 0), 0);
  EXPECT_EQ(ports.socket->receive_calls, 0);
  EXPECT_TRUE(ports.sleeps.empty());
}

TEST_F(UdpTransportTest, MinCountEndsAtTheFirstEmptyPollWithoutSleeping) {
  open_default();
  quiet(3);
  arrive(sequence(12));
  std::array<std::uint8_t, 64> buffer{};
  EXPECT_EQ(transport.receive(buffer, 12, 0), 12);
  EXPECT_EQ(ports.sleeps.size(), 3u);
  EXPECT_EQ(ports.socket->receive_calls, 5);
  EXPECT_EQ(Bytes(buffer.begin(), buffer.begin() + 12), sequence(12));
}

TEST_F(UdpTransportTest, OpenLengthEndsAfterTheQuietTime) {
  open_default();
  arrive(sequence(12));
  std::array<std::uint8_t, 64> buffer{};
  EXPECT_EQ(transport.receive(buffer, 0, 0), 12);
  EXPECT_EQ(ports.sleeps.size(), 30u);  // 150 ms in 5 ms steps
}

TEST_F(UdpTransportTest, DatagramsWithinTheQuietTimeAreJoined) {
  open_default();
  arrive(sequence(8));
  quiet(20);  // 100 ms
  arrive(sequence(8, 9));
  std::array<std::uint8_t, 64> buffer{};
  EXPECT_EQ(transport.receive(buffer, 0, 0), 16);
  EXPECT_EQ(Bytes(buffer.begin(), buffer.begin() + 16), sequence(16));
  EXPECT_EQ(ports.sleeps.size(), 20u + 30u);
}

TEST_F(UdpTransportTest, FirstEmptyPollAfterADatagramCountsTheTimeSinceThePreviousEmptyPoll) {
  open_default();
  quiet(1);
  arrive(sequence(12), 100);  // the datagram comes 100 ms after the first empty poll
  std::array<std::uint8_t, 64> buffer{};
  EXPECT_EQ(transport.receive(buffer, 0, 0), 12);
  // 1 sleep before the datagram; after it the idle time starts at 105 ms, so 9 more sleeps
  // reach 150 ms.
  EXPECT_EQ(ports.sleeps.size(), 1u + 10u);
}

TEST_F(UdpTransportTest, FullBufferEndsAtOnceAndNothingSpillsOver) {
  open_default();
  arrive(sequence(10));
  arrive(sequence(10, 11));
  std::array<std::uint8_t, 24> storage{};
  storage.fill(0xEE);
  EXPECT_EQ(transport.receive(std::span(storage).first(16), 0, 0), 16);
  EXPECT_TRUE(ports.sleeps.empty());
  EXPECT_EQ(Bytes(storage.begin(), storage.begin() + 16), sequence(16));
  EXPECT_EQ(Bytes(storage.begin() + 16, storage.end()), Bytes(8, 0xEE));
  EXPECT_EQ(progress.calls, 1);  // after the first datagram only
}

struct StrayCase {
  const char* name;
  port::Ipv4Endpoint sender;
  bool after_part;
};

class UdpStraySender : public UdpTransportTest, public ::testing::WithParamInterface<StrayCase> {};

TEST_P(UdpStraySender, EndsTheReceiveWithNothing) {
  open_default();
  if (GetParam().after_part) {
    arrive(sequence(6));
    quiet(2);
  }
  arrive(sequence(6, 7), 0, GetParam().sender);
  arrive(sequence(12));
  std::array<std::uint8_t, 64> buffer{};
  EXPECT_EQ(transport.receive(buffer, 12, 0), 0);
  EXPECT_EQ(ports.socket->polls.size(), 1u) << "returned at the stray datagram";
}

INSTANTIATE_TEST_SUITE_P(
    Senders, UdpStraySender,
    ::testing::Values(StrayCase{"other_port_first", {DEVICE, 57999}, false},
                      StrayCase{"other_address_first", {{192, 168, 1, 16}, DEVICE_PORT}, false},
                      StrayCase{"other_port_after_part", {DEVICE, 1}, true},
                      StrayCase{"other_address_after_part", {{10, 0, 0, 1}, DEVICE_PORT}, true}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace pelmo::test
