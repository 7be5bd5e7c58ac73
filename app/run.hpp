#pragma once

#include <span>

#include "app/command_line.hpp"
#include "app/console.hpp"
#include "pelmo/protocol/link_driver.hpp"
#include "pelmo/transport/port_layer.hpp"

namespace pelmo {

// The link's fixed values.
inline constexpr std::uint16_t DEVICE_UDP_PORT = 57998;
inline constexpr std::int32_t SERIAL_BAUD_RATE = 115200;
inline constexpr const char* SERIAL_MODE = "8N1";

// The LinkDriver of a run: the given transport and progress functions with the time-outs and
// sizes of the link the command line chose. A negative extra time-out counts as none.
LinkDriver make_link_driver(const CommandLine& command_line, SendFunction send,
                            ReceiveFunction receive, ProgressFunction progress);

// One run of the program, from the banner to the exit status (0, or -1 on any failure).
// `arguments[0]` is the program name. All output goes to `console`; the link is opened through
// `ports`.
int run_program(std::span<const char* const> arguments, Console& console, port::PortLayer& ports);

}  // namespace pelmo
