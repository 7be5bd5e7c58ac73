#include "pelmo/transport/serial_settings.hpp"

#include <charconv>

namespace pelmo {

namespace {

std::string_view on_off(bool on) {
  return on ? "on" : "off";
}

std::optional<std::int32_t> parse_number(std::string_view text) {
  std::int32_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc{} || end != text.data() + text.size()) {
    return std::nullopt;
  }
  return value;
}

std::optional<bool> parse_on_off(std::string_view text) {
  if (text == "on") {
    return true;
  }
  if (text == "off") {
    return false;
  }
  return std::nullopt;
}

std::optional<Parity> parse_parity(std::string_view text) {
  for (const Parity parity : {Parity::none, Parity::even, Parity::odd}) {
    if (text.size() == 1 && text[0] == static_cast<char>(parity)) {
      return parity;
    }
  }
  return std::nullopt;
}

// Applies one key=value piece; false when the key is unknown or the value does not fit it.
bool apply_piece(std::string_view key, std::string_view value, LineSettings& settings,
                 bool& has_baud) {
  if (key == "baud") {
    const auto baud = parse_number(value);
    has_baud = baud.has_value() && *baud > 0;
    settings.baud_rate = baud.value_or(0);
    return has_baud;
  }
  if (key == "data") {
    const auto bits = parse_number(value);
    if (!bits || *bits < 5 || *bits > 8) {
      return false;
    }
    settings.data_bits = static_cast<std::uint8_t>(*bits);
    return true;
  }
  if (key == "stop") {
    const auto bits = parse_number(value);
    if (!bits || (*bits != 1 && *bits != 2)) {
      return false;
    }
    settings.stop_bits = static_cast<std::uint8_t>(*bits);
    return true;
  }
  if (key == "parity") {
    const auto parity = parse_parity(value);
    settings.parity = parity.value_or(Parity::none);
    return parity.has_value();
  }
  if (key == "dtr" || key == "rts") {
    const auto on = parse_on_off(value);
    (key == "dtr" ? settings.dtr : settings.rts) = on.value_or(false);
    return on.has_value();
  }
  return false;
}

}  // namespace

std::string format_line_settings(const LineSettings& settings) {
  std::string text = "baud=" + std::to_string(settings.baud_rate);
  text += " data=" + std::to_string(settings.data_bits);
  text += " parity=";
  text += static_cast<char>(settings.parity);
  text += " stop=" + std::to_string(settings.stop_bits);
  text += " dtr=";
  text += on_off(settings.dtr);
  text += " rts=";
  text += on_off(settings.rts);
  return text;
}

std::optional<LineSettings> parse_line_settings(std::string_view text) {
  LineSettings settings;
  bool has_baud = false;
  while (!text.empty()) {
    const std::size_t blank = text.find(' ');
    const std::string_view piece = text.substr(0, blank);
    text = blank == std::string_view::npos ? std::string_view{} : text.substr(blank + 1);
    if (piece.empty()) {
      continue;
    }
    const std::size_t equals = piece.find('=');
    if (equals == std::string_view::npos ||
        !apply_piece(piece.substr(0, equals), piece.substr(equals + 1), settings, has_baud)) {
      return std::nullopt;
    }
  }
  if (!has_baud) {
    return std::nullopt;
  }
  return settings;
}

}  // namespace pelmo
