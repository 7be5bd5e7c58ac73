// Framed reception through both transports on the fake port layer: each receive is checked as the
// exact sequence of reads, waits (with their time-outs) and sleeps it made.
#include <gtest/gtest.h>

#include <stdexcept>

#include "fake_port_layer.hpp"
#include "pelmo/protocol/frame.hpp"
#include "pelmo/transport/device_link.hpp"

namespace pelmo::test {
namespace {

Bytes response(std::uint8_t status, std::uint32_t address, const Bytes& payload) {
  Bytes bytes(FRAME_BUFFER_SIZE);
  std::uint16_t size = 0;
  EXPECT_EQ(
      encode_frame(Direction::response, status, address, static_cast<std::uint16_t>(payload.size()),
                   payload.empty() ? nullptr : payload.data(), bytes, &size),
      RC_OK);
  bytes.resize(size);
  return bytes;
}

Bytes cat(std::initializer_list<Bytes> parts) {
  Bytes all;
  for (const Bytes& part : parts) {
    all.insert(all.end(), part.begin(), part.end());
  }
  return all;
}

Bytes slice(const Bytes& bytes, std::size_t from, std::size_t to) {
  return Bytes(bytes.begin() + static_cast<std::ptrdiff_t>(from),
               bytes.begin() + static_cast<std::ptrdiff_t>(to));
}

const Bytes ANSWER = response(0, 0x40, {1, 2, 3, 4});  // 16 bytes
const Bytes ACK = response(0, 0x1000, {});             // 12 bytes
const Bytes BAD_ANSWER = [] {
  Bytes bytes = response(0, 0x40, {1, 2, 3, 5});
  bytes.back() ^= 0x01;
  return bytes;
}();

constexpr Ipv4Address DEVICE{10, 0, 0, 7};
const port::Ipv4Endpoint DEVICE_ENDPOINT{DEVICE, DEVICE_UDP_PORT};
const port::Ipv4Endpoint OTHER{{10, 0, 0, 8}, DEVICE_UDP_PORT};

Poll arrives(std::uint32_t at, Bytes bytes, port::Ipv4Endpoint sender = DEVICE_ENDPOINT) {
  return {std::move(bytes), sender, false, at};
}

enum class Kind { serial, udp };

// A framed transport of `kind` on the fake port layer, whose clock is about to wrap; the open
// gives 250 ms for a frame and 150 ms of quiet that tells a false start.
struct FramedLink {
  FakePortLayer ports;
  std::unique_ptr<Transport> transport;
  explicit FramedLink(Kind kind) {
    const ResponseTimes times{250, 150, Reception::framed};
    if (kind == Kind::serial) {
      auto serial = std::make_unique<SerialTransport>(ports);
      EXPECT_TRUE(serial->open(ComPort{0}, 115200, "8N1", times).ok);
      transport = std::move(serial);
    } else {
      auto udp = std::make_unique<UdpTransport>(ports);
      EXPECT_TRUE(udp->open(DEVICE_ENDPOINT, times).ok);
      transport = std::move(udp);
    }
    ports.now = ports.script_start = 0xFFFFFFC0u;
  }
  // Receives with `script` queued: the bytes delivered.
  Bytes receive(const std::vector<Poll>& script, std::uint32_t timeout_ms,
                const ProgressFunction& idle = {}) {
    ports.polls.insert(ports.polls.end(), script.begin(), script.end());
    ports.trace.clear();
    std::array<std::uint8_t, 64> buffer{};
    // min_count plays no part: a count the frame never reaches changes nothing.
    const std::int32_t count = transport->receive(buffer, 60, timeout_ms, idle);
    return Bytes(buffer.begin(), buffer.begin() + count);
  }
};

struct FramedCase {
  const char* name;
  std::vector<Kind> kinds;
  std::vector<Poll> script;
  std::uint32_t timeout_ms;
  Bytes result;
  std::vector<std::string> trace;
  std::uint32_t elapsed_ms;
  friend void PrintTo(const FramedCase& row, std::ostream* out) { *out << row.name; }
};

class FramedReceive : public ::testing::TestWithParam<FramedCase> {};

TEST_P(FramedReceive, WaitsForTheWholeFrameAndNoLonger) {
  const FramedCase& row = GetParam();
  for (const Kind kind : row.kinds) {
    FramedLink link(kind);
    int idle = 0;
    EXPECT_EQ(link.receive(row.script, row.timeout_ms, [&] { ++idle; }), row.result);
    EXPECT_EQ(link.ports.trace, row.trace) << static_cast<int>(kind);
    EXPECT_EQ(link.ports.now - link.ports.script_start, row.elapsed_ms);
    // The idle callback runs after every wait or sleep, never in between.
    EXPECT_EQ(idle, std::count_if(row.trace.begin(), row.trace.end(), [](const std::string& step) {
                return !step.starts_with("read");
              }));
  }
}

const std::vector<Kind> BOTH{Kind::serial, Kind::udp};
const std::vector<std::string> SILENCE_120{"read 0", "wait 50", "read 0", "wait 50",
                                           "read 0", "wait 20", "read 0"};

INSTANTIATE_TEST_SUITE_P(
    Cases, FramedReceive,
    ::testing::Values(
        FramedCase{"wakes_when_the_frame_arrives",
                   BOTH,
                   {arrives(20, ANSWER)},
                   0,
                   ANSWER,
                   {"read 0", "wait 50", "read 16"},
                   20},
        // A frame split over reads (datagrams) is put back together; the quiet time plays no
        // part once bytes are in.
        FramedCase{"split",
                   BOTH,
                   {arrives(10, slice(ANSWER, 0, 5)), arrives(130, slice(ANSWER, 5, 16))},
                   0,
                   ANSWER,
                   {"read 0", "wait 50", "read 5", "read 0", "wait 50", "read 0", "wait 50",
                    "read 0", "wait 50", "read 11"},
                   130},
        FramedCase{"garbage_before_the_start_byte",
                   BOTH,
                   {arrives(0, cat({{0x00, 0xB5, 0x7E}, ANSWER}))},
                   0,
                   ANSWER,
                   {"read 19"},
                   0},
        FramedCase{"bad_crc_skipped_then_good_taken",
                   BOTH,
                   {arrives(0, BAD_ANSWER), arrives(40, ACK)},
                   0,
                   ACK,
                   {"read 16", "read 0", "wait 50", "read 12"},
                   40},
        // The deadline counts from the call, across waits of at most 50 ms.
        FramedCase{"deadline_ends_with_nothing", BOTH, {}, 120, {}, SILENCE_120, 120},
        FramedCase{"default_deadline",
                   BOTH,
                   {},
                   0,
                   {},
                   {"read 0", "wait 50", "read 0", "wait 50", "read 0", "wait 50", "read 0",
                    "wait 50", "read 0", "wait 50", "read 0"},
                   250},
        FramedCase{
            "part_of_a_frame_is_silence",
            BOTH,
            {arrives(0, slice(ANSWER, 0, 15))},
            120,
            {},
            {"read 15", "read 0", "wait 50", "read 0", "wait 50", "read 0", "wait 20", "read 0"},
            120},
        // A stray start byte announces a frame that hides the real one; 150 ms of quiet tell it
        // was a false start.
        FramedCase{"false_start_told_by_the_quiet_time",
                   BOTH,
                   {arrives(10, cat({{RESPONSE_START}, ANSWER}))},
                   0,
                   ANSWER,
                   {"read 0", "wait 50", "read 17", "read 0", "wait 50", "read 0", "wait 50",
                    "read 0", "wait 50", "read 0"},
                   160},
        // A line that keeps waking the wait with nothing to read is slept on, not spun on.
        FramedCase{"hung_up_line",
                   {Kind::serial},
                   std::vector<Poll>(8, Poll{}),
                   120,
                   {},
                   {"read 0", "wait 50", "read 0", "wait 50", "read 0", "sleep 50", "read 0",
                    "sleep 50", "read 0", "sleep 20", "read 0"},
                   120},
        // Other senders' datagrams neither end nor spoil the response.
        FramedCase{"stray_datagram_mid_frame",
                   {Kind::udp},
                   {arrives(0, slice(ANSWER, 0, 8)), arrives(5, ACK, OTHER),
                    arrives(10, slice(ANSWER, 8, 16))},
                   0,
                   ANSWER,
                   {"read 8", "read 0", "wait 50", "read 12", "read 0", "wait 50", "read 8"},
                   10}),
    [](const auto& info) { return std::string(info.param.name); });

// A send first reads away what is left: the rest of an earlier read and a late duplicate answer.
// Only then is the request written, and the next receive takes the new answer alone.
TEST(FramedSend, DrainsWhatIsLeftOver) {
  for (const Kind kind : BOTH) {
    FramedLink link(kind);
    EXPECT_EQ(link.receive({arrives(0, cat({ANSWER, slice(ACK, 0, 6)}))}, 0), ANSWER);
    link.ports.polls.push_back(arrives(0, ANSWER));
    link.ports.trace.clear();
    EXPECT_EQ(link.transport->send(sequence(12)), 12);
    EXPECT_EQ(link.ports.trace, (std::vector<std::string>{"read 16", "read 0"}));
    const Bytes next = response(0, 0x44, {9});
    EXPECT_EQ(link.receive({arrives(5, slice(ACK, 6, 12)), arrives(5, next)}, 0), next);
  }
}

// A callback that throws ends the receive with its exception; the transport goes on.
TEST(FramedReceive, ThrowingIdleLeavesTheTransportUsable) {
  for (const Kind kind : BOTH) {
    FramedLink link(kind);
    EXPECT_THROW(link.receive({arrives(0, slice(ANSWER, 0, 7))}, 0,
                              [] { throw std::runtime_error("cancelled"); }),
                 std::runtime_error);
    EXPECT_EQ(link.ports.trace, (std::vector<std::string>{"read 7", "read 0", "wait 50"}));
    EXPECT_EQ(link.transport->send(sequence(12)), 12);
    EXPECT_EQ(link.receive({arrives(0, slice(ANSWER, 7, 16)), arrives(60, ACK)}, 0), ACK);
  }
}

// The fast profiles reach the transports as framed reception: a silent device is waited on, not
// polled, and the link's progress runs after every wait.
TEST(FramedReceive, FastProfilesOpenFramedLinks) {
  for (const auto& [address, profile, waits] :
       std::vector<std::tuple<DeviceAddress, LinkProfile, std::size_t>>{
           {ComPort{2}, FAST_SERIAL_PROFILE, 5}, {UdpDevice{DEVICE}, FAST_UDP_PROFILE, 40}}) {
    FakePortLayer ports;
    int progress = 0;
    DeviceLink link(ports, [&] { ++progress; });
    ASSERT_TRUE(link.open(address, profile).ok);
    std::array<std::uint8_t, 16> buffer{};
    EXPECT_EQ(link.driver()->receive(buffer, 12, 0), 0);
    EXPECT_TRUE(ports.sleeps.empty());
    EXPECT_EQ(std::count(ports.trace.begin(), ports.trace.end(), "wait 50"),
              static_cast<std::ptrdiff_t>(waits));
    EXPECT_EQ(progress, static_cast<int>(waits));
  }
}

}  // namespace
}  // namespace pelmo::test
