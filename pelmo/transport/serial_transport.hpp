#pragma once

#include <array>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "pelmo/protocol/link_driver.hpp"
#include "pelmo/transport/port_layer.hpp"

namespace pelmo {

// Carries frames over a COM port. It knows nothing of frames: it moves bytes and decides by time
// when a response is complete (a first-byte time-out while nothing has arrived, a quiet time once
// something has). The caller owns the object; every operation works on the port that the last
// successful open chose.
class SerialTransport {
 public:
  static constexpr int PORT_COUNT = 16;
  static constexpr int NO_PORT = 255;
  // The pause between two reads; the idle time is counted in these steps, not clocked.
  static constexpr std::int32_t POLL_INTERVAL_MS = 10;

  explicit SerialTransport(port::PortLayer& ports);
  SerialTransport(const SerialTransport&) = delete;
  SerialTransport& operator=(const SerialTransport&) = delete;
  ~SerialTransport();

  // Checks the arguments, opens COM<port_index + 1> with the line settings built from `baud_rate`
  // and `mode` (three characters: data bits 5-8, parity N/E/O in either case, stop bits 1 or 2)
  // and only then stores the index, the time-outs and `progress`. Returns 0, or 1 after writing
  // the reason as one line to `messages` (null writes nothing); a failed open leaves the stored
  // state as it was.
  int open(int port_index, std::int32_t baud_rate, std::string_view mode,
           std::int32_t first_byte_timeout_ms, std::int32_t inter_byte_timeout_ms,
           ProgressFunction progress, std::FILE* messages = stdout);

  // Writes all of `bytes` in one call: the count the port took, or -1 when no port is open or the
  // write fails.
  std::int32_t send(std::span<const std::uint8_t> bytes);

  // Polls every 10 ms into `buffer` (its size is the capacity, cut to 65535). Waits `timeout_ms`
  // (0: the first-byte time-out given at open) for a first byte, then ends after the quiet time,
  // or at the first quiet poll once `min_count` (> 0) bytes are in, or when the buffer is full.
  // Returns the count placed, 0 for silence or when no port is open; never negative.
  std::int32_t receive(std::span<std::uint8_t> buffer, std::uint16_t min_count,
                       std::uint32_t timeout_ms);

  // Releases the current port; nothing happens when none is open.
  void close();

  bool is_open() const { return port_index_ != NO_PORT; }
  int port_index() const { return port_index_; }
  std::int32_t first_byte_timeout_ms() const { return first_byte_timeout_ms_; }
  std::int32_t inter_byte_timeout_ms() const { return inter_byte_timeout_ms_; }
  // The line settings of the open port, e.g. "baud=115200 data=8 parity=n stop=1 dtr=on rts=on".
  std::string_view settings_text() const { return settings_text_; }

 private:
  port::PortLayer& ports_;
  int port_index_ = NO_PORT;
  std::array<std::unique_ptr<port::SerialDevice>, PORT_COUNT> port_handles_;
  std::int32_t first_byte_timeout_ms_ = 1;
  std::int32_t inter_byte_timeout_ms_ = 1;
  ProgressFunction progress_;
  std::string settings_text_;
};

}  // namespace pelmo
