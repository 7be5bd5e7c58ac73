#pragma once

#include <cstdio>

namespace pelmo {

// The first output of every run, with the version of the tree (pelmo/version.hpp).
void print_banner(std::FILE* console);

// The usage text, shown after bad parameters.
void print_usage(std::FILE* console);

}  // namespace pelmo
