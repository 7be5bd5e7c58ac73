#include <signal.h>

#include "pelmo/transport/port_layer.hpp"

namespace pelmo::port {
namespace {

struct NamedSignal {
  int number;
  std::string_view name;
};

constexpr NamedSignal STOP_SIGNALS[] = {
    {SIGINT, "SIGINT"}, {SIGTERM, "SIGTERM"}, {SIGHUP, "SIGHUP"}};

}  // namespace

void install_interrupt_handler(InterruptHandler handler) {
  struct sigaction action {};
  action.sa_handler = handler;
  sigemptyset(&action.sa_mask);
  action.sa_flags = 0;  // no SA_RESTART: a blocked call returns EINTR and the run looks at the flag
  for (const NamedSignal& stop : STOP_SIGNALS) {
    sigaction(stop.number, &action, nullptr);
  }
  // Writes to a pipe nobody reads any more fail with EPIPE instead.
  struct sigaction ignore {};
  ignore.sa_handler = SIG_IGN;
  sigemptyset(&ignore.sa_mask);
  sigaction(SIGPIPE, &ignore, nullptr);
}

std::string_view interrupt_signal_name(int signal_number) {
  for (const NamedSignal& stop : STOP_SIGNALS) {
    if (stop.number == signal_number) {
      return stop.name;
    }
  }
  return {};
}

}  // namespace pelmo::port
