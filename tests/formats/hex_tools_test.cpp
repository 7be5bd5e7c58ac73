// Images written by common HEX tools must load back byte for byte. The tools are optional: a test
// whose tool is missing is skipped.

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "formats/intel_hex.hpp"

namespace pelmo {
namespace {

constexpr std::uint32_t IMAGE_SIZE = 1024 * 1024;
constexpr std::uint32_t FLASH_BASE = 0x08000000;

struct ToolCase {
  const char* name;
  const char* tool;
  // Command line with {in} and {out} for the binary and the HEX file.
  std::string command;
  std::uint32_t base;
};

std::string replace_all(std::string text, const std::string& from, const std::string& to) {
  for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at)) {
    text.replace(at, from.size(), to);
    at += to.size();
  }
  return text;
}

bool tool_available(const char* tool) {
  const std::string probe = std::string("command -v ") + tool + " >/dev/null 2>&1";
  return std::system(probe.c_str()) == 0;
}

std::vector<std::uint8_t> random_image() {
  std::mt19937 generator(20260101);
  std::vector<std::uint8_t> image(IMAGE_SIZE);
  for (std::uint8_t& byte : image) {
    byte = static_cast<std::uint8_t>(generator());
  }
  return image;
}

class HexFromTool : public testing::TestWithParam<ToolCase> {};

TEST_P(HexFromTool, LoadsSameBytesAsBinary) {
  const ToolCase& c = GetParam();
  if (!tool_available(c.tool)) {
    GTEST_SKIP() << c.tool << " is not installed";
  }
  const std::filesystem::path dir =
      std::filesystem::path(testing::TempDir()) / (std::string("pelmo_formats_") + c.name);
  std::filesystem::create_directories(dir);
  const std::filesystem::path bin = dir / "image.bin";
  const std::filesystem::path hex = dir / "image.hex";
  const std::vector<std::uint8_t> binary = random_image();
  {
    std::ofstream out(bin, std::ios::binary);
    out.write(reinterpret_cast<const char*>(binary.data()), static_cast<long>(binary.size()));
  }
  const std::string command =
      replace_all(replace_all(c.command, "{in}", bin.string()), "{out}", hex.string());
  ASSERT_EQ(std::system(command.c_str()), 0) << command;

  std::FILE* file = std::fopen(hex.string().c_str(), "rb");
  ASSERT_NE(file, nullptr);
  std::vector<std::uint8_t> image(IMAGE_SIZE, 0xEE);
  const auto started = std::chrono::steady_clock::now();
  const std::uint32_t length = read_intel_hex(file, image, IMAGE_SIZE, c.base);
  const auto elapsed = std::chrono::steady_clock::now() - started;
  RecordProperty(
      "load_us",
      std::to_string(std::chrono::duration_cast<std::chrono::microseconds>(elapsed).count()));
  EXPECT_EQ(length, IMAGE_SIZE);
  EXPECT_TRUE(image == binary) << "image differs from the binary";

  // The same file no longer fits when the limit is one byte short.
  std::rewind(file);
  EXPECT_EQ(read_intel_hex(file, image, IMAGE_SIZE - 1, c.base), 0u);
  std::fclose(file);
  std::filesystem::remove_all(dir);
}

INSTANTIATE_TEST_SUITE_P(
    Tools, HexFromTool,
    testing::Values(
        // Below 1 MiB objcopy addresses with segment (02) records.
        ToolCase{"ObjcopySegmented", "objcopy", "objcopy -I binary -O ihex {in} {out}", 0},
        ToolCase{"ObjcopyLinear", "objcopy",
                 "objcopy -I binary -O ihex --change-addresses 0x08000000 {in} {out}", FLASH_BASE},
        ToolCase{"SrecCatLinear", "srec_cat",
                 "srec_cat {in} -binary -offset 0x08000000 -o {out} -intel", FLASH_BASE},
        ToolCase{"SrecCatCrLfFullRecords", "srec_cat",
                 "srec_cat {in} -binary -offset 0x08000000 -o {out} -intel -CRLF "
                 "-Output_Block_Size 255",
                 FLASH_BASE}),
    [](const testing::TestParamInfo<ToolCase>& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace pelmo
