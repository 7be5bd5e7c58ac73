// The serial transport over the POSIX backend, on pseudo-terminals: the test holds the master
// side as the device and names the slave side through PELMO_COM<n>.
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <stdlib.h>
#include <termios.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <string>

#include "fake_port_layer.hpp"
#include "transport/posix/serial_path.hpp"
#include "transport/serial_transport.hpp"

namespace pelmo::test {
namespace {

using Clock = std::chrono::steady_clock;

class PseudoTerminal {
 public:
  PseudoTerminal() {
    std::array<char, 128> name{};
    if (openpty(&master_, &slave_, name.data(), nullptr, nullptr) != 0) {
      return;
    }
    path_ = name.data();
    // The device side must be raw too, or its line discipline would echo and translate.
    termios raw{};
    tcgetattr(master_, &raw);
    cfmakeraw(&raw);
    tcsetattr(master_, TCSANOW, &raw);
    fcntl(master_, F_SETFL, fcntl(master_, F_GETFL) | O_NONBLOCK);
  }
  ~PseudoTerminal() {
    close_master();
    if (slave_ >= 0) {
      ::close(slave_);
    }
  }
  PseudoTerminal(const PseudoTerminal&) = delete;
  PseudoTerminal& operator=(const PseudoTerminal&) = delete;

  bool ok() const { return !path_.empty(); }
  const std::string& path() const { return path_; }
  int slave() const { return slave_; }
  void close_master() {
    if (master_ >= 0) {
      ::close(master_);
      master_ = -1;
    }
  }

  void device_writes(const Bytes& bytes) const {
    ASSERT_EQ(::write(master_, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  }
  // What reaches the device within `wait_ms`, up to `count` bytes.
  Bytes device_reads(std::size_t count, int wait_ms = 500) const {
    Bytes bytes;
    const auto end = Clock::now() + std::chrono::milliseconds(wait_ms);
    while (bytes.size() < count && Clock::now() < end) {
      pollfd ready{master_, POLLIN, 0};
      if (poll(&ready, 1, 10) <= 0) {
        continue;
      }
      std::array<std::uint8_t, 4096> chunk{};
      const ssize_t n = ::read(master_, chunk.data(), std::min(chunk.size(), count - bytes.size()));
      if (n > 0) {
        bytes.insert(bytes.end(), chunk.begin(), chunk.begin() + n);
      }
    }
    return bytes;
  }

 private:
  int master_ = -1;
  int slave_ = -1;
  std::string path_;
};

// COM7 (index 6) is the pty of each test.
constexpr int PORT_INDEX = 6;
constexpr const char* PORT_VARIABLE = "PELMO_COM7";

class PosixSerialTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(pty.ok());
    setenv(PORT_VARIABLE, pty.path().c_str(), 1);
  }
  void TearDown() override { unsetenv(PORT_VARIABLE); }

  int open(SerialTransport& transport, std::int32_t baud = 115200, const char* mode = "8N1",
           std::FILE* messages = nullptr) {
    return transport.open(PORT_INDEX, baud, mode, 250, 30, progress.callback(), messages);
  }

