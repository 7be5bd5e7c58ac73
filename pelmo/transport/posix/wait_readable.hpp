#pragma once

#include <cstdint>

namespace pelmo::port::posix {

// Waits until `fd` has something to read (or a condition to report: a hang-up, an error) or
// `timeout_ms` passes; true when it has.
bool wait_readable(int fd, std::uint32_t timeout_ms);

}  // namespace pelmo::port::posix
