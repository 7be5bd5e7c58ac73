#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "app/operation.hpp"

namespace pelmo {

// What one command line asks for.
struct CommandLine {
  Operation operation = Operation::OP_READ_FIRMWARE_INFO;
  // The COM port index (0 is COM1); empty selects the UDP link to `ip_address`. A COM port given
  // anywhere on the line wins over an IP address.
  std::optional<std::uint32_t> connection;
  std::array<std::uint8_t, 4> ip_address{};  // a.b.c.d in the order typed
  // Milliseconds added to every exchange's time-out, as typed (the run turns a negative value
  // into 0).
  std::int32_t extra_timeout = 0;
  // The file to read or write; empty when the operation needs one but none stood after its
  // option, so that opening it fails with the usual message. Kept whole whatever its length.
  std::string file_name;

  bool uses_udp() const { return !connection.has_value(); }
};

// Parses the program's arguments (`arguments[0]` is the program name). Empty on any bad
// parameter; prints nothing.
std::optional<CommandLine> parse_command_line(std::span<const char* const> arguments);

}  // namespace pelmo
