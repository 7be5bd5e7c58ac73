#include <io.h>

#include "pelmo/transport/terminal.hpp"
#include "pelmo/transport/win32/win32_api.hpp"

namespace pelmo::port {
namespace {

// The console behind a C runtime stream number, or null when the stream is no console.
HANDLE console_of(int stream_number) {
  const intptr_t os_handle = _get_osfhandle(stream_number);
  if (os_handle == -1) {
    return nullptr;
  }
  const auto handle = reinterpret_cast<HANDLE>(os_handle);
  DWORD mode = 0;
  return GetConsoleMode(handle, &mode) ? handle : nullptr;
}

}  // namespace

bool stream_is_terminal(int stream_number) {
  return console_of(stream_number) != nullptr;
}

int terminal_columns(int stream_number) {
  const HANDLE console = console_of(stream_number);
  CONSOLE_SCREEN_BUFFER_INFO info{};
  if (console == nullptr || !GetConsoleScreenBufferInfo(console, &info)) {
    return 0;
  }
  return info.srWindow.Right - info.srWindow.Left + 1;
}

bool enable_terminal_sequences(int stream_number) {
  const HANDLE console = console_of(stream_number);
  DWORD mode = 0;
  if (console == nullptr || !GetConsoleMode(console, &mode)) {
    return false;
  }
  constexpr DWORD VIRTUAL_TERMINAL_PROCESSING = 0x0004;  // absent from older SDK headers
  return (mode & VIRTUAL_TERMINAL_PROCESSING) != 0 ||
         SetConsoleMode(console, mode | VIRTUAL_TERMINAL_PROCESSING) != 0;
}

}  // namespace pelmo::port
