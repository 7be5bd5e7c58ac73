#include "transport/serial_settings.hpp"

#include <gtest/gtest.h>

namespace pelmo::test {
namespace {

TEST(SerialSettings, TextRoundTrips) {
  const LineSettings settings[] = {
      {115200, 8, Parity::none, 1, true, true},
      {1000000, 7, Parity::even, 2, true, false},
      {110, 5, Parity::odd, 1, false, true},
  };
  for (const LineSettings& line : settings) {
    const std::string text = format_line_settings(line);
    EXPECT_EQ(parse_line_settings(text), line) << text;
  }
  EXPECT_EQ(format_line_settings(settings[0]), "baud=115200 data=8 parity=n stop=1 dtr=on rts=on");
}

TEST(SerialSettings, PiecesInAnyOrderWithDefaults) {
  EXPECT_EQ(parse_line_settings("rts=on  baud=9600 parity=o"),
            (LineSettings{9600, 8, Parity::odd, 1, false, true}));
}

TEST(SerialSettings, RejectsWhatDoesNotFit) {
  for (const char* text :
       {"", "data=8", "baud=0", "baud=-5", "baud=96x0", "baud=9600 data=9", "baud=9600 data=4",
        "baud=9600 parity=m", "baud=9600 parity=N", "baud=9600 stop=3", "baud=9600 dtr=yes",
        "baud=9600 speed=1", "baud=9600 data", "baud=9600 =8"}) {
    EXPECT_EQ(parse_line_settings(text), std::nullopt) << text;
  }
}

}  // namespace
}  // namespace pelmo::test
