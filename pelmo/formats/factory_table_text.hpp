#pragma once

#include <cstddef>
#include <cstdio>
#include <span>
#include <string>
#include <string_view>

#include "pelmo/commands/records.hpp"
#include "pelmo/protocol/result_code.hpp"

namespace pelmo {

// Fills `table` from the text form of the factory table: lines of "KEY: value", keys matched
// without regard to case at the first column, "#" lines and unknown lines skipped. The caller
// clears `table` to zero first; the parser relies on that for the fields the text does not set and
// for `ipv6`. Returns RC_OK when the accepted lines add up to a complete table (10 points),
// RC_INCOMPLETE when they do not, and RC_MISMATCH at once when a mask or gateway line uses the
// other address form than the one `ipv6` holds at that line. Prints nothing.
ResultCode parse_factory_table(std::string_view text, FactoryTable& table);

// The longest factory table text taken. Ten lines fit many times over; the bound is there so an
// endless source (/dev/zero) cannot grow the text without end, and it lies above the image buffer's
// 1 MiB so a long text that was parsed (and refused as incomplete) before still is.
inline constexpr std::size_t FACTORY_TEXT_MAX_BYTES = 2 * 1024 * 1024;

// The same over an open text stream, read from its current position to its end. A stream that
// holds more than FACTORY_TEXT_MAX_BYTES is read no further and gives RC_INCOMPLETE with `table`
// untouched. The stream is not closed.
ResultCode parse_factory_table(std::FILE* input, FactoryTable& table);

// Takes a text value after its key: everything between the first two double quotes (cut to
// `output.size() - 1` characters), or else the first blank-delimited word (also cut to fit). Stores
// it zero-terminated and zero-fills the rest of `output`; returns false, leaving `output`
// untouched, when there is no value or `output` is empty.
bool parse_text_value(std::string_view text, std::span<char> output);

// Lists `table` on `console` ("Factory table values:", nine "KEY:       value" lines and an empty
// line) and, when `file` is not null, writes the same nine lines into it after the first line
// "# Factory table values:". A null `console` lists nothing. What is written to `file` parses back
// to the same table.
void print_factory_table(const FactoryTable& table, std::FILE* console, std::FILE* file);

// The strict reading of the same text, for front ends that must refuse what they cannot write
// exactly. Every line that is not blank and not a "#" comment must be a known key with a value
// that fits its field: numbers within the field's range (HW and MODIF 0..65535, DHCP 0 or 1),
// addresses of exactly four (IPv4 keys) or six (IPv6 keys) numbers of 0..255, a MAC of exactly six
// groups of two hexadecimal digits, SN and TYPE texts that fit their field, mask and gateway in
// the address's form. Each field once; all of them present.
struct FactoryTextCheck {
  bool ok = false;
  std::uint32_t line = 0;  // 1-based line of the fault; 0 when the fault is a missing key
  std::string key;         // the key at fault as written in upper case ("HW"), when there is one
  std::string reason;      // what is wrong, in lower case ("70000 is above 65535")

  // "line 4 (HW): 70000 is above 65535", "SN: missing"; empty when `ok`.
  std::string message() const;
};

// On success `table` holds the table (cleared first); otherwise it is unspecified.
FactoryTextCheck check_factory_table_text(std::string_view text, FactoryTable& table);

// The text form of `table`: the "# Factory table values:" line and the nine value lines that
// print_factory_table writes to a file; it parses back (strictly too) to the same table.
std::string factory_table_text(const FactoryTable& table);

}  // namespace pelmo