  PseudoTerminal pty;
  SerialTransport transport{port::system_port_layer()};
  ProgressCounter progress;
};

// Bytes a cooked line would swallow or translate: CR, LF, ^C, ^D, XON, XOFF, DEL, 0xFF.
const Bytes AWKWARD_FRAME = {0xB5, 0x0D, 0x0A, 0x03, 0x04, 0x11,
                             0x13, 0x7F, 0xFF, 0x00, 0x1A, 0x5C};

TEST_F(PosixSerialTest, FramesCrossBothWaysUnchanged) {
  ASSERT_EQ(open(transport), 0);
  EXPECT_EQ(transport.send(AWKWARD_FRAME), 12);
  EXPECT_EQ(pty.device_reads(64, 200), AWKWARD_FRAME);

  Bytes response = AWKWARD_FRAME;
  response[0] = 0xBA;
  const Bytes payload = sequence(244);
  response.insert(response.end(), payload.begin(), payload.end());
  pty.device_writes(response);
  std::array<std::uint8_t, 2048> buffer{};
  const auto start = Clock::now();
  ASSERT_EQ(transport.receive(buffer, 256, 0), 256);
  EXPECT_LT(Clock::now() - start, std::chrono::milliseconds(200));
  EXPECT_EQ(Bytes(buffer.begin(), buffer.begin() + 256), response);
  EXPECT_GE(progress.calls, 1);
}

TEST_F(PosixSerialTest, SilenceEndsAfterTheFirstByteTimeout) {
  ASSERT_EQ(open(transport), 0);
  std::array<std::uint8_t, 64> buffer{};
  const auto start = Clock::now();
  EXPECT_EQ(transport.receive(buffer, 12, 40), 0);
  const auto waited = Clock::now() - start;
  EXPECT_GE(waited, std::chrono::milliseconds(30));  // 4 polls, 3 sleeps of 10 ms
  EXPECT_LT(waited, std::chrono::milliseconds(300));
  EXPECT_EQ(progress.calls, 3);
}

struct LineCase {
  std::int32_t baud;
  const char* mode;
  bool two_stop_bits;
  speed_t speed;  // B0: a speed without a constant
};

class PosixSerialLine : public PosixSerialTest, public ::testing::WithParamInterface<LineCase> {};

TEST_P(PosixSerialLine, SettingsReachTheTerminal) {
  const LineCase& row = GetParam();
  ASSERT_EQ(open(transport, row.baud, row.mode), 0);
  termios applied{};
  ASSERT_EQ(tcgetattr(pty.slave(), &applied), 0);
  EXPECT_EQ(applied.c_cflag & (CSIZE | PARENB | CRTSCTS), CS8);
  EXPECT_EQ((applied.c_cflag & CSTOPB) != 0, row.two_stop_bits);
  EXPECT_EQ(applied.c_cflag & (CLOCAL | CREAD), CLOCAL | CREAD);
  EXPECT_EQ(applied.c_lflag & (ICANON | ECHO | ISIG), 0u);
  EXPECT_EQ(applied.c_iflag & (ICRNL | IXON | ISTRIP), 0u);
  EXPECT_EQ(applied.c_cc[VMIN], 0);
  EXPECT_EQ(applied.c_cc[VTIME], 0);
  if (row.speed != B0) {
    EXPECT_EQ(cfgetospeed(&applied), row.speed);
  }
}

INSTANTIATE_TEST_SUITE_P(Lines, PosixSerialLine,
                         ::testing::Values(LineCase{115200, "8N1", false, B115200},
                                           LineCase{9600, "8N2", true, B9600},
                                           LineCase{1000000, "8n1", false, B1000000},
                                           LineCase{128000, "8N1", false, B0},
                                           LineCase{256000, "8n2", true, B0}));

// A pseudo-terminal carries only 8 data bits without parity and quietly drops the rest of such a
// request; reading the settings back catches it.
TEST_F(PosixSerialTest, LineSettingsThePortDropsFailTheOpen) {
  for (const char* mode : {"7N1", "8E1", "8O2", "5o1"}) {
    int result = 0;
    const std::string text =
        captured_output([&](std::FILE* out) { result = open(transport, 9600, mode, out); });
    EXPECT_EQ(result, 1) << mode;
    EXPECT_EQ(text, "unable to set comport cfg settings\n") << mode;
  }
  // Each failed open released the port again.
  EXPECT_EQ(open(transport), 0);
}

TEST_F(PosixSerialTest, PortInUseIsRefusedUntilReleased) {
  ASSERT_EQ(open(transport), 0);
  SerialTransport second(port::system_port_layer());
  int result = 0;
  const std::string text =
      captured_output([&](std::FILE* out) { result = open(second, 115200, "8N1", out); });
  EXPECT_EQ(result, 1);
  EXPECT_EQ(text, "unable to open comport\n");

  transport.close();
  EXPECT_EQ(open(second), 0);
  EXPECT_EQ(second.send(sequence(4)), 4);
  EXPECT_EQ(pty.device_reads(4), sequence(4));
}

TEST_F(PosixSerialTest, AbsentOrUnsuitableDeviceCannotBeOpened) {
  for (const char* path : {"/nonexistent/ttyPELMO", "/dev/null"}) {
    setenv(PORT_VARIABLE, path, 1);
    EXPECT_EQ(open(transport), 1) << path;
    EXPECT_FALSE(transport.is_open());
  }
}

TEST_F(PosixSerialTest, VanishedDeviceReadsAsSilenceAndFailsSends) {
  ASSERT_EQ(open(transport), 0);
  pty.close_master();
  std::array<std::uint8_t, 64> buffer{};
  EXPECT_EQ(transport.receive(buffer, 12, 30), 0);
  EXPECT_EQ(transport.send(sequence(12)), -1);
}

TEST(PosixSerialPath, EnvironmentNamesThePortElseTheBuiltInUart) {
  unsetenv("PELMO_COM16");
  EXPECT_EQ(port::posix::serial_device_path(15), "/dev/ttyS15");
  setenv("PELMO_COM16", "/dev/ttyUSB0", 1);
  EXPECT_EQ(port::posix::serial_device_path(15), "/dev/ttyUSB0");
  EXPECT_EQ(port::posix::serial_device_path(0), "/dev/ttyS0");
  setenv("PELMO_COM16", "", 1);
  EXPECT_EQ(port::posix::serial_device_path(15), "/dev/ttyS15");
  unsetenv("PELMO_COM16");
}

}  // namespace
}  // namespace pelmo::test
