#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/device_config.hpp"
#include "simulator/fault_plan.hpp"

namespace pelmo::sim {

inline constexpr std::uint16_t DEFAULT_UDP_PORT = 57998;

struct UdpAddress {
  std::array<std::uint8_t, 4> address{};
  std::uint16_t port = DEFAULT_UDP_PORT;  // 0: any free port (printed when listening)
};

// Everything the command line of pelmo-device chooses.
struct SimulatorOptions {
  std::vector<UdpAddress> udp;
  bool pty = false;
  std::string pty_link;  // empty: no symlink
  bool baud_pace = false;
  DeviceConfig device;
  FaultPlan faults;
  std::string state_dir;  // empty: state lives in memory
  std::string load_firmware;
  std::string load_factory;
  std::string load_calib;
  std::string load_calib_backup;
  std::string log_path;  // empty: the log goes to standard output
  std::optional<std::uint64_t> exit_after;
  bool help = false;
};

// A command line that cannot be used; the text is the one-line reason.
struct UsageError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Parses the arguments after the program name. Throws UsageError.
SimulatorOptions parse_options(const std::vector<std::string_view>& arguments);

// The usage text, one line per option, generated from the option table.
std::string usage_text();

// A number in decimal or with a 0x prefix in hexadecimal, at most `max`. Throws UsageError.
std::uint64_t parse_number(std::string_view text, std::uint64_t max, std::string_view what);
// A command code as a number or by name (READ_FW, read_fw). Throws UsageError.
std::uint8_t parse_code(std::string_view text);
// A percentage 0 to 100 with up to four decimals, an optional '%' after it. Throws UsageError.
Chance parse_chance(std::string_view text);

}  // namespace pelmo::sim
