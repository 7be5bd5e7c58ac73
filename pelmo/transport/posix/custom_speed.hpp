#pragma once

#include <cstdint>

namespace pelmo::port::posix {

// Sets a line speed that has no standard speed constant (128000, 256000 baud) on an open
// terminal and reads it back. False where the system offers no way to do so or the driver
// refuses; kept apart because the interface it needs clashes with <termios.h>.
bool set_custom_speed(int fd, std::uint32_t baud_rate);

}  // namespace pelmo::port::posix
