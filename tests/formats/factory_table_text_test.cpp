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
    text += line;
    text += line_end;
  }
  return text;
}

// The lines of a complete table, apart from its MAC and address lines.
const std::string BASE_LINES =
    join({"SN: \"SN-0001\"", "TYPE: PELMO-X", "MODIF: 3", "HW: 7", "DHCP: 0"});
const std::string COMMON_LINES = BASE_LINES + "MAC: 0a:1b:2c:3d:4e:5f\n";
const std::string IPV4_LINES =
    join({"IPV4_ADDR: 192.168.1.10", "IPV4_MASK: 255.255.255.0", "IPV4_GTW: 192.168.1.1"});
const std::string IPV6_LINES =
    join({"IPV6_ADDR: 10.0.0.1.2.3", "IPV6_MASK: 255.255.255.255.0.0", "IPV6_GTW: 10.0.0.1.2.254"});

void set_text(char (&field)[32], const char* text) {
  std::memset(field, 0, sizeof field);
  std::memcpy(field, text, std::strlen(text));
}

void set_bytes(std::uint8_t* field, std::initializer_list<std::uint8_t> bytes) {
  std::copy(bytes.begin(), bytes.end(), field);
}

// The table COMMON_LINES + IPV4_LINES describe.
FactoryTable complete_ipv4_table() {
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
  // Builds the whole expected table (every byte is compared).
  std::function<FactoryTable()> expected;
};

class ParseFactoryTable : public testing::TestWithParam<ParseCase> {};

TEST_P(ParseFactoryTable, FillsTable) {
  const ParseCase& c = GetParam();
  FactoryTable table{};
  EXPECT_EQ(parse_factory_table(std::string_view{c.text}, table), c.code);
  EXPECT_EQ(to_wire(table), to_wire(c.expected()));
}

FactoryTable with(std::function<void(FactoryTable&)> change) {
  FactoryTable table = complete_ipv4_table();
  change(table);
  return table;
}

