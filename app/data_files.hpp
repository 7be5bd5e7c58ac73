#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "pelmo/formats/binary_file.hpp"  // IWYU pragma: export (read_binary_file)

namespace pelmo {

// Writes `bytes` into a new binary file `name`. A file that cannot be created is silently not
// written: the data was read from the device successfully and the run does not fail for it.
void write_binary_file(const std::string& name, std::span<const std::uint8_t> bytes);

}  // namespace pelmo
