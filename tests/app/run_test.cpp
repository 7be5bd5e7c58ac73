#include <gtest/gtest.h>

#include <cstring>
#include <deque>
#include <functional>
#include <regex>
#include <string>
#include <vector>

#include "app/run.hpp"
#include "commands/records.hpp"
#include "protocol/frame.hpp"
#include "tests/app/captured_console.hpp"
#include "tests/support/scripted_device.hpp"

namespace pelmo {
namespace {

using Bytes = std::vector<std::uint8_t>;
// The device behind the fake link: the answer to one request (empty: silence).
using DeviceModel = std::function<Bytes(const Bytes& request)>;

// A port layer whose clock moves only when the transports sleep, and whose serial device and
// datagram socket hand every request to a device model.
class FakePorts : public port::PortLayer {
 public:
  explicit FakePorts(std::uint32_t& clock) : clock_(clock) {}

  class Device : public port::SerialDevice, public port::DatagramSocket {
   public:
    explicit Device(FakePorts& ports) : ports_(ports) {}
    std::int32_t read(std::span<std::uint8_t> buffer) override {
      if (pending_.empty()) {
        return 0;
      }
      const std::size_t count = std::min(buffer.size(), pending_.size());
      std::copy_n(pending_.begin(), count, buffer.begin());
      pending_.erase(pending_.begin(), pending_.begin() + static_cast<std::ptrdiff_t>(count));
      return static_cast<std::int32_t>(count);
    }
    std::int32_t write(std::span<const std::uint8_t> bytes) override {
      ports_.requests.emplace_back(bytes.begin(), bytes.end());
      const Bytes answer = ports_.device(ports_.requests.back());
      pending_.insert(pending_.end(), answer.begin(), answer.end());
      return static_cast<std::int32_t>(bytes.size());
    }
    bool bind(const port::Ipv4Endpoint& local) override {
      ports_.bound = local;
      return true;
    }
    bool set_non_blocking() override { return true; }
    bool set_receive_timeout(std::uint32_t, std::uint32_t) override { return true; }
    std::int32_t send_to(const port::Ipv4Endpoint& to,
                         std::span<const std::uint8_t> bytes) override {
      ports_.sent_to = to;
      return write(bytes);
    }
    std::int32_t receive_from(std::span<std::uint8_t> buffer, port::Ipv4Endpoint& from) override {
      from = ports_.sent_to;
      return read(buffer);
    }

   private:
    FakePorts& ports_;
    Bytes pending_;
  };

  port::SerialOpenResult open_serial(int port_index, std::string_view settings) override {
    serial_index = port_index;
    serial_settings = std::string(settings);
    return {port::SerialOpenStatus::ok, std::make_unique<Device>(*this), 0};
  }
  bool start_sockets(std::uint8_t, std::uint8_t) override { return sockets_start; }
  void stop_sockets() override {}
  std::unique_ptr<port::DatagramSocket> open_datagram_socket() override {
    ++sockets_opened;
    return std::make_unique<Device>(*this);
  }
  std::vector<std::array<std::uint8_t, 4>> host_addresses() override { return {}; }
  std::uint32_t tick_ms() override { return clock_; }
  void sleep_ms(std::uint32_t milliseconds) override { clock_ += milliseconds; }

  DeviceModel device = [](const Bytes&) { return Bytes{}; };
  bool sockets_start = true;
  int sockets_opened = 0;
  int serial_index = -1;
  std::string serial_settings;
  port::Ipv4Endpoint sent_to;
  port::Ipv4Endpoint bound;
  std::vector<Bytes> requests;

 private:
  std::uint32_t& clock_;
};

const std::string BANNER =
    "PelmoWin (version 1.19) - Quillmark bootloader (serial line/ IP UDP)\n\n";

// The console without its progress writes: carriage return, label, " N [s]".
std::string without_progress(const std::string& text) {
  static const std::regex progress("\r[^\r\n]* [0-9]+ \\[s\\]");
  return std::regex_replace(text, progress, "");
}

Bytes firmware_info_device(const Bytes& request) {
  FrameFields fields;
  if (decode_frame(Direction::request, request, fields) != RC_OK || fields.code != 0x24) {
    return {};
  }
  FirmwareInfo info{};
  info.size = 4096;
  info.crc32 = 0xCAFEF00D;
  info.magic = FIRMWARE_MAGIC;
  info.version_major = 3;
  info.version_minor = 4;
  info.version_patch = 5;
  std::memcpy(info.name, "Fw", 2);
  std::memcpy(info.compile_date, "D", 1);
  std::memcpy(info.compile_time, "T", 1);
  return test_support::response_frame(0, 0, to_wire(info));
}

class Run : public testing::Test {
 protected:
  int run(std::vector<const char*> arguments) {
    arguments.insert(arguments.begin(), "PelmoWin.exe");
    return run_program(arguments, captured.console(), ports);
  }

