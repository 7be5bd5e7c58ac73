#pragma once

#include <cstdint>
#include <cstdio>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "transport/port_layer.hpp"

namespace pelmo::test {

using Bytes = std::vector<std::uint8_t>;

// What one read of the fake serial line returns: bytes, nothing, or a failure.
struct SerialPoll {
  Bytes bytes;
  bool fails = false;
};

// The far end of the fake serial line, shared between the test and the device the transport owns.
struct SerialLine {
  std::deque<SerialPoll> polls;         // one entry per read; an exhausted script reads as silence
  std::vector<std::size_t> read_sizes;  // the space each read offered
  Bytes written;
  std::optional<std::int32_t> write_result;  // overrides the count a write reports
  bool device_alive = false;
};

// One poll of the fake socket: a datagram from `sender`, or nothing; `elapse_ms` passes on the
// clock while the call runs.
struct DatagramPoll {
  Bytes bytes;
  port::Ipv4Endpoint sender;
  std::uint32_t elapse_ms = 0;
};

struct SocketState {
  bool bind_result = true;
  std::optional<port::Ipv4Endpoint> bound;
  bool receive_timeout_result = true;
  std::vector<std::pair<std::uint32_t, std::uint32_t>> receive_timeouts;
  int non_blocking_calls = 0;
  std::deque<DatagramPoll> polls;  // an exhausted script reads as nothing waiting
  int receive_calls = 0;
  std::vector<std::pair<port::Ipv4Endpoint, Bytes>> sent;
  std::int32_t send_result = 0;  // 0: the count of bytes given
  bool alive = false;
};

// A port layer whose clock moves only when the code under test sleeps (or a script says so).
class FakePortLayer final : public port::PortLayer {
 public:
  // Serial.
  port::SerialOpenStatus serial_status = port::SerialOpenStatus::ok;
  std::vector<std::pair<int, std::string>> serial_opens;
  std::shared_ptr<SerialLine> line = std::make_shared<SerialLine>();

  // Sockets.
  bool start_result = true;
  std::vector<std::pair<int, int>> starts;
  int stops = 0;
  bool socket_available = true;
  std::shared_ptr<SocketState> socket = std::make_shared<SocketState>();
  std::vector<std::array<std::uint8_t, 4>> host;

  // Clock.
  std::uint32_t now = 0;
  std::uint32_t oversleep_ms = 0;  // added to every sleep, as a loaded system would
  std::vector<std::uint32_t> sleeps;

  port::SerialOpenResult open_serial(int port_index, std::string_view settings) override;
  bool start_sockets(std::uint8_t major, std::uint8_t minor) override {
    starts.emplace_back(major, minor);
    return start_result;
  }
  void stop_sockets() override { ++stops; }
  std::unique_ptr<port::DatagramSocket> open_datagram_socket() override;
  std::vector<std::array<std::uint8_t, 4>> host_addresses() override { return host; }
  std::uint32_t tick_ms() override { return now; }
  void sleep_ms(std::uint32_t milliseconds) override {
    sleeps.push_back(milliseconds);
    now += milliseconds + oversleep_ms;
  }
};

// Counts the calls of a progress callback.
struct ProgressCounter {
  int calls = 0;
  auto callback() {
    return [this] { ++calls; };
  }
};

Bytes sequence(std::size_t count, std::uint8_t first = 1);

// Everything `action` writes to the stream it is given.
std::string captured_output(const std::function<void(std::FILE*)>& action);

}  // namespace pelmo::test
