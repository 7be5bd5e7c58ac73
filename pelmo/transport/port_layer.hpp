#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "pelmo/transport/serial_settings.hpp"

// The port layer: the only place that calls the operating system's serial, socket and clock
// functions. One interface, one backend per platform (posix/ or win32/), chosen at build time.
// The transports above it hold the polling algorithms and are the same on every platform.
namespace pelmo::port {

// How many COM ports can be named by number: index 0 is COM1, index 15 is COM16.
inline constexpr int COM_PORT_COUNT = 16;

// A failed system call: its error code (errno, GetLastError, WSAGetLastError); 0 means success.
struct OsError {
  int code = 0;
  bool address_in_use = false;  // a bind found the address and port held by another socket
  bool failed() const { return code != 0; }
};

// An open serial device configured so that reads return at once with what has arrived.
class SerialDevice {
 public:
  virtual ~SerialDevice() = default;
  // Reads what is there without waiting: the count placed (0 when none), or -1 on failure.
  virtual std::int32_t read(std::span<std::uint8_t> buffer) = 0;
  // Writes all bytes in one call: the count taken, or -1 on failure.
  virtual std::int32_t write(std::span<const std::uint8_t> bytes) = 0;
  // Waits until a read would deliver something (or report a condition) or `timeout_ms` passes;
  // true when something is there. Consumes nothing the next read would not deliver.
  virtual bool wait_readable(std::uint32_t timeout_ms) = 0;
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

// An IPv4 datagram socket whose receives never wait.
class DatagramSocket {
 public:
  virtual ~DatagramSocket() = default;
  virtual OsError bind(const Ipv4Endpoint& local) = 0;
  // One datagram to `to`: the count sent, or a negative value on failure.
  virtual std::int32_t send_to(const Ipv4Endpoint& to, std::span<const std::uint8_t> bytes) = 0;
  // One waiting datagram, cut to the buffer: its count and sender; 0 when none is waiting or on
  // any error (a reset after an unreachable port included).
  virtual std::int32_t receive_from(std::span<std::uint8_t> buffer, Ipv4Endpoint& from) = 0;
  // Waits until a datagram (or an error) is waiting or `timeout_ms` passes; true when one is.
  virtual bool wait_readable(std::uint32_t timeout_ms) = 0;
};

struct DatagramSocketResult {
  std::unique_ptr<DatagramSocket> socket;  // null when the system refused one
  OsError error;
};

class PortLayer {
 public:
  virtual ~PortLayer() = default;

  // The device behind COM<port_index + 1>; empty outside 0..COM_PORT_COUNT-1.
  virtual std::string com_port_path(int port_index) = 0;
  // Opens the serial device at `path` for this program alone, with `line` applied and reads that
  // return at once.
  virtual SerialOpenResult open_serial(const std::string& path, const LineSettings& line) = 0;

  // Starts and releases the socket library (a no-op where there is none).
  virtual OsError start_sockets(std::uint8_t major, std::uint8_t minor) = 0;
  virtual void stop_sockets() = 0;
  virtual DatagramSocketResult open_datagram_socket() = 0;
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
