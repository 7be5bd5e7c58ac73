#include "formats/intel_hex.hpp"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "tests/formats/hex_text.hpp"

namespace pelmo {
namespace {

using test::EOF_LINE;
using test::hex_line;

// ---- parse_hex_record ------------------------------------------------------------------------

struct RecordCase {
  const char* name;
  std::string line;
  bool good;
  std::uint8_t type = 0;
  std::uint16_t address = 0;
  std::vector<std::uint8_t> data = {};
};

class ParseHexRecord : public testing::TestWithParam<RecordCase> {};

TEST_P(ParseHexRecord, DecodesOrRejects) {
  const RecordCase& c = GetParam();
  HexRecord record{};
  ASSERT_EQ(parse_hex_record(c.line, record), c.good);
  if (!c.good) {
    return;
  }
  EXPECT_EQ(record.record_type, c.type);
  EXPECT_EQ(record.load_address, c.address);
  ASSERT_EQ(record.byte_count, c.data.size());
  EXPECT_EQ(std::vector<std::uint8_t>(record.data.begin(), record.data.begin() + record.byte_count),
            c.data);
}

const std::vector<std::uint8_t> SAMPLE_DATA = {0x21, 0x46, 0x01, 0x36, 0x01, 0x21, 0x47, 0x01,
                                               0x36, 0x00, 0x7E, 0xFE, 0x09, 0xD2, 0x19, 0x01};

INSTANTIATE_TEST_SUITE_P(
    Lines, ParseHexRecord,
    testing::Values(
        RecordCase{"Data", ":10010000214601360121470136007EFE09D2190140", true, 0, 0x0100,
                   SAMPLE_DATA},
        RecordCase{"LowerCase", ":10010000214601360121470136007efe09d2190140", true, 0, 0x0100,
                   SAMPLE_DATA},
        RecordCase{"TrailingCharactersIgnored", ":10010000214601360121470136007EFE09D2190140 x;",
                   true, 0, 0x0100, SAMPLE_DATA},
        RecordCase{"EndOfFile", ":00000001FF", true, 1, 0, {}},
        RecordCase{"ExtendedLinear", ":020000040800F2", true, 4, 0, {0x08, 0x00}},
        RecordCase{"EmptyDataAtTopAddress", hex_line(0, 0xFFFF, {}), true, 0, 0xFFFF, {}},
        RecordCase{"WrongChecksum", ":10010000214601360121470136007EFE09D2190141", false},
        RecordCase{"CountBeyondLine", ":11010000214601360121470136007EFE09D2190140", false},
        RecordCase{"OddDigitCutsChecksum", ":0100000012E", false},
        RecordCase{"TooShort", ":00000001F", false}, RecordCase{"Empty", "", false},
        RecordCase{"NoColon", "00000001FF00", false},
        RecordCase{"BlankBeforeColon", " :00000001FF", false},
        RecordCase{"NotHexInData", ":0100000G12DD", false},
        RecordCase{"NotHexInCount", ":0X000001FF", false},
        RecordCase{"BlankInsideDigits", ":00000001 F", false}),
    [](const testing::TestParamInfo<RecordCase>& info) { return std::string(info.param.name); });

TEST(ParseHexRecord, AcceptsFullCountOf255) {
  const std::vector<std::uint8_t> data(255, 0xA5);
  std::string line = hex_line(0, 0x1234, data);
  HexRecord record{};
  ASSERT_TRUE(parse_hex_record(line, record));
  EXPECT_EQ(record.byte_count, 255);
  EXPECT_EQ(std::vector<std::uint8_t>(record.data.begin(), record.data.end()), data);
  line.pop_back();  // one digit short of the checksum
  EXPECT_FALSE(parse_hex_record(line, record));
}

// ---- read_intel_hex --------------------------------------------------------------------------

constexpr std::uint8_t UNTOUCHED = 0xEE;

std::string lines(std::initializer_list<std::string> records, const char* line_end = "\n") {
  std::string text;
  for (const std::string& record : records) {
    text += record;
    text += line_end;
  }
  return text;
}

struct ReadCase {
  const char* name;
  std::string text;
  std::uint32_t base;
  std::uint32_t limit;
  std::uint32_t expected_length;
  // Expected image bytes from offset 0; bytes not listed must stay untouched.
  std::vector<std::uint8_t> expected_image;
};

class ReadIntelHex : public testing::TestWithParam<ReadCase> {};

TEST_P(ReadIntelHex, BuildsImage) {
  const ReadCase& c = GetParam();
  std::vector<std::uint8_t> image(0x400, UNTOUCHED);
  EXPECT_EQ(read_intel_hex(std::string_view{c.text}, image, c.limit, c.base), c.expected_length);
  if (c.expected_length == 0 && c.expected_image.empty()) {
    return;
  }
  std::vector<std::uint8_t> expected = c.expected_image;
  expected.resize(image.size(), UNTOUCHED);
  EXPECT_EQ(image, expected);
}

INSTANTIATE_TEST_SUITE_P(
    Files, ReadIntelHex,
    testing::Values(
        ReadCase{"LinearRecordAtBase",
                 lines({hex_line(4, 0, {0x00, 0x02}), hex_line(0, 0, {1, 2, 3}), EOF_LINE}),
                 0x20000, 0x400, 3, {1, 2, 3}},
        ReadCase{"NoExtendedRecordIsRelativeToBase",
                 lines({hex_line(0, 0, {1, 2, 3}), EOF_LINE}), 0x20000, 0x400, 3, {1, 2, 3}},
        ReadCase{"LinearRecordBelowBaseFails",
                 lines({hex_line(4, 0, {0x00, 0x01}), hex_line(0, 0xFFFF, {1}), EOF_LINE}),
                 0x20000, 0x400, 0, {}},
        ReadCase{"DataEndingAtLimit", lines({hex_line(0, 0x3FE, {7, 8}), EOF_LINE}), 0, 0x400,
                 0x400, [] {
                   std::vector<std::uint8_t> image(0x400, UNTOUCHED);
                   image[0x3FE] = 7;
                   image[0x3FF] = 8;
                   return image;
                 }()},
        ReadCase{"DataOneBytePastLimit", lines({hex_line(0, 0x3FE, {7, 8, 9}), EOF_LINE}), 0, 0x400,
                 0, {}},
        ReadCase{"LimitBelowBuffer", lines({hex_line(0, 0x10, {1}), EOF_LINE}), 0, 0x10, 0, {}},
        ReadCase{"LimitAboveBufferIsBoundedByBuffer", lines({hex_line(0, 0x400, {1}), EOF_LINE}),
                 0, 0x100000, 0, {}},
        ReadCase{"GapLeftUntouched",
                 lines({hex_line(0, 0x000, test::counting(16)), hex_line(0, 0x100, test::counting(8)),
                        EOF_LINE}),
                 0x8000, 0x400, 0x108, [] {
                   std::vector<std::uint8_t> image(0x108, UNTOUCHED);
                   for (std::uint8_t index = 0; index < 16; ++index) {
                     image[index] = index;
                     image[0x100 + index % 8] = index % 8;
                   }
                   return image;
                 }()},
        ReadCase{"RecordsInAnyOrderLaterOverwrites",
                 lines({hex_line(0, 0x20, {1, 2, 3, 4}), hex_line(0, 0x00, {9}),
                        hex_line(0, 0x21, {0xAA, 0xBB}), EOF_LINE}),
                 0, 0x400, 0x24, [] {
                   std::vector<std::uint8_t> image(0x24, UNTOUCHED);
                   image[0] = 9;
                   image[0x20] = 1;
                   image[0x21] = 0xAA;
                   image[0x22] = 0xBB;
                   image[0x23] = 4;
                   return image;
                 }()},
        ReadCase{"SegmentRecord",
                 lines({hex_line(2, 0, {0x10, 0x00}), hex_line(0, 0x0010, {5, 6}), EOF_LINE}),
                 0x10000, 0x400, 0x12, [] {
                   std::vector<std::uint8_t> image(0x10, UNTOUCHED);
                   image.push_back(5);
                   image.push_back(6);
                   return image;
                 }()},
        ReadCase{"CrLfLines", lines({hex_line(0, 0, {1, 2}), EOF_LINE}, "\r\n"), 0, 0x400, 2,
                 {1, 2}},
        ReadCase{"LastLineWithoutLineEnd", lines({hex_line(0, 0, {1, 2})}) + EOF_LINE, 0, 0x400, 2,
                 {1, 2}},
        ReadCase{"LowerCaseDigits",
                 ":020000000afff5\n" + EOF_LINE + "\n", 0, 0x400, 2, {0x0A, 0xFF}},
        ReadCase{"StartLinearSkipped",
                 lines({hex_line(5, 0, {0, 0, 1, 0}), hex_line(0, 0, {1}), EOF_LINE}), 0, 0x400, 1,
                 {1}},
        ReadCase{"StartSegmentFails",
                 lines({hex_line(0, 0, {1}), hex_line(3, 0, {0, 0, 1, 0}), EOF_LINE}), 0, 0x400, 0,
                 {}},
        ReadCase{"UnknownTypeFails", lines({hex_line(6, 0, {}), EOF_LINE}), 0, 0x400, 0, {}},
        ReadCase{"WrongChecksumFails", lines({":0100000001FF", EOF_LINE}), 0, 0x400, 0, {}},
        ReadCase{"BlankLineFails", lines({hex_line(0, 0, {1}), "", EOF_LINE}), 0, 0x400, 0, {}},
        ReadCase{"BlankBeforeColonFails", lines({" " + hex_line(0, 0, {1}), EOF_LINE}), 0, 0x400,
                 0, {}},
        ReadCase{"NoEndOfFileRecordFails", lines({hex_line(0, 0, {1})}), 0, 0x400, 0, {}},
        ReadCase{"EmptyTextFails", "", 0, 0x400, 0, {}},
        ReadCase{"LinesAfterEndOfFileNotRead",
                 lines({hex_line(0, 0, {1}), EOF_LINE, hex_line(0, 1, {2}), "garbage"}), 0, 0x400,
                 1, {1}},
        ReadCase{"EndOfFileBeforeDataGivesZero", lines({EOF_LINE, hex_line(0, 0, {1})}), 0, 0x400,
                 0, {}},
        ReadCase{"EmptyDataRecordWritesNothing", lines({hex_line(0, 0x10, {}), EOF_LINE}), 0, 0x400,
                 0, {}},
        ReadCase{"EmptyDataRecordStillChecked",
                 lines({hex_line(0, 0, {1}), hex_line(0, 0x401, {}), EOF_LINE}), 0, 0x400, 0, {}},
        ReadCase{"ShortLinearRecordFails",
                 lines({hex_line(4, 0, {0x00}), hex_line(0, 0, {1}), EOF_LINE}), 0, 0x400, 0, {}},
        ReadCase{"ShortSegmentRecordFails",
                 lines({hex_line(2, 0, {}), hex_line(0, 0, {1}), EOF_LINE}), 0, 0x400, 0, {}},
        // The device address wraps at 32 bits; the bounds check must not wrap with it.
        ReadCase{"AddressPastTopOfMemoryFails",
                 lines({hex_line(4, 0, {0xFF, 0xFF}), hex_line(0, 0xFFFF, {1, 2}), EOF_LINE}),
                 0xFFFFFC00, 0x400, 0, {}},
        ReadCase{"LastByteOfMemory",
                 lines({hex_line(4, 0, {0xFF, 0xFF}), hex_line(0, 0xFFFF, {7}), EOF_LINE}),
                 0xFFFFFC00, 0x400, 0x400, [] {
                   std::vector<std::uint8_t> image(0x400, UNTOUCHED);
                   image[0x3FF] = 7;
                   return image;
                 }()},
        // A line read takes at most 999 characters, its LF included; the rest is a line of its own.
        ReadCase{"LongLineWithin999Characters",
                 lines({hex_line(0, 0, {1}) + std::string(998 - 13, ';'), EOF_LINE}), 0, 0x400, 1,
                 {1}},
        ReadCase{"LongLineSplitAt999Characters",
                 lines({hex_line(0, 0, {1}) + std::string(999 - 13, ';'), EOF_LINE}), 0, 0x400, 0,
                 {}}),
    [](const testing::TestParamInfo<ReadCase>& info) { return std::string(info.param.name); });

TEST(ReadIntelHexStream, ReadsOpenFileAndLeavesItOpen) {
  std::FILE* file = std::tmpfile();
  ASSERT_NE(file, nullptr);
  const std::string text = lines({hex_line(4, 0, {0x08, 0x00}), hex_line(0, 4, {1, 2}), EOF_LINE});
  ASSERT_EQ(std::fwrite(text.data(), 1, text.size(), file), text.size());
  std::rewind(file);
  std::vector<std::uint8_t> image(16, UNTOUCHED);
  EXPECT_EQ(read_intel_hex(file, image, 16, 0x08000000), 6u);
  EXPECT_EQ(image,
            (std::vector<std::uint8_t>{UNTOUCHED, UNTOUCHED, UNTOUCHED, UNTOUCHED, 1, 2, UNTOUCHED,
                                       UNTOUCHED, UNTOUCHED, UNTOUCHED, UNTOUCHED, UNTOUCHED,
                                       UNTOUCHED, UNTOUCHED, UNTOUCHED, UNTOUCHED}));
  EXPECT_EQ(std::fseek(file, 0, SEEK_SET), 0);  // still open and usable
  std::fclose(file);
}

TEST(ReadIntelHexStream, NullStreamFails) {
  std::vector<std::uint8_t> image(16, UNTOUCHED);
  EXPECT_EQ(read_intel_hex(static_cast<std::FILE*>(nullptr), image, 16, 0), 0u);
}

}  // namespace
}  // namespace pelmo
