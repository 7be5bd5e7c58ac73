#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <variant>

#include "pelmo/transport/framed_reception.hpp"
#include "pelmo/transport/port_layer.hpp"
#include "pelmo/transport/transport.hpp"

namespace pelmo {

// A COM port by number: index 0 is COM1. The port layer finds the device behind it.
struct ComPort {
  int index = 0;
};

// A serial port: a COM port, or a device path such as "/dev/ttyUSB0" or "\\.\COM3".
using SerialPort = std::variant<ComPort, std::string>;

// Carries frames over a serial line. A response is complete after a quiet time (polled), or,
// framed, as soon as its whole frame is in (waited for). One object holds at most one port: a
// successful open releases the port opened before, a failed one leaves it in use.
class SerialTransport final : public Transport {
 public:
  // The pause between two reads; the idle time is counted in these steps, not clocked.
  static constexpr std::uint32_t POLL_INTERVAL_MS = 10;

  explicit SerialTransport(port::PortLayer& ports);

  // Checks the arguments (the COM number, `baud_rate` against BAUD_RATES, `mode`: three
  // characters, data bits 5-8, parity N/E/O in either case, stop bits 1 or 2), opens the port with
  // DTR and RTS raised and only then takes the port and `times`.
  OpenResult open(const SerialPort& port, std::int32_t baud_rate, std::string_view mode,
                  ResponseTimes times);

  // Writes all of `bytes` in one call: the count the port took, or SEND_FAILED. Framed, what
  // arrived and was not taken is read away first.
  std::int32_t send(std::span<const std::uint8_t> bytes) override;
  // Quiet time: polls every 10 ms, counting each empty poll as 10 ms of idle time. Framed: waits
  // on the port until a whole frame is in.
  std::int32_t receive(std::span<std::uint8_t> buffer, std::uint16_t min_count,
                       std::uint32_t timeout_ms, const ProgressFunction& idle) override;
  void close() override { device_.reset(); }
  bool is_open() const override { return device_ != nullptr; }

  // The open port's device, for a caller that waits on it with wait_readable.
  port::SerialDevice* device() const { return device_.get(); }
  const ResponseTimes& times() const { return times_; }

 private:
  port::PortLayer& ports_;
  std::unique_ptr<port::SerialDevice> device_;
  ResponseTimes times_;
  FramedReception framed_;
};

}  // namespace pelmo
