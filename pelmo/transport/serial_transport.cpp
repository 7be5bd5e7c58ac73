#include "pelmo/transport/serial_transport.hpp"

#include <algorithm>
#include <initializer_list>
#include <optional>
#include <utility>

#include "pelmo/transport/serial_settings.hpp"

namespace pelmo {

namespace {

constexpr std::array<std::int32_t, 15> ACCEPTED_BAUD_RATES = {
    110,   300,   600,    1200,   2400,   4800,   9600,   19200,
    38400, 57600, 115200, 128000, 256000, 500000, 1000000};

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

// Writes `parts` and one line feed; a null stream swallows the message.
void write_line(std::FILE* messages, std::initializer_list<std::string_view> parts) {
  if (messages == nullptr) {
    return;
  }
  for (const std::string_view part : parts) {
    std::fwrite(part.data(), 1, part.size(), messages);
  }
  std::fputc('\n', messages);
}

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

}  // namespace

SerialTransport::SerialTransport(port::PortLayer& ports) : ports_(ports) {}

SerialTransport::~SerialTransport() = default;

int SerialTransport::open(int port_index, std::int32_t baud_rate, std::string_view mode,
                          std::int32_t first_byte_timeout_ms, std::int32_t inter_byte_timeout_ms,
                          ProgressFunction progress, std::FILE* messages) {
  // A negative index fails the same check as one past the end.
  if (static_cast<unsigned>(port_index) >= static_cast<unsigned>(PORT_COUNT)) {
    write_line(messages, {"illegal comport number"});
    return 1;
  }
  if (std::find(ACCEPTED_BAUD_RATES.begin(), ACCEPTED_BAUD_RATES.end(), baud_rate) ==
      ACCEPTED_BAUD_RATES.end()) {
    write_line(messages, {"invalid baudrate"});
    return 1;
  }
  if (mode.size() != 3) {
    write_line(messages, {"invalid mode \"", mode, "\""});
    return 1;
  }
  const char data_bits = mode[0];
  if (data_bits < '5' || data_bits > '8') {
    write_line(messages, {"invalid number of data-bits '", mode.substr(0, 1), "'"});
    return 1;
  }
  const std::optional<Parity> parity = parity_of(mode[1]);
  if (!parity) {
    write_line(messages, {"invalid parity '", mode.substr(1, 1), "'"});
    return 1;
  }
  const char stop_bits = mode[2];
  if (stop_bits != '1' && stop_bits != '2') {
    write_line(messages, {"invalid number of stop bits '", mode.substr(2, 1), "'"});
    return 1;
  }

  // DTR and RTS are raised by the settings themselves; there is no separate line control.
  const LineSettings line{baud_rate, static_cast<std::uint8_t>(data_bits - '0'),
                          *parity,   static_cast<std::uint8_t>(stop_bits - '0'),
                          true,      true};
  std::string settings_text = format_line_settings(line);

  port::SerialOpenResult opened = ports_.open_serial(port_index, settings_text);
  if (opened.status != port::SerialOpenStatus::ok || !opened.device) {
    const auto failure = std::find_if(
        OPEN_FAILURE_MESSAGES.begin(), OPEN_FAILURE_MESSAGES.end(),
        [&](const OpenFailureMessage& entry) { return entry.status == opened.status; });
    write_line(messages, {failure != OPEN_FAILURE_MESSAGES.end() ? failure->text
                                                                 : OPEN_FAILURE_MESSAGES[0].text});
    return 1;
  }

  port_handles_[static_cast<std::size_t>(port_index)] = std::move(opened.device);
  port_index_ = port_index;
  first_byte_timeout_ms_ = first_byte_timeout_ms;
  inter_byte_timeout_ms_ = inter_byte_timeout_ms;
  progress_ = std::move(progress);
  settings_text_ = std::move(settings_text);
  return 0;
}

std::int32_t SerialTransport::send(std::span<const std::uint8_t> bytes) {
  if (!is_open()) {
    return -1;
  }
  const std::int32_t written = port_handles_[static_cast<std::size_t>(port_index_)]->write(bytes);
  return written < 0 ? -1 : written;
}

std::int32_t SerialTransport::receive(std::span<std::uint8_t> buffer, std::uint16_t min_count,
                                      std::uint32_t timeout_ms) {
  if (!is_open()) {
    return 0;
  }
  port::SerialDevice& device = *port_handles_[static_cast<std::size_t>(port_index_)];
  const std::int64_t first_byte_timeout =
      timeout_ms == 0 ? first_byte_timeout_ms_ : static_cast<std::int64_t>(timeout_ms);
  const std::size_t capacity = std::min(buffer.size(), MAX_CAPACITY);

  std::size_t received = 0;
  std::int64_t idle_ms = 0;  // counted per empty poll, not clocked
  while (received < capacity) {
    const std::int32_t count = device.read(buffer.subspan(received, capacity - received));
    if (count > 0) {
      received += std::min(static_cast<std::size_t>(count), capacity - received);
      idle_ms = 0;
    } else {
      // A failed read is an empty poll.
      idle_ms += POLL_INTERVAL_MS;
      if (received == 0 && idle_ms >= first_byte_timeout) {
        return 0;
      }
      if (received > 0 && idle_ms >= inter_byte_timeout_ms_) {
        return static_cast<std::int32_t>(received);
      }
      if (min_count > 0 && received >= min_count) {
        return static_cast<std::int32_t>(received);
      }
    }
    ports_.sleep_ms(POLL_INTERVAL_MS);
    if (progress_) {
      progress_();
    }
  }
  return static_cast<std::int32_t>(received);
}

void SerialTransport::close() {
  if (!is_open()) {
    return;
  }
  port_handles_[static_cast<std::size_t>(port_index_)].reset();
  port_index_ = NO_PORT;
}

}  // namespace pelmo
