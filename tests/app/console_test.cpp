#include <gtest/gtest.h>

#include <string>

#include "app/console.hpp"
#include "tests/app/sandbox.hpp"

namespace pelmo {
namespace {

TEST(Console, StatusLineShowsWholeSecondsOfTheStepAcrossTheTickWrap) {
  struct Case {
    const char* label;
    bool show;
    std::uint32_t start;
    std::uint32_t now;
    const char* expected;
  };
  for (const Case& c : {
           Case{"Reading FW ", true, 1000, 2999,
                "\rReading FW \rReading FW  1 [s]\rReading FW OK\n"},
           Case{"", false, 1000, 3000, "\r 2 [s]\rOK\n"},
           // The 32-bit millisecond tick wraps between the two readings.
           Case{"Erasing FW ", false, 0xFFFFFC18u, 2500, "\rErasing FW  3 [s]\rErasing FW OK\n"},
           Case{"", false, 0xFFFFFFFFu, 0xFFFFFFFEu, "\r 4294967 [s]\rOK\n"},
       }) {
    app_test::Sandbox box;
    box.tick = c.start;
    box.console.begin_status(c.label, c.show);
    box.tick = c.now;
    box.console.show_progress();
    box.console.print_status("OK\n");
    EXPECT_EQ(box.console_text(), c.expected) << c.label << c.now;
  }
}

}  // namespace
}  // namespace pelmo
