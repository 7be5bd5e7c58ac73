#include <fcntl.h>
#include <io.h>

#include <cstdio>

#include "pelmo/transport/port_layer.hpp"

namespace pelmo::port {

// In text mode the C runtime would turn every "\n" into "\r\n". Binary mode keeps the output
// byte for byte what the program writes, the same as on Linux: a console shows a bare line feed
// as a new line, and a script that captures the output gets identical bytes on both systems.
void prepare_console() {
  std::fflush(stdout);
  _setmode(_fileno(stdout), _O_BINARY);
}

}  // namespace pelmo::port
