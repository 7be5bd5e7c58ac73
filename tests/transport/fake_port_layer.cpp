#include "fake_port_layer.hpp"

#include <algorithm>

namespace pelmo::test {

namespace {

class FakeSerialDevice final : public port::SerialDevice {
 public:
  explicit FakeSerialDevice(std::shared_ptr<SerialLine> line) : line_(std::move(line)) {
    line_->device_alive = true;
  }
  ~FakeSerialDevice() override { line_->device_alive = false; }

  std::int32_t read(std::span<std::uint8_t> buffer) override {
    line_->read_sizes.push_back(buffer.size());
    if (line_->polls.empty()) {
      return 0;
    }
    SerialPoll& poll = line_->polls.front();
    if (poll.fails) {
      line_->polls.pop_front();
      return -1;
    }
    // Like a real port, a read takes no more than it was offered; the rest waits for the next.
    const std::size_t count = std::min(buffer.size(), poll.bytes.size());
    std::copy_n(poll.bytes.begin(), count, buffer.begin());
    poll.bytes.erase(poll.bytes.begin(), poll.bytes.begin() + static_cast<std::ptrdiff_t>(count));
    if (poll.bytes.empty()) {
      line_->polls.pop_front();
    }
    return static_cast<std::int32_t>(count);
  }

  std::int32_t write(std::span<const std::uint8_t> bytes) override {
    line_->written.insert(line_->written.end(), bytes.begin(), bytes.end());
    return line_->write_result.value_or(static_cast<std::int32_t>(bytes.size()));
  }

 private:
  std::shared_ptr<SerialLine> line_;
};

class FakeSocket final : public port::DatagramSocket {
 public:
  FakeSocket(std::shared_ptr<SocketState> state, FakePortLayer& ports)
      : state_(std::move(state)), ports_(ports) {
    state_->alive = true;
  }
  ~FakeSocket() override { state_->alive = false; }

  bool bind(const port::Ipv4Endpoint& local) override {
    if (state_->bind_result) {
      state_->bound = local;
    }
    return state_->bind_result;
  }
  bool set_non_blocking() override {
    ++state_->non_blocking_calls;
    return true;
  }
  bool set_receive_timeout(std::uint32_t seconds, std::uint32_t microseconds) override {
    state_->receive_timeouts.emplace_back(seconds, microseconds);
    return state_->receive_timeout_result;
  }
  std::int32_t send_to(const port::Ipv4Endpoint& to, std::span<const std::uint8_t> bytes) override {
    state_->sent.emplace_back(to, Bytes(bytes.begin(), bytes.end()));
    return state_->send_result != 0 ? state_->send_result : static_cast<std::int32_t>(bytes.size());
  }
  std::int32_t receive_from(std::span<std::uint8_t> buffer, port::Ipv4Endpoint& from) override {
    ++state_->receive_calls;
    if (state_->polls.empty()) {
      return 0;
    }
    const DatagramPoll poll = state_->polls.front();
    state_->polls.pop_front();
    ports_.now += poll.elapse_ms;
    // A datagram is cut to the buffer; its rest is lost, as with a real socket.
    const std::size_t count = std::min(buffer.size(), poll.bytes.size());
    std::copy_n(poll.bytes.begin(), count, buffer.begin());
    from = poll.sender;
    return static_cast<std::int32_t>(count);
  }

 private:
  std::shared_ptr<SocketState> state_;
  FakePortLayer& ports_;
};

}  // namespace

port::SerialOpenResult FakePortLayer::open_serial(int port_index, std::string_view settings) {
  serial_opens.emplace_back(port_index, std::string(settings));
  port::SerialOpenResult result;
  result.status = serial_status;
  if (serial_status == port::SerialOpenStatus::ok) {
    result.device = std::make_unique<FakeSerialDevice>(line);
  }
  return result;
}

std::unique_ptr<port::DatagramSocket> FakePortLayer::open_datagram_socket() {
  if (!socket_available) {
    return nullptr;
  }
  return std::make_unique<FakeSocket>(socket, *this);
}

Bytes sequence(std::size_t count, std::uint8_t first) {
  Bytes bytes(count);
  for (std::size_t i = 0; i < count; ++i) {
    bytes[i] = static_cast<std::uint8_t>(first + i);
  }
  return bytes;
}

std::string captured_output(const std::function<void(std::FILE*)>& action) {
  std::FILE* stream = std::tmpfile();
  action(stream);
  std::string text(static_cast<std::size_t>(std::ftell(stream)), '\0');
  std::rewind(stream);
  text.resize(std::fread(text.data(), 1, text.size(), stream));
  std::fclose(stream);
  return text;
}

}  // namespace pelmo::test
