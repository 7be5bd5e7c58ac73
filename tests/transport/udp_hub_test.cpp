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

// The addresses of one test: ctest runs the tests side by side, each on a network of its own.
struct Net {
  port::Ipv4Endpoint hub;
  UdpDevice a, b;
  explicit Net(std::uint8_t n)
      : hub{{127, 0, n, 1}, DEVICE_UDP_PORT}, a{{127, 0, n, 2}}, b{{127, 0, n, 3}} {}
};

port::Ipv4Endpoint endpoint_of(const UdpDevice& device) {
  return {device.address, device.port};
}

// A device: a socket of its own on the device's address and port.
struct Peer {
  std::unique_ptr<port::DatagramSocket> socket;
  explicit Peer(const port::Ipv4Endpoint& at) : socket(SYSTEM.open_datagram_socket().socket) {
    EXPECT_FALSE(socket->bind(at).failed()) << "cannot bind " << dotted_address(at.address);
  }
  explicit Peer(const UdpDevice& device) : Peer(endpoint_of(device)) {}
  void send(const Bytes& bytes, const port::Ipv4Endpoint& to) const {
    ASSERT_EQ(socket->send_to(to, bytes), static_cast<std::int32_t>(bytes.size()));
  }
  // The next datagram within a second, and who sent it.
  std::pair<Bytes, port::Ipv4Endpoint> next() const {
    Bytes bytes(2048);
    port::Ipv4Endpoint from;
    const std::int32_t count = socket->wait_readable(1000) ? socket->receive_from(bytes, from) : 0;
    bytes.resize(static_cast<std::size_t>(count));
    return {bytes, from};
  }
};

// What `link` collects within `timeout_ms` (no quiet time: the first poll without a datagram ends
// it once `want` bytes are in).
Bytes collect(const DeviceLink& link, std::uint16_t want, std::uint32_t timeout_ms = 1000) {
  Bytes buffer(2048);
  const std::int32_t count = link.driver()->receive(buffer, want, timeout_ms);
  buffer.resize(static_cast<std::size_t>(count));
  return buffer;
}

