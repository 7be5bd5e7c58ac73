#include "pelmo/session/target.hpp"

#include "pelmo/formats/number_text.hpp"
#include "pelmo/transport/local_address.hpp"

namespace pelmo {

std::optional<UdpDevice> parse_udp_target(std::string_view text) {
  const std::optional<Ipv4Address> address = parse_dotted_address(text);
  if (!address) {
    return std::nullopt;
  }
  return UdpDevice{*address};
}

std::optional<SerialPort> parse_serial_target(std::string_view text) {
  if (text.empty()) {
    return std::nullopt;
  }
  const auto upper = [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c; };
  if (text.size() > 3 && upper(text[0]) == 'C' && upper(text[1]) == 'O' && upper(text[2]) == 'M') {
    const ParsedNumber number =
        parse_unsigned(text.substr(3), 10, static_cast<std::uint64_t>(port::COM_PORT_COUNT));
    if (number.error != NumberError::none || number.value == 0) {
      return std::nullopt;  // "COM0", "COM999" or "COMx" is a mistake, never a file name
    }
    return ComPort{static_cast<int>(number.value) - 1};
  }
  return std::string(text);
}

}  // namespace pelmo
