#include <time.h>

#include <cerrno>

#include "pelmo/transport/port_layer.hpp"
#include "pelmo/transport/posix/datagram_socket.hpp"
#include "pelmo/transport/posix/host_addresses.hpp"
#include "pelmo/transport/posix/serial_device.hpp"
#include "pelmo/transport/posix/serial_path.hpp"

namespace pelmo::port {

namespace {

class PosixPortLayer final : public PortLayer {
 public:
  std::string com_port_path(int port_index) override {
    return posix::serial_device_path(port_index);
  }

  SerialOpenResult open_serial(const std::string& path, const LineSettings& line) override {
    return posix::open_serial_device(path, line);
  }

  // POSIX sockets need no library start-up.
  OsError start_sockets(std::uint8_t, std::uint8_t) override { return {}; }
  void stop_sockets() override {}

  DatagramSocketResult open_datagram_socket() override { return posix::open_datagram_socket(); }

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
