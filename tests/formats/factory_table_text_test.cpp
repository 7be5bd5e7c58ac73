#include "pelmo/formats/factory_table_text.hpp"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdio>
#include <functional>
#include <optional>
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

}  // namespace
}  // namespace pelmo
