#include "transport/serial_transport.hpp"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "fake_port_layer.hpp"

namespace pelmo::test {
namespace {

class SerialTransportTest : public ::testing::Test {
 protected:
  // The runner's values: COM1, 115200 8N1, 250 ms first byte, 150 ms quiet.
  void open_default(std::int32_t first_byte_ms = 250) {
    ASSERT_EQ(transport.open(0, 115200, "8N1", first_byte_ms, 150, progress.callback(), nullptr),
              0);
  }
  std::size_t reads() const { return ports.line->read_sizes.size(); }

  FakePortLayer ports;
  SerialTransport transport{ports};
  ProgressCounter progress;
};

// --- open: argument checks and their messages -------------------------------------------------

struct RejectedOpen {
  int port_index;
  std::int32_t baud_rate;
  const char* mode;
  const char* message;
};

class SerialOpenRejects : public ::testing::TestWithParam<RejectedOpen> {};

TEST_P(SerialOpenRejects, PrintsOneMessageAndTouchesNoPort) {
  const RejectedOpen& row = GetParam();
  FakePortLayer ports;
  SerialTransport transport(ports);
  int result = 0;
  const std::string text = captured_output([&](std::FILE* out) {
    result = transport.open(row.port_index, row.baud_rate, row.mode, 250, 150, nullptr, out);
  });
  EXPECT_EQ(result, 1);
  EXPECT_EQ(text, row.message);
  EXPECT_TRUE(ports.serial_opens.empty());
  EXPECT_FALSE(transport.is_open());
}

INSTANTIATE_TEST_SUITE_P(
    Checks, SerialOpenRejects,
    ::testing::Values(RejectedOpen{16, 115200, "8N1", "illegal comport number\n"},
                      RejectedOpen{-1, 115200, "8N1", "illegal comport number\n"},
                      RejectedOpen{16, 100, "XX", "illegal comport number\n"},
                      RejectedOpen{0, 100, "8N1", "invalid baudrate\n"},
                      RejectedOpen{0, 115201, "8N1", "invalid baudrate\n"},
                      RejectedOpen{0, 115200, "8N", "invalid mode \"8N\"\n"},
                      RejectedOpen{0, 115200, "8N11", "invalid mode \"8N11\"\n"},
                      RejectedOpen{0, 115200, "", "invalid mode \"\"\n"},
                      RejectedOpen{0, 115200, "9N1", "invalid number of data-bits '9'\n"},
                      RejectedOpen{0, 115200, "4N1", "invalid number of data-bits '4'\n"},
                      RejectedOpen{0, 115200, "8X1", "invalid parity 'X'\n"},
                      RejectedOpen{0, 115200, "8M1", "invalid parity 'M'\n"},
                      RejectedOpen{0, 115200, "8N3", "invalid number of stop bits '3'\n"},
                      RejectedOpen{0, 115200, "8N5", "invalid number of stop bits '5'\n"},
                      RejectedOpen{0, 115200, "9X3", "invalid number of data-bits '9'\n"},
                      RejectedOpen{0, 115200, "8X3", "invalid parity 'X'\n"}));

struct AcceptedOpen {
  int port_index;
  std::int32_t baud_rate;
  const char* mode;
  const char* settings;
};

class SerialOpenSettings : public ::testing::TestWithParam<AcceptedOpen> {};

TEST_P(SerialOpenSettings, HandsTheSettingsTextToThePort) {
  const AcceptedOpen& row = GetParam();
  FakePortLayer ports;
  SerialTransport transport(ports);
  const std::string text = captured_output([&](std::FILE* out) {
    EXPECT_EQ(transport.open(row.port_index, row.baud_rate, row.mode, 250, 150, nullptr, out), 0);
  });
  EXPECT_EQ(text, "");
  ASSERT_EQ(ports.serial_opens.size(), 1u);
  EXPECT_EQ(ports.serial_opens[0].first, row.port_index);
  EXPECT_EQ(ports.serial_opens[0].second, row.settings);
  EXPECT_EQ(transport.settings_text(), row.settings);
  EXPECT_EQ(transport.port_index(), row.port_index);
}

INSTANTIATE_TEST_SUITE_P(
    Modes, SerialOpenSettings,
    ::testing::Values(
        AcceptedOpen{0, 115200, "8N1", "baud=115200 data=8 parity=n stop=1 dtr=on rts=on"},
        AcceptedOpen{15, 115200, "8n1", "baud=115200 data=8 parity=n stop=1 dtr=on rts=on"},
        AcceptedOpen{3, 1000000, "7E2", "baud=1000000 data=7 parity=e stop=2 dtr=on rts=on"},
        AcceptedOpen{4, 110, "5o1", "baud=110 data=5 parity=o stop=1 dtr=on rts=on"},
        AcceptedOpen{5, 256000, "6e2", "baud=256000 data=6 parity=e stop=2 dtr=on rts=on"}));

struct PortFailure {
  port::SerialOpenStatus status;
  const char* message;
};

class SerialOpenPortFailures : public ::testing::TestWithParam<PortFailure> {};

TEST_P(SerialOpenPortFailures, NameTheStepThatFailed) {
  FakePortLayer ports;
  ports.serial_status = GetParam().status;
  SerialTransport transport(ports);
  int result = 0;
  const std::string text = captured_output(
      [&](std::FILE* out) { result = transport.open(2, 115200, "8N1", 250, 150, nullptr, out); });
  EXPECT_EQ(result, 1);
  EXPECT_EQ(text, GetParam().message);
  EXPECT_EQ(transport.port_index(), SerialTransport::NO_PORT);
  EXPECT_EQ(transport.first_byte_timeout_ms(), 1);
  EXPECT_EQ(transport.settings_text(), "");
}

INSTANTIATE_TEST_SUITE_P(
    Steps, SerialOpenPortFailures,
    ::testing::Values(PortFailure{port::SerialOpenStatus::open_failed, "unable to open comport\n"},
                      PortFailure{port::SerialOpenStatus::settings_failed,
                                  "unable to set comport dcb settings\n"},
                      PortFailure{port::SerialOpenStatus::config_failed,
                                  "unable to set comport cfg settings\n"},
                      PortFailure{port::SerialOpenStatus::timeouts_failed,
                                  "unable to set comport time-out settings\n"}));

TEST_F(SerialTransportTest, FailedOpenLeavesTheEarlierPortAndTimeoutsInForce) {
  ASSERT_EQ(transport.open(2, 115200, "8N1", 30, 150, progress.callback(), nullptr), 0);
  ports.serial_status = port::SerialOpenStatus::config_failed;
  ProgressCounter other;
  EXPECT_EQ(transport.open(5, 9600, "7E1", 500, 20, other.callback(), nullptr), 1);
  EXPECT_EQ(transport.open(5, 9600, "7X1", 500, 20, other.callback(), nullptr), 1);

  EXPECT_EQ(transport.port_index(), 2);
  EXPECT_EQ(transport.settings_text(), "baud=115200 data=8 parity=n stop=1 dtr=on rts=on");
  EXPECT_TRUE(ports.line->device_alive);
  // The first open's 30 ms first-byte time-out and callback still rule the receive.
  std::array<std::uint8_t, 16> buffer{};
  EXPECT_EQ(transport.receive(buffer, 0, 0), 0);
  EXPECT_EQ(reads(), 3u);
  EXPECT_EQ(progress.calls, 2);
  EXPECT_EQ(other.calls, 0);
}

// --- send -----------------------------------------------------------------------------------

TEST_F(SerialTransportTest, BeforeOpenSendFailsAndReceiveIsSilentWithoutTouchingThePort) {
  std::array<std::uint8_t, 12> buffer{};
  EXPECT_EQ(transport.send(sequence(12)), -1);
  EXPECT_EQ(transport.receive(buffer, 12, 0), 0);
  EXPECT_TRUE(ports.sleeps.empty());
  transport.close();  // nothing to close
}

TEST_F(SerialTransportTest, SendWritesAllBytesAndReportsThePortsCount) {
  open_default();
  EXPECT_EQ(transport.send(sequence(256)), 256);
  EXPECT_EQ(ports.line->written, sequence(256));

  ports.line->write_result = 100;  // a short write is passed on for the exchange to judge
  EXPECT_EQ(transport.send(sequence(12)), 100);
  ports.line->write_result = -5;
  EXPECT_EQ(transport.send(sequence(12)), -1);
}

TEST_F(SerialTransportTest, CloseReleasesThePort) {
  open_default();
  transport.close();
  EXPECT_FALSE(ports.line->device_alive);
  EXPECT_EQ(transport.send(sequence(4)), -1);
  std::array<std::uint8_t, 4> buffer{};
  EXPECT_EQ(transport.receive(buffer, 0, 0), 0);
}

// --- receive: polls counted, not clocked -------------------------------------------------------

struct SilentReceive {
  std::int32_t first_byte_timeout_ms;
  std::uint32_t timeout_ms;
  std::size_t reads;
};

class SerialSilence : public SerialTransportTest,
                      public ::testing::WithParamInterface<SilentReceive> {};

TEST_P(SerialSilence, GivesUpAfterTheCountedEmptyPolls) {
  open_default(GetParam().first_byte_timeout_ms);
  ports.oversleep_ms = 7;  // the wall clock plays no part
  std::array<std::uint8_t, 32> buffer{};
  EXPECT_EQ(transport.receive(buffer, 12, GetParam().timeout_ms), 0);
  EXPECT_EQ(reads(), GetParam().reads);
  // Every poll but the last is followed by a 10 ms sleep and one progress call.
  EXPECT_EQ(ports.sleeps, std::vector<std::uint32_t>(GetParam().reads - 1, 10));
  EXPECT_EQ(progress.calls, static_cast<int>(GetParam().reads - 1));
}

INSTANTIATE_TEST_SUITE_P(Timeouts, SerialSilence,
                         ::testing::Values(SilentReceive{250, 0, 25}, SilentReceive{250, 200, 20},
                                           SilentReceive{250, 2, 1}, SilentReceive{250, 15, 2},
                                           SilentReceive{40, 0, 4},
                                           SilentReceive{250, 25000, 2500}));

TEST_F(SerialTransportTest, FailingReadsCountAsEmptyPolls) {
  open_default();
  for (int i = 0; i < 30; ++i) {
    ports.line->polls.push_back({{}, true});
  }
  std::array<std::uint8_t, 32> buffer{};
  EXPECT_EQ(transport.receive(buffer, 0, 0), 0);
  EXPECT_EQ(reads(), 25u);
}

struct ResponseCase {
  const char* name;
  std::vector<SerialPoll> polls;
  std::size_t capacity;
  std::uint16_t min_count;
  std::int32_t result;
  std::size_t reads;
};

class SerialResponses : public SerialTransportTest,
                        public ::testing::WithParamInterface<ResponseCase> {};

TEST_P(SerialResponses, EndAtTheRightPoll) {
  const ResponseCase& row = GetParam();
  open_default();
  Bytes expected;
  for (const SerialPoll& poll : row.polls) {
    ports.line->polls.push_back(poll);
    expected.insert(expected.end(), poll.bytes.begin(), poll.bytes.end());
  }
  Bytes storage(row.capacity + 8, 0xEE);
  const std::int32_t result =
      transport.receive(std::span(storage).first(row.capacity), row.min_count, 0);
  EXPECT_EQ(result, row.result);
  EXPECT_EQ(reads(), row.reads);
  EXPECT_EQ(ports.sleeps.size(),
            row.reads - (result == static_cast<std::int32_t>(row.capacity) ? 0 : 1))
      << "every read but an ending empty poll is followed by a sleep";
  expected.resize(static_cast<std::size_t>(result));
  EXPECT_EQ(Bytes(storage.begin(), storage.begin() + result), expected);
  EXPECT_EQ(Bytes(storage.begin() + static_cast<std::ptrdiff_t>(row.capacity), storage.end()),
            Bytes(8, 0xEE))
      << "nothing written past the capacity";
}

INSTANTIATE_TEST_SUITE_P(
    Polls, SerialResponses,
    ::testing::Values(
        // 12 bytes in one piece: returned at the next empty poll when 12 are expected...
        ResponseCase{"min_count_reached", {{sequence(12)}}, 256, 12, 12, 2},
        // ...and only after 15 quiet polls (150 ms) when the length is open.
        ResponseCase{"quiet_time", {{sequence(12)}}, 256, 0, 12, 16},
        // Fewer than min_count bytes end with the quiet time too.
        ResponseCase{"short_of_min_count", {{sequence(5)}}, 256, 12, 5, 16},
        // A response in pieces with gaps shorter than the quiet time is joined.
        ResponseCase{"split", {{sequence(5)}, {}, {}, {}, {sequence(7, 6)}}, 256, 12, 12, 6},
        // The first byte after 24 empty polls is still in time.
        ResponseCase{"late_first_byte",
                     {{}, {}, {}, {}, {},
                      {}, {}, {}, {}, {},
                      {}, {}, {}, {}, {},
                      {}, {}, {}, {}, {},
                      {}, {}, {}, {}, {sequence(12)}},
                     256,
                     12,
                     12,
                     26},
        // A full buffer ends the receive at once (after the read's sleep), quiet or not.
        ResponseCase{"fills_buffer", {{sequence(12)}}, 12, 0, 12, 1},
        ResponseCase{"fills_buffer_in_pieces", {{sequence(10)}, {sequence(10, 11)}}, 16, 0, 16, 2}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace pelmo::test
