#include "formats/intel_hex.hpp"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "tests/formats/hex_text.hpp"

namespace pelmo {
namespace {

using test::EOF_LINE;
using test::hex_line;
using Bytes = std::vector<std::uint8_t>;

// ---- parse_hex_record ------------------------------------------------------------------------

struct RecordCase {
  const char* name;
  std::string line;
  bool good;
  std::uint8_t type = 0;
  std::uint16_t address = 0;
  Bytes data = {};
};

class ParseHexRecord : public testing::TestWithParam<RecordCase> {};

TEST_P(ParseHexRecord, DecodesOrRejects) {
  const RecordCase& c = GetParam();
  HexRecord record{};
  ASSERT_EQ(parse_hex_record(c.line, record), c.good);
  if (c.good) {
    EXPECT_EQ(record.record_type, c.type);
    EXPECT_EQ(record.load_address, c.address);
    EXPECT_EQ(Bytes(record.data.begin(), record.data.begin() + record.byte_count), c.data);
  }
}

const Bytes SAMPLE = {0x21, 0x46, 0x01, 0x36, 0x01, 0x21, 0x47, 0x01,
                      0x36, 0x00, 0x7E, 0xFE, 0x09, 0xD2, 0x19, 0x01};

INSTANTIATE_TEST_SUITE_P(
    Lines, ParseHexRecord,
    testing::Values(
        RecordCase{"Data", ":10010000214601360121470136007EFE09D2190140", true, 0, 0x100, SAMPLE},
        RecordCase{"LowerCase", ":10010000214601360121470136007efe09d2190140", true, 0, 0x100,
                   SAMPLE},
        RecordCase{"TrailingIgnored", ":10010000214601360121470136007EFE09D2190140 x", true, 0,
                   0x100, SAMPLE},
        RecordCase{"ExtendedLinear", ":020000040800F2", true, 4, 0, {0x08, 0x00}},
        RecordCase{"WrongChecksum", ":10010000214601360121470136007EFE09D2190141", false},
        RecordCase{"CountBeyondLine", ":11010000214601360121470136007EFE09D2190140", false},
        RecordCase{"OddDigits", ":0100000012E", false},
        RecordCase{"NoColon", "00000001FF00", false},
        RecordCase{"BlankBeforeColon", " :00000001FF", false},
        RecordCase{"NotHex", ":0100000G12DD", false}),
    [](const testing::TestParamInfo<RecordCase>& info) { return std::string(info.param.name); });

TEST(ParseHexRecord, AcceptsFullCountOf255) {
  const Bytes data(255, 0xA5);
  std::string line = hex_line(0, 0x1234, data);
  HexRecord record{};
  ASSERT_TRUE(parse_hex_record(line, record));
  EXPECT_EQ(Bytes(record.data.begin(), record.data.end()), data);
  line.pop_back();  // one digit short of the checksum
  EXPECT_FALSE(parse_hex_record(line, record));
}

// ---- read_intel_hex --------------------------------------------------------------------------

constexpr std::uint8_t UNTOUCHED = 0xEE;
constexpr std::uint32_t IMAGE = 0x400;  // the buffer's size and, unless a case says, the limit

std::string lines(std::initializer_list<std::string> records, const char* line_end = "\n") {
  std::string text;
  for (const std::string& record : records) {
    text += record + line_end;
  }
  return text;
}

struct ReadCase {
  const char* name;
  std::string text;
  std::uint32_t base;
  std::uint32_t length;  // expected result
  // Bytes expected at image offsets after a good read; every other byte stays untouched.
  std::vector<std::pair<std::uint32_t, Bytes>> written = {};
  std::uint32_t limit = IMAGE;
};

class ReadIntelHex : public testing::TestWithParam<ReadCase> {};

TEST_P(ReadIntelHex, BuildsImage) {
  const ReadCase& c = GetParam();
  Bytes image(IMAGE, UNTOUCHED);
  ASSERT_EQ(read_intel_hex(std::string_view{c.text}, image, c.limit, c.base), c.length);
  if (c.length == 0) {
    return;  // a failed read leaves the image partly filled
  }
  Bytes expected(IMAGE, UNTOUCHED);
  for (const auto& [offset, bytes] : c.written) {
    std::copy(bytes.begin(), bytes.end(), expected.begin() + offset);
  }
  EXPECT_EQ(image, expected);
}

INSTANTIATE_TEST_SUITE_P(
    Files, ReadIntelHex,
    testing::Values(
        ReadCase{"LinearRecordAtBase",
                 lines({hex_line(4, 0, {0x00, 0x02}), hex_line(0, 0, {1, 2, 3}), EOF_LINE}),
                 0x20000,
                 3,
                 {{0, {1, 2, 3}}}},
        ReadCase{"WithoutExtendedRecordRelativeToBase",
                 lines({hex_line(0, 0, {1, 2}), EOF_LINE}),
                 0x20000,
                 2,
                 {{0, {1, 2}}}},
        ReadCase{"LinearRecordBelowBase",
                 lines({hex_line(4, 0, {0x00, 0x01}), hex_line(0, 0xFFFF, {1}), EOF_LINE}), 0x20000,
                 0},
        ReadCase{"SegmentRecord",
                 lines({hex_line(2, 0, {0x10, 0x00}), hex_line(0, 0x10, {5, 6}), EOF_LINE}),
                 0x10000,
                 0x12,
                 {{0x10, {5, 6}}}},
        ReadCase{"DataEndingAtLimit",
                 lines({hex_line(0, 0x3FE, {7, 8}), EOF_LINE}),
                 0,
                 0x400,
                 {{0x3FE, {7, 8}}}},
        ReadCase{"DataOneBytePastLimit", lines({hex_line(0, 0x3FE, {7, 8, 9}), EOF_LINE}), 0, 0},
        ReadCase{"SmallerLimit", lines({hex_line(0, 0x10, {1}), EOF_LINE}), 0, 0, {}, 0x10},
        ReadCase{"BufferBoundsLargerLimit",
                 lines({hex_line(0, 0x400, {1}), EOF_LINE}),
                 0,
                 0,
                 {},
                 0x100000},
        ReadCase{"GapLeftUntouched",
                 lines({hex_line(0, 0, test::counting(16)), hex_line(0, 0x100, test::counting(8)),
                        EOF_LINE}),
                 0x8000,
                 0x108,
                 {{0, test::counting(16)}, {0x100, test::counting(8)}}},
        ReadCase{"AnyOrderLaterOverwrites",
                 lines({hex_line(0, 0x20, {1, 2, 3, 4}), hex_line(0, 0, {9}),
                        hex_line(0, 0x21, {0xAA, 0xBB}), EOF_LINE}),
                 0,
                 0x24,
                 {{0, {9}}, {0x20, {1, 0xAA, 0xBB, 4}}}},
        ReadCase{
            "CrLfLines", lines({hex_line(0, 0, {1, 2}), EOF_LINE}, "\r\n"), 0, 2, {{0, {1, 2}}}},
        ReadCase{"StartLinearSkipped",
                 lines({hex_line(5, 0, {0, 0, 1, 0}), hex_line(0, 0, {1}), EOF_LINE}),
                 0,
                 1,
                 {{0, {1}}}},
        ReadCase{"StartSegmentFails",
                 lines({hex_line(0, 0, {1}), hex_line(3, 0, {0, 0, 1, 0}), EOF_LINE}), 0, 0},
        ReadCase{"WrongChecksumFails", lines({":0100000001FF", EOF_LINE}), 0, 0},
        ReadCase{"BlankLineFails", lines({hex_line(0, 0, {1}), "", EOF_LINE}), 0, 0},
        ReadCase{"NoEndOfFileRecord", lines({hex_line(0, 0, {1})}), 0, 0},
        ReadCase{"NothingReadAfterEndOfFile",
                 lines({hex_line(0, 0, {1}), EOF_LINE, hex_line(0, 1, {2}), "garbage"}),
                 0,
                 1,
                 {{0, {1}}}},
        ReadCase{"EndOfFileBeforeData", lines({EOF_LINE, hex_line(0, 0, {1})}), 0, 0},
        ReadCase{"EmptyDataRecordStillChecked",
                 lines({hex_line(0, 0, {1}), hex_line(0, 0x401, {}), EOF_LINE}), 0, 0},
        ReadCase{"ShortLinearRecord",
                 lines({hex_line(4, 0, {0x00}), hex_line(0, 0, {1}), EOF_LINE}), 0, 0},
        // Device addresses wrap at 32 bits; the bounds check must not wrap with them.
        ReadCase{"PastTopOfMemory",
                 lines({hex_line(4, 0, {0xFF, 0xFF}), hex_line(0, 0xFFFF, {1, 2}), EOF_LINE}),
                 0xFFFFFC00, 0},
        ReadCase{"LastByteOfMemory",
                 lines({hex_line(4, 0, {0xFF, 0xFF}), hex_line(0, 0xFFFF, {7}), EOF_LINE}),
                 0xFFFFFC00,
                 0x400,
                 {{0x3FF, {7}}}},
        // A line read takes at most 999 characters, its LF included; the rest is a line of its own.
        ReadCase{"LongLineWithin999",
                 lines({hex_line(0, 0, {1}) + std::string(998 - 13, ';'), EOF_LINE}),
                 0,
                 1,
                 {{0, {1}}}},
        ReadCase{"LongLineSplitAt999",
                 lines({hex_line(0, 0, {1}) + std::string(999 - 13, ';'), EOF_LINE}), 0, 0}),
    [](const testing::TestParamInfo<ReadCase>& info) { return std::string(info.param.name); });

TEST(ReadIntelHexStream, ReadsOpenFileAndLeavesItOpen) {
  std::FILE* file = std::tmpfile();
  ASSERT_NE(file, nullptr);
  const std::string text = lines({hex_line(4, 0, {0x08, 0x00}), hex_line(0, 4, {1, 2}), EOF_LINE});
  ASSERT_EQ(std::fwrite(text.data(), 1, text.size(), file), text.size());
  std::rewind(file);
  Bytes image(8, UNTOUCHED);
  EXPECT_EQ(read_intel_hex(file, image, 8, 0x08000000), 6u);
  EXPECT_EQ(image, (Bytes{UNTOUCHED, UNTOUCHED, UNTOUCHED, UNTOUCHED, 1, 2, UNTOUCHED, UNTOUCHED}));
  EXPECT_EQ(std::fseek(file, 0, SEEK_SET), 0);  // still open
  std::fclose(file);
}

}  // namespace
}  // namespace pelmo
