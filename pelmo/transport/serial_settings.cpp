#include "pelmo/transport/serial_settings.hpp"

namespace pelmo {

std::string format_line_settings(const LineSettings& settings) {
  const auto on_off = [](bool on) { return on ? "on" : "off"; };
  std::string text = "baud=" + std::to_string(settings.baud_rate);
  text += " data=" + std::to_string(settings.data_bits);
  text += " parity=";
  text += static_cast<char>(settings.parity);
  text += " stop=" + std::to_string(settings.stop_bits);
  text += std::string(" dtr=") + on_off(settings.dtr);
  text += std::string(" rts=") + on_off(settings.rts);
  return text;
}

}  // namespace pelmo
