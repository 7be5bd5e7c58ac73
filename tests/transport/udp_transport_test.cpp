#include "pelmo/transport/udp_transport.hpp"

#include <gtest/gtest.h>

#include "fake_port_layer.hpp"

namespace pelmo::test {
namespace {

constexpr Ipv4Address DEVICE{192, 168, 1, 15};
const port::Ipv4Endpoint DEVICE_ENDPOINT{DEVICE, 57998};

// The best match of at least two leading bytes wins, the first among equals; the fourth byte never
// counts.
TEST(LocalAddress, IsTheInterfaceFacingTheDevice) {
  using Choice = std::pair<std::vector<Ipv4Address>, std::optional<Ipv4Address>>;
  for (const auto& [host, chosen] : std::vector<Choice>{
           {{{192, 168, 0, 3}, {10, 0, 0, 1}, {192, 168, 1, 2}}, Ipv4Address{192, 168, 1, 2}},
           {{{10, 0, 0, 1}, {192, 168, 7, 2}, {192, 168, 9, 2}}, Ipv4Address{192, 168, 7, 2}},
           {{{192, 1, 1, 15}, {10, 168, 1, 15}}, std::nullopt},
           {{{192, 168, 1, 99}, {192, 168, 1, 15}}, Ipv4Address{192, 168, 1, 99}}}) {
    EXPECT_EQ(choose_local_address(host, DEVICE), chosen);
  }
}

// Four numbers of 0 to 255 and nothing else: a fifth byte, a missing one, 256 or a blank is no
// address.
TEST(LocalAddress, DottedTextIsExactlyFourBytes) {
  for (const std::string_view text : {"192.168.1.300", "1.2.3", "1.2.3.4.5", "1..3.4", " 1.2.3.4",
                                      "1.2.3.4 ", "1.2.3.-4", "1.2.3.0x4", ""}) {
    EXPECT_EQ(parse_dotted_address(text), std::nullopt) << text;
  }
  for (const std::string_view text : {"0.0.0.0", "255.255.255.255", "192.168.1.15"}) {
    const auto address = parse_dotted_address(text);
    ASSERT_TRUE(address) << text;
    EXPECT_EQ(dotted_address(*address), text);
  }
}

// Each failing step says why, keeps the system's error and leaves nothing to send or receive with.
TEST(UdpOpen, FailedStepSaysWhyAndLeavesNothingToUse) {
  const struct {
    port::OsError start, bind;
    bool socket;
    const char* message;
  } cases[] = {
      {{10091}, {}, true, "cannot start the socket library (os error 10091)"},
      {{}, {}, false, "cannot create a UDP socket (os error 24)"},
      {{},
       {98, true},
       true,
       "UDP port 57998 on 192.168.1.2 is already in use by another program or link (os error 98)"},
      {{}, {13}, true, "cannot bind UDP port 57998 on 192.168.1.2 (os error 13)"},
  };
  for (const auto& c : cases) {
    FakePortLayer ports;
    ports.host = {{192, 168, 1, 2}};
    ports.start_error = c.start;
    ports.bind_error = c.bind;
    ports.socket_available = c.socket;
    UdpTransport transport(ports);
    const OpenResult result = transport.open(DEVICE_ENDPOINT, {2000, 150});
    EXPECT_FALSE(result.ok);
    EXPECT_EQ(result.message, c.message);
    EXPECT_NE(result.os_error, 0);
    EXPECT_EQ(transport.send(sequence(4)), Transport::SEND_FAILED);
    EXPECT_EQ(transport.receive(std::span<std::uint8_t>(), 0, 0, {}) + ports.reads, 0);
  }
}

// Idle time is measured by the tick, which starts 256 ms before it wraps, in 5 ms polls. The open
// gives 2000 ms for the first datagram and 150 ms of quiet.
struct ReceiveCase {
  const char* name;
  std::uint32_t timeout_ms;
  std::uint16_t min_count;
  std::uint32_t oversleep_ms;
  std::int32_t result;
  std::size_t sleeps;
  std::vector<Poll> polls;
};

class UdpReceive : public ::testing::TestWithParam<ReceiveCase> {};

TEST_P(UdpReceive, EndsWhenTheClockSays) {
  const ReceiveCase& row = GetParam();
  FakePortLayer ports;
  UdpTransport transport(ports);
  int progress = 0;
  ASSERT_TRUE(transport.open(DEVICE_ENDPOINT, {2000, 150}).ok);
  ports.now = 0xFFFFFF00u;
  ports.oversleep_ms = row.oversleep_ms;
  EXPECT_EQ(receive_script(transport, ports, row.polls, 20, row.min_count, row.timeout_ms,
                           [&] { ++progress; }),
            row.result);
  EXPECT_EQ(ports.sleeps, std::vector<std::uint32_t>(row.sleeps, 5));
  // Progress after every poll but the one that ends the receive.
  EXPECT_EQ(progress, ports.reads - 1);
}

const Poll QUIET{};
const port::Ipv4Endpoint OTHER_PORT{DEVICE, 57999}, OTHER_ADDRESS{{192, 168, 1, 16}, 57998};
Poll device(Bytes bytes) {
  return {std::move(bytes), DEVICE_ENDPOINT};
}

INSTANTIATE_TEST_SUITE_P(
    Idle, UdpReceive,
    ::testing::Values(
        ReceiveCase{"silence_default", 0, 12, 0, 0, 400, {}},
        ReceiveCase{"silence_2ms", 2, 12, 0, 0, 1, {}},
        ReceiveCase{"slow_sleeps_are_clocked", 0, 12, 3, 0, 250, {}},
        // min_count reached: returned at the next empty poll, without sleeping.
        ReceiveCase{"min_count", 0, 12, 0, 12, 3, {QUIET, QUIET, QUIET, device(sequence(12))}},
        ReceiveCase{"quiet_time", 0, 0, 0, 12, 30, {device(sequence(12))}},
        ReceiveCase{
            "joined", 0, 0, 0, 16, 31, {device(sequence(8)), QUIET, device(sequence(8, 9))}},
        // A full buffer (20 bytes) ends the receive at once.
        ReceiveCase{"fills_buffer", 0, 0, 0, 20, 0, {device(sequence(12)), device(sequence(12))}},
        // A datagram from anyone else spoils the whole response.
        ReceiveCase{
            "stray_first", 0, 12, 0, 0, 0, {{sequence(6), OTHER_PORT}, device(sequence(12))}},
        ReceiveCase{"stray_after_part",
                    0,
                    12,
                    0,
                    0,
                    0,
                    {device(sequence(6)), {sequence(6), OTHER_ADDRESS}}}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace pelmo::test
