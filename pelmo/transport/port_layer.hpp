#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <span>
#include <string_view>
#include <vector>

// The port layer: the only place that calls the operating system's serial, socket and clock
// functions. One interface, one backend per platform (posix/ or win32/), chosen at build time.
// The transports above it hold the polling algorithms and are the same on every platform.
namespace pelmo::port {

// An open serial device configured so that reads return at once with what has arrived.
class SerialDevice {
 public:
  virtual ~SerialDevice() = default;
  // Reads what is there without waiting: the count placed (0 when none), or -1 on failure.
  virtual std::int32_t read(std::span<std::uint8_t> buffer) = 0;
  // Writes all bytes in one call: the count taken, or -1 on failure.
  virtual std::int32_t write(std::span<const std::uint8_t> bytes) = 0;
};

// The step of opening a serial port that failed, each with its own message in the transport.
enum class SerialOpenStatus { ok, open_failed, settings_failed, config_failed, timeouts_failed };

struct SerialOpenResult {
  SerialOpenStatus status = SerialOpenStatus::open_failed;
  std::unique_ptr<SerialDevice> device;  // set only when status is ok
  int os_error = 0;                      // the platform's error code of the failed step
};

struct Ipv4Endpoint {
  std::array<std::uint8_t, 4> address{};  // dotted order: a, b, c, d
  std::uint16_t port = 0;
  friend bool operator==(const Ipv4Endpoint&, const Ipv4Endpoint&) = default;
};

// An IPv4 datagram socket.
class DatagramSocket {
 public:
  virtual ~DatagramSocket() = default;
  virtual bool bind(const Ipv4Endpoint& local) = 0;
  virtual bool set_non_blocking() = 0;
  // The receive time-out option (seconds, microseconds); false when the option is refused.
  virtual bool set_receive_timeout(std::uint32_t seconds, std::uint32_t microseconds) = 0;
  // One datagram to `to`: the count sent, or a negative value on failure.
  virtual std::int32_t send_to(const Ipv4Endpoint& to, std::span<const std::uint8_t> bytes) = 0;
  // One waiting datagram, cut to the buffer: its count and sender; 0 when none is waiting or on
  // any error (a reset after an unreachable port included).
  virtual std::int32_t receive_from(std::span<std::uint8_t> buffer, Ipv4Endpoint& from) = 0;
};

class PortLayer {
 public:
  virtual ~PortLayer() = default;

  // Opens serial port `port_index` (0 is COM1) and applies `settings`, a text such as
  // "baud=115200 data=8 parity=n stop=1 dtr=on rts=on", exclusive access and non-blocking reads.
  virtual SerialOpenResult open_serial(int port_index, std::string_view settings) = 0;

  // Starts and releases the socket library (a no-op where there is none).
  virtual bool start_sockets(std::uint8_t major, std::uint8_t minor) = 0;
  virtual void stop_sockets() = 0;
  virtual std::unique_ptr<DatagramSocket> open_datagram_socket() = 0;
  // The host's own IPv4 addresses, from its name, in the order the lookup gives them.
  virtual std::vector<std::array<std::uint8_t, 4>> host_addresses() = 0;

  // 32-bit millisecond tick that wraps; elapsed times are unsigned differences.
  virtual std::uint32_t tick_ms() = 0;
  virtual void sleep_ms(std::uint32_t milliseconds) = 0;
};

// The backend of the platform the program was built for.
PortLayer& system_port_layer();

// Receives the number of a signal that asks the run to stop. It runs in a signal handler (on
// Windows on a console control thread), so it may only store into a lock-free atomic.
using InterruptHandler = void (*)(int signal_number);

// Hands SIGINT, SIGTERM and SIGHUP (on Windows: Ctrl+C, Ctrl+Break and the console window's close,
// as SIGINT, SIGBREAK and SIGTERM) to `handler` instead of ending the process; system calls they
// interrupt are not restarted. A write to a closed pipe then fails with an error instead of ending
// the process: a console that went away must not stop a flash half way.
void install_interrupt_handler(InterruptHandler handler);

// The name of a signal number given to the handler ("SIGINT"), or "" for any other number.
std::string_view interrupt_signal_name(int signal_number);

// Makes standard output pass bytes unchanged ("\n" stays one byte) so the console output is the
// same on every platform; called once by the program before it prints.
void prepare_console();

}  // namespace pelmo::port
