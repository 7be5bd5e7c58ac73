#include "pelmo/formats/number_text.hpp"

#include <gtest/gtest.h>

#include <limits>
#include <optional>
#include <string>
#include <vector>

namespace pelmo {
namespace {

constexpr std::int32_t MAX = std::numeric_limits<std::int32_t>::max();
constexpr std::int32_t MIN = std::numeric_limits<std::int32_t>::min();

// The command line saturates, the factory table text keeps the low bits; both leave `rest`.
TEST(Decimal, ScanSaturatingAndWrapping) {
  struct Case {
    std::string text;
    std::optional<std::int32_t> saturated;
    std::optional<std::uint32_t> wrapped;
    std::string rest;
  };
  for (const Case& c : std::vector<Case>{{" \t\r\n+17.5", 17, 17u, ".5"},

                                         {"-1", -1, 0xFFFFFFFFu, ""},

                                         {"2147483648", MAX, 0x80000000u, ""},
                                         {"-2147483648", MIN, 0x80000000u, ""},
                                         {"-2147483649", MIN, 0x7FFFFFFFu, ""},
                                         {"4294967340", MAX, 44u, ""},
                                         {"99999999999999999999999x", MAX, 0xF67FFFFFu, "x"},
                                         {"-99999999999999999999999", MIN, 0x09800001u, ""},
                                         // No digit: nothing is taken.
                                         {" +", {}, {}, " +"},
                                         {"- 5", {}, {}, "- 5"},

                                         {"", {}, {}, ""}}) {
    std::string_view saturating = c.text, wrapping = c.text;
    EXPECT_EQ(scan_decimal_saturating(saturating), c.saturated) << c.text;
    EXPECT_EQ(scan_decimal_wrapping(wrapping), c.wrapped) << c.text;
    EXPECT_EQ(saturating, c.rest) << c.text;
    EXPECT_EQ(wrapping, c.rest) << c.text;
  }
}

// The simulator's options: whole texts of digits only, refused above their bound; the first
// fault in the text names the error.
TEST(Decimal, ParseUnsignedRejects) {
  using enum NumberError;
  struct Case {
    std::string text;
    unsigned radix;
    std::uint64_t max;
    ParsedNumber expected;
  };
  for (const Case& c : std::vector<Case>{{"255", 10, 255, {255, none}},
                                         {"256", 10, 255, {0, too_large}},

                                         {"fF", 16, 255, {255, none}},

                                         {"18446744073709551615", 10, ~0ull, {~0ull, none}},
                                         {"18446744073709551616", 10, ~0ull, {0, too_large}},
                                         {"9999x", 10, 255, {0, too_large}},

                                         {"g", 16, 255, {0, not_a_number}},
                                         {"", 10, 255, {0, not_a_number}},
                                         {"+1", 10, 255, {0, not_a_number}},
                                         {" 1", 10, 255, {0, not_a_number}}}) {
    const ParsedNumber parsed = parse_unsigned(c.text, c.radix, c.max);
    EXPECT_EQ(parsed.error, c.expected.error) << c.text;
    EXPECT_EQ(parsed.value, c.expected.value) << c.text;
  }
}

TEST(Digits, ValuesAndCharacters) {
  for (unsigned value = 0; value < 16; ++value) {
    const char upper = hex_digit_char(value);
    EXPECT_EQ(digit_value(upper), value);
    EXPECT_EQ(digit_value(static_cast<char>(upper | 0x20)), value);  // lower case
  }
  for (const char c : std::string("/:@G`g \xFF")) {
    EXPECT_EQ(digit_value(c), NOT_A_DIGIT) << c;
  }
}

}  // namespace
}  // namespace pelmo
