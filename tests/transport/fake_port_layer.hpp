#pragma once

#include <algorithm>
#include <cstdio>
#include <deque>
#include <functional>
#include <memory>
#include <numeric>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "transport/port_layer.hpp"

namespace pelmo::test {

using Bytes = std::vector<std::uint8_t>;

inline Bytes sequence(std::size_t count, std::uint8_t first = 1) {
  Bytes bytes(count);
  std::iota(bytes.begin(), bytes.end(), first);
  return bytes;
}

// One read of the fake serial line or socket: bytes (a datagram from `sender`), nothing when
// `bytes` is empty, or a failing read; `elapse_ms` passes on the clock while the call runs.
struct Poll {
  Bytes bytes{};
  port::Ipv4Endpoint sender{};
  std::uint32_t elapse_ms = 0;
  bool fails = false;
};

// A port layer whose clock moves only when the code under test sleeps (or a read takes time).
// The script of reads runs out into silence.
class FakePortLayer : public port::PortLayer {
 public:
  std::deque<Poll> polls;
  int reads = 0;
  std::vector<std::pair<port::Ipv4Endpoint, Bytes>> written;  // serial writes have no address
  std::optional<std::int32_t> write_result;  // overrides the count a write or send reports
  int open_devices = 0;                      // serial devices and sockets alive

  port::SerialOpenStatus serial_status = port::SerialOpenStatus::ok;
  std::vector<std::string> serial_opens;  // the settings text of each open
  bool start_result = true, socket_available = true, bind_result = true;
  int stops = 0;
  std::vector<std::array<std::uint8_t, 4>> host;

  std::uint32_t now = 0;
  std::uint32_t oversleep_ms = 0;  // added to every sleep, as a loaded system would
  std::vector<std::uint32_t> sleeps;

  port::SerialOpenResult open_serial(int, std::string_view settings) override {
    serial_opens.emplace_back(settings);
    port::SerialOpenResult result{serial_status, nullptr};
    if (serial_status == port::SerialOpenStatus::ok) {
      result.device = std::make_unique<Serial>(*this);
    }
    return result;
  }
  bool start_sockets(std::uint8_t, std::uint8_t) override { return start_result; }
  void stop_sockets() override { ++stops; }
  std::unique_ptr<port::DatagramSocket> open_datagram_socket() override {
    return socket_available ? std::make_unique<Socket>(*this) : nullptr;
  }
  std::vector<std::array<std::uint8_t, 4>> host_addresses() override { return host; }
  std::uint32_t tick_ms() override { return now; }
  void sleep_ms(std::uint32_t milliseconds) override {
    sleeps.push_back(milliseconds);
    now += milliseconds + oversleep_ms;
  }

 private:
  // Like a real port, a read takes no more than it was offered; the rest of a poll is lost.
  std::int32_t read(std::span<std::uint8_t> buffer, port::Ipv4Endpoint& from) {
    ++reads;
    if (polls.empty()) {
      return 0;
    }
    const Poll poll = polls.front();
    polls.pop_front();
    now += poll.elapse_ms;
    const std::size_t count = std::min(buffer.size(), poll.bytes.size());
    std::copy_n(poll.bytes.begin(), count, buffer.begin());
    from = poll.sender;
    return poll.fails ? -1 : static_cast<std::int32_t>(count);
  }
  std::int32_t write(const port::Ipv4Endpoint& to, std::span<const std::uint8_t> bytes) {
    written.emplace_back(to, Bytes(bytes.begin(), bytes.end()));
    return write_result.value_or(static_cast<std::int32_t>(bytes.size()));
  }

  struct Device {
    FakePortLayer& p;
    explicit Device(FakePortLayer& ports) : p(ports) { ++p.open_devices; }
    ~Device() { --p.open_devices; }
  };
  struct Serial final : port::SerialDevice, Device {
    using Device::Device;
    std::int32_t read(std::span<std::uint8_t> buffer) override {
      port::Ipv4Endpoint from;
      return p.read(buffer, from);
    }
    std::int32_t write(std::span<const std::uint8_t> bytes) override { return p.write({}, bytes); }
  };
  struct Socket final : port::DatagramSocket, Device {
    using Device::Device;
    bool bind(const port::Ipv4Endpoint&) override { return p.bind_result; }
    bool set_non_blocking() override { return true; }
    bool set_receive_timeout(std::uint32_t, std::uint32_t) override { return true; }
    std::int32_t send_to(const port::Ipv4Endpoint& to,
                         std::span<const std::uint8_t> bytes) override {
      return p.write(to, bytes);
    }
    std::int32_t receive_from(std::span<std::uint8_t> buffer, port::Ipv4Endpoint& from) override {
      return p.read(buffer, from);
    }
  };
};

// Everything `action` writes to the stream it is given.
inline std::string captured_output(const std::function<void(std::FILE*)>& action) {
  std::FILE* stream = std::tmpfile();
  action(stream);
  std::string text(static_cast<std::size_t>(std::ftell(stream)), '\0');
  std::rewind(stream);
  text.resize(std::fread(text.data(), 1, text.size(), stream));
  std::fclose(stream);
  return text;
}

}  // namespace pelmo::test
