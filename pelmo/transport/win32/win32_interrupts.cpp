#include <signal.h>

#include <atomic>

#include "pelmo/transport/port_layer.hpp"
#include "pelmo/transport/win32/win32_api.hpp"

namespace pelmo::port {
namespace {

struct ControlEvent {
  DWORD event;
  int signal_number;
  std::string_view name;
};

// The console's control events as the C runtime's signal numbers.
constexpr ControlEvent CONTROL_EVENTS[] = {
    {CTRL_C_EVENT, SIGINT, "SIGINT"},
    {CTRL_BREAK_EVENT, SIGBREAK, "SIGBREAK"},
    {CTRL_CLOSE_EVENT, SIGTERM, "SIGTERM"},
};

// The console control callback takes no context, so the handler it forwards to is kept here.
std::atomic<InterruptHandler> installed_handler{nullptr};

BOOL WINAPI on_control_event(DWORD event) {
  const InterruptHandler handler = installed_handler.load();
  for (const ControlEvent& control : CONTROL_EVENTS) {
    if (control.event == event && handler != nullptr) {
      handler(control.signal_number);
      if (event == CTRL_CLOSE_EVENT) {
        // The process ends as soon as this returns: wait here so the run can release the port;
        // its exit ends this thread (the system gives up after a few seconds anyway).
        Sleep(INFINITE);
      }
      return TRUE;
    }
  }
  return FALSE;
}

}  // namespace

void install_interrupt_handler(InterruptHandler handler) {
  installed_handler.store(handler);
  SetConsoleCtrlHandler(on_control_event, TRUE);
  // Writes to a closed pipe already fail with an error here.
}

std::string_view interrupt_signal_name(int signal_number) {
  for (const ControlEvent& control : CONTROL_EVENTS) {
    if (control.signal_number == signal_number) {
      return control.name;
    }
  }
  return {};
}

}  // namespace pelmo::port
