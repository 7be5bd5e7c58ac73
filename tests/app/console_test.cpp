#include <gtest/gtest.h>

#include "app/console.hpp"
#include "app/status_text.hpp"
#include "tests/app/captured_console.hpp"

namespace pelmo {
namespace {

TEST(Console, BeginStatusShowsTheLabelAlone) {
  app_test::CapturedConsole captured;
  captured.console().begin_status("Erasing FW ", true);
  EXPECT_EQ(captured.text(), "\rErasing FW ");
}

TEST(Console, BeginStatusWithoutShowPrintsNothing) {
  app_test::CapturedConsole captured;
  captured.console().begin_status("Erasing FW ", false);
  EXPECT_EQ(captured.text(), "");
}

TEST(Console, ProgressAfterTheEmptyLabel) {
  app_test::CapturedConsole captured;
  captured.console().begin_status("", false);
  captured.console().show_progress();
  EXPECT_EQ(captured.text(), "\r 0 [s]");
}

TEST(Console, PrintStatusRewritesTheLabelAndAddsTheText) {
  app_test::CapturedConsole captured;
  captured.console().begin_status("Writing FW ", false);
  captured.console().print_status("");
  captured.console().print_status("OK        \n");
  EXPECT_EQ(captured.text(), "\rWriting FW \rWriting FW OK        \n");
}

struct ProgressCase {
  std::uint32_t start;
  std::uint32_t now;
  const char* expected;
};

class ProgressSeconds : public testing::TestWithParam<ProgressCase> {};

TEST_P(ProgressSeconds, CountsWholeSecondsSinceTheStepBegan) {
  app_test::CapturedConsole captured;
  captured.tick = GetParam().start;
  captured.console().begin_status("Reading FW ", true);
  captured.tick = GetParam().now;
  captured.console().show_progress();
  EXPECT_EQ(captured.text(), std::string("\rReading FW \rReading FW ") + GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(Console, ProgressSeconds,
                         testing::Values(ProgressCase{1000, 1000, " 0 [s]"},
                                         ProgressCase{1000, 2999, " 1 [s]"},
                                         ProgressCase{1000, 3000, " 2 [s]"},
                                         // The tick wraps between the two readings.
                                         ProgressCase{0xFFFFFC18u, 2500, " 3 [s]"},
                                         ProgressCase{0xFFFFFFFFu, 0xFFFFFFFEu, " 4294967 [s]"}));

TEST(Console, WritesAreVisibleAtOnce) {
  // A second reader of the file sees every write as it happens, without a line feed.
  app_test::TempDir dir;
  std::FILE* stream = std::fopen(dir.path("console.txt").c_str(), "wb");
  ASSERT_NE(stream, nullptr);
  std::uint32_t tick = 0;
  Console console(stream, [&tick] { return tick; });
  console.begin_status("Label ", true);
  EXPECT_EQ(dir.read("console.txt"), "\rLabel ");
  tick = 1000;
  console.show_progress();
  EXPECT_EQ(dir.read("console.txt"), "\rLabel \rLabel  1 [s]");
  console.print("%d", 42);
  EXPECT_EQ(dir.read("console.txt"), "\rLabel \rLabel  1 [s]42");
  std::fclose(stream);
}

TEST(Console, WriteLineAddsOneLineFeed) {
  app_test::CapturedConsole captured;
  captured.console().write_line("Bad params !!!\n");
  captured.console().write("x");
  EXPECT_EQ(captured.text(), "Bad params !!!\n\nx");
}

struct StatusCase {
  int width;
  const char* ok;
  const char* error;
};

class StatusTexts : public testing::TestWithParam<StatusCase> {};

TEST_P(StatusTexts, ArePaddedToTheirWidth) {
  EXPECT_EQ(ok_status({GetParam().width}), GetParam().ok);
  EXPECT_EQ(error_status({GetParam().width}), GetParam().error);
}

INSTANTIATE_TEST_SUITE_P(Console, StatusTexts,
                         testing::Values(StatusCase{8, "OK      \n", "Error   \n"},
                                         StatusCase{9, "OK       \n", "Error    \n"},
                                         StatusCase{10, "OK        \n", "Error     \n"},
                                         StatusCase{11, "OK         \n", "Error      \n"},
                                         StatusCase{12, "OK          \n", "Error       \n"},
                                         StatusCase{13, "OK           \n", "Error        \n"},
                                         StatusCase{14, "OK            \n", "Error         \n"}));

}  // namespace
}  // namespace pelmo
