#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

namespace pelmo {

// Digits, written once for every reader and writer of numbers in text.

inline constexpr std::uint8_t NOT_A_DIGIT = 0xFF;

namespace detail {
constexpr std::array<std::uint8_t, 256> make_digit_values() {
  std::array<std::uint8_t, 256> values{};
  values.fill(NOT_A_DIGIT);
  for (int digit = 0; digit < 10; ++digit) {
    values['0' + digit] = static_cast<std::uint8_t>(digit);
  }
  for (int digit = 0; digit < 6; ++digit) {
    values['A' + digit] = static_cast<std::uint8_t>(10 + digit);
    values['a' + digit] = static_cast<std::uint8_t>(10 + digit);
  }
  return values;
}
inline constexpr std::array<std::uint8_t, 256> DIGIT_VALUES = make_digit_values();
}  // namespace detail

// The value of a decimal or hexadecimal digit (letters in either case), NOT_A_DIGIT for any other
// character. A table look-up: the HEX reader calls it for every digit of a file.
constexpr std::uint8_t digit_value(char c) {
  return detail::DIGIT_VALUES[static_cast<unsigned char>(c)];
}

constexpr bool is_decimal_digit(char c) {
  return digit_value(c) < 10;
}

// The upper-case hexadecimal digit for the low four bits of `value`.
constexpr char hex_digit_char(unsigned value) {
  return "0123456789ABCDEF"[value & 0x0Fu];
}

// Numbers in the form of the C library's "%d" conversion: white space of the "C" locale, an
// optional sign, one or more decimal digits. Both read from the front of `text` and advance it past
// the number; what follows is the caller's. Without a digit they give nothing and leave `text` as
// it was. They differ only in what a value outside the 32-bit range becomes.

// Values beyond the signed 32-bit range become its nearest end.
std::optional<std::int32_t> scan_decimal_saturating(std::string_view& text);

// The low 32 bits of the value, a negative one in two's complement, however many digits it has.
std::optional<std::uint32_t> scan_decimal_wrapping(std::string_view& text);

enum class NumberError : std::uint8_t { none, not_a_number, too_large };

struct ParsedNumber {
  std::uint64_t value = 0;  // meaningful when `error` is none
  NumberError error = NumberError::none;
};

// The whole of `text` as digits of `radix` (10 or 16), without blanks or sign, at most `max` (at
// least 15). The first fault in the text decides the error: a character that is no digit of
// `radix` (or an empty text) is not_a_number, the digit that takes the value past `max` too_large.
ParsedNumber parse_unsigned(std::string_view text, unsigned radix, std::uint64_t max);

}  // namespace pelmo
