#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "pelmo/session/device_session.hpp"

namespace pelmo::cli {

// Milliseconds from any fixed start; the display only takes differences.
using ProgressClock = std::function<std::uint64_t()>;
// Takes one whole write of the display (the program's: standard error, flushed).
using ProgressSink = std::function<void(std::string_view)>;

enum class ProgressStyle : std::uint8_t {
  bars,   // a terminal: one bar per target, redrawn in place
  lines,  // a pipe or a file: a plain line when a target starts a step, nothing redrawn
};

// Lets a redraw through when at least `interval_ms` have passed since the last one let through.
class RedrawThrottle {
 public:
  explicit RedrawThrottle(std::uint64_t interval_ms) : interval_ms_(interval_ms) {}
  bool allow(std::uint64_t now_ms);

 private:
  std::uint64_t interval_ms_;
  std::uint64_t last_ms_ = 0;
  bool drawn_ = false;
};

// The progress of every target of a run. Sessions report from their own threads; every write to
// the sink happens here under one lock, so bars and lines are never interleaved. Bars are redrawn
// at most 20 times a second, on a session's report or on the timer's tick.
class ProgressDisplay {
 public:
  static constexpr std::uint64_t REDRAW_INTERVAL_MS = 50;

  ProgressDisplay(ProgressStyle style, std::vector<std::string> names, ProgressSink sink,
                  ProgressClock clock, int columns);

  void update(std::size_t target, const StepProgress& progress);
  void finish(std::size_t target, bool ok);
  // The timer: redraws when something changed, so rates and ETAs move between reports too.
  void tick();
  // The last redraw, with every target's final state; nothing is written after it.
  void close();

 private:
  struct TargetState {
    std::string step;  // "" until the first report
    std::uint64_t done = 0;
    std::uint64_t total = 0;
    std::uint64_t step_start_ms = 0;
    bool finished = false;
    bool ok = false;
  };

  void redraw_locked(std::uint64_t now_ms);
  std::string bar_line(const std::string& name, const TargetState& state,
                       std::uint64_t now_ms) const;

  const ProgressStyle style_;
  const std::vector<std::string> names_;
  const ProgressSink sink_;
  const ProgressClock clock_;
  const std::size_t columns_;
  std::size_t name_width_ = 0;

  std::mutex mutex_;
  std::vector<TargetState> states_;
  RedrawThrottle throttle_{REDRAW_INTERVAL_MS};
  bool dirty_ = false;
  bool drawn_ = false;
  bool closed_ = false;
};

// "512 B/s", "118.2 KiB/s", "1.4 MiB/s".
std::string rate_text(double bytes_per_second);
// "0:07", "12:34".
std::string duration_text(std::uint64_t seconds);

}  // namespace pelmo::cli
