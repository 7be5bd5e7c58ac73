// The transports and links over the POSIX backend, on pseudo-terminals and on loopback UDP.
#include <arpa/inet.h>
#include <poll.h>
#include <pty.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <functional>
#include <thread>

#include <gtest/gtest.h>

#include "fake_port_layer.hpp"
#include "pelmo/protocol/exchange.hpp"
#include "pelmo/transport/device_link.hpp"

namespace pelmo::test {
namespace {

port::PortLayer& SYSTEM = port::system_port_layer();

// Up to `count` bytes that reach `fd` within half a second of the last.
Bytes read_within(int fd, std::size_t count) {
  Bytes bytes(count);
  std::size_t got = 0;
  for (pollfd ready{fd, POLLIN, 0}; got < count && poll(&ready, 1, 500) == 1;)
    got += static_cast<std::size_t>(std::max<ssize_t>(::read(fd, &bytes[got], count - got), 0));
  bytes.resize(got);
  return bytes;
}

// A pseudo-terminal whose master side the test holds as the device, raw like the device's line.
struct Pty {
  int master = -1, slave = -1;
  std::array<char, 128> name{};
  Pty() {
    EXPECT_EQ(openpty(&master, &slave, name.data(), nullptr, nullptr), 0);
    termios raw{};
    tcgetattr(master, &raw);
    cfmakeraw(&raw);
    tcsetattr(master, TCSANOW, &raw);
  }
  ~Pty() {
    ::close(master);
    ::close(slave);
  }
};

// A loopback UDP device.
struct UdpPeer {
  int fd = socket(AF_INET, SOCK_DGRAM, 0);
  sockaddr_in address{};
  UdpPeer(std::uint32_t host, std::uint16_t port)
      : address{AF_INET, htons(port), {htonl(host)}, {}} {
    EXPECT_EQ(bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0) << errno;
  }
  ~UdpPeer() { ::close(fd); }
  void send_to(std::uint32_t host, const Bytes& bytes) const {
    sockaddr_in to = address;
    to.sin_addr.s_addr = htonl(host);
    sendto(fd, bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr*>(&to), sizeof to);
  }
};

// The system's sockets and clock on a host with the given addresses.
struct LoopbackHost : FakePortLayer {
  explicit LoopbackHost(std::vector<Ipv4Address> addresses) { host = std::move(addresses); }
  port::DatagramSocketResult open_datagram_socket() override {
    return SYSTEM.open_datagram_socket();
  }
  std::uint32_t tick_ms() override { return SYSTEM.tick_ms(); }
  void sleep_ms(std::uint32_t ms) override { SYSTEM.sleep_ms(ms); }
};

// The wait of `end` (a serial device or a socket) sleeps through 60 ms of silence, and wakes at
// once after `deliver`, without taking what arrived.
template <class End>
void check_wait(End& end, const std::function<void()>& deliver) {
  std::uint32_t start = SYSTEM.tick_ms();
  EXPECT_FALSE(end.wait_readable(60));
  EXPECT_GE(SYSTEM.tick_ms() - start, 55u);
  deliver();
  start = SYSTEM.tick_ms();
  EXPECT_TRUE(end.wait_readable(2000));
  EXPECT_LT(SYSTEM.tick_ms() - start, 500u);
}

// COM7 is a pseudo-terminal. Bytes a cooked line would swallow or translate cross unchanged, a
// second opener is refused while the port is held, and the wait wakes when bytes arrive.
TEST(PosixSerial, FramesCrossBothWaysTheLockHoldsAndTheWaitWakes) {
  Pty pty;
  setenv("PELMO_COM7", pty.name.data(), 1);
  SerialTransport transport(SYSTEM), second(SYSTEM);
  ASSERT_TRUE(transport.open(ComPort{6}, 115200, "8N1", {250, 30}).ok);
  const Bytes frame = {0xB5, 0x0D, 0x0A, 0x03, 0x04, 0x11, 0x13, 0x7F, 0xFF, 0x00, 0x1A, 0x5C};
  EXPECT_EQ(transport.send(frame), 12);
  EXPECT_EQ(read_within(pty.master, 12), frame);

  Bytes response = sequence(244);
  response.insert(response.begin(), frame.begin(), frame.end());
  check_wait(*transport.device(),
             [&] { ASSERT_EQ(::write(pty.master, response.data(), response.size()), 256); });
  std::array<std::uint8_t, 1024> buffer{};
  ASSERT_EQ(transport.receive(buffer, 256, 0, {}), 256);
  EXPECT_EQ(Bytes(buffer.begin(), buffer.begin() + 256), response);

  const OpenResult refused = second.open(ComPort{6}, 115200, "8N1", {250, 30});
  EXPECT_EQ(refused.message, "unable to open comport");
  EXPECT_EQ(refused.os_error, EWOULDBLOCK);
  transport.close();
  EXPECT_TRUE(second.open(ComPort{6}, 115200, "8N1", {250, 30}).ok);
  unsetenv("PELMO_COM7");
}

// Sends a 12-byte request through `link` while `answer` is already on its way back.
void exchange_once(const DeviceLink& link, std::uint8_t tag, const std::function<void()>& answer) {
  answer();
  std::array<std::uint8_t, 64> response{};
  std::uint16_t length = 0;
  ASSERT_EQ(exchange(link.driver(), sequence(12, tag), response, 12, 0, &length), RC_OK);
  EXPECT_EQ(Bytes(response.begin(), response.begin() + length), sequence(12, tag + 100));
}

// A serial link and a UDP link open at once each talk to their own device. A second UDP link that
// needs the same local address and port is refused with the reason, and the first goes on. The
// host's addresses hold the one that faces the device: Linux would refuse the wildcard bind of a
// port the device holds on one loopback address.
TEST(PosixLinks, TwoLinksAtOnceAndASecondLinkOnTheSamePortIsRefused) {
  Pty pty;
  const UdpPeer device(0x7F004D02u, DEVICE_UDP_PORT);  // 127.0.77.2
  LoopbackHost host({{10, 99, 0, 1}, {127, 0, 77, 1}});
  DeviceLink serial(SYSTEM), udp(host), second_udp(host);
  ASSERT_TRUE(serial.open(std::string(pty.name.data()), CLASSIC_SERIAL_PROFILE).ok);
  ASSERT_TRUE(udp.open(UdpDevice{{127, 0, 77, 2}}, CLASSIC_UDP_PROFILE).ok);

  const OpenResult refused = second_udp.open(UdpDevice{{127, 0, 77, 2}}, CLASSIC_UDP_PROFILE);
  EXPECT_EQ(refused.os_error, EADDRINUSE);
  EXPECT_EQ(refused.message.rfind("UDP port 57998 on 127.0.77.1 is already in use", 0), 0u)
      << refused.message;

  exchange_once(serial, 1, [&] {
    const Bytes answer = sequence(12, 101);
    ASSERT_EQ(::write(pty.master, answer.data(), answer.size()), 12);
  });
  exchange_once(udp, 50, [&] { device.send_to(0x7F004D01u, sequence(12, 150)); });
  EXPECT_EQ(read_within(pty.master, 12), sequence(12, 1));
  EXPECT_EQ(read_within(device.fd, 12), sequence(12, 50));
  check_wait(*dynamic_cast<UdpTransport&>(*udp.transport()).socket(),
             [&] { device.send_to(0x7F004D01u, sequence(12)); });
}

}  // namespace
}  // namespace pelmo::test
