#pragma once

#include <span>

#include "app/command_line.hpp"
#include "app/console.hpp"
#include "pelmo/transport/link_profile.hpp"
#include "pelmo/transport/port_layer.hpp"

namespace pelmo {

// The classic profile of the link the command line chose, with its extra time-out.
LinkProfile link_profile(const CommandLine& command_line);

// One run of the program, from the banner to the exit status (0, or -1 on any failure).
// `arguments[0]` is the program name. All output goes to `console`; the link is opened through
// `ports`.
int run_program(std::span<const char* const> arguments, Console& console, port::PortLayer& ports);

}  // namespace pelmo
