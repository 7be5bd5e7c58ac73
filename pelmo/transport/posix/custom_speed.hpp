#pragma once

#include <cstdint>

namespace pelmo::port::posix {

// Sets the line speed of an open terminal to `baud_rate` bits per second and reads it back: one
// way for every speed, so no table of the system's speed constants is needed. False where the
// driver refuses or reports another speed; kept apart because the Linux interface it needs
// clashes with <termios.h>.
bool set_line_speed(int fd, std::uint32_t baud_rate);

}  // namespace pelmo::port::posix
