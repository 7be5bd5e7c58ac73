#include "pelmo/transport/serial_transport.hpp"

#include <algorithm>
#include <array>
#include <optional>
#include <utility>

namespace pelmo {

namespace {

struct OpenFailureMessage {
  port::SerialOpenStatus status;
  std::string_view text;
};

// What the user reads for each port-layer step that can fail.
constexpr std::array<OpenFailureMessage, 4> OPEN_FAILURE_MESSAGES = {{
    {port::SerialOpenStatus::open_failed, "unable to open comport"},
    {port::SerialOpenStatus::settings_failed, "unable to set comport dcb settings"},
    {port::SerialOpenStatus::config_failed, "unable to set comport cfg settings"},
    {port::SerialOpenStatus::timeouts_failed, "unable to set comport time-out settings"},
}};

constexpr std::size_t MAX_CAPACITY = 0xFFFF;

std::optional<Parity> parity_of(char letter) {
  switch (letter) {
    case 'N':
    case 'n':
      return Parity::none;
    case 'E':
    case 'e':
      return Parity::even;
    case 'O':
    case 'o':
      return Parity::odd;
    default:
      return std::nullopt;
  }
}

// The line settings of `baud_rate` and `mode`, or the message that refuses them.
std::variant<LineSettings, std::string> line_settings(std::int32_t baud_rate,
                                                      std::string_view mode) {
  if (std::find(BAUD_RATES.begin(), BAUD_RATES.end(), baud_rate) == BAUD_RATES.end()) {
    return "invalid baudrate";
  }
  if (mode.size() != 3) {
    return "invalid mode \"" + std::string(mode) + "\"";
  }
  if (mode[0] < '5' || mode[0] > '8') {
    return "invalid number of data-bits '" + std::string(1, mode[0]) + "'";
  }
  const std::optional<Parity> parity = parity_of(mode[1]);
  if (!parity) {
    return "invalid parity '" + std::string(1, mode[1]) + "'";
  }
  if (mode[2] != '1' && mode[2] != '2') {
    return "invalid number of stop bits '" + std::string(1, mode[2]) + "'";
  }
  // DTR and RTS are raised by the settings themselves; there is no separate line control.
  return LineSettings{baud_rate, static_cast<std::uint8_t>(mode[0] - '0'),
                      *parity,   static_cast<std::uint8_t>(mode[2] - '0'),
                      true,      true};
}

// The open port as the framed reception reads it.
class SerialSource final : public ByteSource {
 public:
  explicit SerialSource(port::SerialDevice& device) : device_(device) {}
  bool wait_readable(std::uint32_t timeout_ms) override {
    return device_.wait_readable(timeout_ms);
  }
  std::optional<std::size_t> read(std::span<std::uint8_t> buffer) override {
    const std::int32_t count = device_.read(buffer);
    if (count <= 0) {
      return std::nullopt;
    }
    return std::min(static_cast<std::size_t>(count), buffer.size());
  }

 private:
  port::SerialDevice& device_;
};

}  // namespace

SerialTransport::SerialTransport(port::PortLayer& ports) : ports_(ports) {}

OpenResult SerialTransport::open(const SerialPort& port, std::int32_t baud_rate,
                                 std::string_view mode, ResponseTimes times) {
  // A negative index fails the same check as one past the end.
  const ComPort* com = std::get_if<ComPort>(&port);
  if (com != nullptr &&
      static_cast<unsigned>(com->index) >= static_cast<unsigned>(port::COM_PORT_COUNT)) {
    return OpenResult::failure("illegal comport number");
  }
  auto line = line_settings(baud_rate, mode);
  if (auto* refused = std::get_if<std::string>(&line)) {
    return OpenResult::failure(std::move(*refused));
  }
  const std::string path =
      com != nullptr ? ports_.com_port_path(com->index) : std::get<std::string>(port);
  port::SerialOpenResult opened = ports_.open_serial(path, std::get<LineSettings>(line));
  if (opened.status != port::SerialOpenStatus::ok || !opened.device) {
    const auto failure = std::find_if(
        OPEN_FAILURE_MESSAGES.begin(), OPEN_FAILURE_MESSAGES.end(),
        [&](const OpenFailureMessage& entry) { return entry.status == opened.status; });
    const std::string_view text =
        failure != OPEN_FAILURE_MESSAGES.end() ? failure->text : OPEN_FAILURE_MESSAGES[0].text;
    return OpenResult::failure(std::string(text), opened.os_error);
  }
  device_ = std::move(opened.device);  // the port opened before, if any, is released here
  times_ = times;
  return OpenResult::success();
}

std::int32_t SerialTransport::send(std::span<const std::uint8_t> bytes) {
  if (!device_) {
    return SEND_FAILED;
  }
  if (times_.reception == Reception::framed) {
    SerialSource source(*device_);
    framed_.drain(source);
  }
  const std::int32_t written = device_->write(bytes);
  return written < 0 ? SEND_FAILED : written;
}

std::int32_t SerialTransport::receive(std::span<std::uint8_t> buffer, std::uint16_t min_count,
                                      std::uint32_t timeout_ms, const ProgressFunction& idle) {
  if (!device_) {
    return 0;
  }
  const std::uint64_t first_byte_timeout = timeout_ms == 0 ? times_.first_byte_ms : timeout_ms;
  const std::size_t capacity = std::min(buffer.size(), MAX_CAPACITY);
  if (times_.reception == Reception::framed) {
    SerialSource source(*device_);
    return framed_.receive(source, ports_, buffer.first(capacity),
                           static_cast<std::uint32_t>(first_byte_timeout), times_.quiet_ms, idle);
  }

  std::size_t received = 0;
  std::uint64_t idle_ms = 0;  // counted per empty poll, not clocked
  while (received < capacity) {
    const std::int32_t count = device_->read(buffer.subspan(received, capacity - received));
    if (count > 0) {
      received += std::min(static_cast<std::size_t>(count), capacity - received);
      idle_ms = 0;
    } else {
      // A failed read is an empty poll.
      idle_ms += POLL_INTERVAL_MS;
      if (received == 0 && idle_ms >= first_byte_timeout) {
        return 0;
      }
      if (received > 0 && idle_ms >= times_.quiet_ms) {
        return static_cast<std::int32_t>(received);
      }
      if (min_count > 0 && received >= min_count) {
        return static_cast<std::int32_t>(received);
      }
    }
    ports_.sleep_ms(POLL_INTERVAL_MS);
    if (idle) {
      idle();
    }
  }
  return static_cast<std::int32_t>(received);
}

}  // namespace pelmo
