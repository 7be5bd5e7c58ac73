// Both transports over the POSIX backend, on a pseudo-terminal and on loopback UDP.
#include <arpa/inet.h>
#include <poll.h>
#include <pty.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <termios.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "fake_port_layer.hpp"
#include "pelmo/transport/serial_transport.hpp"
#include "pelmo/transport/udp_transport.hpp"

namespace pelmo::test {
namespace {

// Up to `count` bytes that reach `fd` within half a second of the last.
Bytes read_within(int fd, std::size_t count) {
  Bytes bytes(count);
  std::size_t got = 0;
  for (pollfd ready{fd, POLLIN, 0}; got < count && poll(&ready, 1, 500) == 1;) {
    got += static_cast<std::size_t>(std::max<ssize_t>(::read(fd, &bytes[got], count - got), 0));
  }
  bytes.resize(got);
  return bytes;
}

// COM7 is a pseudo-terminal whose master side the test holds as the device.
TEST(PosixSerial, FramesCrossBothWaysAndTheLockedPortRefusesASecondOpen) {
  int master = -1, slave = -1;
  std::array<char, 128> name{};
  ASSERT_EQ(openpty(&master, &slave, name.data(), nullptr, nullptr), 0);
  // The device side must be raw too, or its line discipline would echo and translate.
  termios raw{};
  tcgetattr(master, &raw);
  cfmakeraw(&raw);
  tcsetattr(master, TCSANOW, &raw);
  setenv("PELMO_COM7", name.data(), 1);
  SerialTransport transport(port::system_port_layer()), second(port::system_port_layer());
  ASSERT_EQ(transport.open(6, 115200, "8N1", 250, 30, nullptr, nullptr), 0);

  // Bytes a cooked line would swallow or translate: CR, LF, ^C, ^D, XON, XOFF, DEL, 0xFF.
  const Bytes frame = {0xB5, 0x0D, 0x0A, 0x03, 0x04, 0x11, 0x13, 0x7F, 0xFF, 0x00, 0x1A, 0x5C};
  EXPECT_EQ(transport.send(frame), 12);
  EXPECT_EQ(read_within(master, 12), frame);
  Bytes response = sequence(244);
  response.insert(response.begin(), frame.begin(), frame.end());
  ASSERT_EQ(::write(master, response.data(), response.size()), 256);
  std::array<std::uint8_t, 1024> buffer{};
  ASSERT_EQ(transport.receive(buffer, 256, 0), 256);
  EXPECT_EQ(Bytes(buffer.begin(), buffer.begin() + 256), response);

  EXPECT_EQ(captured_output([&](std::FILE* out) {
              EXPECT_EQ(second.open(6, 115200, "8N1", 250, 30, nullptr, out), 1);
            }),
            "unable to open comport\n");
  transport.close();
  ASSERT_EQ(second.open(6, 115200, "8N1", 250, 30, nullptr, nullptr), 0);
  EXPECT_EQ(second.send(sequence(4)), 4);
  EXPECT_EQ(read_within(master, 4), sequence(4));
  unsetenv("PELMO_COM7");
  ::close(master);
  ::close(slave);
}

// The system's sockets and clock on a host that is 10.99.0.1 and 127.0.0.1: Linux refuses the
// wildcard bind of a port that the device holds on 127.0.0.2, so the transport must pick 127.0.0.1.
struct LoopbackHost : FakePortLayer {
  LoopbackHost() { host = {{10, 99, 0, 1}, {127, 0, 0, 1}}; }
  std::unique_ptr<port::DatagramSocket> open_datagram_socket() override {
    return port::system_port_layer().open_datagram_socket();
  }
  std::uint32_t tick_ms() override { return port::system_port_layer().tick_ms(); }
  void sleep_ms(std::uint32_t ms) override { port::system_port_layer().sleep_ms(ms); }
};

TEST(PosixUdp, FramesCrossBothWaysAndSplitResponsesAreJoined) {
  const int device = socket(AF_INET, SOCK_DGRAM, 0);
  sockaddr_in address{AF_INET, 0, {htonl(0x7F000002u)}, {}};
  socklen_t length = sizeof address;
  ASSERT_EQ(bind(device, reinterpret_cast<sockaddr*>(&address), length), 0);
  getsockname(device, reinterpret_cast<sockaddr*>(&address), &length);
  LoopbackHost ports;
  UdpTransport transport(ports);
  ASSERT_EQ(transport.open({127, 0, 0, 2}, ntohs(address.sin_port), 500, 30, nullptr), 0);
  EXPECT_EQ(transport.send(sequence(1024)), 1024);
  EXPECT_EQ(read_within(device, 1024), sequence(1024));

  // The answer goes where the transport must have bound: 127.0.0.1 on the device's port.
  address.sin_addr.s_addr = htonl(0x7F000001u);
  for (const Bytes& part : {sequence(12), sequence(1012, 13)}) {
    sendto(device, part.data(), part.size(), 0, reinterpret_cast<sockaddr*>(&address), length);
  }
  std::array<std::uint8_t, 2048> buffer{};
  ASSERT_EQ(transport.receive(buffer, 1024, 0), 1024);
  EXPECT_EQ(Bytes(buffer.begin(), buffer.begin() + 1024), sequence(1024));
  ::close(device);
}

}  // namespace
}  // namespace pelmo::test
