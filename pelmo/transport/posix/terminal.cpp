#include "pelmo/transport/terminal.hpp"

#include <sys/ioctl.h>
#include <unistd.h>

namespace pelmo::port {

bool stream_is_terminal(int stream_number) {
  return isatty(stream_number) == 1;
}

int terminal_columns(int stream_number) {
  winsize size{};
  if (ioctl(stream_number, TIOCGWINSZ, &size) != 0) {
    return 0;
  }
  return size.ws_col;
}

bool enable_terminal_sequences(int stream_number) {
  return stream_is_terminal(stream_number);  // every terminal a POSIX system offers takes them
}

}  // namespace pelmo::port
