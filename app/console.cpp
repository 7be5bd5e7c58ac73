#include "app/console.hpp"

#include <cstdarg>
#include <cstring>

namespace pelmo {
namespace {

// An empty view may carry no storage at all, which fwrite must not be given.
void put(std::FILE* stream, std::string_view text) {
  if (!text.empty()) {
    std::fwrite(text.data(), 1, text.size(), stream);
  }
}

}  // namespace

Console::Console(std::FILE* stream, TickSource tick) : stream_(stream), tick_(std::move(tick)) {}

void Console::begin_status(std::string_view label, bool show) {
  label_.assign(label);
  step_start_ = tick_();
  if (show) {
    print_status({});
  }
}

void Console::print_status(std::string_view text) {
  std::fputc('\r', stream_);
  put(stream_, label_);
  put(stream_, text);
  std::fflush(stream_);
  line_open_ = text.empty() || text.back() != '\n';
}

void Console::show_progress() {
  char seconds[24];
  const int length = std::snprintf(seconds, sizeof seconds, " %u [s]",
                                   static_cast<unsigned>(elapsed_seconds(step_start_, tick_())));
  print_status(std::string_view(seconds, static_cast<std::size_t>(length)));
}

void Console::write(std::string_view text) {
  put(stream_, text);
  std::fflush(stream_);
  if (!text.empty()) {
    line_open_ = text.back() != '\n';
  }
}

void Console::write_line(std::string_view text) {
  put(stream_, text);
  std::fputc('\n', stream_);
  std::fflush(stream_);
  line_open_ = false;
}

void Console::print(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  std::vfprintf(stream_, format, arguments);
  va_end(arguments);
  std::fflush(stream_);
  // Whether the line is left open shows in the format: no field of the program's ends a line.
  const std::size_t length = std::strlen(format);
  if (length > 0) {
    line_open_ = format[length - 1] != '\n';
  }
}

void Console::flush() {
  std::fflush(stream_);
}

void Console::end_line() {
  if (line_open_) {
    write_line({});
  }
}

}  // namespace pelmo
