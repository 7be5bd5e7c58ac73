#include "pelmo/formats/factory_table_text.hpp"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdio>
#include <functional>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

namespace pelmo {
namespace {

const std::string BASE = "SN: \"SN 0001\"\nTYPE: Pelmo-x\nMODIF: 3\nHW: 7\nDHCP: 0\n";
const std::string MAC = "MAC: 0a:1b:2c:3d:4e:5f\n";
const std::string IPV4 =
    "IPV4_ADDR: 192.168.1.10\nIPV4_MASK: 255.255.255.0\nIPV4_GTW: 192.168.1.1\n";
const std::string IPV6 =
    "IPV6_ADDR: 10.0.0.1.2.3\nIPV6_MASK: 255.255.255.255.0.0\nIPV6_GTW: 10.0.0.1.2.254\n";

// What BASE + MAC + IPV4 describes, every byte of it.
const FactoryTable FULL{{},
                        3,
                        7,
                        {0x0A, 0x1B, 0x2C, 0x3D, 0x4E, 0x5F},
                        {192, 168, 1, 10},
                        {255, 255, 255},
                        {192, 168, 1, 1},
                        0,
                        0,
                        "Pelmo-x",
                        "SN 0001",
                        {}};

std::pair<ResultCode, std::array<std::uint8_t, FACTORY_TABLE_SIZE>> parse(std::string_view text) {
  FactoryTable table{};
  const ResultCode code = parse_factory_table(text, table);
  return {code, to_wire(table)};
}

TEST(ParseFactoryTable, Rules) {
  struct Case {
    std::string text;
    ResultCode code;
    std::string same_as;
  };
  for (const Case& c : std::vector<Case>{
           // Keys in any case, "IP_" for "IPV4_", CR LF, a last line without a line end.
           {"sn: \"SN 0001\"\r\ntype: Pelmo-x\r\nModif: 3\r\nhw: 7\r\ndhcp: 0\r\nmac: "
            "0A:1b:2C:3d:4E:5f\r\nipv4_addr: 192.168.1.10\r\nip_mask: 255.255.255.0\r\n"
            "iPv4_gTw: 192.168.1.1",
            RC_OK, BASE + MAC + IPV4},
           {BASE + MAC + IPV4 +
                " SN: x\n#SN: x\nSERIAL: x\nSN x\nSN:  \nHW: x\nMAC: 01:02:03:04:05\nMAC: "
                "01-02-03-04-05-06\nMAC: 123:2:3:4:5:6\nIPV4_ADDR: 1.2.3\nIPV4_GTW: 1 .2.3.4\n",
            RC_OK, BASE + MAC + IPV4},
           // Numbers keep their low bits, flags become 0 or 1; blanks after points and text after
           // the last number are allowed.
           {"MODIF: 70000\nHW: -1\nDHCP: 5\nIPV4_ADDR: 300. -1.+2.1000 x\n", RC_INCOMPLETE,
            "MODIF: 4464\nHW: 65535\nDHCP: 1\nIPV4_ADDR: 44.255.2.232\n"},
           // Exactly ten points make a table: two for an address line, one for any other accepted
           // line,
           // whichever lines they are.
           {BASE + "DHCP: 0\n" + IPV4, RC_OK, ""},
           {BASE + IPV4, RC_INCOMPLETE, ""},
           {BASE + MAC + IPV4 + "HW: 8\n", RC_INCOMPLETE, ""},
           // A mask or gateway must have the form of the address before it; the parse stops there.
           {"SN: x\nIPV6_MASK: 255.255.255.255.0.0\nIPV6_ADDR: 1.2.3.4.5.6\n", RC_MISMATCH,
            "SN: x\n"},
           {"IPV6_ADDR: 1.2.3.4.5.6\nIP_GTW: 1.2.3.4\nSN: x\n", RC_MISMATCH,
            "IPV6_ADDR: 1.2.3.4.5.6\n"},
           {BASE + MAC + IPV4 + "IPV6_MASK: 1.2.3.4\n", RC_OK, BASE + MAC + IPV4}}) {
    const auto [code, table] = parse(c.text);
    EXPECT_EQ(code, c.code) << c.text;
    if (!c.same_as.empty()) {
      EXPECT_EQ(table, parse(c.same_as).second) << c.text;
    }
  }
}

// A text value is what stands between the first two double quotes, else the first word, cut to 31
// characters and zero-filled; without a value the field stays as it was.
TEST(ParseTextValue, QuotesWordsAndCuts) {
  using Case = std::pair<std::string, std::optional<std::string>>;
  for (const auto& [text, value] :
       std::vector<Case>{{" \"A B\"", "A B"},
                         {" A\tB", "A"},
                         {" \"AB C", "\"AB"},
                         {" \"\" x", ""},
                         {" id \"x y\" z", "x y"},
                         {" \"" + std::string(40, 'q') + "\"", std::string(31, 'q')},
                         {std::string(40, 'w'), std::string(31, 'w')},
                         {" \t \r", std::nullopt}}) {
    std::string field(32, '?');
    EXPECT_EQ(parse_text_value(text, field), value.has_value()) << text;
    std::string expected = value.value_or(std::string(32, '?'));
    expected.resize(32, '\0');
    EXPECT_EQ(field, expected) << text;
  }
}

// A stream is read up to the bound and no further: a complete table at the bound parses, one byte
// more is refused without touching the table.
TEST(ParseFactoryTable, StreamIsBounded) {
  const std::string table_text = BASE + MAC + IPV4;
  for (const std::size_t size : {FACTORY_TEXT_MAX_BYTES, FACTORY_TEXT_MAX_BYTES + 1}) {
    std::string text = table_text + "#";
    text.append(size - text.size() - 1, 'x').push_back('\n');
    std::FILE* file = std::tmpfile();
    std::fwrite(text.data(), 1, text.size(), file);
    std::rewind(file);
    FactoryTable table{};
    const ResultCode code = parse_factory_table(file, table);
    std::fclose(file);
    const bool fits = size <= FACTORY_TEXT_MAX_BYTES;
    EXPECT_EQ(code, fits ? RC_OK : RC_INCOMPLETE) << size;
    EXPECT_EQ(to_wire(table), to_wire(fits ? FULL : FactoryTable{})) << size;
  }
}

// BASE + MAC + IPV4 with its 1-based line `number` replaced by `line`, or taken out when that is
// empty.
std::string with_line(std::size_t number, const std::string& line) {
  std::istringstream lines(BASE + MAC + IPV4);
  std::string text;
  std::size_t index = 0;
  for (std::string current; std::getline(lines, current);) {
    const std::string& kept = ++index == number ? line : current;
    text += kept.empty() ? "" : kept + "\n";
  }
  return text;
}

// Lines: 1 SN, 2 TYPE, 3 MODIF, 4 HW, 5 DHCP, 6 MAC, 7 IPV4_ADDR, 8 IPV4_MASK, 9 IPV4_GTW.
TEST(CheckFactoryTableText, RefusesWithLineKeyAndReason) {
  const std::string valid = BASE + MAC + IPV4;
  const std::string long_text = "\"" + std::string(32, 'q') + "\"";
  for (const auto& [text, message] : std::vector<std::pair<std::string, std::string>>{
           {with_line(4, "HW: 70000"), "line 4 (HW): 70000 is above 65535"},
           {with_line(3, "modif: 99999999999999999999999"),
            "line 3 (MODIF): 99999999999999999999999 is above 65535"},
           {with_line(3, "MODIF: -1"), "line 3 (MODIF): -1 is not a number"},
           {with_line(5, "DHCP: 2"), "line 5 (DHCP): 2 is above 1"},
           {with_line(4, "HW:   # none"), "line 4 (HW): no value"},
           {with_line(7, "IPV4_ADDR: 1.2.3.999"), "line 7 (IPV4_ADDR): 999 is above 255"},
           {with_line(7, "IP_ADDR: 1.2.3"),
            "line 7 (IP_ADDR): 1.2.3 is not 4 numbers joined by '.'"},
           {with_line(9, "IPV4_GTW: 1..2.3"),
            "line 9 (IPV4_GTW): 1..2.3 is not 4 numbers joined by '.'"},
           {with_line(7, "IPV4_ADDR: 1. 2.3.4"),
            "line 7 (IPV4_ADDR): 1. is not 4 numbers joined by '.'"},
           {with_line(6, "MAC: 01:02:03:04:05:06:07"),
            "line 6 (MAC): 01:02:03:04:05:06:07 is not 6 groups joined by ':'"},
           {with_line(6, "MAC: 01:02:03:04:05:6"),
            "line 6 (MAC): group \"6\" is not two hexadecimal digits"},
           {with_line(6, "MAC: 01:02:03:04:05:0g"),
            "line 6 (MAC): group \"0g\" is not two hexadecimal digits"},
           {with_line(4, "HW: 7 x  "), "line 4 (HW): unexpected \"x\" after the value"},
           {with_line(1, "SN: \"a\"b"), "line 1 (SN): unexpected \"b\" after the value"},
           {with_line(1, "SN: \"abc"), "line 1 (SN): no closing quote"},
           {with_line(1, "SN: ab\"c"), "line 1 (SN): a quote on the line of an unquoted text"},
           {with_line(2, "TYPE: abc # \"x\""),
            "line 2 (TYPE): a quote on the line of an unquoted text"},
           {with_line(2, "TYPE: " + long_text), "line 2 (TYPE): longer than 31 characters"},
           {with_line(1, "SN: \"a\x01 b\""), "line 1 (SN): a control character in the text"},
           {with_line(4, " HW: 7"), "line 4: blanks before the key"},
           {with_line(4, "HW 7"), "line 4 (HW): no colon after the key"},
           {valid + "Serial: 5\n", "line 10 (SERIAL): unknown key"},
           {valid + "ip_addr: 1.2.3.4\n", "line 10 (IP_ADDR): already given on line 7"},
           {valid + "#" + std::string(255, 'x') + "\n", "line 10: longer than 255 characters"},
           {with_line(1, "# no serial number"), "SN: missing"},
           {with_line(9, ""), "IPV4_GTW: missing"},
           {with_line(7, "IPV6_ADDR: 1.2.3.4.5.6"),
            "line 8 (IPV4_MASK): an IPv4 mask for an IPv6 address"},
           {"IPV4_GTW: 1.2.3.4\n" + with_line(9, ""),
            "line 1 (IPV4_GTW): the gateway comes before the address"},
           {BASE + MAC + IPV6 + "\n" + "IPV6_GTW: 1.2.3.4\n",
            "line 11 (IPV6_GTW): already given on line 9"},
           {BASE + MAC + "IPV6_ADDR: 10.0.0.1.2.3\n", "IPV6_MASK: missing"}}) {
    FactoryTable table{};
    const FactoryTextCheck check = check_factory_table_text(text, table);
    EXPECT_FALSE(check.ok) << text;
    EXPECT_EQ(check.message(), message) << text;
  }
}

// What the strict reading takes, it takes as the lenient one does.
TEST(CheckFactoryTableText, AcceptsTheWrittenVariants) {
  for (const std::string& text : std::vector<std::string>{
           BASE + MAC + IPV4,
           "# made by hand\r\n\r\n  \t\r\nsn: \"SN 0001\"  # quoted\r\nType: Pelmo-x\r\nMODIF: "
           "003\r\n"
           "hw:7#seven\r\n  # indented comment\r\ndhcp: 0\r\nmac: 0A:1b:2C:3d:4E:5f\r\n"
           "ip_addr: 192.168.1.10\r\nIP_MASK: 255.255.255.0\r\nipv4_gtw: 192.168.1.1",
           IPV4 + MAC + BASE}) {
    FactoryTable table{};
    const FactoryTextCheck check = check_factory_table_text(text, table);
    EXPECT_TRUE(check.ok) << check.message();
    EXPECT_EQ(to_wire(table), to_wire(FULL)) << text;
  }
}

// The written text is byte-exact, and every table read strictly comes back from it unchanged.
TEST(FactoryTableText, WritesAndReadsBack) {
  EXPECT_EQ(factory_table_text(FULL),
            "# Factory table values:\n"
            "TYPE:       \"Pelmo-x\"\n"
            "SN:         \"SN 0001\"\n"
            "HW:         7\n"
            "MODIF:      3\n"
            "MAC:        0A:1B:2C:3D:4E:5F\n"
            "DHCP:       0\n"
            "IPV4_ADDR:  192.168.1.10\n"
            "IPV4_MASK:  255.255.255.0\n"
            "IPV4_GTW:   192.168.1.1\n");
  for (const std::string& text : std::vector<std::string>{
           BASE + MAC + IPV4, BASE + MAC + IPV6,
           "SN: \"\"\nTYPE: \"" + std::string(31, '~') +
               "\"\nMODIF: 65535\nHW: 0\nDHCP: 1\nMAC: ff:00:FF:00:ff:00\n"
               "IPV6_ADDR: 255.0.255.0.255.0\nIPV6_MASK: 0.0.0.0.0.0\nIPV6_GTW: 1.1.1.1.1.1\n"}) {
    FactoryTable table{};
    ASSERT_TRUE(check_factory_table_text(text, table).ok) << text;
    const std::string written = factory_table_text(table);
    FactoryTable again{};
    EXPECT_TRUE(check_factory_table_text(written, again).ok) << written;
    EXPECT_EQ(to_wire(again), to_wire(table)) << written;
  }
}

// The console listing is the file's text without its comment mark, then an empty line.
TEST(PrintFactoryTable, ConsoleAndFileShareTheText) {
  std::FILE* console = std::tmpfile();
  std::FILE* file = std::tmpfile();
  print_factory_table(FULL, console, file);
  const auto contents = [](std::FILE* stream) {
    std::string text(static_cast<std::size_t>(std::ftell(stream)), '\0');
    std::rewind(stream);
    text.resize(std::fread(text.data(), 1, text.size(), stream));
    std::fclose(stream);
    return text;
  };
  const std::string expected = factory_table_text(FULL);
  EXPECT_EQ(contents(file), expected);
  EXPECT_EQ(contents(console), expected.substr(2) + "\n");
}

}  // namespace
}  // namespace pelmo
