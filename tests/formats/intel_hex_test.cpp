#include "pelmo/formats/intel_hex.hpp"

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

// The good lines hold 16 data bytes for 0x0100.
TEST(ParseHexRecord, DecodesOrRejects) {
  const Bytes data = {0x21, 0x46, 0x01, 0x36, 0x01, 0x21, 0x47, 0x01,
                      0x36, 0x00, 0x7E, 0xFE, 0x09, 0xD2, 0x19, 0x01};
  for (const auto& [line, good] : std::vector<std::pair<const char*, bool>>{
           {":10010000214601360121470136007EFE09D2190140", true},
           {":10010000214601360121470136007efe09d2190140 x", true},  // case, trailing text
           {":10010000214601360121470136007EFE09D2190141", false},   // checksum
           {":11010000214601360121470136007EFE09D2190140", false},   // count beyond line
           {":0100000G12DD", false}}) {
    HexRecord record{};
    ASSERT_EQ(parse_hex_record(line, record), good) << line;
    if (good) {
      EXPECT_EQ(record.record_type, 0);
      EXPECT_EQ(record.load_address, 0x0100);
      EXPECT_EQ(Bytes(record.data.begin(), record.data.begin() + record.byte_count), data);
    }
  }
}

// One record line with its checksum and a line feed.
std::string rec(unsigned type, unsigned address, const Bytes& data) {
  Bytes bytes = {std::uint8_t(data.size()), std::uint8_t(address >> 8), std::uint8_t(address),
                 std::uint8_t(type)};
  bytes.insert(bytes.end(), data.begin(), data.end());
  bytes.push_back(std::uint8_t(0x100 - std::accumulate(bytes.begin(), bytes.end(), 0u)));
  std::string line = ":";
  for (std::uint8_t byte : bytes) {
    line += {"0123456789ABCDEF"[byte >> 4], "0123456789ABCDEF"[byte & 0xF]};
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
};

class ReadIntelHex : public testing::TestWithParam<FileCase> {};

// The result is the image length, from the base to the highest byte written; bytes that no record
// covers stay as they were.
TEST_P(ReadIntelHex, BuildsTheImage) {
  const FileCase& c = GetParam();
  Bytes image(0x400, X);
  ASSERT_EQ(read_intel_hex(std::string_view{c.text}, image, c.limit, c.base), c.image.size());
  if (!c.image.empty()) {
    Bytes expected = c.image;
    expected.resize(0x400, X);
    EXPECT_EQ(image, expected);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Files, ReadIntelHex,
    testing::Values(
        FileCase{"Linear04", rec(4, 0, {0, 2}) + rec(0, 0, {1, 2}) + END, 0x20000, 4, {1, 2}},
        FileCase{"Segment02", rec(2, 0, {0x10, 0}) + rec(0, 2, {5}) + END, 0x10000, 4, {X, X, 5}},
        FileCase{"BelowBase", rec(4, 0, {0, 1}) + rec(0, 0xFFFF, {1}) + END, 0x20000, 4, {}},
        FileCase{"EndsAtLimit", rec(0, 2, {7, 8}) + END, 0, 4, {X, X, 7, 8}},
        FileCase{"PastLimit", rec(0, 2, {7, 8, 9}) + END, 0, 4, {}},
        FileCase{"PastBuffer", rec(0, 0x400, {1}) + END, 0, 0x100000, {}},
        // Device addresses wrap at 32 bits; the bounds check must not wrap with them.
        FileCase{"TopByte", TOP + rec(0, 0xFFFF, {7}) + END, 0xFFFFFFFC, 4, {X, X, X, 7}},
        FileCase{"PastTop", TOP + rec(0, 0xFFFF, {7, 8}) + END, 0xFFFFFFFC, 4, {}},
        // Any order; a later record overwrites.
        FileCase{
            "Order", rec(0, 2, {1, 2}) + rec(0, 0, {9}) + rec(0, 3, {7}) + END, 0, 8, {9, X, 1, 7}},
        FileCase{"CrLf", ":020000000102FB\r\n:00000001FF\r\n", 0, 4, {1, 2}},
        FileCase{"Start05Skipped", rec(5, 0, {0, 0, 1, 0}) + rec(0, 0, {1}) + END, 0, 4, {1}},
        FileCase{"Start03Fails", rec(0, 0, {1}) + rec(3, 0, {0, 0, 1, 0}) + END, 0, 4, {}},
        FileCase{"BadLineFails", rec(0, 0, {1}) + ":0100000001FF\n" + END, 0, 4, {}},
        FileCase{"NoEndRecord", rec(0, 0, {1}), 0, 4, {}},
        FileCase{"NothingReadAfterEnd", rec(0, 0, {1}) + END + rec(0, 1, {2}) + "junk", 0, 4, {1}},
        FileCase{"EndBeforeData", END + rec(0, 0, {1}), 0x20000, 4, {}}),
    [](const testing::TestParamInfo<FileCase>& info) { return std::string(info.param.name); });

// Files that common HEX tools write from a 1 MiB binary load back byte for byte. Below 1 MiB
// objcopy writes segment (02) records; srec_cat writes linear (04) records, here with CR LF line
// ends and full 255-byte records. {} stands for the binary, then the HEX file.
class HexFromTool : public testing::TestWithParam<std::pair<const char*, std::uint32_t>> {};

TEST_P(HexFromTool, LoadsTheSameBytesAsTheBinary) {
  std::string command = GetParam().first;
  const std::string tool = command.substr(0, command.find(' '));
  if (std::system(("command -v " + tool + " >/dev/null").c_str()) != 0) {
    GTEST_SKIP() << tool << " is not installed";
  }
  const std::filesystem::path dir = std::filesystem::path(testing::TempDir()) / ("pelmo_" + tool);
  std::filesystem::create_directories(dir);
  const std::string bin = (dir / "image.bin").string(), hex = (dir / "image.hex").string();
  command.replace(command.find("{}"), 2, bin).replace(command.find("{}"), 2, hex);
  Bytes binary(1 << 20);
  std::generate(binary.begin(), binary.end(),
                [n = 0u]() mutable { return std::uint8_t((n += 2654435761u) >> 24); });
  std::ofstream(bin, std::ios::binary)
      .write(reinterpret_cast<const char*>(binary.data()), std::streamsize(binary.size()));
  ASSERT_EQ(std::system(command.c_str()), 0) << command;
  std::FILE* file = std::fopen(hex.c_str(), "rb");
  ASSERT_NE(file, nullptr);
  Bytes image(binary.size(), 0xEE);
  EXPECT_EQ(read_intel_hex(file, image, std::uint32_t(image.size()), GetParam().second), 1u << 20);
  EXPECT_TRUE(image == binary);
  std::fclose(file);
  std::filesystem::remove_all(dir);
}

INSTANTIATE_TEST_SUITE_P(
    Tools, HexFromTool,
    testing::Values(std::pair{"objcopy -I binary -O ihex {} {}", 0u},
                    std::pair{"srec_cat {} -binary -offset 0x08000000 -o {} -intel -CRLF "
                              "-Output_Block_Size 255",
                              0x08000000u}));

}  // namespace
}  // namespace pelmo
