#pragma once

#include <cstdio>
#include <string_view>

namespace pelmo {

inline constexpr std::string_view PROGRAM_VERSION = "1.19";

// The first output of every run.
void print_banner(std::FILE* console);

// The usage text, shown after bad parameters.
void print_usage(std::FILE* console);

}  // namespace pelmo
