#pragma once

#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>
#include <string_view>

#if defined(__GNUC__)
#define PELMO_PRINTF_FORMAT(format_index, first_argument) \
  __attribute__((format(printf, format_index, first_argument)))
#else
#define PELMO_PRINTF_FORMAT(format_index, first_argument)
#endif

namespace pelmo {

// Millisecond tick that wraps at 32 bits.
using TickSource = std::function<std::uint32_t()>;

// The program's console: every write reaches the stream at once (the status line is rewritten in
// place with carriage returns, so nothing may wait for a line feed), and it keeps the status
// line of the step that runs: its label and the tick at which the step began. A console that went
// away (a closed pipe) fails its writes quietly: the run goes on.
class Console {
 public:
  Console(std::FILE* stream, TickSource tick);

  std::FILE* stream() const { return stream_; }
  std::uint32_t now() const { return tick_(); }

  // Starts a step: takes `label` and restarts the step clock; with `show`, puts the label alone
  // at the start of the line.
  void begin_status(std::string_view label, bool show);
  // Rewrites the line: carriage return, label, then `text` unchanged (no line feed added).
  void print_status(std::string_view text);
  // Rewrites the line with the whole seconds the step has taken: " %u [s]".
  void show_progress();

  // Writes `text` unchanged.
  void write(std::string_view text);
  // Writes `text` and one line feed.
  void write_line(std::string_view text);
  void print(const char* format, ...) PELMO_PRINTF_FORMAT(2, 3);
  // Pushes out what others wrote to the stream directly.
  void flush();
  // Ends the line a step left open (its label and seconds, no status yet) with a line feed.
  void end_line();

 private:
  std::FILE* stream_;
  TickSource tick_;
  std::string label_;
  std::uint32_t step_start_ = 0;
  bool line_open_ = false;  // the last text written through this console did not end a line
};

// Whole seconds between two ticks of a wrapping 32-bit millisecond counter.
constexpr std::uint32_t elapsed_seconds(std::uint32_t start, std::uint32_t now) {
  return static_cast<std::uint32_t>(now - start) / 1000u;
}

}  // namespace pelmo
