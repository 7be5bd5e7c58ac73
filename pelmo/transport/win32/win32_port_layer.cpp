#include <array>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "pelmo/transport/port_layer.hpp"
#include "pelmo/transport/win32/com_port_names.hpp"
#include "pelmo/transport/win32/win32_api.hpp"
#include "pelmo/transport/win32/win32_datagram_socket.hpp"
#include "pelmo/transport/win32/win32_serial_device.hpp"

namespace pelmo::port {

namespace {

class Win32PortLayer final : public PortLayer {
 public:
  std::string com_port_path(int port_index) override { return win32::com_port_path(port_index); }

  SerialOpenResult open_serial(const std::string& path, const LineSettings& line) override {
    return win32::open_serial_device(path, line);
  }

  OsError start_sockets(std::uint8_t major, std::uint8_t minor) override {
    WSADATA data{};
    // WSAStartup returns its error rather than setting the last error.
    return {WSAStartup(MAKEWORD(major, minor), &data)};
  }

  void stop_sockets() override { WSACleanup(); }

  DatagramSocketResult open_datagram_socket() override { return win32::open_datagram_socket(); }

  std::vector<std::array<std::uint8_t, 4>> host_addresses() override {
    std::vector<std::array<std::uint8_t, 4>> addresses;
    std::array<char, 255> name{};
    if (gethostname(name.data(), static_cast<int>(name.size() - 1)) != 0) {
      return addresses;
    }
    const hostent* host = gethostbyname(name.data());
    if (host == nullptr || host->h_addrtype != AF_INET || host->h_length != 4) {
      return addresses;
    }
    for (char** entry = host->h_addr_list; *entry != nullptr; ++entry) {
      std::array<std::uint8_t, 4> address{};
      std::memcpy(address.data(), *entry, address.size());  // network order is dotted order
      addresses.push_back(address);
    }
    return addresses;
  }

  std::uint32_t tick_ms() override { return GetTickCount(); }

  void sleep_ms(std::uint32_t milliseconds) override { Sleep(milliseconds); }
};

}  // namespace

PortLayer& system_port_layer() {
  static Win32PortLayer layer;
  return layer;
}

}  // namespace pelmo::port
