#include "cli/progress_display.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace pelmo::cli {
namespace {

// A display over a clock the test moves, keeping each write whole.
struct Harness {
  std::uint64_t now_ms = 1000;
  std::vector<std::string> writes;
  ProgressDisplay display;

  Harness(ProgressStyle style, std::vector<std::string> names, int columns = 120)
      : display(
            style, std::move(names), [this](std::string_view text) { writes.emplace_back(text); },
            [this] { return now_ms; }, columns) {}
};

StepProgress at(Step step, std::uint64_t done, std::uint64_t total) {
  return {"", step, done, total};
}

TEST(ProgressDisplay, BarsAreRedrawnAtMostTwentyTimesASecond) {
  Harness h(ProgressStyle::bars, {"udp:10.0.0.1", "serial:COM3"});
  // Two devices report every millisecond for two seconds, the timer ticks every 10 ms.
  for (std::uint64_t ms = 0; ms < 2000; ++ms) {
    h.display.update(ms % 2, at(Step::write, ms * 10, 20000));
    if (ms % 10 == 0) {
      h.display.tick();
    }
    ++h.now_ms;
  }
  EXPECT_GE(h.writes.size(), 39u);
  EXPECT_LE(h.writes.size(), 40u);
  // Each redraw goes back up over both bars and rewrites them whole, in one write.
  for (std::size_t i = 1; i < h.writes.size(); ++i) {
    ASSERT_TRUE(h.writes[i].starts_with("\x1b[2A\r")) << h.writes[i];
    EXPECT_EQ(2, std::count(h.writes[i].begin(), h.writes[i].end(), '\n'));
  }
}

TEST(ProgressDisplay, BarShowsPercentRateAndEta) {
  Harness h(ProgressStyle::bars, {"udp:10.0.0.1"});
  h.display.update(0, at(Step::write, 0, 102400));
  h.now_ms += 1000;
  h.display.update(0, at(Step::write, 25600, 102400));
  ASSERT_EQ(2u, h.writes.size());
  EXPECT_EQ(
      "\x1b[1A\rudp:10.0.0.1  write   [######..................]  25%  25.0 KiB/s  ETA "
      "0:03\x1b[K\n",
      h.writes[1]);
  h.display.finish(0, false);
  h.now_ms += 1000;
  h.display.close();
  EXPECT_EQ("\x1b[1A\rudp:10.0.0.1  failed\x1b[K\n", h.writes.back());
  h.display.update(0, at(Step::verify, 0, 102400));
  h.display.tick();
  EXPECT_EQ(3u, h.writes.size()) << "nothing is written after close";
}

TEST(ProgressDisplay, LongNamesGiveWayToTheBarAndNothingWraps) {
  const std::string name = "serial:/dev/serial/by-id/usb-FTDI_FT232R_USB_UART_A10KZP1X-if00";
  Harness wide(ProgressStyle::bars, {name, "udp:10.0.0.1"}, 100);
  wide.display.update(0, at(Step::read, 5, 10));
  ASSERT_EQ(1u, wide.writes.size());
  EXPECT_EQ(
      "\r..._FT232R_USB_UART_A10KZP1X-if00  read    [############............]  50%  --  ETA "
      "--:--\x1b[K\n"
      "\rudp:10.0.0.1                       waiting\x1b[K\n",
      wide.writes[0]);
  Harness narrow(ProgressStyle::bars, {name}, 40);
  narrow.display.update(0, at(Step::read, 5, 10));
  EXPECT_EQ("\r...ZP1X-if00  read    [############....\x1b[K\n", narrow.writes[0]);
}

TEST(ProgressDisplay, PipedProgressIsOnePlainLinePerStep) {
  Harness h(ProgressStyle::lines, {"udp:10.0.0.1", "udp:10.0.0.2"});
  for (const Step step : {Step::query, Step::erase, Step::write, Step::verify}) {
    for (std::uint64_t done = 0; done <= 4096; done += 8) {
      h.display.update(0, at(step, done, step == Step::write || step == Step::verify ? 4096 : 0));
      h.display.tick();
      ++h.now_ms;
    }
  }
  h.display.update(1, at(Step::query, 0, 0));
  h.display.update(1, at(Step::query, 0, 0));  // a second query is no new line
  h.display.close();
  const std::vector<std::string> expected = {
      "udp:10.0.0.1: query\n", "udp:10.0.0.1: erase\n", "udp:10.0.0.1: write 4096 bytes\n",
      "udp:10.0.0.1: verify 4096 bytes\n", "udp:10.0.0.2: query\n"};
  EXPECT_EQ(expected, h.writes);
}

TEST(ProgressText, RatesAndDurations) {
  EXPECT_EQ("512 B/s", rate_text(512));
  EXPECT_EQ("1.0 KiB/s", rate_text(1024));
  EXPECT_EQ("1.5 MiB/s", rate_text(1.5 * 1024 * 1024));
  EXPECT_EQ("0:07", duration_text(7));
  EXPECT_EQ("61:05", duration_text(3665));
}

}  // namespace
}  // namespace pelmo::cli
