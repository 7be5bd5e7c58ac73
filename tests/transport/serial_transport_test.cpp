#include "pelmo/transport/serial_transport.hpp"

#include <gtest/gtest.h>

#include "fake_port_layer.hpp"

namespace pelmo::test {
namespace {

using enum port::SerialOpenStatus;

struct FailedOpen {
  int port_index;
  std::int32_t baud_rate;
  const char* mode;
  port::SerialOpenStatus status;  // what the port layer answers, if it is asked at all
  const char* message;
};

class SerialOpenFails : public ::testing::TestWithParam<FailedOpen> {};

// Argument checks print their one line before any port is touched; port failures name their step.
// Either way the port, settings and time-outs of the earlier open stay in force.
TEST_P(SerialOpenFails, PrintsOneLineAndKeepsTheEarlierPort) {
  const FailedOpen& row = GetParam();
  FakePortLayer ports;
  SerialTransport transport(ports);
  ASSERT_EQ(transport.open(15, 1000000, "7e2", 30, 150, nullptr, nullptr), 0);
  ports.serial_status = row.status;
  EXPECT_EQ(captured_output([&](std::FILE* out) {
              EXPECT_EQ(transport.open(row.port_index, row.baud_rate, row.mode, 250, 20, {}, out),
                        1);
            }),
            row.message);
  EXPECT_EQ(ports.serial_opens, row.status == ok ? 1 : 2);
  EXPECT_EQ(transport.port_index(), 15);
  EXPECT_EQ(transport.first_byte_timeout_ms(), 30);
  EXPECT_EQ(transport.settings_text(), "baud=1000000 data=7 parity=e stop=2 dtr=on rts=on");
}

INSTANTIATE_TEST_SUITE_P(
    Checks, SerialOpenFails,
    ::testing::Values(
        FailedOpen{16, 100, "XX", ok, "illegal comport number\n"},
        FailedOpen{-1, 115200, "8N1", ok, "illegal comport number\n"},
        FailedOpen{0, 100, "8N1", ok, "invalid baudrate\n"},
        FailedOpen{0, 115201, "8N1", ok, "invalid baudrate\n"},
        FailedOpen{0, 115200, "8N", ok, "invalid mode \"8N\"\n"},
        FailedOpen{0, 115200, "9N1", ok, "invalid number of data-bits '9'\n"},
        FailedOpen{0, 115200, "8X1", ok, "invalid parity 'X'\n"},
        FailedOpen{0, 115200, "8N3", ok, "invalid number of stop bits '3'\n"},
        FailedOpen{0, 115200, "9X3", ok, "invalid number of data-bits '9'\n"},
        FailedOpen{2, 115200, "8N1", open_failed, "unable to open comport\n"},
        FailedOpen{2, 9600, "8N1", settings_failed, "unable to set comport dcb settings\n"},
        FailedOpen{2, 9600, "8N1", config_failed, "unable to set comport cfg settings\n"},
        FailedOpen{2, 9600, "8N1", timeouts_failed, "unable to set comport time-out settings\n"}));

TEST(SerialTransport, SendAndReceiveNeedAnOpenPort) {
  FakePortLayer ports;
  SerialTransport transport(ports);
  std::array<std::uint8_t, 12> buffer{};
  EXPECT_EQ(transport.send(sequence(12)), -1);
  EXPECT_EQ(transport.receive(buffer, 12, 0), 0);
  EXPECT_EQ(ports.reads + ports.sleeps.size(), 0u);
  ports.write_result = -5;  // a failing write
  ASSERT_EQ(transport.open(0, 115200, "8N1", 250, 150, nullptr, nullptr), 0);
  EXPECT_EQ(transport.send(sequence(12)), -1);
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
  const ProgressFunction count = [&] { ++progress; };
  ASSERT_EQ(transport.open(0, 115200, "8N1", 250, 150, count, nullptr), 0);
  ports.oversleep_ms = 7;
  EXPECT_EQ(receive_script(transport, ports, row.polls, 16, row.min_count, row.timeout_ms),
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