const std::vector<ParseCase> PARSE_CASES = {
    {"CompleteIpv4", COMMON_LINES + IPV4_LINES, RC_OK, complete_ipv4_table},
    {"CrLfLines",
     join({"SN: \"SN-0001\"", "TYPE: PELMO-X", "MODIF: 3", "HW: 7", "DHCP: 0",
           "MAC: 0a:1b:2c:3d:4e:5f", "IPV4_ADDR: 192.168.1.10", "IPV4_MASK: 255.255.255.0",
           "IPV4_GTW: 192.168.1.1"},
          "\r\n"),
     RC_OK, complete_ipv4_table},
    {"LastLineWithoutLineEnd", COMMON_LINES + IPV4_LINES.substr(0, IPV4_LINES.size() - 1), RC_OK,
     complete_ipv4_table},
    {"LowerCaseKeysKeepTextCase",
     join({"sn: aBc", "Type: \"Mixed Case\"", "modif: 3", "hw: 7", "dhcp: 0",
           "mac: 0a:1b:2c:3d:4e:5f", "ipv4_addr: 192.168.1.10", "ip_mask: 255.255.255.0",
           "iPv4_gTw: 192.168.1.1"}),
     RC_OK,
     [] {
       return with([](FactoryTable& t) {
         set_text(t.sn, "aBc");
         set_text(t.type, "Mixed Case");
       });
     }},
    {"SkippedLines",
     COMMON_LINES + IPV4_LINES +
         join({" SN: x", "#SN: x", "", "SERIAL: x", "SN x", "HW 9", "IPV4_ADDR 1.2.3.4",
               "SN:", "SN:   ", "\tHW: 1"}),
     RC_OK, complete_ipv4_table},
    {"NumbersKeepLowBits",
     join({"SN: \"SN-0001\"", "TYPE: PELMO-X", "MODIF: 70000", "HW: -1", "DHCP: 5",
           "MAC: 0a:1b:2c:3d:4e:5f", "IPV4_ADDR: 300.-1.+2.1000", "IPV4_MASK: 255.255.255.0",
           "IPV4_GTW: 192.168.1.1"}),
     RC_OK,
     [] {
       return with([](FactoryTable& t) {
         t.modif = 70000 % 65536;
         t.hw = 0xFFFF;
         t.dhcp = 1;
         set_bytes(t.ip_addr, {44, 255, 2, 232});
       });
     }},
    // Points count lines, not keys: a repeated line stands in for a missing one.
    {"RepeatedDhcpStandsInForMac", BASE_LINES + "DHCP: 1\n" + IPV4_LINES, RC_OK,
     [] {
       return with([](FactoryTable& t) {
         t.dhcp = 1;
         std::memset(t.mac, 0, sizeof t.mac);
       });
     }},
    {"RepeatedTextReplacesWholeField",
     join({"SN: \"A much longer serial\"", "TYPE: PELMO-X", "MODIF: 3", "HW: 7", "DHCP: 0",
           "SN: AB"}) +
         IPV4_LINES,
     RC_OK,
     [] {
       return with([](FactoryTable& t) {
         set_text(t.sn, "AB");
         std::memset(t.mac, 0, sizeof t.mac);
       });
     }},
    {"MissingMac", BASE_LINES + IPV4_LINES, RC_INCOMPLETE,
     [] { return with([](FactoryTable& t) { std::memset(t.mac, 0, 6); }); }},
    {"EmptyFile", "", RC_INCOMPLETE, [] { return FactoryTable{}; }},
    {"ThreeNumberAddressSkipped",
     COMMON_LINES + join({"IPV4_ADDR: 1.2.3", "IPV4_MASK: 255.255.255.0", "IPV4_GTW: 192.168.1.1"}),
     RC_INCOMPLETE, [] { return with([](FactoryTable& t) { std::memset(t.ip_addr, 0, 6); }); }},
    {"BlankBeforeDotSkipsLine",
     COMMON_LINES +
         join({"IPV4_ADDR: 1 .2.3.4", "IPV4_MASK: 255.255.255.0", "IPV4_GTW: 192.168.1.1"}),
     RC_INCOMPLETE, [] { return with([](FactoryTable& t) { std::memset(t.ip_addr, 0, 6); }); }},
    {"BlanksAfterDotsAndTrailingText",
     COMMON_LINES + join({"IPV4_ADDR:1. 2.\t3.  4 (office)", "IPV4_MASK: 255.255.255.0.7",
                          "IPV4_GTW: 192.168.1.1"}),
     RC_OK, [] { return with([](FactoryTable& t) {
                   set_bytes(t.ip_addr, {1, 2, 3, 4});
                 }); }},
    {"ShortKeysAreIpv4",
     COMMON_LINES +
         join({"IP_ADDR: 192.168.1.10", "IP_MASK: 255.255.255.0", "IP_GTW: 192.168.1.1"}),
     RC_OK, complete_ipv4_table},
    {"CompleteSixNumberForm", COMMON_LINES + IPV6_LINES, RC_OK,
     [] {
       return with([](FactoryTable& t) {
         t.ipv6 = 1;
         set_bytes(t.ip_addr, {10, 0, 0, 1, 2, 3});
         set_bytes(t.ip_mask, {255, 255, 255, 255, 0, 0});
         set_bytes(t.ip_gtw, {10, 0, 0, 1, 2, 254});
       });
     }},
    {"SixNumberMaskBeforeAddress",
     join({"SN: \"SN-0001\"", "IPV6_MASK: 255.255.255.255.0.0", "IPV6_ADDR: 10.0.0.1.2.3",
           "TYPE: PELMO-X"}),
     RC_MISMATCH,
     [] {
       FactoryTable t{};
       set_text(t.sn, "SN-0001");
       return t;
     }},
    {"FourNumberMaskAfterSixNumberAddress",
     join({"IPV6_ADDR: 10.0.0.1.2.3", "IPV4_MASK: 255.255.255.0", "SN: x"}), RC_MISMATCH,
     [] {
       FactoryTable t{};
       t.ipv6 = 1;
       set_bytes(t.ip_addr, {10, 0, 0, 1, 2, 3});
       return t;
     }},
    {"ShortKeyGatewayAfterSixNumberAddress", join({"IPV6_ADDR: 1.2.3.4.5.6", "IP_GTW: 1.2.3.4"}),
     RC_MISMATCH,
     [] {
       FactoryTable t{};
       t.ipv6 = 1;
       set_bytes(t.ip_addr, {1, 2, 3, 4, 5, 6});
       return t;
     }},
    // An incomplete mask is skipped before its form is checked.
    {"IncompleteMaskIsNotChecked", COMMON_LINES + IPV4_LINES + join({"IPV6_MASK: 1.2.3.4"}), RC_OK,
     complete_ipv4_table},
    {"AddressAfterMaskChangesForm",
     COMMON_LINES +
         join({"IPV4_MASK: 255.255.255.0", "IPV4_GTW: 192.168.1.1", "IPV6_ADDR: 10.0.0.1.2.3"}),
     RC_OK,
     [] {
       return with([](FactoryTable& t) {
         t.ipv6 = 1;
         set_bytes(t.ip_addr, {10, 0, 0, 1, 2, 3});
       });
     }},
    {"MacForms",
     BASE_LINES + IPV4_LINES +
         join({"MAC: a:B:c:D:e:F", "MAC: 01:02:03:04:05", "MAC: 01-02-03-04-05-06",
               "MAC: 01 :02:03:04:05:06", "MAC: 123:02:03:04:05:06", "MAC: xx:02:03:04:05:06"}),
     RC_OK,
     [] { return with([](FactoryTable& t) {
            set_bytes(t.mac, {10, 11, 12, 13, 14, 15});
          }); }},
    // A line is read at most 255 characters at a time; the rest counts as a line of its own.
    {"LongLinePieces",
     "#" + std::string(254, 'x') + "SN: PIECE\n" + "TYPE: " + std::string(249, 'T') + "HW: 9\n" +
         join({"MODIF: 3", "DHCP: 0", "MAC: 0a:1b:2c:3d:4e:5f"}) + IPV4_LINES,
     RC_OK,
     [] {
       return with([](FactoryTable& t) {
         set_text(t.sn, "PIECE");
         set_text(t.type, std::string(31, 'T').c_str());
         t.hw = 9;
       });
     }},
};

