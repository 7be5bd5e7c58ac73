#include "formats/factory_table_text.hpp"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

namespace pelmo {
namespace {

std::string join(std::initializer_list<std::string> lines, const char* line_end = "\n") {
  std::string text;
  for (const std::string& line : lines) {
    text += line + line_end;
  }
  return text;
}

// A complete file in pieces: the base lines, the MAC line and the address lines.
const std::string BASE_LINES =
    join({"SN: \"SN-0001\"", "TYPE: PELMO-X", "MODIF: 3", "HW: 7", "DHCP: 0"});
const std::string MAC_LINE = "MAC: 0a:1b:2c:3d:4e:5f\n";
const std::string IPV4_LINES =
    join({"IPV4_ADDR: 192.168.1.10", "IPV4_MASK: 255.255.255.0", "IPV4_GTW: 192.168.1.1"});
const std::string IPV6_LINES =
    join({"IPV6_ADDR: 10.0.0.1.2.3", "IPV6_MASK: 255.255.255.255.0.0", "IPV6_GTW: 10.0.0.1.2.254"});
const std::string COMPLETE = BASE_LINES + MAC_LINE + IPV4_LINES;

void set_text(char (&field)[32], const std::string& text) {
  std::memset(field, 0, sizeof field);
  std::memcpy(field, text.data(), text.size());
}

void set_bytes(std::uint8_t* field, std::initializer_list<std::uint8_t> bytes) {
  std::copy(bytes.begin(), bytes.end(), field);
}

// The table COMPLETE describes.
FactoryTable complete_table() {
  FactoryTable table{};
  set_text(table.sn, "SN-0001");
  set_text(table.type, "PELMO-X");
  table.modif = 3;
  table.hw = 7;
  set_bytes(table.mac, {0x0A, 0x1B, 0x2C, 0x3D, 0x4E, 0x5F});
  set_bytes(table.ip_addr, {192, 168, 1, 10});
  set_bytes(table.ip_mask, {255, 255, 255, 0});
  set_bytes(table.ip_gtw, {192, 168, 1, 1});
  return table;
}

// ---- parse_factory_table ---------------------------------------------------------------------

struct ParseCase {
  const char* name;
  std::string text;
  ResultCode code;
  // Turns the starting table (complete_table(), or all zero) into the expected one; every byte
  // of the result is compared.
  std::function<void(FactoryTable&)> change = [](FactoryTable&) {};
  bool from_complete = true;
};

class ParseFactoryTable : public testing::TestWithParam<ParseCase> {};

TEST_P(ParseFactoryTable, FillsTable) {
  const ParseCase& c = GetParam();
  FactoryTable table{};
  EXPECT_EQ(parse_factory_table(std::string_view{c.text}, table), c.code);
  FactoryTable expected = c.from_complete ? complete_table() : FactoryTable{};
  c.change(expected);
  EXPECT_EQ(to_wire(table), to_wire(expected));
}

void clear_mac(FactoryTable& t) {
  std::memset(t.mac, 0, sizeof t.mac);
}
void clear_address(FactoryTable& t) {
  std::memset(t.ip_addr, 0, sizeof t.ip_addr);
}

const std::vector<ParseCase> PARSE_CASES = {
    {"Complete", COMPLETE, RC_OK},
    {"CrLfLinesLastWithoutLineEnd",
     join({"SN: \"SN-0001\"", "TYPE: PELMO-X", "MODIF: 3", "HW: 7", "DHCP: 0",
           "MAC: 0a:1b:2c:3d:4e:5f", "IPV4_ADDR: 192.168.1.10", "IPV4_MASK: 255.255.255.0"},
          "\r\n") +
         "IPV4_GTW: 192.168.1.1",
     RC_OK},
    {"LowerCaseKeysKeepTextCase",
     join({"sn: aBc", "Type: \"Mixed Case\"", "modif: 3", "hw: 7", "dhcp: 0",
           "mac: 0a:1b:2c:3d:4e:5f", "ipv4_addr: 192.168.1.10", "ip_mask: 255.255.255.0",
           "iPv4_gTw: 192.168.1.1"}),
     RC_OK,
     [](FactoryTable& t) {
       set_text(t.sn, "aBc");
       set_text(t.type, "Mixed Case");
     }},
    {"SkippedLines",
     COMPLETE + join({" SN: x", "#SN: x", "", "SERIAL: x", "SN x", "HW 9",
                      "SN:", "SN:  ", "\tHW: 1", "HW: x", "DHCP:"}),
     RC_OK},
    {"NumbersKeepLowBits",
     join({"SN: \"SN-0001\"", "TYPE: PELMO-X", "MODIF: 70000", "HW: -1", "DHCP: 5"}) + MAC_LINE +
         join({"IPV4_ADDR: 300.-1.+2.1000", "IP_MASK: 255.255.255.0", "IP_GTW: 192.168.1.1"}),
     RC_OK,
     [](FactoryTable& t) {
       t.modif = 70000 % 65536;
       t.hw = 0xFFFF;
       t.dhcp = 1;
       set_bytes(t.ip_addr, {44, 255, 2, 232});
     }},
    {"DottedBlanksAndTrailingText",
     BASE_LINES + MAC_LINE + "IPV4_ADDR:1. 2.\t3.  4 (office)\n" +
         join({"IPV4_MASK: 255.255.255.0.7", "IPV4_GTW: 192.168.1.1"}),
     RC_OK,
     [](FactoryTable& t) {
       set_bytes(t.ip_addr, {1, 2, 3, 4});
     }},
    // Points count lines, not keys: a repeated line stands in for a missing one.
    {"RepeatedDhcpStandsInForMac", BASE_LINES + "DHCP: 1\n" + IPV4_LINES, RC_OK,
     [](FactoryTable& t) {
       t.dhcp = 1;
       clear_mac(t);
     }},
    {"RepeatedTextReplacesWholeField",
     "SN: \"A much longer serial\"\n" + BASE_LINES.substr(BASE_LINES.find('\n') + 1) + "SN: AB\n" +
         IPV4_LINES,
     RC_OK,
     [](FactoryTable& t) {
       set_text(t.sn, "AB");
       clear_mac(t);
     }},
    {"MissingMac", BASE_LINES + IPV4_LINES, RC_INCOMPLETE, clear_mac},
    {"EmptyFile", "", RC_INCOMPLETE, [](FactoryTable&) {}, false},
    {"ThreeNumberAddressSkipped",
     BASE_LINES + MAC_LINE +
         join({"IPV4_ADDR: 1.2.3", "IPV4_MASK: 255.255.255.0", "IPV4_GTW: 192.168.1.1"}),
     RC_INCOMPLETE, clear_address},
    {"BlankBeforeDotSkipsLine",
     BASE_LINES + MAC_LINE +
         join({"IPV4_ADDR: 1 .2.3.4", "IPV4_MASK: 255.255.255.0", "IPV4_GTW: 192.168.1.1"}),
     RC_INCOMPLETE, clear_address},
    {"SixNumberForm", BASE_LINES + MAC_LINE + IPV6_LINES, RC_OK,
     [](FactoryTable& t) {
       t.ipv6 = 1;
       set_bytes(t.ip_addr, {10, 0, 0, 1, 2, 3});
       set_bytes(t.ip_mask, {255, 255, 255, 255, 0, 0});
       set_bytes(t.ip_gtw, {10, 0, 0, 1, 2, 254});
     }},
    {"SixNumberMaskBeforeAddress",
     join({"SN: SN-0001", "IPV6_MASK: 255.255.255.255.0.0", "IPV6_ADDR: 10.0.0.1.2.3", "HW: 1"}),
     RC_MISMATCH, [](FactoryTable& t) { set_text(t.sn, "SN-0001"); }, false},
    {"FourNumberMaskAfterSixNumberAddress",
     join({"IPV6_ADDR: 10.0.0.1.2.3", "IPV4_MASK: 255.255.255.0", "SN: x"}), RC_MISMATCH,
     [](FactoryTable& t) {
       t.ipv6 = 1;
       set_bytes(t.ip_addr, {10, 0, 0, 1, 2, 3});
     },
     false},
    {"ShortKeyGatewayAfterSixNumberAddress", join({"IPV6_ADDR: 1.2.3.4.5.6", "IP_GTW: 1.2.3.4"}),
     RC_MISMATCH,
     [](FactoryTable& t) {
       t.ipv6 = 1;
       set_bytes(t.ip_addr, {1, 2, 3, 4, 5, 6});
     },
     false},
    // An incomplete value is skipped before its form is checked.
    {"IncompleteMaskNotChecked", COMPLETE + "IPV6_MASK: 1.2.3.4\n", RC_OK},
    {"AddressAfterMaskChangesForm",
     BASE_LINES + MAC_LINE +
         join({"IPV4_MASK: 255.255.255.0", "IPV4_GTW: 192.168.1.1", "IPV6_ADDR: 10.0.0.1.2.3"}),
     RC_OK,
     [](FactoryTable& t) {
       t.ipv6 = 1;
       set_bytes(t.ip_addr, {10, 0, 0, 1, 2, 3});
     }},
    // A four-number address clears `ipv6` and leaves bytes 38 and 39 as they were.
    {"FourNumberAddressAfterSixNumberAddress",
     join({"SN: \"SN-0001\"", "TYPE: PELMO-X", "HW: 7", "DHCP: 0", "IPV6_ADDR: 1.2.3.4.5.6"}) +
         IPV4_LINES,
     RC_OK,
     [](FactoryTable& t) {
       t.modif = 0;
       clear_mac(t);
       set_bytes(t.ip_addr, {192, 168, 1, 10, 5, 6});
     }},
    {"MacForms",
     BASE_LINES + IPV4_LINES +
         join({"MAC: a:B:c:D:e:F", "MAC: 01:02:03:04:05", "MAC: 01-02-03-04-05-06",
               "MAC: 01 :02:03:04:05:06", "MAC: 123:02:03:04:05:06", "MAC: xx:02:03:04:05:06"}),
     RC_OK,
     [](FactoryTable& t) {
       set_bytes(t.mac, {10, 11, 12, 13, 14, 15});
     }},
    // A line is read at most 255 characters at a time; the rest counts as a line of its own.
    {"LongLinePieces",
     "#" + std::string(254, 'x') + "SN: PIECE\n" + "TYPE: " + std::string(249, 'T') + "HW: 9\n" +
         join({"MODIF: 3", "DHCP: 0"}) + MAC_LINE + IPV4_LINES,
     RC_OK,
     [](FactoryTable& t) {
       set_text(t.sn, "PIECE");
       set_text(t.type, std::string(31, 'T'));
       t.hw = 9;
     }},
};

INSTANTIATE_TEST_SUITE_P(Files, ParseFactoryTable, testing::ValuesIn(PARSE_CASES),
                         [](const testing::TestParamInfo<ParseCase>& info) {
                           return std::string(info.param.name);
                         });

// ---- parse_text_value ------------------------------------------------------------------------

struct TextCase {
  const char* name;
  std::string text;
  bool stored;
  std::string value = "";
};

class ParseTextValue : public testing::TestWithParam<TextCase> {};

TEST_P(ParseTextValue, StoresValue) {
  const TextCase& c = GetParam();
  char output[32];
  std::memset(output, '?', sizeof output);
  ASSERT_EQ(parse_text_value(c.text, output), c.stored);
  // Stored: the value, zero-filled to the end of the field. Not stored: untouched.
  std::string expected = c.stored ? c.value : std::string(32, '?');
  expected.resize(sizeof output, '\0');
  EXPECT_EQ(std::string(output, sizeof output), expected);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, ParseTextValue,
    testing::Values(TextCase{"QuotedKeepsBlanks", " \"A B\"", true, "A B"},
                    TextCase{"UnquotedTakesFirstWord", " A\tB", true, "A"},
                    TextCase{"LoneQuoteIsPartOfWord", " \"AB C", true, "\"AB"},
                    TextCase{"EmptyQuotes", " \"\" x", true, ""},
                    TextCase{"QuotesAfterText", " id \"x y\" z", true, "x y"},
                    TextCase{"QuotedCutTo31", " \"" + std::string(40, 'q') + "\"", true,
                             std::string(31, 'q')},
                    TextCase{"UnquotedCutTo31", std::string(40, 'w'), true, std::string(31, 'w')},
                    TextCase{"Nothing", "", false}, TextCase{"OnlyBlanks", " \t \r", false}),
    [](const testing::TestParamInfo<TextCase>& info) { return std::string(info.param.name); });

// ---- print_factory_table ---------------------------------------------------------------------

std::string contents(std::FILE* file) {
  std::string text;
  std::rewind(file);
  char buffer[512];
  for (std::size_t got; (got = std::fread(buffer, 1, sizeof buffer, file)) != 0;) {
    text.append(buffer, got);
  }
  return text;
}

// Prints `table`; returns the console text and the file text ("" when no file is given).
std::pair<std::string, std::string> print(const FactoryTable& table, bool with_file) {
  std::FILE* console = std::tmpfile();
  std::FILE* file = with_file ? std::tmpfile() : nullptr;
  print_factory_table(table, console, file);
  std::pair<std::string, std::string> printed{contents(console), with_file ? contents(file) : ""};
  std::fclose(console);
  if (file != nullptr) {
    std::fclose(file);
  }
  return printed;
}

TEST(PrintFactoryTable, ConsoleAndFileForms) {
  const std::string listing =
      "TYPE:       \"PELMO-X\"\n"
      "SN:         \"SN-0001\"\n"
      "HW:         7\n"
      "MODIF:      3\n"
      "MAC:        0A:1B:2C:3D:4E:5F\n"
      "DHCP:       0\n"
      "IPV4_ADDR:  192.168.1.10\n"
      "IPV4_MASK:  255.255.255.0\n"
      "IPV4_GTW:   192.168.1.1\n";
  const auto [console, file] = print(complete_table(), true);
  EXPECT_EQ(console, "Factory table values:\n" + listing + "\n");
  EXPECT_EQ(file, "# Factory table values:\n" + listing);
  EXPECT_EQ(print(complete_table(), false).first, console);
}

TEST(PrintFactoryTable, SixNumberFormAndFieldLimits) {
  FactoryTable table{};
  std::memset(table.type, 'T', sizeof table.type);  // no terminator: printed up to 32 characters
  std::memset(table.sn, 'S', sizeof table.sn);
  table.hw = 65535;
  table.modif = 40000;
  set_bytes(table.mac, {0xFF, 0x00, 0xAB, 0x01, 0x10, 0x7F});
  table.dhcp = 7;
  table.ipv6 = 2;
  set_bytes(table.ip_addr, {1, 2, 3, 4, 5, 6});
  set_bytes(table.ip_mask, {255, 255, 255, 255, 255, 0});
  const std::string listing = "TYPE:       \"" + std::string(32, 'T') + "\"\n" + "SN:         \"" +
                              std::string(32, 'S') + "\"\n" +
                              "HW:         65535\n"
                              "MODIF:      40000\n"
                              "MAC:        FF:00:AB:01:10:7F\n"
                              "DHCP:       7\n"
                              "IPV6_ADDR:  1.2.3.4.5.6\n"
                              "IPV6_MASK:  255.255.255.255.255.0\n"
                              "IPV6_GTW:   0.0.0.0.0.0\n";
  EXPECT_EQ(print(table, true).second, "# Factory table values:\n" + listing);
}

// ---- round trip ------------------------------------------------------------------------------

class FactoryTableRoundTrip : public testing::TestWithParam<std::function<FactoryTable()>> {};

TEST_P(FactoryTableRoundTrip, PrintedFileParsesBack) {
  const FactoryTable original = GetParam()();
  std::FILE* file = std::tmpfile();
  ASSERT_NE(file, nullptr);
  print_factory_table(original, nullptr, file);
  std::rewind(file);
  FactoryTable parsed{};
  EXPECT_EQ(parse_factory_table(file, parsed), RC_OK);
  std::fclose(file);

  // The file does not carry the reserved bytes, nor address bytes 4 and 5 of the four-number
  // form, and the flags read back as 0 or 1.
  FactoryTable expected = original;
  std::memset(expected.reserved0, 0, sizeof expected.reserved0);
  std::memset(expected.reserved1, 0, sizeof expected.reserved1);
  expected.dhcp = expected.dhcp != 0 ? 1 : 0;
  expected.ipv6 = expected.ipv6 != 0 ? 1 : 0;
  if (expected.ipv6 == 0) {
    for (std::uint8_t* field : {expected.ip_addr, expected.ip_mask, expected.ip_gtw}) {
      field[4] = field[5] = 0;
    }
  }
  EXPECT_EQ(to_wire(parsed), to_wire(expected));
}

INSTANTIATE_TEST_SUITE_P(Tables, FactoryTableRoundTrip, testing::Values(complete_table, [] {
                           FactoryTable t{};
                           std::memset(t.reserved0, 0x5A, sizeof t.reserved0);
                           std::memset(t.reserved1, 0xA5, sizeof t.reserved1);
                           set_text(t.type, "Board rev B");
                           set_text(t.sn, std::string(31, 'z'));
                           t.hw = 65535;
                           set_bytes(t.mac, {0xDE, 0xAD, 0xBE, 0xEF, 0x00, 0x01});
                           t.dhcp = 5;
                           t.ipv6 = 9;
                           set_bytes(t.ip_addr, {255, 0, 1, 2, 3, 4});
                           set_bytes(t.ip_mask, {255, 255, 0, 0, 0, 0});
                           set_bytes(t.ip_gtw, {1, 1, 1, 1, 1, 1});
                           return t;
                         }));

}  // namespace
}  // namespace pelmo