// Waits (bounded) until the hub's reader has taken `count` datagrams off the socket in all.
UdpHubCounters after_reader_took(const UdpHub& hub, std::uint64_t count) {
  for (int poll = 0; poll < 200; ++poll) {
    const UdpHubCounters seen = hub.counters();
    if (seen.routed + seen.unknown_sender >= count) {
      return seen;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return hub.counters();
}

// Each link hears its own device only, whoever answers first; a stranger (another address, or the
// device's address on another port) reaches nobody. Requests leave from the hub's address and port.
TEST(UdpHub, RoutesEachDatagramToTheLinkOfItsSender) {
  const Net net(91);
  UdpHub hub(SYSTEM);
  ASSERT_TRUE(hub.open(net.hub).ok);
  const Peer a(net.a), b(net.b), stranger(port::Ipv4Endpoint{{127, 0, 91, 4}, DEVICE_UDP_PORT}),
      other_port(port::Ipv4Endpoint{net.a.address, DEVICE_UDP_PORT + 1});
  DeviceLink link_a(SYSTEM), link_b(SYSTEM);
  ASSERT_TRUE(link_a.open(hub, net.a, CLASSIC_UDP_PROFILE).ok);
  ASSERT_TRUE(link_b.open(hub, net.b, CLASSIC_UDP_PROFILE).ok);

  EXPECT_EQ(link_a.driver()->send(sequence(12, 1)), 12);
  EXPECT_EQ(link_b.driver()->send(sequence(12, 2)), 12);
  EXPECT_EQ(a.next(), std::pair(sequence(12, 1), net.hub));
  EXPECT_EQ(b.next(), std::pair(sequence(12, 2), net.hub));

  stranger.send(sequence(12, 90), net.hub);
  other_port.send(sequence(12, 91), net.hub);
  b.send(sequence(12, 20), net.hub);
  a.send(sequence(12, 10), net.hub);
  const UdpHubCounters counted = after_reader_took(hub, 4);
  EXPECT_EQ(collect(link_a, 12), sequence(12, 10));
  EXPECT_EQ(collect(link_b, 12), sequence(12, 20));
  EXPECT_EQ(collect(link_a, 1, 50), Bytes());
  EXPECT_EQ(collect(link_b, 1, 50), Bytes());
  EXPECT_EQ(counted.routed, 2u);
  EXPECT_EQ(counted.unknown_sender, 2u);
}

// One link per device on a hub: a second is refused and the first goes on; once the first is
// closed the device can be opened again, and the new link gets what the device sends.
TEST(UdpHub, OneLinkPerDeviceAndAClosedLinkCanBeOpenedAgain) {
  const Net net(92);
  UdpHub hub(SYSTEM);
  ASSERT_TRUE(hub.open(net.hub).ok);
  const Peer a(net.a);
  DeviceLink first(SYSTEM), second(SYSTEM);
  ASSERT_TRUE(first.open(hub, net.a, CLASSIC_UDP_PROFILE).ok);
  const OpenResult refused = second.open(hub, net.a, CLASSIC_UDP_PROFILE);
  EXPECT_FALSE(refused.ok);
  EXPECT_EQ(refused.message, "UDP device 127.0.92.2:57998 already has a link on this hub");
  EXPECT_EQ(second.driver(), nullptr);

  a.send(sequence(8, 1), net.hub);
  EXPECT_EQ(collect(first, 8), sequence(8, 1));
  first.close();
  a.send(sequence(8, 2), net.hub);  // nobody's now: dropped, not kept for the next link
  after_reader_took(hub, 2);
  ASSERT_TRUE(second.open(hub, net.a, CLASSIC_UDP_PROFILE).ok);
  a.send(sequence(8, 3), net.hub);
  EXPECT_EQ(collect(second, 8), sequence(8, 3));
  EXPECT_EQ(hub.counters().unknown_sender, 1u);
}

// A link that does not read keeps the newest QUEUE_LIMIT datagrams; the wait of its endpoint sleeps
// through silence and wakes when one arrives.
TEST(UdpHub, QueuesAreBoundedAndTheirWaitWakes) {
  const Net net(93);
  UdpHub hub(SYSTEM);
  ASSERT_TRUE(hub.open(net.hub).ok);
  const Peer a(net.a);
  UdpTransport transport(SYSTEM);
  ASSERT_TRUE(transport.open(hub, endpoint_of(net.a), {200, 20}).ok);
  port::DatagramSocket& endpoint = *transport.socket();

  std::uint32_t start = SYSTEM.tick_ms();
  EXPECT_FALSE(endpoint.wait_readable(60));
  EXPECT_GE(SYSTEM.tick_ms() - start, 55u);
  std::jthread later([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    a.send({0x55}, net.hub);
  });
  start = SYSTEM.tick_ms();
  EXPECT_TRUE(endpoint.wait_readable(2000));
  EXPECT_LT(SYSTEM.tick_ms() - start, 500u);
  later.join();

  constexpr std::size_t EXTRA = 10;
  for (std::size_t i = 1; i < UdpHub::QUEUE_LIMIT + EXTRA; ++i) {
    a.send({static_cast<std::uint8_t>(i)}, net.hub);
  }
  EXPECT_EQ(after_reader_took(hub, UdpHub::QUEUE_LIMIT + EXTRA).overflowed, EXTRA);
  std::array<std::uint8_t, 4> one{};
  port::Ipv4Endpoint from;
  for (std::size_t i = EXTRA; i < UdpHub::QUEUE_LIMIT + EXTRA; ++i) {
    ASSERT_EQ(endpoint.receive_from(one, from), 1);
    EXPECT_EQ(one[0], i);
    EXPECT_EQ(from, endpoint_of(net.a));
  }
  EXPECT_EQ(endpoint.receive_from(one, from), 0);
}

// Closing the hub under open links stops its reader at once and frees the port; the links then
// fail to send, read silence, and close (or outlive the hub) without harm.
TEST(UdpHub, StopsCleanlyWithLinksOpen) {
  const Net net(94);
  auto hub = std::make_unique<UdpHub>(SYSTEM);
  ASSERT_TRUE(hub->open(net.hub).ok);
  DeviceLink a(SYSTEM), b(SYSTEM);
  ASSERT_TRUE(a.open(*hub, net.a, CLASSIC_UDP_PROFILE).ok);
  ASSERT_TRUE(b.open(*hub, net.b, CLASSIC_UDP_PROFILE).ok);
  std::jthread waiting([&] { EXPECT_EQ(collect(b, 12, 300), Bytes()); });

  const std::uint32_t start = SYSTEM.tick_ms();
  hub->close();
  EXPECT_LT(SYSTEM.tick_ms() - start, 200u);
  EXPECT_FALSE(hub->is_open());
  const Peer takes_the_port(net.hub);
  EXPECT_EQ(a.driver()->send(sequence(12)), Transport::SEND_FAILED);
  EXPECT_EQ(hub->attach(endpoint_of(net.a)).result.message, "the UDP hub is not open");
  waiting.join();
  a.close();
  hub.reset();
  EXPECT_EQ(b.driver()->send(sequence(12)), Transport::SEND_FAILED);
  EXPECT_EQ(collect(b, 1, 20), Bytes());
}

// With no address given the hub binds where a link to the devices would: the host address facing
// them. A second hub on the same address and port is refused with the link's reason.
TEST(UdpHub, BindsTheAddressALinkWouldAndRefusesATakenPort) {
  const Net net(95);
  struct LoopbackHost : FakePortLayer {
    port::DatagramSocketResult open_datagram_socket() override {
      return SYSTEM.open_datagram_socket();
    }
  } host;
  host.host = {{10, 99, 0, 1}, {127, 0, 95, 1}};
  UdpHub hub(host), second(host);
  ASSERT_TRUE(hub.open_for(net.a.address).ok);
  EXPECT_EQ(hub.local_endpoint(), net.hub);
  const OpenResult refused = second.open_for(net.b.address);
  EXPECT_FALSE(refused.ok);
  EXPECT_EQ(refused.message.rfind("UDP port 57998 on 127.0.95.1 is already in use", 0), 0u)
      << refused.message;
}

}  // namespace
}  // namespace pelmo::test
