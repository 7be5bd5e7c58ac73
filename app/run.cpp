#include "app/run.hpp"

#include <memory>
#include <new>

#include "app/interruption.hpp"
#include "app/operation_handlers.hpp"
#include "app/usage.hpp"
#include "pelmo/transport/serial_transport.hpp"
#include "pelmo/transport/udp_transport.hpp"

namespace pelmo {
namespace {

constexpr int EXIT_OK = 0;
constexpr int EXIT_FAILED = -1;

struct LinkValues {
  std::uint32_t erase_timeout_ms;
  std::uint32_t write_timeout_ms;
  std::uint16_t chunk_size;  // 256- or 1024-byte frames with their 12 bytes of framing
  std::uint16_t max_attempts;
};

constexpr LinkValues SERIAL_LINK{25000, 200, 244, 3};
constexpr LinkValues UDP_LINK{25000, 4000, 1012, 3};

// Response waits the transports are opened with: the first byte, then the quiet time that ends
// a response.
constexpr std::int32_t SERIAL_FIRST_BYTE_TIMEOUT_MS = 250;
constexpr std::int32_t UDP_FIRST_BYTE_TIMEOUT_MS = 2000;
constexpr std::int32_t INTER_BYTE_TIMEOUT_MS = 150;

// The transport the command line chose, open for the rest of the run.
class OpenLink {
 public:
  explicit OpenLink(port::PortLayer& ports) : serial_(ports), udp_(ports) {}

  // Opens the transport; false after printing why not.
  bool open(const CommandLine& command_line, Console& console, const ProgressFunction& progress) {
    udp_link_ = command_line.uses_udp();
    if (udp_link_) {
      if (udp_.open(command_line.ip_address, DEVICE_UDP_PORT, UDP_FIRST_BYTE_TIMEOUT_MS,
                    INTER_BYTE_TIMEOUT_MS, progress) != 0) {
        console.write_line("Can not open UDP port");
        return false;
      }
      return true;
    }
    if (serial_.open(static_cast<int>(*command_line.connection), SERIAL_BAUD_RATE, SERIAL_MODE,
                     SERIAL_FIRST_BYTE_TIMEOUT_MS, INTER_BYTE_TIMEOUT_MS, progress,
                     console.stream()) != 0) {
      console.write_line("Can not open comport");
      return false;
    }
    return true;
  }

  SendFunction send() {
    if (udp_link_) {
      return [this](std::span<const std::uint8_t> bytes) { return udp_.send(bytes); };
    }
    return [this](std::span<const std::uint8_t> bytes) { return serial_.send(bytes); };
  }

  ReceiveFunction receive() {
    if (udp_link_) {
      return
          [this](std::span<std::uint8_t> buffer, std::uint16_t min_count,
                 std::uint32_t timeout_ms) { return udp_.receive(buffer, min_count, timeout_ms); };
    }
    return
        [this](std::span<std::uint8_t> buffer, std::uint16_t min_count, std::uint32_t timeout_ms) {
          return serial_.receive(buffer, min_count, timeout_ms);
        };
  }

  void close() {
    if (udp_link_) {
      udp_.close();
    } else {
      serial_.close();
    }
  }

 private:
  SerialTransport serial_;
  UdpTransport udp_;
  bool udp_link_ = false;
};

}  // namespace

LinkDriver make_link_driver(const CommandLine& command_line, SendFunction send,
                            ReceiveFunction receive, ProgressFunction progress) {
  const LinkValues& values = command_line.uses_udp() ? UDP_LINK : SERIAL_LINK;
  LinkDriver driver;
  driver.send = std::move(send);
  driver.receive = std::move(receive);
  driver.progress = std::move(progress);
  driver.erase_timeout_ms = values.erase_timeout_ms;
  driver.write_timeout_ms = values.write_timeout_ms;
  driver.extra_timeout_ms =
      command_line.extra_timeout < 0 ? 0u : static_cast<std::uint32_t>(command_line.extra_timeout);
  driver.chunk_size = values.chunk_size;
  driver.max_attempts = values.max_attempts;
  return driver;
}

int run_program(std::span<const char* const> arguments, Console& console, port::PortLayer& ports) {
  const std::uint32_t run_start = console.now();
  print_banner(console.stream());

  const std::unique_ptr<std::uint8_t[]> image(new (std::nothrow) std::uint8_t[IMAGE_BUFFER_SIZE]);
  if (!image) {
    console.write_line("Error allocating memory !!!\n");
    return EXIT_FAILED;
  }

  const auto command_line = parse_command_line(arguments);
  if (!command_line) {
    console.write_line("Bad params !!!\n");
    print_usage(console.stream());
    return EXIT_FAILED;
  }

  // Every wait and every acknowledged step passes here: a stop signal ends the run from here.
  const ProgressFunction progress = [&console] {
    console.show_progress();
    stop_if_interrupted();
  };
  OpenLink link(ports);
  if (!link.open(*command_line, console, progress)) {
    return EXIT_FAILED;
  }
  stop_if_interrupted();
  LinkDriver driver = make_link_driver(*command_line, link.send(), link.receive(), progress);
  if (bind_link_driver(&driver) < RC_OK) {
    console.write_line("Can not init PelMo library");
    return EXIT_FAILED;
  }

  console.begin_status("", false);
  RunRecords records;
  RunContext run{console, bound_link_driver(), std::span(image.get(), IMAGE_BUFFER_SIZE),
                 *command_line, records};
  const ResultCode result = run_operation(run);

  if (result < RC_OK) {
    console.print("Last operation error code: %d\n", result);
  }
  console.print("\nOperations last %d s\n",
                static_cast<int>(elapsed_seconds(run_start, console.now())));
  link.close();
  return result < RC_OK ? EXIT_FAILED : EXIT_OK;
}

}  // namespace pelmo
