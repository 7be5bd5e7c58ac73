// pelmo: the command line that flashes and services many devices at once through the fast engine.
#include <string>
#include <vector>

#include "cli/program.hpp"
#include "pelmo/transport/port_layer.hpp"

int main(int argc, char** argv) {
  pelmo::port::prepare_console();
  return pelmo::cli::run_program(std::vector<std::string>(argv + 1, argv + argc));
}
