#include <cstdio>
#include <vector>

#include "app/console.hpp"
#include "app/interruption.hpp"
#include "app/run.hpp"
#include "pelmo/transport/port_layer.hpp"

int main(int argc, char** argv) {
  pelmo::port::prepare_console();
  pelmo::watch_for_interrupts();
  pelmo::port::PortLayer& ports = pelmo::port::system_port_layer();
  pelmo::Console console(stdout, [&ports] { return ports.tick_ms(); });
  const std::vector<const char*> arguments(argv, argv + argc);
  return pelmo::run_until_interrupted(
      console, [&] { return pelmo::run_program(arguments, console, ports); });
}
