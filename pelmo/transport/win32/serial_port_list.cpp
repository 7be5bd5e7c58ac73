#include "pelmo/transport/serial_port_list.hpp"

#include <algorithm>
#include <string>
#include <string_view>

#include "pelmo/formats/number_text.hpp"
#include "pelmo/transport/port_layer.hpp"
#include "pelmo/transport/win32/win32_api.hpp"

namespace pelmo {
namespace {

// `port` ("COMn") when PelmoWin's port numbers reach it (COM1 to COM16), else empty.
std::string numbered_com(std::string_view port) {
  constexpr std::string_view PREFIX = "COM";
  if (!port.starts_with(PREFIX)) {
    return {};
  }
  const ParsedNumber number = parse_unsigned(port.substr(PREFIX.size()), 10, port::COM_PORT_COUNT);
  return number.error == NumberError::none && number.value >= 1 ? std::string(port) : std::string{};
}

}  // namespace

// The system's serial port map: one value per port, named after the device ("\Device\Serial0",
// "\Device\VCP0"), its data the port's name ("COM3").
std::vector<SerialPortEntry> list_serial_ports() {
  std::vector<SerialPortEntry> ports;
  HKEY key = nullptr;
  if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, R"(HARDWARE\DEVICEMAP\SERIALCOMM)", 0, KEY_QUERY_VALUE,
                    &key) != ERROR_SUCCESS) {
    return ports;
  }
  DWORD max_name = 0;
  DWORD max_data = 0;
  if (RegQueryInfoKeyA(key, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                       &max_name, &max_data, nullptr, nullptr) == ERROR_SUCCESS) {
    std::string name(max_name + 1, '\0');
    std::string data(max_data + 1, '\0');
    for (DWORD index = 0;; ++index) {
      DWORD name_size = static_cast<DWORD>(name.size());
      DWORD data_size = static_cast<DWORD>(data.size());
      DWORD type = 0;
      const LONG status = RegEnumValueA(key, index, name.data(), &name_size, nullptr, &type,
                                        reinterpret_cast<BYTE*>(data.data()), &data_size);
      if (status != ERROR_SUCCESS) {
        break;  // ERROR_NO_MORE_ITEMS, or a map that changed under the listing
      }
      if (type != REG_SZ) {
        continue;
      }
      // The data's terminating zero is counted when the writer stored one.
      std::string_view port(data.data(), data_size);
      port = port.substr(0, port.find('\0'));
      if (!port.empty()) {
        ports.push_back({.path = std::string(port),
                         .com = numbered_com(port),
                         .aliases = {},
                         .driver = std::string(name.data(), name_size)});
      }
    }
  }
  RegCloseKey(key);
  std::sort(ports.begin(), ports.end(),
            [](const SerialPortEntry& a, const SerialPortEntry& b) { return a.path < b.path; });
  return ports;
}

}  // namespace pelmo
