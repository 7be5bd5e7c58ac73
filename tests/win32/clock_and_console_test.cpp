#include <fcntl.h>
#include <gtest/gtest.h>
#include <io.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>

#include "transport/port_layer.hpp"

namespace pelmo::port {
namespace {

TEST(ClockTest, SleepAdvancesTheTickByAboutItsLength) {
  PortLayer& layer = system_port_layer();
  const std::uint32_t start = layer.tick_ms();
  layer.sleep_ms(100);
  const std::uint32_t elapsed = layer.tick_ms() - start;
  EXPECT_GE(elapsed, 80u);  // the tick advances in steps of up to 16 ms on Windows
  EXPECT_LT(elapsed, 1000u);
}

// Captures what reaches file descriptor 1 when `prepare` and then `write` run. Standard output
// starts in text mode, like a program's; the mode travels with _dup2, so `prepare` runs after
// the redirection.
template <typename Prepare, typename Write>
std::string captured_stdout(Prepare prepare, Write write) {
  const std::string path = ::testing::TempDir() + "pelmo_console_capture.txt";
  std::fflush(stdout);
  const int saved = _dup(_fileno(stdout));
  const int file = _open(path.c_str(), _O_WRONLY | _O_CREAT | _O_TRUNC | _O_TEXT, 0600);
  _dup2(file, _fileno(stdout));
  _close(file);
  prepare();
  write();
  std::fflush(stdout);
  _dup2(saved, _fileno(stdout));
  _close(saved);
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

TEST(ConsoleTest, LineFeedsReachTheOutputUnchanged) {
  const auto write = [] { std::printf("\rErasing FW OK\n\n"); };
  const std::string text_mode = captured_stdout([] {}, write);
  const std::string prepared = captured_stdout(prepare_console, write);
  EXPECT_EQ("\rErasing FW OK\r\n\r\n", text_mode);  // what the preparation is there to prevent
  EXPECT_EQ("\rErasing FW OK\n\n", prepared);
}

}  // namespace
}  // namespace pelmo::port
