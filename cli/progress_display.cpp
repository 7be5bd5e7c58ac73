#include "cli/progress_display.hpp"

#include <algorithm>
#include <cstdio>

namespace pelmo::cli {
namespace {

constexpr std::size_t BAR_WIDTH = 24;
constexpr std::size_t STEP_WIDTH = 7;
// Before this much of a step has passed, a rate would mostly measure the first round trip.
constexpr std::uint64_t RATE_AFTER_MS = 200;

// What follows a name on a bar line at most: "  write   [bar] 100%  1023.9 KiB/s  ETA 99:59".
constexpr std::size_t BAR_LINE_TAIL = 2 + STEP_WIDTH + 1 + BAR_WIDTH + 3 + 4 + 2 + 12 + 6 + 5;
constexpr std::size_t SHORTEST_NAME = 12;

std::string padded(std::string_view text, std::size_t width) {
  std::string result(text);
  result.resize(std::max(width, text.size()), ' ');
  return result;
}

// A name cut to `width` keeps its end, where names differ ("...by-id/usb-FTDI_A10K-if00").
std::string fitted(std::string_view name, std::size_t width) {
  if (name.size() <= width) {
    return padded(name, width);
  }
  return "..." + std::string(name.substr(name.size() - (width - 3)));
}

}  // namespace

bool RedrawThrottle::allow(std::uint64_t now_ms) {
  if (drawn_ && now_ms - last_ms_ < interval_ms_) {
    return false;
  }
  drawn_ = true;
  last_ms_ = now_ms;
  return true;
}

std::string rate_text(double bytes_per_second) {
  char text[32];
  if (bytes_per_second < 1024) {
    std::snprintf(text, sizeof text, "%.0f B/s", bytes_per_second);
  } else if (bytes_per_second < 1024 * 1024) {
    std::snprintf(text, sizeof text, "%.1f KiB/s", bytes_per_second / 1024);
  } else {
    std::snprintf(text, sizeof text, "%.1f MiB/s", bytes_per_second / (1024 * 1024));
  }
  return text;
}

std::string duration_text(std::uint64_t seconds) {
  char text[32];
  std::snprintf(text, sizeof text, "%llu:%02llu", static_cast<unsigned long long>(seconds / 60),
                static_cast<unsigned long long>(seconds % 60));
  return text;
}

ProgressDisplay::ProgressDisplay(ProgressStyle style, std::vector<std::string> names,
                                 ProgressSink sink, ProgressClock clock, int columns)
    : style_(style),
      names_(std::move(names)),
      sink_(std::move(sink)),
      clock_(std::move(clock)),
      columns_(columns > 20 ? static_cast<std::size_t>(columns) : 80),
      states_(names_.size()) {
  for (const std::string& name : names_) {
    name_width_ = std::max(name_width_, name.size());
  }
  // Long names give way to the bar on a narrow terminal.
  const std::size_t room = columns_ - 1 > BAR_LINE_TAIL ? columns_ - 1 - BAR_LINE_TAIL : 0;
  name_width_ = std::min(name_width_, std::max(room, SHORTEST_NAME));
}

void ProgressDisplay::update(std::size_t target, const StepProgress& progress) {
  const std::uint64_t now = clock_();
  std::lock_guard lock(mutex_);
  if (closed_ || target >= states_.size()) {
    return;
  }
  TargetState& state = states_[target];
  const std::string_view step = step_name(progress.step);
  // A step of the same name that starts again (a second query) restarts the clock, not the line.
  const bool new_step = state.step != step;
  if (new_step || progress.done < state.done) {
    state.step = step;
    state.step_start_ms = now;
  }
  state.done = progress.done;
  state.total = progress.total;
  if (style_ == ProgressStyle::lines) {
    if (new_step) {
      std::string line = names_[target] + ": " + state.step;
      if (progress.total != 0) {
        // A read knows the area's size, not how much of it the device holds.
        line += (progress.step == Step::read ? " up to " : " ") + std::to_string(progress.total) +
                " bytes";
      }
      sink_(line + "\n");
    }
    return;
  }
  dirty_ = true;
  if (throttle_.allow(now)) {
    redraw_locked(now);
  }
}

void ProgressDisplay::finish(std::size_t target, bool ok) {
  std::lock_guard lock(mutex_);
  if (target < states_.size()) {
    states_[target].finished = true;
    states_[target].ok = ok;
    dirty_ = true;
  }
}

void ProgressDisplay::tick() {
  const std::uint64_t now = clock_();
  std::lock_guard lock(mutex_);
  if (closed_ || style_ != ProgressStyle::bars) {
    return;
  }
  // Rates and ETAs move with time alone while a transfer runs.
  const bool moving = std::any_of(states_.begin(), states_.end(), [](const TargetState& state) {
    return !state.finished && state.total != 0;
  });
  if ((dirty_ || moving) && throttle_.allow(now)) {
    redraw_locked(now);
  }
}

void ProgressDisplay::close() {
  const std::uint64_t now = clock_();
  std::lock_guard lock(mutex_);
  if (closed_) {
    return;
  }
  if (style_ == ProgressStyle::bars && drawn_) {
    redraw_locked(now);
  }
  closed_ = true;
}

std::string ProgressDisplay::bar_line(const std::string& name, const TargetState& state,
                                      std::uint64_t now_ms) const {
  std::string line = fitted(name, name_width_) + "  ";
  if (state.finished) {
    line += state.ok ? "done" : "failed";
    return line;
  }
  if (state.step.empty()) {
    return line + "waiting";
  }
  line += padded(state.step, STEP_WIDTH) + " ";
  const std::uint64_t elapsed_ms = now_ms - state.step_start_ms;
  if (state.total == 0) {
    char seconds[32];
    std::snprintf(seconds, sizeof seconds, "%.1f s", static_cast<double>(elapsed_ms) / 1000);
    return line + seconds;
  }
  const std::uint64_t done = std::min(state.done, state.total);
  const std::size_t filled = static_cast<std::size_t>(done * BAR_WIDTH / state.total);
  line += "[" + std::string(filled, '#') + std::string(BAR_WIDTH - filled, '.') + "] ";
  char percent[16];
  std::snprintf(percent, sizeof percent, "%3u%%", static_cast<unsigned>(done * 100 / state.total));
  line += percent;
  if (elapsed_ms >= RATE_AFTER_MS && done > 0) {
    const double rate = static_cast<double>(done) * 1000.0 / static_cast<double>(elapsed_ms);
    const auto eta =
        static_cast<std::uint64_t>(static_cast<double>(state.total - done) / rate + 0.5);
    line += "  " + rate_text(rate) + "  ETA " + duration_text(eta);
  } else {
    line += "  --  ETA --:--";
  }
  return line;
}

void ProgressDisplay::redraw_locked(std::uint64_t now_ms) {
  std::string frame;
  if (drawn_) {
    frame = "\x1b[" + std::to_string(states_.size()) + "A";  // back to the first bar
  }
  for (std::size_t i = 0; i < states_.size(); ++i) {
    std::string line = bar_line(names_[i], states_[i], now_ms);
    line.resize(std::min(line.size(), columns_ - 1));  // a wrapped line would break the count up
    frame += "\r" + line + "\x1b[K\n";
  }
  sink_(frame);
  drawn_ = true;
  dirty_ = false;
}

}  // namespace pelmo::cli
