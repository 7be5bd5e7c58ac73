// The UDP hub on real loopback sockets: devices are plain sockets of the system's port layer on
// 127.0.N.2 and up, the hub holds port 57998 on 127.0.N.1.
#include "pelmo/transport/udp_hub.hpp"

#include <chrono>
#include <thread>

#include <gtest/gtest.h>

#include "fake_port_layer.hpp"
#include "pelmo/protocol/exchange.hpp"
#include "pelmo/transport/device_link.hpp"

namespace pelmo::test {
namespace {

port::PortLayer& SYSTEM = port::system_port_layer();

// The hub's endpoint and two devices' of network 127.0.`n`: ctest runs the tests side by side.
port::Ipv4Endpoint at(std::uint8_t n, std::uint8_t host, std::uint16_t port = DEVICE_UDP_PORT) {
  return {{127, 0, n, host}, port};
}

// A device: a socket of its own on the device's address and port.
struct Peer {
  std::unique_ptr<port::DatagramSocket> socket = SYSTEM.open_datagram_socket().socket;
  explicit Peer(const port::Ipv4Endpoint& at) { EXPECT_FALSE(socket->bind(at).failed()); }
  void send(const Bytes& bytes, const port::Ipv4Endpoint& to) const {
    ASSERT_EQ(socket->send_to(to, bytes), static_cast<std::int32_t>(bytes.size()));
  }
  // The next datagram within a second, and who sent it.
  std::pair<Bytes, port::Ipv4Endpoint> next() const {
    Bytes bytes(2048);
    port::Ipv4Endpoint from;
    bytes.resize(socket->wait_readable(1000) ? socket->receive_from(bytes, from) : 0);
    return {bytes, from};
  }
};

// What `link` collects within `timeout_ms` (the first poll without a datagram ends it once `want`
// bytes are in).
Bytes collect(const DeviceLink& link, std::uint16_t want, std::uint32_t timeout_ms = 1000) {
  Bytes buffer(2048);
  buffer.resize(std::max(link.driver()->receive(buffer, want, timeout_ms), 0));
  return buffer;
}

// Waits (bounded) until the hub's reader has taken `count` datagrams off the socket in all.
UdpHubCounters after_reader_took(const UdpHub& hub, std::uint64_t count) {
  for (int poll = 0; poll < 200 && hub.counters().routed + hub.counters().unknown_sender < count;
       ++poll)
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  return hub.counters();
}

// Each link hears its own device only, whoever answers first; a stranger (another address, or the
// device's address on another port) reaches nobody. Requests leave from the hub's address and port.
// One link per device: a second is refused and the first goes on; once the first is closed the
// device can be opened again, and what it sent meanwhile was nobody's, dropped.
TEST(UdpHub, RoutesEachDatagramToTheLinkOfItsSenderOnly) {
  const port::Ipv4Endpoint hub_at = at(91, 1), a_at = at(91, 2), b_at = at(91, 3);
  UdpHub hub(SYSTEM);
  ASSERT_TRUE(hub.open(hub_at).ok);
  const Peer a(a_at), b(b_at), stranger(at(91, 4)), other_port(at(91, 2, DEVICE_UDP_PORT + 1));
  DeviceLink link_a(SYSTEM), link_b(SYSTEM), second(SYSTEM);
  ASSERT_TRUE(link_a.open(hub, UdpDevice{a_at.address}, CLASSIC_UDP_PROFILE).ok);
  ASSERT_TRUE(link_b.open(hub, UdpDevice{b_at.address}, CLASSIC_UDP_PROFILE).ok);
  EXPECT_EQ(second.open(hub, UdpDevice{a_at.address}, CLASSIC_UDP_PROFILE).message,
            "UDP device 127.0.91.2:57998 already has a link on this hub");
  EXPECT_EQ(second.driver(), nullptr);

  EXPECT_EQ(link_a.driver()->send(sequence(12, 1)), 12);
  EXPECT_EQ(link_b.driver()->send(sequence(12, 2)), 12);
  EXPECT_EQ(a.next(), std::pair(sequence(12, 1), hub_at));
  EXPECT_EQ(b.next(), std::pair(sequence(12, 2), hub_at));
  stranger.send(sequence(12, 90), hub_at);
  other_port.send(sequence(12, 91), hub_at);
  b.send(sequence(12, 20), hub_at);
  a.send(sequence(12, 10), hub_at);
  const UdpHubCounters counted = after_reader_took(hub, 4);
  EXPECT_EQ(collect(link_a, 12), sequence(12, 10));
  EXPECT_EQ(collect(link_b, 12), sequence(12, 20));
  EXPECT_EQ(collect(link_a, 1, 50), Bytes());
  EXPECT_EQ(collect(link_b, 1, 50), Bytes());
  EXPECT_EQ(std::pair(counted.routed, counted.unknown_sender),
            std::pair(std::uint64_t{2}, std::uint64_t{2}));

  link_a.close();
  a.send(sequence(8, 2), hub_at);
  after_reader_took(hub, 5);
  ASSERT_TRUE(second.open(hub, UdpDevice{a_at.address}, CLASSIC_UDP_PROFILE).ok);
  a.send(sequence(8, 3), hub_at);
  EXPECT_EQ(collect(second, 8), sequence(8, 3));
  EXPECT_EQ(hub.counters().unknown_sender, 3u);
}

// A link that does not read keeps the newest QUEUE_LIMIT datagrams.
TEST(UdpHub, QueuesAreBounded) {
  UdpHub hub(SYSTEM);
  ASSERT_TRUE(hub.open(at(93, 1)).ok);
  const Peer a(at(93, 2));
  UdpTransport transport(SYSTEM);
  ASSERT_TRUE(transport.open(hub, at(93, 2), {200, 20}).ok);
  constexpr std::size_t EXTRA = 10;
  for (std::size_t i = 0; i < UdpHub::QUEUE_LIMIT + EXTRA; ++i)
    a.send({static_cast<std::uint8_t>(i)}, at(93, 1));
  EXPECT_EQ(after_reader_took(hub, UdpHub::QUEUE_LIMIT + EXTRA).overflowed, EXTRA);
  std::array<std::uint8_t, 4> one{};
  port::Ipv4Endpoint from;
  for (std::size_t i = EXTRA; i < UdpHub::QUEUE_LIMIT + EXTRA; ++i) {
    ASSERT_EQ(transport.socket()->receive_from(one, from), 1);
    EXPECT_EQ(std::pair(one[0], from), std::pair(static_cast<std::uint8_t>(i), at(93, 2)));
  }
  EXPECT_EQ(transport.socket()->receive_from(one, from), 0);
}

// Closing the hub under open links stops its reader at once and frees the port; the links then
// fail to send, read silence, and close (or outlive the hub) without harm.
TEST(UdpHub, StopsCleanlyWithLinksOpen) {
  auto hub = std::make_unique<UdpHub>(SYSTEM);
  ASSERT_TRUE(hub->open(at(94, 1)).ok);
  DeviceLink a(SYSTEM), b(SYSTEM);
  ASSERT_TRUE(a.open(*hub, UdpDevice{at(94, 2).address}, CLASSIC_UDP_PROFILE).ok);
  ASSERT_TRUE(b.open(*hub, UdpDevice{at(94, 3).address}, CLASSIC_UDP_PROFILE).ok);
  std::jthread waiting([&] { EXPECT_EQ(collect(b, 12, 300), Bytes()); });
  const std::uint32_t start = SYSTEM.tick_ms();
  hub->close();
  EXPECT_LT(SYSTEM.tick_ms() - start, 200u);
  const Peer takes_the_port(at(94, 1));
  EXPECT_EQ(a.driver()->send(sequence(12)), Transport::SEND_FAILED);
  EXPECT_EQ(hub->attach(at(94, 2)).result.message, "the UDP hub is not open");
  waiting.join();
  a.close();
  hub.reset();
  EXPECT_EQ(b.driver()->send(sequence(12)), Transport::SEND_FAILED);
  EXPECT_EQ(collect(b, 1, 20), Bytes());
}

}  // namespace
}  // namespace pelmo::test
