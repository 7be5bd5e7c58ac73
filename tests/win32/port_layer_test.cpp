#include <fcntl.h>
#include <gtest/gtest.h>
#include <io.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>

#include "pelmo/transport/port_layer.hpp"
#include "pelmo/transport/win32/win32_api.hpp"

namespace pelmo::port {
namespace {

using Bytes = std::vector<std::uint8_t>;
constexpr LineSettings LINE;  // 115200 8N1, DTR and RTS on
constexpr int ERROR_FILE_NOT_FOUND_CODE = 2;
// Datagram ports away from the device port, so a test run never meets a tool or simulator.
constexpr Ipv4Endpoint A = {{127, 0, 0, 1}, 50731};
constexpr Ipv4Endpoint B = {{127, 0, 0, 1}, 50732};
constexpr Ipv4Endpoint CLOSED = {{127, 0, 0, 1}, 50733};
PortLayer& layer = system_port_layer();

// Waits `timeout_ms` on `wait`; how long it took.
template <typename Wait>
std::uint32_t waited_ms(bool expected, std::uint32_t timeout_ms, Wait wait) {
  const std::uint32_t start = layer.tick_ms();
  EXPECT_EQ(expected, wait(timeout_ms));
  return layer.tick_ms() - start;
}

// Calls `read` every 5 ms until `count` bytes are in or two seconds have passed.
template <typename Read>
Bytes poll_for(std::size_t count, Read read) {
  Bytes received(count);
  std::size_t filled = 0;
  for (const std::uint32_t start = layer.tick_ms();
       filled < count && layer.tick_ms() - start < 2000;) {
    const std::int32_t n = read(std::span(received).subspan(filled));
    filled += n > 0 ? static_cast<std::size_t>(n) : 0;
    layer.sleep_ms(n > 0 ? 0 : 5);
  }
  received.resize(filled);
  return received;
}

class SerialDeviceTest : public ::testing::Test {
 protected:
  // The COM numbers tools/wine/with-echo-ports.py wired to echo every byte ("5,12").
  void SetUp() override {
    const char* wired = std::getenv("PELMO_TEST_ECHO_PORTS");
    std::istringstream list(wired != nullptr ? wired : "");
    for (int com; list >> com; list.ignore()) {
      ports_.push_back(com);
    }
    if (ports_.empty()) {
      GTEST_SKIP() << "no echoing COM port; run through tools/wine/with-echo-ports.py";
    }
  }
  std::vector<int> ports_;
};

// COM10 and up open only through the "\\.\" device prefix; the peer wires one port on each side
// of that line. Reads hand over what has arrived without waiting for more; the wait sleeps until
// the echo is back, and the byte it took comes first in the next read.
TEST_F(SerialDeviceTest, WiredPortsCarryEveryByteAndNeverWaitForData) {
  for (const int com : ports_) {
    SCOPED_TRACE(com);
    SerialOpenResult opened = layer.open_serial(layer.com_port_path(com - 1), LINE);
    ASSERT_EQ(SerialOpenStatus::ok, opened.status) << "os error " << opened.os_error;
    SerialDevice& device = *opened.device;
    std::array<std::uint8_t, 64> empty{};
    const std::uint32_t start = layer.tick_ms();
    for (int poll = 0; poll < 20; ++poll) {
      EXPECT_EQ(0, device.read(empty));
    }
    EXPECT_LT(layer.tick_ms() - start, 500u);  // waiting reads would take seconds, or forever
    EXPECT_GE(waited_ms(false, 100, [&](auto t) { return device.wait_readable(t); }), 90u);
    Bytes request(300);
    for (std::size_t i = 0; i < request.size(); ++i) {
      request[i] = static_cast<std::uint8_t>(i * 7 + com);  // every byte value, CR and LF too
    }
    EXPECT_EQ(300, device.write(request));
    EXPECT_LT(waited_ms(true, 3000, [&](auto t) { return device.wait_readable(t); }), 2000u);
    EXPECT_EQ(0, device.read(std::span(empty).first(0)));  // the kept byte waits for room
    EXPECT_EQ(request, poll_for(300, [&](auto into) { return device.read(into); }));
  }
}

TEST_F(SerialDeviceTest, FailedStepsAreReportedWithTheSystemError) {
  EXPECT_EQ("", layer.com_port_path(16));  // past COM16
  EXPECT_EQ("", layer.com_port_path(-1));
  const SerialOpenResult absent = layer.open_serial(layer.com_port_path(15), LINE);  // COM16
  EXPECT_EQ(SerialOpenStatus::open_failed, absent.status);
  EXPECT_EQ(ERROR_FILE_NOT_FOUND_CODE, absent.os_error);
  // Nine data bits: the control block refuses them, and the port is closed again.
  const SerialOpenResult refused =
      layer.open_serial(layer.com_port_path(ports_[0] - 1), {115200, 9, Parity::none, 1});
  EXPECT_NE(SerialOpenStatus::ok, refused.status);
  EXPECT_NE(0, refused.os_error);
  EXPECT_EQ(SerialOpenStatus::ok,
            layer.open_serial(layer.com_port_path(ports_[0] - 1), LINE).status);
}

// Winsock reports a datagram larger than the buffer, and (on Windows, not Wine) the receive after
// a datagram met a closed port, as errors: both read as nothing and the socket goes on.
TEST(DatagramSocketTest, DatagramsArriveWholeWithTheirSenderAndErrorsReadAsNothing) {
  ASSERT_FALSE(layer.start_sockets(2, 2).failed());
  std::unique_ptr<DatagramSocket> a = layer.open_datagram_socket().socket;
  std::unique_ptr<DatagramSocket> b = layer.open_datagram_socket().socket;
  ASSERT_TRUE(a && b && !a->bind(A).failed() && !b->bind(B).failed());
  EXPECT_EQ(WSAEADDRINUSE, layer.open_datagram_socket().socket->bind(A).code);
  EXPECT_GE(waited_ms(false, 100, [&](auto t) { return a->wait_readable(t); }), 90u);
  Bytes datagram(1024);
  for (std::size_t i = 0; i < datagram.size(); ++i) {
    datagram[i] = static_cast<std::uint8_t>(i);
  }
  ASSERT_EQ(1, a->send_to(CLOSED, std::span(datagram).first(1)));
  ASSERT_EQ(100, b->send_to(A, std::span(datagram).first(100)));
  ASSERT_EQ(1024, b->send_to(A, datagram));
  EXPECT_TRUE(a->wait_readable(2000));
  std::array<std::uint8_t, 10> small{};
  Ipv4Endpoint from;
  EXPECT_EQ(0, a->receive_from(small, from));
  EXPECT_EQ(datagram, poll_for(1024, [&](auto into) { return a->receive_from(into, from); }));
  EXPECT_EQ(B, from);
  a.reset();
  b.reset();
  layer.stop_sockets();
}

// Standard output starts in text mode, like a program's, which would write "\r\n"; the mode
// travels with _dup2, so prepare_console runs after the redirection to a file.
TEST(ConsoleTest, LineFeedsReachTheOutputUnchanged) {
  const std::string path = ::testing::TempDir() + "pelmo_console_capture.txt";
  std::fflush(stdout);
  const int saved = _dup(_fileno(stdout));
  const int file = _open(path.c_str(), _O_WRONLY | _O_CREAT | _O_TRUNC | _O_TEXT, 0600);
  _dup2(file, _fileno(stdout));
  _close(file);
  prepare_console();
  std::printf("\rErasing FW OK\n\n");
  std::fflush(stdout);
  _dup2(saved, _fileno(stdout));
  _close(saved);
  std::ifstream in(path, std::ios::binary);
  EXPECT_EQ("\rErasing FW OK\n\n",
            std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()));
}

}  // namespace
}  // namespace pelmo::port
