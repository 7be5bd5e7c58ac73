#include <time.h>

#include <cerrno>

#include "pelmo/transport/port_layer.hpp"
#include "pelmo/transport/posix/datagram_socket.hpp"
#include "pelmo/transport/posix/host_addresses.hpp"
#include "pelmo/transport/posix/serial_device.hpp"

namespace pelmo::port {

namespace {

class PosixPortLayer final : public PortLayer {
 public:
  SerialOpenResult open_serial(int port_index, std::string_view settings) override {
    return posix::open_serial_device(port_index, settings);
  }

  // POSIX sockets need no library start-up.
  bool start_sockets(std::uint8_t, std::uint8_t) override { return true; }
  void stop_sockets() override {}

  std::unique_ptr<DatagramSocket> open_datagram_socket() override {
    return posix::open_datagram_socket();
  }

  std::vector<std::array<std::uint8_t, 4>> host_addresses() override {
    return posix::host_addresses();
  }

  std::uint32_t tick_ms() override {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    const auto milliseconds = static_cast<std::uint64_t>(now.tv_sec) * 1000u +
                              static_cast<std::uint64_t>(now.tv_nsec) / 1000000u;
    return static_cast<std::uint32_t>(milliseconds);  // wraps like a 32-bit tick counter
  }

  void sleep_ms(std::uint32_t milliseconds) override {
    timespec remaining{static_cast<time_t>(milliseconds / 1000u),
                       static_cast<long>(milliseconds % 1000u) * 1000000L};
    while (nanosleep(&remaining, &remaining) != 0 && errno == EINTR) {
    }
  }
};

}  // namespace

PortLayer& system_port_layer() {
  static PosixPortLayer layer;  // stateless; one instance serves every caller
  return layer;
}

// Standard output already passes bytes unchanged here.
void prepare_console() {}

}  // namespace pelmo::port
