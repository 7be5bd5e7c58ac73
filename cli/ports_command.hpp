#pragma once

#include <string>

namespace pelmo::cli {

// `pelmo ports`: this host's serial ports, as text or as the JSON object; needs no device.
std::string ports_listing(bool json);

}  // namespace pelmo::cli
