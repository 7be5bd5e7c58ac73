#include "pelmo/formats/factory_table_text.hpp"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>

#include "pelmo/formats/number_text.hpp"
#include "pelmo/formats/stream_text.hpp"

namespace pelmo {
namespace {

// A line read takes at most this many characters; a longer line goes on as lines of its own.
constexpr std::size_t LINE_MAX_CHARS = 255;

// The accepted lines of a complete table add up to this.
constexpr int COMPLETE_POINTS = 10;

enum class Field : std::uint8_t { sn, type, modif, hw, ip_addr, ip_mask, ip_gtw, dhcp, mac };

struct KeyRule {
  std::string_view key;  // upper case, colon included
  Field field;
  std::uint8_t numbers;  // numbers of a dotted address value (4 or 6); 0 for other value forms
  std::uint8_t points;
};

// Matched in this order against the start of the upper-cased line.
constexpr std::array<KeyRule, 15> KEY_RULES{{
    {"SN:", Field::sn, 0, 1},
    {"TYPE:", Field::type, 0, 1},
    {"MODIF:", Field::modif, 0, 1},
    {"HW:", Field::hw, 0, 1},
    {"IPV6_ADDR:", Field::ip_addr, 6, 2},
    {"IPV4_ADDR:", Field::ip_addr, 4, 2},
    {"IP_ADDR:", Field::ip_addr, 4, 2},
    {"IPV6_MASK:", Field::ip_mask, 6, 1},
    {"IPV4_MASK:", Field::ip_mask, 4, 1},
    {"IP_MASK:", Field::ip_mask, 4, 1},
    {"IPV6_GTW:", Field::ip_gtw, 6, 1},
    {"IPV4_GTW:", Field::ip_gtw, 4, 1},
    {"IP_GTW:", Field::ip_gtw, 4, 1},
    {"DHCP:", Field::dhcp, 0, 1},
    {"MAC:", Field::mac, 0, 1},
}};

constexpr std::size_t MAC_BYTES = 6;
constexpr std::size_t MAX_ADDRESS_NUMBERS = 6;
using AddressBytes = std::array<std::uint8_t, MAX_ADDRESS_NUMBERS>;

// White space in the sense of the C library's "C" locale.
bool is_blank(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}

void skip_blanks(std::string_view& text) {
  while (!text.empty() && is_blank(text.front())) {
    text.remove_prefix(1);
  }
}

// Consumes `separator` when it comes next.
bool take_separator(std::string_view& text, char separator) {
  if (text.empty() || text.front() != separator) {
    return false;
  }
  text.remove_prefix(1);
  return true;
}

// `count` decimal numbers joined by dots, each dot right after its number; low 8 bits each.
bool read_dotted(std::string_view text, std::size_t count, AddressBytes& bytes) {
  for (std::size_t index = 0; index < count; ++index) {
    if (index != 0 && !take_separator(text, '.')) {
      return false;
    }
    const std::optional<std::uint32_t> number = scan_decimal_wrapping(text);
    if (!number) {
      return false;
    }
    bytes[index] = static_cast<std::uint8_t>(*number);
  }
  return true;
}

// Six groups of one or two hexadecimal digits joined by colons; blanks may precede a group.
bool read_mac(std::string_view text, std::array<std::uint8_t, MAC_BYTES>& mac) {
  for (std::size_t index = 0; index < MAC_BYTES; ++index) {
    if (index != 0 && !take_separator(text, ':')) {
      return false;
    }
    skip_blanks(text);
    const std::uint8_t first = text.empty() ? NOT_A_DIGIT : digit_value(text[0]);
    if (first >= 16) {
      return false;
    }
    text.remove_prefix(1);
    std::uint8_t value = first;
    if (const std::uint8_t second = text.empty() ? NOT_A_DIGIT : digit_value(text[0]);
        second < 16) {
      value = static_cast<std::uint8_t>((value << 4) | second);
      text.remove_prefix(1);
    }
    mac[index] = value;
  }
  return true;
}

std::uint8_t* address_field(FactoryTable& table, Field field) {
  switch (field) {
    case Field::ip_addr:
      return table.ip_addr;
    case Field::ip_mask:
      return table.ip_mask;
    default:
      return table.ip_gtw;
  }
}

// What one line did to the table.
enum class LineOutcome : std::uint8_t { skipped, stored, form_mismatch };

// Reads the value after `rule`'s key and stores it. `value` is the upper-cased rest of the line,
// `original_value` the same characters as written (text values keep their case).
LineOutcome apply_line(const KeyRule& rule, std::string_view value, std::string_view original_value,
                       FactoryTable& table) {
  switch (rule.field) {
    case Field::sn:
      return parse_text_value(original_value, table.sn) ? LineOutcome::stored
                                                        : LineOutcome::skipped;
    case Field::type:
      return parse_text_value(original_value, table.type) ? LineOutcome::stored
                                                          : LineOutcome::skipped;
    case Field::modif:
    case Field::hw:
    case Field::dhcp: {
      const std::optional<std::uint32_t> number = scan_decimal_wrapping(value);
      if (!number) {
        return LineOutcome::skipped;
      }
      if (rule.field == Field::dhcp) {
        table.dhcp = *number != 0 ? 1 : 0;
      } else {
        (rule.field == Field::modif ? table.modif : table.hw) = static_cast<std::uint16_t>(*number);
      }
      return LineOutcome::stored;
    }
    case Field::mac: {
      std::array<std::uint8_t, MAC_BYTES> mac{};
      if (!read_mac(value, mac)) {
        return LineOutcome::skipped;
      }
      std::copy(mac.begin(), mac.end(), table.mac);
      return LineOutcome::stored;
    }
    case Field::ip_addr:
    case Field::ip_mask:
    case Field::ip_gtw: {
      AddressBytes bytes{};
      if (!read_dotted(value, rule.numbers, bytes)) {
        return LineOutcome::skipped;
      }
      const bool six_numbers = rule.numbers == MAX_ADDRESS_NUMBERS;
      if (rule.field == Field::ip_addr) {
        table.ipv6 = six_numbers ? 1 : 0;
      } else if (six_numbers != (table.ipv6 != 0)) {
        // Mask and gateway must use the form the address line chose.
        return LineOutcome::form_mismatch;
      }
      std::copy_n(bytes.begin(), rule.numbers, address_field(table, rule.field));
      return LineOutcome::stored;
    }
  }
  return LineOutcome::skipped;
}

const KeyRule* find_key(std::string_view upper_line) {
  const auto rule = std::find_if(KEY_RULES.begin(), KEY_RULES.end(), [&](const KeyRule& candidate) {
    return upper_line.starts_with(candidate.key);
  });
  return rule == KEY_RULES.end() ? nullptr : &*rule;
}

char to_upper(char c) {
  return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

// Every listed line starts with its key padded to this width, then one blank and the value.
constexpr int KEY_FIELD_WIDTH = 11;
constexpr std::size_t PRINT_LINE_CHARS = 128;
using PrintLine = std::array<char, PRINT_LINE_CHARS>;

void emit(std::FILE* console, std::FILE* file, const char* line) {
  if (console != nullptr) {
    std::fputs(line, console);
  }
  if (file != nullptr) {
    std::fputs(line, file);
  }
}

template <std::size_t N>
void format_text_line(PrintLine& line, const char* key, const char (&field)[N]) {
  const std::string_view text = field_text(field);
  std::snprintf(line.data(), line.size(), "%-*s \"%.*s\"\n", KEY_FIELD_WIDTH, key,
                static_cast<int>(text.size()), text.data());
}

void format_number_line(PrintLine& line, const char* key, unsigned value) {
  std::snprintf(line.data(), line.size(), "%-*s %u\n", KEY_FIELD_WIDTH, key, value);
}

void format_address_line(PrintLine& line, const char* key, const std::uint8_t* bytes, bool six) {
  if (six) {
    std::snprintf(line.data(), line.size(), "%-*s %u.%u.%u.%u.%u.%u\n", KEY_FIELD_WIDTH, key,
                  bytes[0], bytes[1], bytes[2], bytes[3], bytes[4], bytes[5]);
  } else {
    std::snprintf(line.data(), line.size(), "%-*s %u.%u.%u.%u\n", KEY_FIELD_WIDTH, key, bytes[0],
                  bytes[1], bytes[2], bytes[3]);
  }
}

}  // namespace

bool parse_text_value(std::string_view text, std::span<char> output) {
  if (output.empty()) {
    return false;
  }
  std::string_view value;
  const std::size_t open = text.find('"');
  const std::size_t close = open == std::string_view::npos ? open : text.find('"', open + 1);
  if (close != std::string_view::npos) {
    value = text.substr(open + 1, close - open - 1);
  } else {
    skip_blanks(text);
    const auto word_end = std::find_if(text.begin(), text.end(), is_blank);
    value = text.substr(0, static_cast<std::size_t>(word_end - text.begin()));
    if (value.empty()) {
      return false;
    }
  }
  const std::size_t length = std::min(value.size(), output.size() - 1);
  std::copy_n(value.begin(), length, output.begin());
  std::fill(output.begin() + static_cast<std::ptrdiff_t>(length), output.end(), '\0');
  return true;
}

ResultCode parse_factory_table(std::string_view text, FactoryTable& table) {
  int points = 0;
  std::array<char, LINE_MAX_CHARS> upper_buffer{};
  while (!text.empty()) {
    const std::string_view line = strip_line_end(take_line_piece(text, LINE_MAX_CHARS));
    if (line.empty() || line.front() == '#') {
      continue;
    }
    std::transform(line.begin(), line.end(), upper_buffer.begin(), to_upper);
    const std::string_view upper_line{upper_buffer.data(), line.size()};
    const KeyRule* rule = find_key(upper_line);
    if (rule == nullptr) {
      continue;
    }
    const std::size_t value_offset = rule->key.size();
    switch (apply_line(*rule, upper_line.substr(value_offset), line.substr(value_offset), table)) {
      case LineOutcome::stored:
        points += rule->points;
        break;
      case LineOutcome::form_mismatch:
        return RC_MISMATCH;
      case LineOutcome::skipped:
        break;
    }
  }
  return points == COMPLETE_POINTS ? RC_OK : RC_INCOMPLETE;
}

ResultCode parse_factory_table(std::FILE* input, FactoryTable& table) {
  const std::optional<std::string> text = read_stream_text(input, FACTORY_TEXT_MAX_BYTES);
  return text ? parse_factory_table(std::string_view{*text}, table) : RC_INCOMPLETE;
}

void print_factory_table(const FactoryTable& table, std::FILE* console, std::FILE* file) {
  if (console != nullptr) {
    std::fputs("Factory table values:\n", console);
  }
  if (file != nullptr) {
    std::fputs("# Factory table values:\n", file);
  }
  const bool six = table.ipv6 != 0;
  std::array<PrintLine, 9> lines{};
  format_text_line(lines[0], "TYPE:", table.type);
  format_text_line(lines[1], "SN:", table.sn);
  format_number_line(lines[2], "HW:", table.hw);
  format_number_line(lines[3], "MODIF:", table.modif);
  std::snprintf(lines[4].data(), lines[4].size(), "%-*s %02X:%02X:%02X:%02X:%02X:%02X\n",
                KEY_FIELD_WIDTH, "MAC:", table.mac[0], table.mac[1], table.mac[2], table.mac[3],
                table.mac[4], table.mac[5]);
  format_number_line(lines[5], "DHCP:", table.dhcp);
  format_address_line(lines[6], six ? "IPV6_ADDR:" : "IPV4_ADDR:", table.ip_addr, six);
  format_address_line(lines[7], six ? "IPV6_MASK:" : "IPV4_MASK:", table.ip_mask, six);
  format_address_line(lines[8], six ? "IPV6_GTW:" : "IPV4_GTW:", table.ip_gtw, six);
  for (const PrintLine& line : lines) {
    emit(console, file, line.data());
  }
  if (console != nullptr) {
    std::fputs("\n", console);
  }
}

}  // namespace pelmo
