#include "pelmo/formats/intel_hex.hpp"

#include "pelmo/formats/number_text.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <numeric>
#include <string>
#include <vector>

namespace pelmo {
namespace {

using Bytes = std::vector<std::uint8_t>;

// One record line with its checksum and a line feed.
std::string rec(unsigned type, unsigned address, const Bytes& data) {
  Bytes bytes = {std::uint8_t(data.size()), std::uint8_t(address >> 8), std::uint8_t(address),
                 std::uint8_t(type)};
  bytes.insert(bytes.end(), data.begin(), data.end());
  bytes.push_back(std::uint8_t(0x100 - std::accumulate(bytes.begin(), bytes.end(), 0u)));
  std::string line = ":";
  for (std::uint8_t byte : bytes) {
    line += {hex_digit_char(byte >> 4), hex_digit_char(byte)};
  }
  return line + "\n";
}
const std::string END = ":00000001FF\n";
constexpr std::uint8_t X = 0xEE;                  // a byte that no record wrote
const std::string TOP = rec(4, 0, {0xFF, 0xFF});  // the highest 64 KiB of memory

struct FileCase {
  const char* name;
  std::string text;
  std::uint32_t base;
  std::uint32_t limit;  // the image buffer holds 0x400 bytes
  Bytes image;          // up to the highest byte written; empty: the read fails
  HexError error = HexError::none;
  std::uint32_t line = 0;  // of the failing record
};

class ReadIntelHex : public testing::TestWithParam<FileCase> {};

// The result is the image length, from the base to the highest byte written; bytes that no record
// covers stay as they were. A failure names its reason and line.
TEST_P(ReadIntelHex, BuildsTheImage) {
  const FileCase& c = GetParam();
  Bytes image(0x400, X);
  const HexReadResult result = read_hex_image(std::string_view{c.text}, image, c.limit, c.base);
  ASSERT_EQ(result.length, c.image.size());
  EXPECT_EQ(std::pair(result.error, result.line), std::pair(c.error, c.line));
  if (!c.image.empty()) {
    Bytes expected = c.image;
    expected.resize(0x400, X);
    EXPECT_EQ(image, expected);
  }
}

using enum HexError;
const std::string DATA = rec(0, 0, {1});

INSTANTIATE_TEST_SUITE_P(
    Files, ReadIntelHex,
    testing::Values(
        FileCase{"Linear04", rec(4, 0, {0, 2}) + rec(0, 0, {1, 2}) + END, 0x20000, 4, {1, 2}},
        FileCase{"Segment02", rec(2, 0, {0x10, 0}) + rec(0, 2, {5}) + END, 0x10000, 4, {X, X, 5}},
        FileCase{"BelowBase",
                 rec(4, 0, {0, 1}) + rec(0, 0xFFFF, {1}) + END,
                 0x20000,
                 4,
                 {},
                 outside_bounds,
                 2},
        FileCase{"EndsAtLimit", rec(0, 2, {7, 8}) + END, 0, 4, {X, X, 7, 8}},
        FileCase{"PastLimit", rec(0, 2, {7, 8, 9}) + END, 0, 4, {}, outside_bounds, 1},
        FileCase{"PastBuffer", rec(0, 0x400, {1}) + END, 0, 0x100000, {}, outside_bounds, 1},
        // Device addresses wrap at 32 bits; the bounds check must not wrap with them.
        FileCase{"TopByte", TOP + rec(0, 0xFFFF, {7}) + END, 0xFFFFFFFC, 4, {X, X, X, 7}},
        FileCase{
            "PastTop", TOP + rec(0, 0xFFFF, {7, 8}) + END, 0xFFFFFFFC, 4, {}, outside_bounds, 2},
        // Any order; a later record overwrites.
        FileCase{
            "Order", rec(0, 2, {1, 2}) + rec(0, 0, {9}) + rec(0, 3, {7}) + END, 0, 8, {9, X, 1, 7}},
        FileCase{"CrLfLowerCaseTrailingText",
                 ":02000000abcd86 x\r\n:00000001FF\r\n",
                 0,
                 4,
                 {0xAB, 0xCD}},
        FileCase{"Start05Skipped", rec(5, 0, {0, 0, 1, 0}) + DATA + END, 0, 4, {1}},
        FileCase{
            "Start03Fails", DATA + rec(3, 0, {0, 0, 1, 0}) + END, 0, 4, {}, unsupported_type, 2},
        FileCase{"ShortLinear", DATA + rec(4, 0, {1}) + END, 0, 4, {}, short_address, 2},
        // Line numbers count whole lines, the last one without a line end included.
        FileCase{"BadChecksum", DATA + ":0100000001FF\n" + END, 0, 4, {}, bad_checksum, 2},
        FileCase{"BlankLine", DATA + "\n" + END, 0, 4, {}, malformed_record, 2},
        FileCase{"CountBeyondLine", DATA + DATA + ":0200000001FD", 0, 4, {}, malformed_record, 3},
        FileCase{"NotHex", DATA + ":0100000G12DD\n", 0, 4, {}, malformed_record, 2},
        // A line is read 999 characters at a time: its rest is no record of its own.
        FileCase{"LongLine",
                 DATA + rec(0, 1, {2}).substr(0, 13) + std::string(1200, ' ') + "\n",
                 0,
                 4,
                 {},
                 malformed_record,
                 2},
        FileCase{"NoEndRecord", DATA, 0, 4, {}, missing_end_record, 0},
        FileCase{"NothingReadAfterEnd", DATA + END + rec(0, 1, {2}) + "junk", 0, 4, {1}},
        FileCase{"EndBeforeData", END + DATA, 0x20000, 4, {}, no_data, 1}),
    [](const testing::TestParamInfo<FileCase>& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace pelmo
