#include "pelmo/transport/udp_transport.hpp"

#include <gtest/gtest.h>

#include "fake_port_layer.hpp"

namespace pelmo::test {
namespace {

constexpr Ipv4Address DEVICE{192, 168, 1, 15};
constexpr std::uint16_t DEVICE_PORT = 57998;
const port::Ipv4Endpoint DEVICE_ENDPOINT{DEVICE, DEVICE_PORT};

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

// Each failing step returns its code and leaves nothing to send or receive with.
TEST(UdpOpen, FailedStepLeavesNothingToUse) {
  for (int step = 0; step < 3; ++step) {
    FakePortLayer ports;
    ports.start_result = step != 0;
    ports.socket_available = step != 1;
    ports.bind_result = step != 2;
    UdpTransport transport(ports);
    EXPECT_EQ(transport.open(DEVICE, DEVICE_PORT, 2000, 150, nullptr),
              step == 1 ? UdpTransport::NO_SOCKET : UdpTransport::OPEN_FAILED);
    std::array<std::uint8_t, 16> buffer{};
    EXPECT_EQ(transport.send(sequence(4)), 0);
    EXPECT_EQ(transport.receive(buffer, 0, 0), 0);
    EXPECT_EQ(ports.reads + ports.sleeps.size(), 0u);
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
  ASSERT_EQ(transport.open(DEVICE, DEVICE_PORT, 2000, 150, [&] { ++progress; }),
            UdpTransport::OPEN_OK);
  ports.now = 0xFFFFFF00u;
  ports.oversleep_ms = row.oversleep_ms;
  EXPECT_EQ(receive_script(transport, ports, row.polls, 20, row.min_count, row.timeout_ms),
            row.result);
  EXPECT_EQ(ports.sleeps, std::vector<std::uint32_t>(row.sleeps, 5));
  // Progress after every poll but the one that ends the receive.
  EXPECT_EQ(progress, ports.reads - 1);
}

const Poll QUIET{};
const port::Ipv4Endpoint OTHER_PORT{DEVICE, 57999}, OTHER_ADDRESS{{192, 168, 1, 16}, DEVICE_PORT};
Poll device(Bytes bytes, std::uint32_t elapse_ms = 0) {
  return {std::move(bytes), DEVICE_ENDPOINT, elapse_ms};
}

INSTANTIATE_TEST_SUITE_P(
    Idle, UdpReceive,
    ::testing::Values(
        ReceiveCase{"silence_default", 0, 12, 0, 0, 400, {}},
        ReceiveCase{"silence_2ms", 2, 12, 0, 0, 1, {}},
        ReceiveCase{"slow_sleeps", 0, 12, 3, 0, 250, {}},
        // min_count reached: returned at the next empty poll, without sleeping.
        ReceiveCase{"min_count", 0, 12, 0, 12, 3, {QUIET, QUIET, QUIET, device(sequence(12))}},
        ReceiveCase{"quiet_time", 0, 0, 0, 12, 30, {device(sequence(12))}},
        ReceiveCase{
            "joined", 0, 0, 0, 16, 31, {device(sequence(8)), QUIET, device(sequence(8, 9))}},
        // The datagram comes 100 ms after the first empty poll; the empty poll after it counts
        // those 100 ms + 5, so 10 sleeps after it reach 150.
        ReceiveCase{"idle_since_last_empty", 0, 0, 0, 12, 11, {QUIET, device(sequence(12), 100)}},
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
