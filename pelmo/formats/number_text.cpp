#include "pelmo/formats/number_text.hpp"

#include <algorithm>
#include <limits>

namespace pelmo {
namespace {

bool is_c_space(char c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
}

// The decimal digits at the front of `text`: how many, their value modulo 2^64 (enough for any
// low-bits reading) and whether the value passed `max` on the way.
struct Digits {
  std::size_t count = 0;
  std::uint64_t low_bits = 0;
  bool above_max = false;
};

Digits take_digits(std::string_view text, std::uint64_t max) {
  Digits digits;
  for (; digits.count < text.size(); ++digits.count) {
    const std::uint8_t digit = digit_value(text[digits.count]);
    if (digit >= 10) {
      break;
    }
    if (digits.low_bits > (max - digit) / 10) {
      digits.above_max = true;
    }
    digits.low_bits = digits.low_bits * 10 + digit;
  }
  return digits;
}

// The "%d" form at the front of `text`; advances `text` only when there is a number.
struct SignedDigits {
  bool negative = false;
  Digits digits;
};

std::optional<SignedDigits> scan_signed(std::string_view& text, std::uint64_t max) {
  std::string_view rest = text;
  while (!rest.empty() && is_c_space(rest.front())) {
    rest.remove_prefix(1);
  }
  SignedDigits number;
  if (!rest.empty() && (rest.front() == '+' || rest.front() == '-')) {
    number.negative = rest.front() == '-';
    rest.remove_prefix(1);
  }
  number.digits = take_digits(rest, max);
  if (number.digits.count == 0) {
    return std::nullopt;
  }
  text = rest.substr(number.digits.count);
  return number;
}

}  // namespace

std::optional<std::int32_t> scan_decimal_saturating(std::string_view& text) {
  // The magnitude of the most negative value; one less is the largest positive one.
  constexpr std::uint64_t LIMIT = std::uint64_t{std::numeric_limits<std::int32_t>::max()} + 1;
  const auto number = scan_signed(text, LIMIT);
  if (!number) {
    return std::nullopt;
  }
  const std::uint64_t magnitude = number->digits.above_max ? LIMIT : number->digits.low_bits;
  const std::int64_t value = number->negative
                                 ? -static_cast<std::int64_t>(magnitude)
                                 : static_cast<std::int64_t>(std::min(magnitude, LIMIT - 1));
  return static_cast<std::int32_t>(value);
}

std::optional<std::uint32_t> scan_decimal_wrapping(std::string_view& text) {
  const auto number = scan_signed(text, std::numeric_limits<std::uint64_t>::max());
  if (!number) {
    return std::nullopt;
  }
  const auto low = static_cast<std::uint32_t>(number->digits.low_bits);
  return number->negative ? 0u - low : low;
}

ParsedNumber parse_unsigned(std::string_view text, unsigned radix, std::uint64_t max) {
  if (text.empty()) {
    return {0, NumberError::not_a_number};
  }
  std::uint64_t value = 0;
  for (const char c : text) {
    const std::uint8_t digit = digit_value(c);
    if (digit >= radix) {
      return {0, NumberError::not_a_number};
    }
    if (value > (max - digit) / radix) {
      return {0, NumberError::too_large};
    }
    value = value * radix + digit;
  }
  return {value, NumberError::none};
}

}  // namespace pelmo
