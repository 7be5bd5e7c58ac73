#pragma once

#include <span>
#include <string_view>

#include "app/operation.hpp"

namespace pelmo {

// One command-line option: the text it is recognised by (capitals; arguments are upper-cased
// before the comparison), the operation it selects, whether a file name follows, and its line in
// the usage text.
struct OptionEntry {
  std::string_view option;
  Operation operation;
  bool needs_file;
  std::string_view usage_option;  // how the usage text spells it
  std::string_view description;   // usage text after " = ", trailing blanks included
};

// Every option, in the order the usage text lists them.
std::span<const OptionEntry> option_table();

// The entry whose option text equals `upper_case_option` exactly, or null.
const OptionEntry* find_option(std::string_view upper_case_option);

}  // namespace pelmo