INSTANTIATE_TEST_SUITE_P(Files, ParseFactoryTable, testing::ValuesIn(PARSE_CASES),
                         [](const testing::TestParamInfo<ParseCase>& info) {
                           return std::string(info.param.name);
                         });

TEST(ParseFactoryTableStream, ReadsOpenFileAndLeavesItOpen) {
  std::FILE* file = std::tmpfile();
  ASSERT_NE(file, nullptr);
  const std::string text = COMMON_LINES + IPV6_LINES;
  ASSERT_EQ(std::fwrite(text.data(), 1, text.size(), file), text.size());
  std::rewind(file);
  FactoryTable table{};
  EXPECT_EQ(parse_factory_table(file, table), RC_OK);
  EXPECT_EQ(table.ipv6, 1);
  EXPECT_EQ(std::fseek(file, 0, SEEK_SET), 0);
  std::fclose(file);
}

// ---- parse_text_value ------------------------------------------------------------------------

struct TextCase {
  const char* name;
  std::string text;
  bool stored;
  std::string value;
};

class ParseTextValue : public testing::TestWithParam<TextCase> {};

TEST_P(ParseTextValue, StoresValue) {
  const TextCase& c = GetParam();
  char output[32];
  std::memset(output, '?', sizeof output);
  ASSERT_EQ(parse_text_value(c.text, output), c.stored);
  if (!c.stored) {
    EXPECT_EQ(std::string(output, sizeof output), std::string(32, '?'));  // untouched
    return;
  }
  std::string expected = c.value;
  expected.resize(sizeof output, '\0');
  EXPECT_EQ(std::string(output, sizeof output), expected);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, ParseTextValue,
    testing::Values(TextCase{"QuotedKeepsBlanks", " \"A B\"", true, "A B"},
                    TextCase{"UnquotedTakesFirstWord", " A B", true, "A"},
                    TextCase{"TabEndsWord", "\tA\tB", true, "A"},
                    TextCase{"LoneQuoteIsPartOfWord", " \"AB C", true, "\"AB"},
                    TextCase{"EmptyQuotes", " \"\" x", true, ""},
                    TextCase{"QuotesAfterText", " id \"x y\" z", true, "x y"},
                    TextCase{"QuotedCutTo31", " \"" + std::string(40, 'q') + "\"", true,
                             std::string(31, 'q')},
                    TextCase{"UnquotedCutTo31", std::string(40, 'w'), true, std::string(31, 'w')},
                    TextCase{"Exactly31", std::string(31, 'e'), true, std::string(31, 'e')},
                    TextCase{"Nothing", "", false, ""},
                    TextCase{"OnlyBlanks", " \t \r", false, ""}),
    [](const testing::TestParamInfo<TextCase>& info) { return std::string(info.param.name); });

TEST(ParseTextValue, SmallBufferAndEmptyBuffer) {
  char small[4] = {'?', '?', '?', '?'};
  ASSERT_TRUE(parse_text_value("ABCDEF", small));
  EXPECT_EQ(std::string(small, 4), std::string("ABC\0", 4));
  EXPECT_FALSE(parse_text_value("ABC", std::span<char>{}));
}

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

struct Printed {
  std::string console;
  std::string file;
};

Printed print(const FactoryTable& table, bool with_file) {
  std::FILE* console = std::tmpfile();
  std::FILE* file = with_file ? std::tmpfile() : nullptr;
  print_factory_table(table, console, file);
  Printed printed{contents(console), file != nullptr ? contents(file) : ""};
  std::fclose(console);
  if (file != nullptr) {
    std::fclose(file);
  }
  return printed;
}

const char* const IPV4_LISTING =
    "TYPE:       \"PELMO-X\"\n"
    "SN:         \"SN-0001\"\n"
    "HW:         7\n"
    "MODIF:      3\n"
    "MAC:        0A:1B:2C:3D:4E:5F\n"
    "DHCP:       0\n"
    "IPV4_ADDR:  192.168.1.10\n"
    "IPV4_MASK:  255.255.255.0\n"
    "IPV4_GTW:   192.168.1.1\n";