  app_test::CapturedConsole captured;
  FakePorts ports{captured.tick};
};

TEST_F(Run, BadParametersShowTheUsageAndOpenNothing) {
  EXPECT_EQ(run({"@3"}), -1);
  const std::string text = captured.text();
  EXPECT_EQ(text.rfind(BANNER + "Bad params !!!\n\nUsage:  PelmoWin.exe <connection>", 0), 0u);
  EXPECT_EQ(text.substr(text.size() - 3), "\"\n\n");
  EXPECT_EQ(ports.sockets_opened, 0);
  EXPECT_EQ(ports.serial_index, -1);
}

TEST_F(Run, ComPortThatCannotBeOpenedEndsTheRun) {
  EXPECT_EQ(run({"@17", "-i"}), -1);
  EXPECT_EQ(captured.text(), BANNER + "illegal comport number\nCan not open comport\n");
  EXPECT_TRUE(ports.requests.empty());
}

TEST_F(Run, UdpPortThatCannotBeOpenedEndsTheRun) {
  ports.sockets_start = false;
  EXPECT_EQ(run({"#127.0.0.2", "-i"}), -1);
  EXPECT_EQ(captured.text(), BANNER + "Can not open UDP port\n");
  EXPECT_TRUE(ports.requests.empty());
}

TEST_F(Run, SuccessfulRunOverUdp) {
  captured.tick = 0xFFFFFF00u;  // the run crosses the tick's wrap-around
  ports.device = firmware_info_device;
  EXPECT_EQ(run({"#10.0.0.7", "-i"}), 0);
  const std::string text = captured.text();
  EXPECT_NE(text.find("\r 0 [s]"), std::string::npos);  // progress reached the console
  EXPECT_EQ(without_progress(text),
            BANNER +
                "\rReading FW information \rReading FW information OK            \n"
                "Name:       Fw\nVersion:    3.04.005\nCompiled:   D T\nSize:       4096\n"
                "CRC32:      0xCAFEF00D\n"
                "\nOperations last 0 s\n");
  EXPECT_EQ(ports.sent_to, (port::Ipv4Endpoint{{10, 0, 0, 7}, 57998}));
  EXPECT_EQ(ports.bound.port, 57998);
}

TEST_F(Run, SilentDeviceOverUdpTimesOutAfterThreeDefaultWaits) {
  captured.tick = 0xFFFFF000u;
  EXPECT_EQ(run({"#10.0.0.7", "-i"}), -1);
  EXPECT_EQ(ports.requests.size(), 3u);
  EXPECT_EQ(without_progress(captured.text()),
            BANNER +
                "\rReading FW information \rReading FW information Error         \n"
                "\nReceive timeout\n"
                "Last operation error code: -25\n"
                "\nOperations last 6 s\n");
}

struct SerialWait {
  const char* extra;
  const char* elapsed;
};

class SerialRun : public Run, public testing::WithParamInterface<SerialWait> {};

TEST_P(SerialRun, OpensTheComPortWithTheLineSettings) {
  EXPECT_EQ(run({"@3", GetParam().extra, "-rctrl"}), -1);
  EXPECT_EQ(ports.serial_index, 2);
  EXPECT_EQ(ports.serial_settings, "baud=115200 data=8 parity=n stop=1 dtr=on rts=on");
  EXPECT_EQ(ports.requests.size(), 3u);
  EXPECT_EQ(without_progress(captured.text()),
            BANNER + "\rReading PELMO Control \rReading PELMO Control Error         \n" +
                "Last operation error code: -25\n\nOperations last " + GetParam().elapsed + " s\n");
}

// Three attempts of 250 ms by default; a negative extra time-out counts as none, a positive
// one replaces the default wait (the fake clock moves 10 ms per sleep, and an attempt ends at the
// empty poll that reaches the wait, before its sleep: 3 x 990 ms for 1000).
INSTANTIATE_TEST_SUITE_P(Run, SerialRun,
                         testing::Values(SerialWait{"*0", "0"}, SerialWait{"*-50", "0"},
                                         SerialWait{"*1000", "2"}));

TEST_F(Run, WriteWithAMissingFileSendsNothing) {
  EXPECT_EQ(run({"#10.0.0.7", "-w", "/nonexistent/fw.bin"}), -1);
  EXPECT_EQ(captured.text(), BANNER +
                                 "Error while opening file /nonexistent/fw.bin\n"
                                 "Last operation error code: -1\n"
                                 "\nOperations last 0 s\n");
  EXPECT_TRUE(ports.requests.empty());
}

struct LinkCase {
  std::vector<const char*> arguments;
  std::uint32_t write_timeout_ms;
  std::uint32_t extra_timeout_ms;
  std::uint16_t chunk_size;
};

TEST(LinkDriverValues, FollowTheChosenLink) {
  const std::vector<LinkCase> cases{
      {{"x", "@3", "-i"}, 200, 0, 244},
      {{"x", "#1.2.3.4", "*-50", "-i"}, 4000, 0, 1012},
      {{"x", "#1.2.3.4", "*70", "-i"}, 4000, 70, 1012},
      {{"x", "#1.2.3.4", "@2", "*9", "-i"}, 200, 9, 244},
  };
  for (const LinkCase& c : cases) {
    const auto line = parse_command_line(c.arguments);
    ASSERT_TRUE(line.has_value());
    const LinkDriver driver = make_link_driver(*line, {}, {}, {});
    EXPECT_EQ(driver.erase_timeout_ms, 25000u);
    EXPECT_EQ(driver.write_timeout_ms, c.write_timeout_ms);
    EXPECT_EQ(driver.extra_timeout_ms, c.extra_timeout_ms);
    EXPECT_EQ(driver.chunk_size, c.chunk_size);
    EXPECT_EQ(driver.max_attempts, 3);
    EXPECT_EQ(driver.flush_before_exchange, 0);
    EXPECT_EQ(driver.settle_delay_ms, 0u);
  }
}

}  // namespace
}  // namespace pelmo
