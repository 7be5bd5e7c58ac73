#include "pelmo/formats/factory_table_text.hpp"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <limits>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "pelmo/formats/number_text.hpp"
#include "pelmo/formats/stream_text.hpp"

namespace pelmo {
namespace {

// A line read takes at most this many characters; a longer line goes on as lines of its own.
constexpr std::size_t LINE_MAX_CHARS = 255;

// The accepted lines of a complete table add up to this.
constexpr int COMPLETE_POINTS = 10;

enum class Field : std::uint8_t { sn, type, modif, hw, ip_addr, ip_mask, ip_gtw, dhcp, mac };
constexpr std::size_t FIELD_COUNT = 9;

struct KeyRule {
  std::string_view key;  // upper case, colon included
  Field field;
  std::uint8_t numbers;  // numbers of a dotted address value (4 or 6); 0 for other value forms
  std::uint8_t points;
};

// Matched in this order against the start of the upper-cased line. The first key of a field (in
// its address form) is the one the text is written and reported with.
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

// The order of the written text's lines.
constexpr std::array<Field, FIELD_COUNT> TEXT_ORDER{Field::type,    Field::sn,      Field::hw,
                                                    Field::modif,   Field::mac,     Field::dhcp,
                                                    Field::ip_addr, Field::ip_mask, Field::ip_gtw};

enum class ValueForm : std::uint8_t { text, number, address, mac };

constexpr ValueForm value_form(Field field) {
  switch (field) {
    case Field::sn:
    case Field::type:
      return ValueForm::text;
    case Field::modif:
    case Field::hw:
    case Field::dhcp:
      return ValueForm::number;
    case Field::ip_addr:
    case Field::ip_mask:
    case Field::ip_gtw:
      return ValueForm::address;
    case Field::mac:
      return ValueForm::mac;
  }
  return ValueForm::text;
}

// The largest value a number field holds: HW and MODIF are 16-bit, DHCP is a flag.
constexpr std::uint32_t number_limit(Field field) {
  return field == Field::dhcp ? 1 : std::numeric_limits<std::uint16_t>::max();
}

// The key `field` is written with; an address field's key in the form of `numbers`.
const KeyRule& key_rule_of(Field field, std::uint8_t numbers) {
  return *std::find_if(KEY_RULES.begin(), KEY_RULES.end(), [&](const KeyRule& rule) {
    return rule.field == field && (rule.numbers == 0 || rule.numbers == numbers);
  });
}

// A key as reported: upper case, without its colon.
std::string key_name(const KeyRule& rule) {
  return std::string(rule.key.substr(0, rule.key.size() - 1));
}

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

// `Table` is FactoryTable or const FactoryTable.
template <typename Table>
auto address_field(Table& table, Field field) -> decltype(&table.ip_addr[0]) {
  switch (field) {
    case Field::ip_addr:
      return table.ip_addr;
    case Field::ip_mask:
      return table.ip_mask;
    default:
      return table.ip_gtw;
  }
}

std::span<char> text_field(FactoryTable& table, Field field) {
  return field == Field::sn ? std::span<char>(table.sn) : std::span<char>(table.type);
}

// The characters a text field holds before its terminating zero.
constexpr std::size_t text_capacity(Field field) {
  return (field == Field::sn ? sizeof(FactoryTable::sn) : sizeof(FactoryTable::type)) - 1;
}

std::string_view text_of(const FactoryTable& table, Field field) {
  return field == Field::sn ? field_text(table.sn) : field_text(table.type);
}

unsigned number_of(const FactoryTable& table, Field field) {
  switch (field) {
    case Field::modif:
      return table.modif;
    case Field::hw:
      return table.hw;
    default:
      return table.dhcp;
  }
}

// Keeps the number's low bits; DHCP is a flag that any number but 0 sets.
void store_number(FactoryTable& table, Field field, std::uint32_t number) {
  switch (field) {
    case Field::modif:
      table.modif = static_cast<std::uint16_t>(number);
      break;
    case Field::hw:
      table.hw = static_cast<std::uint16_t>(number);
      break;
    default:
      table.dhcp = number != 0 ? 1 : 0;
      break;
  }
}

// What one line did to the table.
enum class LineOutcome : std::uint8_t { skipped, stored, form_mismatch };

// Reads the value after `rule`'s key and stores it. `value` is the upper-cased rest of the line,
// `original_value` the same characters as written (text values keep their case).
LineOutcome apply_line(const KeyRule& rule, std::string_view value, std::string_view original_value,
                       FactoryTable& table) {
  switch (value_form(rule.field)) {
    case ValueForm::text:
      return parse_text_value(original_value, text_field(table, rule.field)) ? LineOutcome::stored
                                                                             : LineOutcome::skipped;
    case ValueForm::number: {
      const std::optional<std::uint32_t> number = scan_decimal_wrapping(value);
      if (!number) {
        return LineOutcome::skipped;
      }
      store_number(table, rule.field, *number);
      return LineOutcome::stored;
    }
    case ValueForm::mac: {
      std::array<std::uint8_t, MAC_BYTES> mac{};
      if (!read_mac(value, mac)) {
        return LineOutcome::skipped;
      }
      std::copy(mac.begin(), mac.end(), table.mac);
      return LineOutcome::stored;
    }
    case ValueForm::address: {
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

// ---- The strict reading ----

// Why a line is refused; nothing when it is fine.
using Fault = std::optional<std::string>;

FactoryTextCheck refusal(std::uint32_t line, std::string key, std::string reason) {
  return {.ok = false, .line = line, .key = std::move(key), .reason = std::move(reason)};
}

// The value's characters up to the first blank, and also up to a "#" when `hash_ends`; `rest`
// moves past them.
std::string_view take_word(std::string_view& rest, bool hash_ends) {
  const auto end = std::find_if(rest.begin(), rest.end(),
                                [&](char c) { return is_blank(c) || (hash_ends && c == '#'); });
  const std::string_view word = rest.substr(0, static_cast<std::size_t>(end - rest.begin()));
  rest.remove_prefix(word.size());
  return word;
}

// What follows a value: blanks, then nothing or a "#" comment.
Fault check_after_value(std::string_view rest) {
  skip_blanks(rest);
  if (rest.empty() || rest.front() == '#') {
    return std::nullopt;
  }
  while (is_blank(rest.back())) {
    rest.remove_suffix(1);
  }
  return "unexpected \"" + std::string(rest) + "\" after the value";
}

Fault check_number(std::string_view word, std::uint32_t limit) {
  // The parser's bound is never below 15; a smaller limit is checked on its value.
  constexpr std::uint64_t PARSER_MIN_LIMIT = 15;
  const ParsedNumber number =
      parse_unsigned(word, 10, std::max<std::uint64_t>(limit, PARSER_MIN_LIMIT));
  if (number.error == NumberError::not_a_number) {
    return std::string(word) + " is not a number";
  }
  if (number.error == NumberError::too_large || number.value > limit) {
    return std::string(word) + " is above " + std::to_string(limit);
  }
  return std::nullopt;
}

// The parts of `word` between `separator`s.
std::vector<std::string_view> split(std::string_view word, char separator) {
  std::vector<std::string_view> parts;
  for (std::size_t start = 0;;) {
    const std::size_t end = word.find(separator, start);
    parts.push_back(word.substr(start, end - start));
    if (end == std::string_view::npos) {
      return parts;
    }
    start = end + 1;
  }
}

Fault check_address(std::string_view word, std::size_t count) {
  const std::vector<std::string_view> parts = split(word, '.');
  if (parts.size() != count ||
      std::any_of(parts.begin(), parts.end(), [](std::string_view part) { return part.empty(); })) {
    return std::string(word) + " is not " + std::to_string(count) + " numbers joined by '.'";
  }
  for (const std::string_view part : parts) {
    if (Fault fault = check_number(part, std::numeric_limits<std::uint8_t>::max())) {
      return fault;
    }
  }
  return std::nullopt;
}

Fault check_mac(std::string_view word) {
  const std::vector<std::string_view> groups = split(word, ':');
  if (groups.size() != MAC_BYTES) {
    return std::string(word) + " is not " + std::to_string(MAC_BYTES) + " groups joined by ':'";
  }
  for (const std::string_view group : groups) {
    if (group.size() != 2 || digit_value(group[0]) >= 16 || digit_value(group[1]) >= 16) {
      return "group \"" + std::string(group) + "\" is not two hexadecimal digits";
    }
  }
  return std::nullopt;
}

bool is_control(char c) {
  return static_cast<unsigned char>(c) < 0x20 || c == 0x7F;
}

// A text value, quoted or as one word. `value` starts at its first character and moves past it.
// The lenient reader takes the text between the line's first two quotes wherever they are, so an
// unquoted text must have no quote on its line at all.
Fault check_text(std::string_view& value, std::size_t capacity) {
  std::string_view text;
  if (value.front() == '"') {
    const std::size_t close = value.find('"', 1);
    if (close == std::string_view::npos) {
      return "no closing quote";
    }
    text = value.substr(1, close - 1);
    value.remove_prefix(close + 1);
  } else {
    if (value.find('"') != std::string_view::npos) {
      return "a quote on the line of an unquoted text";
    }
    text = take_word(value, false);
  }
  if (text.size() > capacity) {
    return "longer than " + std::to_string(capacity) + " characters";
  }
  if (std::any_of(text.begin(), text.end(), is_control)) {
    return "a control character in the text";
  }
  return std::nullopt;
}

// Checks the value after `rule`'s key on a line of its own.
Fault check_value(const KeyRule& rule, std::string_view value) {
  skip_blanks(value);
  if (value.empty() || (value.front() == '#' && value_form(rule.field) != ValueForm::text)) {
    return "no value";
  }
  Fault fault;
  switch (value_form(rule.field)) {
    case ValueForm::text:
      fault = check_text(value, text_capacity(rule.field));
      break;
    case ValueForm::number:
      fault = check_number(take_word(value, true), number_limit(rule.field));
      break;
    case ValueForm::address:
      fault = check_address(take_word(value, true), rule.numbers);
      break;
    case ValueForm::mac:
      fault = check_mac(take_word(value, true));
      break;
  }
  return fault ? fault : check_after_value(value);
}

// Why a line that starts with no known key is refused.
FactoryTextCheck unknown_key(std::uint32_t line, std::string_view upper_line) {
  if (is_blank(upper_line.front())) {
    return refusal(line, "", "blanks before the key");
  }
  const auto name_end = std::find_if(upper_line.begin(), upper_line.end(),
                                     [](char c) { return c == ':' || is_blank(c); });
  const std::string name(upper_line.begin(), name_end);
  const bool known = std::any_of(KEY_RULES.begin(), KEY_RULES.end(), [&](const KeyRule& rule) {
    return rule.key.substr(0, rule.key.size() - 1) == name;
  });
  return refusal(line, name,
                 known && (name_end == upper_line.end() || *name_end != ':')
                     ? "no colon after the key"
                     : "unknown key");
}

// Where a mask or gateway line stands against the address line before it.
Fault check_address_form(const KeyRule& rule, bool address_given, bool ipv6_address) {
  if (rule.field != Field::ip_mask && rule.field != Field::ip_gtw) {
    return std::nullopt;
  }
  const std::string_view noun = rule.field == Field::ip_mask ? "mask" : "gateway";
  if (!address_given) {
    return "the " + std::string(noun) + " comes before the address";
  }
  const bool six_numbers = rule.numbers == MAX_ADDRESS_NUMBERS;
  if (six_numbers != ipv6_address) {
    return std::string(six_numbers ? "an IPv6 " : "an IPv4 ") + std::string(noun) +
           (ipv6_address ? " for an IPv6 address" : " for an IPv4 address");
  }
  return std::nullopt;
}

// ---- The text form ----

// Every written line starts with its key padded to this width, then one blank and the value.
constexpr std::size_t KEY_FIELD_WIDTH = 11;
constexpr std::string_view HEADING = "Factory table values:\n";

void append_value_lines(const FactoryTable& table, std::string& text) {
  const std::uint8_t numbers = table.ipv6 != 0 ? 6 : 4;
  for (const Field field : TEXT_ORDER) {
    const std::string_view key = key_rule_of(field, numbers).key;
    text += key;
    text.append(KEY_FIELD_WIDTH - std::min(KEY_FIELD_WIDTH, key.size()) + 1, ' ');
    switch (value_form(field)) {
      case ValueForm::text:
        text += '"';
        text += text_of(table, field);
        text += '"';
        break;
      case ValueForm::number:
        text += std::to_string(number_of(table, field));
        break;
      case ValueForm::mac:
        for (std::size_t index = 0; index < MAC_BYTES; ++index) {
          text += index == 0 ? "" : ":";
          text += hex_digit_char(table.mac[index] >> 4);
          text += hex_digit_char(table.mac[index]);
        }
        break;
      case ValueForm::address: {
        const std::uint8_t* bytes = address_field(table, field);
        for (std::size_t index = 0; index < numbers; ++index) {
          text += index == 0 ? "" : ".";
          text += std::to_string(bytes[index]);
        }
        break;
      }
    }
    text += '\n';
  }
}

void write_text(std::FILE* stream, std::string_view text) {
  std::fwrite(text.data(), 1, text.size(), stream);
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
    std::string listing(HEADING);
    append_value_lines(table, listing);
    listing += '\n';
    write_text(console, listing);
  }
  if (file != nullptr) {
    write_text(file, factory_table_text(table));
  }
}

std::string factory_table_text(const FactoryTable& table) {
  std::string text = "# ";
  text += HEADING;
  append_value_lines(table, text);
  return text;
}

std::string FactoryTextCheck::message() const {
  if (ok) {
    return {};
  }
  if (line == 0) {
    return key + ": " + reason;
  }
  std::string text = "line " + std::to_string(line);
  if (!key.empty()) {
    text += " (" + key + ")";
  }
  return text + ": " + reason;
}

FactoryTextCheck check_factory_table_text(std::string_view text, FactoryTable& table) {
  table = FactoryTable{};
  std::array<std::uint32_t, FIELD_COUNT> given_on{};  // the line each field came on; 0: not yet
  std::array<char, LINE_MAX_CHARS> upper_buffer{};
  for (std::uint32_t number = 1; !text.empty(); ++number) {
    const std::size_t line_feed = text.find('\n');
    const std::size_t length = line_feed == std::string_view::npos ? text.size() : line_feed + 1;
    const std::string_view line = strip_line_end(text.substr(0, length));
    text.remove_prefix(length);
    // The lenient reading would take the rest of a longer line as lines of their own, and a key
    // could hide there in a comment.
    if (line.size() > LINE_MAX_CHARS) {
      return refusal(number, "", "longer than " + std::to_string(LINE_MAX_CHARS) + " characters");
    }
    std::string_view content = line;
    skip_blanks(content);
    if (content.empty() || content.front() == '#') {
      continue;
    }
    std::transform(line.begin(), line.end(), upper_buffer.begin(), to_upper);
    const std::string_view upper_line{upper_buffer.data(), line.size()};
    const KeyRule* rule = find_key(upper_line);
    if (rule == nullptr) {
      return unknown_key(number, upper_line);
    }
    std::uint32_t& given = given_on[static_cast<std::size_t>(rule->field)];
    if (given != 0) {
      return refusal(number, key_name(*rule), "already given on line " + std::to_string(given));
    }
    const std::size_t value_offset = rule->key.size();
    Fault fault = check_value(*rule, line.substr(value_offset));
    if (!fault) {
      fault = check_address_form(*rule, given_on[static_cast<std::size_t>(Field::ip_addr)] != 0,
                                 table.ipv6 != 0);
    }
    if (fault) {
      return refusal(number, key_name(*rule), std::move(*fault));
    }
    // What the checks admit, the shared reader stores exactly as the lenient reading would.
    if (apply_line(*rule, upper_line.substr(value_offset), line.substr(value_offset), table) !=
        LineOutcome::stored) {
      return refusal(number, key_name(*rule), "unreadable value");
    }
    given = number;
  }
  for (std::size_t field = 0; field < FIELD_COUNT; ++field) {
    if (given_on[field] == 0) {
      const KeyRule& rule = key_rule_of(static_cast<Field>(field), table.ipv6 != 0 ? 6 : 4);
      return refusal(0, key_name(rule), "missing");
    }
  }
  return {.ok = true, .line = 0, .key = {}, .reason = {}};
}

}  // namespace pelmo
