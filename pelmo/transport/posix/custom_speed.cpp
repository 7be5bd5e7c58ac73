#include "pelmo/transport/posix/custom_speed.hpp"

#if defined(__linux__)
#include <asm/termbits.h>
#include <sys/ioctl.h>
#else
#include <termios.h>
#endif

namespace pelmo::port::posix {

#if defined(__linux__)

bool set_line_speed(int fd, std::uint32_t baud_rate) {
  struct termios2 settings {};
  if (ioctl(fd, TCGETS2, &settings) != 0) {
    return false;
  }
  settings.c_cflag &= ~static_cast<tcflag_t>(CBAUD | (CBAUD << IBSHIFT));
  settings.c_cflag |= BOTHER | (BOTHER << IBSHIFT);
  settings.c_ispeed = baud_rate;
  settings.c_ospeed = baud_rate;
  if (ioctl(fd, TCSETS2, &settings) != 0) {
    return false;
  }
  struct termios2 applied {};
  return ioctl(fd, TCGETS2, &applied) == 0 && applied.c_ospeed == baud_rate &&
         applied.c_ispeed == baud_rate;
}

#else

// The BSDs and macOS take the speed in bits per second as their speed value.
bool set_line_speed(int fd, std::uint32_t baud_rate) {
  termios settings{};
  if (tcgetattr(fd, &settings) != 0 || cfsetispeed(&settings, baud_rate) != 0 ||
      cfsetospeed(&settings, baud_rate) != 0 || tcsetattr(fd, TCSANOW, &settings) != 0) {
    return false;
  }
  termios applied{};
  return tcgetattr(fd, &applied) == 0 && cfgetospeed(&applied) == baud_rate &&
         cfgetispeed(&applied) == baud_rate;
}

#endif

}  // namespace pelmo::port::posix