TEST(PrintFactoryTable, ConsoleAndFileFormsIpv4) {
  const Printed printed = print(complete_ipv4_table(), true);
  EXPECT_EQ(printed.console, std::string("Factory table values:\n") + IPV4_LISTING + "\n");
  EXPECT_EQ(printed.file, std::string("# Factory table values:\n") + IPV4_LISTING);
}

TEST(PrintFactoryTable, ConsoleOnlyWithoutFile) {
  const Printed printed = print(complete_ipv4_table(), false);
  EXPECT_EQ(printed.console, std::string("Factory table values:\n") + IPV4_LISTING + "\n");
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
  set_bytes(table.ip_gtw, {0, 0, 0, 0, 0, 0});
  const Printed printed = print(table, true);
  const std::string listing = "TYPE:       \"" + std::string(32, 'T') + "\"\n" + "SN:         \"" +
                              std::string(32, 'S') + "\"\n" +
                              "HW:         65535\n"
                              "MODIF:      40000\n"
                              "MAC:        FF:00:AB:01:10:7F\n"
                              "DHCP:       7\n"
                              "IPV6_ADDR:  1.2.3.4.5.6\n"
                              "IPV6_MASK:  255.255.255.255.255.0\n"
                              "IPV6_GTW:   0.0.0.0.0.0\n";
  EXPECT_EQ(printed.console, "Factory table values:\n" + listing + "\n");
  EXPECT_EQ(printed.file, "# Factory table values:\n" + listing);
}

// ---- round trip ------------------------------------------------------------------------------

struct RoundTripCase {
  const char* name;
  std::function<FactoryTable()> table;
};

class FactoryTableRoundTrip : public testing::TestWithParam<RoundTripCase> {};

TEST_P(FactoryTableRoundTrip, PrintedFileParsesBack) {
  const FactoryTable original = GetParam().table();
  std::FILE* console = std::tmpfile();
  std::FILE* file = std::tmpfile();
  ASSERT_NE(console, nullptr);
  ASSERT_NE(file, nullptr);
  print_factory_table(original, console, file);
  std::rewind(file);
  FactoryTable parsed{};
  EXPECT_EQ(parse_factory_table(file, parsed), RC_OK);
  std::fclose(file);
  std::fclose(console);

  // The file does not carry the reserved bytes, and the flags read back as 0 or 1.
  FactoryTable expected = original;
  std::memset(expected.reserved0, 0, sizeof expected.reserved0);
  std::memset(expected.reserved1, 0, sizeof expected.reserved1);
  expected.dhcp = expected.dhcp != 0 ? 1 : 0;
  expected.ipv6 = expected.ipv6 != 0 ? 1 : 0;
  if (expected.ipv6 == 0) {  // four-number form: bytes 4 and 5 are not written
    for (std::uint8_t* field : {expected.ip_addr, expected.ip_mask, expected.ip_gtw}) {
      field[4] = field[5] = 0;
    }
  }
  EXPECT_EQ(to_wire(parsed), to_wire(expected));
}

INSTANTIATE_TEST_SUITE_P(
    Tables, FactoryTableRoundTrip,
    testing::Values(RoundTripCase{"Ipv4", complete_ipv4_table},
                    RoundTripCase{"SixNumbersTextsWithBlanksAndFlags",
                                  [] {
                                    FactoryTable t{};
                                    std::memset(t.reserved0, 0x5A, sizeof t.reserved0);
                                    std::memset(t.reserved1, 0xA5, sizeof t.reserved1);
                                    set_text(t.type, "Board rev B");
                                    set_text(t.sn, std::string(31, 'z').c_str());
                                    t.hw = 65535;
                                    t.modif = 0;
                                    set_bytes(t.mac, {0xDE, 0xAD, 0xBE, 0xEF, 0x00, 0x01});
                                    t.dhcp = 5;
                                    t.ipv6 = 9;
                                    set_bytes(t.ip_addr, {255, 0, 1, 2, 3, 4});
                                    set_bytes(t.ip_mask, {255, 255, 0, 0, 0, 0});
                                    set_bytes(t.ip_gtw, {1, 1, 1, 1, 1, 1});
                                    return t;
                                  }},
                    RoundTripCase{"EmptyTexts",
                                  [] {
                                    FactoryTable t = complete_ipv4_table();
                                    set_text(t.type, "");
                                    set_text(t.sn, "");
                                    set_bytes(t.ip_addr, {1, 2, 3, 4, 99, 98});
                                    return t;
                                  }}),
    [](const testing::TestParamInfo<RoundTripCase>& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace pelmo
