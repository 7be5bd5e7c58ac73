#pragma once

#include <string>
#include <vector>

namespace pelmo::cli {

// The whole program: `arguments` without the program's name; returns the exit status (0 every
// target succeeded, 1 a target failed, 2 the run was refused before any device was contacted).
int run_program(const std::vector<std::string>& arguments);

}  // namespace pelmo::cli
