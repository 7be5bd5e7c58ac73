#pragma once

#include <string>
#include <string_view>

namespace pelmo::cli {

// The file one target's data goes to when several targets read at once: the target's name before
// the extension, every run of characters unsafe in file names turned into one '-'
// ("out.bin", "udp:127.0.0.2" -> "out.udp-127.0.0.2.bin"; "serial:/dev/ttyUSB0" ->
// "out.serial-dev-ttyUSB0.bin"). The folder part of `path` is kept as it is.
std::string per_target_path(std::string_view path, std::string_view target_name);

}  // namespace pelmo::cli
