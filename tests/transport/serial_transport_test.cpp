#include "pelmo/transport/serial_transport.hpp"

#include <gtest/gtest.h>

#include "fake_port_layer.hpp"

namespace pelmo::test {
namespace {

using enum port::SerialOpenStatus;
constexpr ResponseTimes CLASSIC_TIMES{250, 150};

struct FailedOpen {
  SerialPort port;
  std::int32_t baud_rate;
  const char* mode;
  port::SerialOpenStatus status;  // what the port layer answers, if it is asked at all
  const char* message;
  int os_error;
};

class SerialOpenFails : public ::testing::TestWithParam<FailedOpen> {};

// Argument checks refuse before any port is touched; port failures name their step and keep the
// system's error. Either way the port and time-outs of the earlier open stay in force.
TEST_P(SerialOpenFails, SaysWhyInOneLineAndKeepsTheEarlierPort) {
  const FailedOpen& row = GetParam();
  FakePortLayer ports;
  SerialTransport transport(ports);
  ASSERT_TRUE(transport.open(ComPort{15}, 1000000, "7e2", {30, 150}).ok);
  EXPECT_EQ(ports.serial_opens, std::vector<std::string>{"COM16"});
  EXPECT_EQ(format_line_settings(ports.line), "baud=1000000 data=7 parity=e stop=2 dtr=on rts=on");
  ports.serial_status = row.status;
  const OpenResult result = transport.open(row.port, row.baud_rate, row.mode, CLASSIC_TIMES);
  EXPECT_FALSE(result.ok);
  EXPECT_EQ(result.message, row.message);
  EXPECT_EQ(result.os_error, row.os_error);
  EXPECT_EQ(ports.serial_opens.size(), row.os_error == 0 ? 1u : 2u);  // was the port asked?
  EXPECT_EQ(ports.held, std::set<std::string>{"COM16"});
  EXPECT_EQ(transport.times().first_byte_ms, 30u);
}

INSTANTIATE_TEST_SUITE_P(
    Checks, SerialOpenFails,
    ::testing::Values(
        FailedOpen{ComPort{16}, 100, "XX", ok, "illegal comport number", 0},
        FailedOpen{ComPort{-1}, 115200, "8N1", ok, "illegal comport number", 0},
        FailedOpen{ComPort{0}, 100, "8N1", ok, "invalid baudrate", 0},
        FailedOpen{"/dev/x", 115201, "8N1", ok, "invalid baudrate", 0},
        FailedOpen{ComPort{0}, 115200, "8N", ok, "invalid mode \"8N\"", 0},
        FailedOpen{ComPort{0}, 115200, "9N1", ok, "invalid number of data-bits '9'", 0},
        FailedOpen{ComPort{0}, 115200, "8X1", ok, "invalid parity 'X'", 0},
        FailedOpen{ComPort{0}, 115200, "8N3", ok, "invalid number of stop bits '3'", 0},
        FailedOpen{ComPort{0}, 115200, "9X3", ok, "invalid number of data-bits '9'", 0},
        FailedOpen{ComPort{2}, 115200, "8N1", open_failed, "unable to open comport", 5},
        FailedOpen{ComPort{15}, 115200, "8N1", ok, "unable to open comport", 16},  // held
        FailedOpen{ComPort{2}, 9600, "8N1", settings_failed, "unable to set comport dcb settings",
                   5},
        FailedOpen{ComPort{2}, 9600, "8N1", config_failed, "unable to set comport cfg settings", 5},
        FailedOpen{ComPort{2}, 9600, "8N1", timeouts_failed,
                   "unable to set comport time-out settings", 5}));

// A transport holds one port: opening another releases the first, so a new opener gets it. No
// port, or a failing write: nothing is sent and nothing is read.
TEST(SerialTransport, OpeningAnotherPortReleasesTheFirst) {
  FakePortLayer ports;
  SerialTransport first(ports), second(ports);
  std::array<std::uint8_t, 12> buffer{};
  EXPECT_EQ(first.send(sequence(12)), Transport::SEND_FAILED);
  EXPECT_EQ(first.receive(buffer, 12, 0, {}), 0);
  ASSERT_TRUE(first.open(ComPort{0}, 115200, "8N1", CLASSIC_TIMES).ok);
  ASSERT_TRUE(first.open("/dev/ttyUSB0", 115200, "8n1", CLASSIC_TIMES).ok);
  first.close();
  EXPECT_TRUE(second.open(ComPort{0}, 115200, "8N1", CLASSIC_TIMES).ok);
  EXPECT_EQ(ports.serial_opens, (std::vector<std::string>{"COM1", "/dev/ttyUSB0", "COM1"}));
  EXPECT_EQ(ports.held, std::set<std::string>{"COM1"});
  EXPECT_EQ(ports.line, LineSettings{});  // 115200 8N1, DTR and RTS on
  ports.write_result = -5;
  EXPECT_EQ(second.send(sequence(12)), Transport::SEND_FAILED);
  EXPECT_EQ(ports.reads + ports.sleeps.size(), 0u);
}

struct ReceiveCase {
  const char* name;
  std::vector<Poll> polls;
  std::uint32_t timeout_ms;
  std::uint16_t min_count;
  std::int32_t result;
  int reads;
};

class SerialReceive : public ::testing::TestWithParam<ReceiveCase> {};

// Idle time is counted in polls of 10 ms, never clocked: a slow system changes nothing. The open
// gives 250 ms for the first byte and 150 ms of quiet.
TEST_P(SerialReceive, EndsAtTheRightPoll) {
  const ReceiveCase& row = GetParam();
  FakePortLayer ports;
  SerialTransport transport(ports);
  int progress = 0;
  ASSERT_TRUE(transport.open(ComPort{0}, 115200, "8N1", CLASSIC_TIMES).ok);
  ports.oversleep_ms = 7;
  EXPECT_EQ(receive_script(transport, ports, row.polls, 16, row.min_count, row.timeout_ms,
                           [&] { ++progress; }),
            row.result);
  EXPECT_EQ(ports.reads, row.reads);
  // Every read is followed by a 10 ms sleep and a progress call, except an empty poll that ends.
  const bool filled = row.result == 16;
  EXPECT_EQ(ports.sleeps,
            std::vector<std::uint32_t>(static_cast<std::size_t>(row.reads - (filled ? 0 : 1)), 10));
  EXPECT_EQ(progress, static_cast<int>(ports.sleeps.size()));
}

const std::vector<Poll> FAILING(30, Poll{.fails = true});
INSTANTIATE_TEST_SUITE_P(
    Polls, SerialReceive,
    ::testing::Values(
        ReceiveCase{"silence_default_250ms", {}, 0, 12, 0, 25},
        ReceiveCase{"silence_200ms", {}, 200, 12, 0, 20},
        ReceiveCase{"silence_2ms", {}, 2, 12, 0, 1},
        ReceiveCase{"failing_reads_are_empty_polls", FAILING, 0, 12, 0, 25},
        // min_count reached: returned at the first empty poll.
        ReceiveCase{"min_count", {{sequence(12)}}, 0, 12, 12, 2},
        // Open length, or short of min_count: only after 15 quiet polls.
        ReceiveCase{"quiet_time", {{sequence(12)}}, 0, 0, 12, 16},
        ReceiveCase{"short_of_min_count", {{sequence(5)}}, 0, 12, 5, 16},
        ReceiveCase{"pieces_joined", {{sequence(5)}, {}, {}, {sequence(7, 6)}}, 0, 12, 12, 5},
        // A full buffer (16 bytes) ends the receive at once, quiet or not.
        ReceiveCase{"fills_buffer", {{sequence(10)}, {sequence(10, 11)}}, 0, 0, 16, 2}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace pelmo::test
