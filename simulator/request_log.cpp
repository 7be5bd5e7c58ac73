#include "simulator/request_log.hpp"

#include <cstdio>

#include "pelmo/commands/command_code.hpp"

namespace pelmo::sim {

std::string code_label(std::uint8_t code) {
  const std::string_view name = command_name(code);
  if (!name.empty()) {
    return std::string(name);
  }
  char text[16];
  std::snprintf(text, sizeof text, "CODE_0x%02X", code);
  return text;
}

void RequestLog::received(std::uint8_t code, std::uint32_t address, std::uint16_t length) {
  char text[96];
  std::snprintf(text, sizeof text, "rx %s addr=0x%08X len=%u", code_label(code).c_str(),
                static_cast<unsigned>(address), static_cast<unsigned>(length));
  line(text);
}

void RequestLog::answered(std::uint8_t code, std::uint8_t status, std::uint32_t address,
                          std::uint16_t length, std::string_view faults) {
  char text[96];
  std::snprintf(text, sizeof text, "tx %s status=0x%02X addr=0x%08X len=%u",
                code_label(code).c_str(), static_cast<unsigned>(status),
                static_cast<unsigned>(address), static_cast<unsigned>(length));
  std::string entry = text;
  if (!faults.empty()) {
    entry += " fault=";
    entry += faults;
  }
  line(entry);
}

void RequestLog::dropped(std::uint8_t code, std::string_view reason) {
  line("drop " + code_label(code) + " reason=" + std::string(reason));
}

void RequestLog::bad_frame(std::size_t length, std::int32_t result) {
  line("rx BAD_FRAME len=" + std::to_string(length) + " rc=" + std::to_string(result));
}

void RequestLog::line(const std::string& text) {
  out_ << text << '\n';
  out_.flush();
}

}  // namespace pelmo::sim
