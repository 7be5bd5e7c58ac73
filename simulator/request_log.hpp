#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>

namespace pelmo::sim {

// One line per event, flushed at once so that a test can follow the file while the device runs:
//   rx WRITE_FW addr=0x000003F0 len=1008
//   tx WRITE_FW status=0x00 addr=0x000003F0 len=0
//   tx READ_FW status=0x00 addr=0x00000000 len=1012 fault=corrupt-crc+split
//   drop READ_FW reason=silent-first
//   rx BAD_FRAME len=7 rc=-19
// A code that is no command is named CODE_0xNN. `len` is the frame's length field; `fault` lists
// what was done to an answer, in the order applied.
class RequestLog {
 public:
  explicit RequestLog(std::ostream& out) : out_(out) {}

  void received(std::uint8_t code, std::uint32_t address, std::uint16_t length);
  void answered(std::uint8_t code, std::uint8_t status, std::uint32_t address, std::uint16_t length,
                std::string_view faults);
  void dropped(std::uint8_t code, std::string_view reason);
  void bad_frame(std::size_t length, std::int32_t result);

 private:
  void line(const std::string& text);
  std::ostream& out_;
};

// The command's log name: "READ_FW", or "CODE_0x55" for a byte that is no command.
std::string code_label(std::uint8_t code);

}  // namespace pelmo::sim
