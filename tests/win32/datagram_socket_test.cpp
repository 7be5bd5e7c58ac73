#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

#include "transport/port_layer.hpp"

namespace pelmo::port {
namespace {

// Ports of their own, away from the device port, so a test run never meets a tool or simulator.
constexpr std::uint16_t PORT_A = 50731;
constexpr std::uint16_t PORT_B = 50732;
constexpr std::uint16_t PORT_CLOSED = 50733;
constexpr std::array<std::uint8_t, 4> LOOPBACK = {127, 0, 0, 1};

class DatagramSocketTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(layer_.start_sockets(2, 2)); }
  void TearDown() override {
    a_.reset();
    b_.reset();
    layer_.stop_sockets();
  }

  std::unique_ptr<DatagramSocket> bound_socket(std::uint16_t port) {
    std::unique_ptr<DatagramSocket> socket = layer_.open_datagram_socket();
    EXPECT_NE(nullptr, socket);
    if (socket != nullptr) {
      EXPECT_TRUE(socket->bind({LOOPBACK, port}));
      EXPECT_TRUE(socket->set_non_blocking());
    }
    return socket;
  }

  // Polls `socket` every 5 ms for up to a second for one datagram.
  std::int32_t receive_within_a_second(DatagramSocket& socket, std::span<std::uint8_t> buffer,
                                       Ipv4Endpoint& from) {
    const std::uint32_t start = layer_.tick_ms();
    do {
      const std::int32_t n = socket.receive_from(buffer, from);
      if (n != 0) {
        return n;
      }
      layer_.sleep_ms(5);
    } while (layer_.tick_ms() - start < 1000);
    return 0;
  }

  PortLayer& layer_ = system_port_layer();
  std::unique_ptr<DatagramSocket> a_;
  std::unique_ptr<DatagramSocket> b_;
};

TEST_F(DatagramSocketTest, DatagramArrivesWholeWithItsSender) {
  a_ = bound_socket(PORT_A);
  b_ = bound_socket(PORT_B);
  ASSERT_TRUE(a_ && b_);
  std::vector<std::uint8_t> datagram(1024);
  for (std::size_t i = 0; i < datagram.size(); ++i) {
    datagram[i] = static_cast<std::uint8_t>(i);
  }
  ASSERT_EQ(1024, b_->send_to({LOOPBACK, PORT_A}, datagram));

  std::vector<std::uint8_t> buffer(2048, 0xEE);
  Ipv4Endpoint from;
  ASSERT_EQ(1024, receive_within_a_second(*a_, buffer, from));
  EXPECT_EQ((Ipv4Endpoint{LOOPBACK, PORT_B}), from);
  EXPECT_TRUE(std::equal(datagram.begin(), datagram.end(), buffer.begin()));
  EXPECT_EQ(0xEE, buffer[1024]);
}

TEST_F(DatagramSocketTest, ReceiveReturnsAtOnceWhenNothingWaits) {
  a_ = bound_socket(PORT_A);
  ASSERT_TRUE(a_);
  // Accepted like on any system; on a non-blocking socket it does not make receives wait.
  EXPECT_TRUE(a_->set_receive_timeout(0, 5000));
  std::array<std::uint8_t, 64> buffer{};
  Ipv4Endpoint from;
  const std::uint32_t start = layer_.tick_ms();
  for (int poll = 0; poll < 20; ++poll) {
    EXPECT_EQ(0, a_->receive_from(buffer, from));
  }
  EXPECT_LT(layer_.tick_ms() - start, 500u);
}

// Winsock reports a datagram larger than the buffer as an error, and any error means "nothing
// arrived"; the datagram is gone afterwards.
TEST_F(DatagramSocketTest, DatagramLargerThanTheSpaceLeftReadsAsNothing) {
  a_ = bound_socket(PORT_A);
  b_ = bound_socket(PORT_B);
  ASSERT_TRUE(a_ && b_);
  const std::vector<std::uint8_t> big(100, 0x11);
  const std::vector<std::uint8_t> small = {1, 2, 3};
  ASSERT_EQ(100, b_->send_to({LOOPBACK, PORT_A}, big));
  ASSERT_EQ(3, b_->send_to({LOOPBACK, PORT_A}, small));
  layer_.sleep_ms(50);

  std::array<std::uint8_t, 10> buffer{};
  Ipv4Endpoint from;
  EXPECT_EQ(0, a_->receive_from(buffer, from));
  EXPECT_EQ(3, receive_within_a_second(*a_, buffer, from));
  EXPECT_EQ(3, buffer[2]);
}

// After a datagram to a closed port, Windows answers the next receive with WSAECONNRESET (Wine
// stays silent); both read as nothing, and the socket keeps working.
TEST_F(DatagramSocketTest, UnreachablePortLeavesTheSocketUsable) {
  a_ = bound_socket(PORT_A);
  b_ = bound_socket(PORT_B);
  ASSERT_TRUE(a_ && b_);
  const std::vector<std::uint8_t> probe = {0xB5};
  ASSERT_EQ(1, a_->send_to({LOOPBACK, PORT_CLOSED}, probe));
  layer_.sleep_ms(50);
  std::array<std::uint8_t, 16> buffer{};
  Ipv4Endpoint from;
  EXPECT_EQ(0, a_->receive_from(buffer, from));

  ASSERT_EQ(1, b_->send_to({LOOPBACK, PORT_A}, probe));
  EXPECT_EQ(1, receive_within_a_second(*a_, buffer, from));
}

TEST_F(DatagramSocketTest, PortHeldByAnotherSocketCannotBeBound) {
  a_ = bound_socket(PORT_A);
  ASSERT_TRUE(a_);
  b_ = layer_.open_datagram_socket();
  ASSERT_NE(nullptr, b_);
  EXPECT_FALSE(b_->bind({LOOPBACK, PORT_A}));
  EXPECT_FALSE(b_->bind({{0, 0, 0, 0}, PORT_A}));
}

TEST_F(DatagramSocketTest, HostHasAtLeastOneAddress) {
  ASSERT_TRUE(layer_.start_sockets(1, 1));
  const std::vector<std::array<std::uint8_t, 4>> addresses = layer_.host_addresses();
  layer_.stop_sockets();
  ASSERT_FALSE(addresses.empty());
  EXPECT_NE((std::array<std::uint8_t, 4>{0, 0, 0, 0}), addresses.front());
}

TEST(SocketLibraryTest, SocketsNeedTheLibraryStarted) {
  PortLayer& layer = system_port_layer();
  EXPECT_EQ(nullptr, layer.open_datagram_socket());
  EXPECT_FALSE(layer.start_sockets(0, 0));  // no such version
  ASSERT_TRUE(layer.start_sockets(2, 2));
  EXPECT_NE(nullptr, layer.open_datagram_socket());
  layer.stop_sockets();
}

}  // namespace
}  // namespace pelmo::port
