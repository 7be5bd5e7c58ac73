// The UDP transport over the POSIX backend on loopback. Linux refuses the wildcard bind of a port
// that 127.0.0.2 holds, so the device listens on 127.0.0.2 and the transport, told that this host
// is 127.0.0.1, binds there on the same port number.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>

#include "fake_port_layer.hpp"
#include "transport/udp_transport.hpp"

namespace pelmo::test {
namespace {

using Clock = std::chrono::steady_clock;

// The system's port layer with a fixed host address list.
class LoopbackHost final : public port::PortLayer {
 public:
  port::SerialOpenResult open_serial(int index, std::string_view settings) override {
    return system().open_serial(index, settings);
  }
  bool start_sockets(std::uint8_t major, std::uint8_t minor) override {
    return system().start_sockets(major, minor);
  }
  void stop_sockets() override { system().stop_sockets(); }
  std::unique_ptr<port::DatagramSocket> open_datagram_socket() override {
    return system().open_datagram_socket();
  }
  std::vector<std::array<std::uint8_t, 4>> host_addresses() override {
    return {{10, 99, 0, 1}, {127, 0, 0, 1}};
  }
  std::uint32_t tick_ms() override { return system().tick_ms(); }
  void sleep_ms(std::uint32_t milliseconds) override { system().sleep_ms(milliseconds); }

 private:
  static port::PortLayer& system() { return port::system_port_layer(); }
};

sockaddr_in loopback(std::uint8_t last, std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(0x7F000000u | last);
  return address;
}

// A socket of the test's own, standing in for the device or a stranger.
class Peer {
 public:
  explicit Peer(std::uint8_t last) : fd_(socket(AF_INET, SOCK_DGRAM, 0)) {
    sockaddr_in address = loopback(last, 0);
    bound_ = bind(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    socklen_t length = sizeof address;
    getsockname(fd_, reinterpret_cast<sockaddr*>(&address), &length);
    port_ = ntohs(address.sin_port);
  }
  ~Peer() { ::close(fd_); }
  Peer(const Peer&) = delete;
  Peer& operator=(const Peer&) = delete;

  bool bound() const { return bound_; }
  std::uint16_t port() const { return port_; }

  void send_to(const sockaddr_in& to, const Bytes& bytes) const {
    ASSERT_EQ(sendto(fd_, bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr*>(&to),
                     sizeof to),
              static_cast<ssize_t>(bytes.size()));
  }
  // One datagram within `wait_ms`, and its sender.
  Bytes receive(sockaddr_in& from, int wait_ms = 500) const {
    pollfd ready{fd_, POLLIN, 0};
    if (poll(&ready, 1, wait_ms) <= 0) {
      return {};
    }
    std::array<std::uint8_t, 2048> buffer{};
    socklen_t length = sizeof from;
    const ssize_t n =
        recvfrom(fd_, buffer.data(), buffer.size(), 0, reinterpret_cast<sockaddr*>(&from), &length);
    return n > 0 ? Bytes(buffer.begin(), buffer.begin() + n) : Bytes{};
  }

 private:
  int fd_;
  bool bound_ = false;
  std::uint16_t port_ = 0;
};

class PosixUdpTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(device.bound());
    ASSERT_EQ(transport.open({127, 0, 0, 2}, device.port(), 500, 30, progress.callback()),
              UdpTransport::OPEN_OK);
  }
  sockaddr_in transport_address() const { return loopback(1, device.port()); }

  LoopbackHost ports;
  Peer device{2};
  UdpTransport transport{ports};
  ProgressCounter progress;
};

TEST_F(PosixUdpTest, BindsTheHostAddressFacingTheDeviceOnTheDevicesPort) {
  EXPECT_EQ(transport.local_endpoint(), (port::Ipv4Endpoint{{127, 0, 0, 1}, device.port()}));
}

TEST_F(PosixUdpTest, FramesCrossBothWaysAndSplitResponsesAreJoined) {
  const Bytes request = sequence(1024);
  EXPECT_EQ(transport.send(request), 1024);
  sockaddr_in from{};
  EXPECT_EQ(device.receive(from), request);
  EXPECT_EQ(from.sin_addr.s_addr, htonl(0x7F000001u));
  EXPECT_EQ(ntohs(from.sin_port), device.port());

  device.send_to(from, sequence(12));
  device.send_to(from, sequence(1012, 13));
  std::array<std::uint8_t, 2048> buffer{};
  const auto start = Clock::now();
  ASSERT_EQ(transport.receive(buffer, 1024, 0), 1024);
  EXPECT_LT(Clock::now() - start, std::chrono::milliseconds(100));
  EXPECT_EQ(Bytes(buffer.begin(), buffer.begin() + 1024), sequence(1024));
}

TEST_F(PosixUdpTest, ADatagramLargerThanTheSpaceLeftIsCut) {
  device.send_to(transport_address(), sequence(100));
  std::array<std::uint8_t, 64> storage{};
  EXPECT_EQ(transport.receive(std::span(storage).first(40), 0, 0), 40);
  EXPECT_EQ(Bytes(storage.begin(), storage.begin() + 40), sequence(40));
  EXPECT_EQ(storage[40], 0);
}

TEST_F(PosixUdpTest, StrangerSpoilsTheResponse) {
  Peer stranger(3);
  ASSERT_TRUE(stranger.bound());
  stranger.send_to(transport_address(), sequence(12));
  device.send_to(transport_address(), sequence(12));
  std::array<std::uint8_t, 64> buffer{};
  EXPECT_EQ(transport.receive(buffer, 12, 0), 0);
}

TEST_F(PosixUdpTest, SilenceEndsByTheClock) {
  std::array<std::uint8_t, 64> buffer{};
  const auto start = Clock::now();
  EXPECT_EQ(transport.receive(buffer, 12, 40), 0);
  const auto waited = Clock::now() - start;
  // The tick counts whole milliseconds, so its 40 may be a little less on the steady clock.
  EXPECT_GE(waited, std::chrono::milliseconds(35));
  EXPECT_LT(waited, std::chrono::milliseconds(300));
  EXPECT_GE(progress.calls, 1);
}

TEST(PosixUdpOpen, PortHeldByAnotherSocketFailsTheBind) {
  Peer holder(1);  // holds 127.0.0.1:P, where the transport would bind
  ASSERT_TRUE(holder.bound());
  LoopbackHost ports;
  UdpTransport transport(ports);
  EXPECT_EQ(transport.open({127, 0, 0, 2}, holder.port(), 500, 30, nullptr),
            UdpTransport::OPEN_FAILED);
  EXPECT_FALSE(transport.is_open());
}

TEST(PosixClock, TickFollowsSleep) {
  port::PortLayer& ports = port::system_port_layer();
  const std::uint32_t before = ports.tick_ms();
  ports.sleep_ms(20);
  const std::uint32_t elapsed = ports.tick_ms() - before;
  EXPECT_GE(elapsed, 20u);
  EXPECT_LT(elapsed, 200u);
}

}  // namespace
}  // namespace pelmo::test
