#pragma once

#include <array>
#include <cstdint>
#include <vector>

namespace pelmo::port::posix {

// The IPv4 addresses this host's name resolves to, in lookup order; empty when the name or the
// lookup fails.
std::vector<std::array<std::uint8_t, 4>> host_addresses();

}  // namespace pelmo::port::posix
