#pragma once

#include <algorithm>
#include <deque>
#include <functional>
#include <memory>
#include <numeric>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "pelmo/protocol/link_driver.hpp"
#include "pelmo/transport/port_layer.hpp"

namespace pelmo::test {

using Bytes = std::vector<std::uint8_t>;

inline Bytes sequence(std::size_t count, std::uint8_t first = 1) {
  Bytes bytes(count);
  std::iota(bytes.begin(), bytes.end(), first);
  return bytes;
}

// One read of the fake serial line or socket: bytes (a datagram from `sender`), nothing when
// `bytes` is empty, or a failing read. It arrives `at` ms after the script's start; a read before
// then finds nothing and leaves it queued.
struct Poll {
  Bytes bytes{};
  port::Ipv4Endpoint sender{};
  bool fails = false;
  std::uint32_t at = 0;
};

// A port layer whose clock moves only when the code under test sleeps or waits: a wait ends at
// the next arrival, or after its time-out. The script of reads runs out into silence. A serial
// device stays held, and refuses a second opener, until the object that opened it lets it go.
class FakePortLayer : public port::PortLayer {
 public:
  std::deque<Poll> polls;
  int reads = 0, sockets_stopped = 0;
  std::optional<std::int32_t> write_result;  // overrides the count a write or send reports
  std::vector<port::Ipv4Endpoint> sent_to;

  port::SerialOpenStatus serial_status = port::SerialOpenStatus::ok;
  std::vector<std::string> serial_opens;  // the paths asked for
  LineSettings line;                      // the settings of the last serial open
  std::set<std::string> held;
  port::OsError start_error, bind_error;
  bool socket_available = true;
  std::vector<std::array<std::uint8_t, 4>> host;

  // The clock, its reading the arrival times count from, and what every sleep adds to its time,
  // as a loaded system would.
  std::uint32_t now = 0, script_start = 0, oversleep_ms = 0;
  std::vector<std::uint32_t> sleeps;
  // Every read ("rN", N the count it returned), wait ("wT", T its time-out) and sleep ("sT").
  std::string trace;
  std::function<void(std::uint32_t now)> on_sleep;  // runs after each sleep

  std::string com_port_path(int index) override { return "COM" + std::to_string(index + 1); }
  port::SerialOpenResult open_serial(const std::string& path, const LineSettings& s) override {
    serial_opens.push_back(path);
    line = s;
    const bool taken = held.contains(path);  // answered as a held port is
    const auto status = taken ? port::SerialOpenStatus::open_failed : serial_status;
    const bool ok = status == port::SerialOpenStatus::ok;
    return {status, ok ? std::make_unique<End>(*this, path) : nullptr, taken ? 16 : ok ? 0 : 5};
  }
  port::OsError start_sockets(std::uint8_t, std::uint8_t) override { return start_error; }
  void stop_sockets() override { ++sockets_stopped; }
  port::DatagramSocketResult open_datagram_socket() override {
    return {socket_available ? std::make_unique<End>(*this, "") : nullptr,
            {socket_available ? 0 : 24}};
  }
  std::vector<std::array<std::uint8_t, 4>> host_addresses() override { return host; }
  std::uint32_t tick_ms() override { return now; }
  void sleep_ms(std::uint32_t milliseconds) override {
    sleeps.push_back(milliseconds);
    trace += " s" + std::to_string(milliseconds);
    now += milliseconds + oversleep_ms;
    if (on_sleep) {
      on_sleep(now);
    }
  }

 private:
  // One fake end serves as the serial device or the socket; either reads the same script.
  struct End final : port::SerialDevice, port::DatagramSocket {
    FakePortLayer& p;
    std::string path;
    End(FakePortLayer& ports, std::string device) : p(ports), path(std::move(device)) {
      p.held.insert(path);
    }
    ~End() override { p.held.erase(path); }
    // Like a real port, a read takes no more than it was offered; the rest of a poll is lost.
    std::int32_t receive_from(std::span<std::uint8_t> buffer, port::Ipv4Endpoint& from) override {
      ++p.reads;
      const Poll poll = p.arrival_in(0) ? p.polls.front() : Poll{};
      if (p.arrival_in(0)) {
        p.polls.pop_front();
      }
      const std::size_t count = std::min(buffer.size(), poll.bytes.size());
      std::copy_n(poll.bytes.begin(), count, buffer.begin());
      from = poll.sender;
      const std::int32_t result = poll.fails ? -1 : static_cast<std::int32_t>(count);
      p.trace += " r" + std::to_string(result);
      return result;
    }
    std::int32_t read(std::span<std::uint8_t> buffer) override {
      port::Ipv4Endpoint from;
      return receive_from(buffer, from);
    }
    std::int32_t write(std::span<const std::uint8_t> bytes) override {
      return p.write_result.value_or(static_cast<std::int32_t>(bytes.size()));
    }
    std::int32_t send_to(const port::Ipv4Endpoint& to, std::span<const std::uint8_t> b) override {
      p.sent_to.push_back(to);
      return write(b);
    }
    port::OsError bind(const port::Ipv4Endpoint&) override { return p.bind_error; }
    bool wait_readable(std::uint32_t timeout_ms) override {
      p.trace += " w" + std::to_string(timeout_ms);
      const std::optional<std::uint32_t> arrival = p.arrival_in(timeout_ms);
      p.now += arrival.value_or(timeout_ms);
      return arrival.has_value();
    }
  };

  // How long until the next scripted read arrives, if it does within `within_ms`.
  std::optional<std::uint32_t> arrival_in(std::uint32_t within_ms) const {
    const std::uint32_t elapsed = now - script_start;  // the tick wraps
    const std::uint32_t at = polls.empty() ? 0 : polls.front().at;
    const std::uint32_t until = at > elapsed ? at - elapsed : 0;
    return !polls.empty() && until <= within_ms ? std::optional(until) : std::nullopt;
  }
};

// Queues `script` and receives into a buffer of `capacity`; checks that the buffer holds the
// script's bytes in order and nothing past the capacity.
template <class Transport>
std::int32_t receive_script(Transport& transport, FakePortLayer& ports,
                            const std::vector<Poll>& script, std::size_t capacity,
                            std::uint16_t min_count, std::uint32_t timeout_ms,
                            const ProgressFunction& idle) {
  Bytes expected, storage(capacity + 8, 0xEE);
  for (const Poll& poll : script) {
    ports.polls.push_back(poll);
    expected.insert(expected.end(), poll.bytes.begin(), poll.bytes.end());
  }
  const std::int32_t result =
      transport.receive(std::span(storage).first(capacity), min_count, timeout_ms, idle);
  expected.resize(static_cast<std::size_t>(result));
  EXPECT_EQ(Bytes(storage.begin(), storage.begin() + result), expected);
  EXPECT_EQ(Bytes(storage.end() - 8, storage.end()), Bytes(8, 0xEE)) << "past the capacity";
  return result;
}

}  // namespace pelmo::test
