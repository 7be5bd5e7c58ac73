// Framed reception through both transports on the fake port layer: each receive is checked as the
// exact sequence of reads, waits (with their time-outs) and sleeps it made.
#include <gtest/gtest.h>

#include "fake_port_layer.hpp"
#include "pelmo/protocol/frame.hpp"
#include "pelmo/transport/device_link.hpp"
#include "tests/support/frame_bytes.hpp"

namespace pelmo::test {
namespace {

Bytes response(std::uint8_t status, std::uint32_t address, const Bytes& payload) {
  return test_frames::encoded_frame(Direction::response, status, address, payload);
}
using test_frames::operator+;

Bytes slice(const Bytes& bytes, std::size_t from, std::size_t to) {
  return Bytes(bytes.begin() + static_cast<std::ptrdiff_t>(from),
               bytes.begin() + static_cast<std::ptrdiff_t>(to));
}

const Bytes ANSWER = response(0, 0x40, {1, 2, 3, 4});  // 16 bytes
const Bytes ACK = response(0, 0x1000, {});             // 12 bytes

const port::Ipv4Endpoint DEVICE_ENDPOINT{{10, 0, 0, 7}, DEVICE_UDP_PORT};
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
    auto serial = std::make_unique<SerialTransport>(ports);
    auto udp = std::make_unique<UdpTransport>(ports);
    EXPECT_TRUE(kind == Kind::serial ? serial->open(ComPort{0}, 115200, "8N1", times).ok
                                     : udp->open(DEVICE_ENDPOINT, times).ok);
    transport =
        kind == Kind::serial ? std::unique_ptr<Transport>(std::move(serial)) : std::move(udp);
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

// The script of reads, the receive's time-out; what it delivers, its trace and the time it took.
using FramedCase = std::tuple<std::vector<Poll>, std::uint32_t, Bytes, std::string, std::uint32_t>;

void check(Kind kind, const FramedCase& row) {
  const auto& [script, timeout_ms, result, trace, elapsed_ms] = row;
  FramedLink link(kind);
  int idle = 0;
  EXPECT_EQ(link.receive(script, timeout_ms, [&] { ++idle; }), result);
  EXPECT_EQ(link.ports.trace, trace) << static_cast<int>(kind);
  EXPECT_EQ(link.ports.now - link.ports.script_start, elapsed_ms);
  // The idle callback runs after every wait or sleep, never in between.
  EXPECT_EQ(idle,
            std::ranges::count_if(trace, [](char step) { return step == 'w' || step == 's'; }));
}

const std::vector<Kind> BOTH{Kind::serial, Kind::udp};

TEST(FramedReceive, WaitsForTheWholeFrameAndNoLonger) {
  for (const FramedCase& row : std::vector<FramedCase>{
           // A frame split over reads (datagrams) is put back together; the quiet time plays no
           // part once bytes are in.
           {{arrives(10, slice(ANSWER, 0, 5)), arrives(130, slice(ANSWER, 5, 16))},
            0,
            ANSWER,
            " r0 w50 r5 r0 w50 r0 w50 r0 w50 r11",
            130},
           // Part of a frame is silence; the deadline counts from the call, in waits of at most
           // 50 ms. (The open's time-out when none is given: the fast profiles below.)
           {{arrives(0, slice(ANSWER, 0, 15))}, 120, {}, " r15 r0 w50 r0 w50 r0 w20 r0", 120},
           // A stray start byte announces a frame that hides the real one; 150 ms of quiet tell
           // it was a false start.
           {{arrives(10, Bytes{RESPONSE_START} + ANSWER)},
            0,
            ANSWER,
            " r0 w50 r17 r0 w50 r0 w50 r0 w50 r0",
            160}}) {
    for (const Kind kind : BOTH) {
      check(kind, row);
    }
  }
  // A line that keeps waking the wait with nothing to read is slept on, not spun on.
  check(Kind::serial,
        {std::vector<Poll>(8, Poll{}), 120, {}, " r0 w50 r0 w50 r0 s50 r0 s50 r0 s20 r0", 120});
  // Other senders' datagrams neither end nor spoil the response.
  check(Kind::udp, {{arrives(0, slice(ANSWER, 0, 8)), arrives(5, ACK, OTHER),
                     arrives(10, slice(ANSWER, 8, 16))},
                    0,
                    ANSWER,
                    " r8 r0 w50 r12 r0 w50 r8",
                    10});
}

// A send first reads away what is left: the rest of an earlier read and a late duplicate answer.
// Only then is the request written, and the next receive takes the new answer alone.
TEST(FramedSend, DrainsWhatIsLeftOver) {
  for (const Kind kind : BOTH) {
    FramedLink link(kind);
    EXPECT_EQ(link.receive({arrives(0, ANSWER + slice(ACK, 0, 6))}, 0), ANSWER);
    link.ports.polls.push_back(arrives(0, ANSWER));
    link.ports.trace.clear();
    EXPECT_EQ(link.transport->send(sequence(12)), 12);
    EXPECT_EQ(link.ports.trace, " r16 r0");
    const Bytes next = response(0, 0x44, {9});
    EXPECT_EQ(link.receive({arrives(5, slice(ACK, 6, 12)), arrives(5, next)}, 0), next);
  }
}

// The fast profiles reach the transports as framed reception: a silent device is waited on, not
// polled, and the link's progress runs after every wait.
TEST(FramedReceive, FastProfilesOpenFramedLinks) {
  for (const auto& [address, profile, waits] :
       std::vector<std::tuple<DeviceAddress, LinkProfile, int>>{
           {ComPort{2}, FAST_SERIAL_PROFILE, 5},
           {UdpDevice{DEVICE_ENDPOINT.address}, FAST_UDP_PROFILE, 40}}) {
    FakePortLayer ports;
    int progress = 0;
    DeviceLink link(ports, [&] { ++progress; });
    ASSERT_TRUE(link.open(address, profile).ok);
    std::array<std::uint8_t, 16> buffer{};
    EXPECT_EQ(link.driver()->receive(buffer, 12, 0), 0);
    std::string trace;
    for (int wait = 0; wait < waits; ++wait)
      trace += " r0 w50";
    EXPECT_EQ(std::tuple(ports.trace, progress), std::tuple(trace + " r0", waits));
  }
}

}  // namespace
}  // namespace pelmo::test
