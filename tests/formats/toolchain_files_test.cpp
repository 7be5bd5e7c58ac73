// The readers against files that real toolchains wrote (make_firmware_files.sh, run by CTest as
// this test's fixture): every format must place exactly the bytes `objcopy -O binary` writes.
#include "pelmo/formats/firmware_file.hpp"

#include <gtest/gtest.h>

#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <ostream>
#include <string>
#include <vector>

namespace pelmo {
namespace {

std::vector<std::uint8_t> file_bytes(const std::filesystem::path& path) {
  std::ifstream input(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(input), std::istreambuf_iterator<char>()};
}

struct ToolchainCase {
  const char* file;
  FirmwareFormat format;
  std::uint32_t area_address;  // where the file's first byte belongs
  const char* reference;       // objcopy -O binary's image of the same bytes
};

void PrintTo(const ToolchainCase& c, std::ostream* out) {
  *out << c.file;
}

class ToolchainFiles : public testing::TestWithParam<ToolchainCase> {};

TEST_P(ToolchainFiles, PlaceWhatObjcopyWrites) {
  const char* folder = std::getenv("PELMO_FIRMWARE_FILES");
  ASSERT_NE(folder, nullptr) << "PELMO_FIRMWARE_FILES is not set; CTest sets it";
  if (std::filesystem::exists(std::filesystem::path(folder) / "SKIPPED")) {
    GTEST_SKIP() << "the firmware files were not made: a tool is missing (see the "
                    "formats_firmware_files test's output)";
  }
  const ToolchainCase& c = GetParam();
  const std::filesystem::path path = std::filesystem::path(folder) / c.file;
  const FirmwareFileLoad load = load_firmware_file(path.string());
  ASSERT_TRUE(load.file) << load.error;
  EXPECT_EQ(load.file->format, c.format);
  const std::vector<std::uint8_t> reference =
      file_bytes(std::filesystem::path(folder) / c.reference);
  ASSERT_GT(reference.size(), 60000u);
  const PlacedFirmware placed = place_firmware(*load.file, FirmwareArea{c.area_address, 1u << 20});
  ASSERT_EQ(placed.error, "");
  EXPECT_TRUE(placed.image == reference)
      << c.file << ": " << placed.image.size() << " bytes placed, " << reference.size()
      << " in the reference";
}

using enum FirmwareFormat;
INSTANTIATE_TEST_SUITE_P(
    Tools, ToolchainFiles,
    testing::Values(ToolchainCase{"arm.elf", elf, 0x08000000, "arm.bin"},
                    ToolchainCase{"i386.elf", elf, 0x08000000, "i386.bin"},
                    ToolchainCase{"x86_64.elf", elf, 0x08000000, "x86_64.bin"},
                    ToolchainCase{"arm.bin", raw, 0x08000000, "arm.bin"},
                    ToolchainCase{"objcopy.hex", intel_hex, 0x08000000, "arm.bin"},
                    ToolchainCase{"objcopy.srec", srecord, 0x08000000, "arm.bin"},
                    ToolchainCase{"objcopy-forced.s37", srecord, 0x08000000, "arm.bin"},
                    ToolchainCase{"objcopy.s28", srecord, 0x00800000, "arm.bin"},
                    ToolchainCase{"srec_cat.s19", srecord, 0, "low.bin"},
                    ToolchainCase{"srec_cat.s28", srecord, 0x00800000, "arm.bin"},
                    ToolchainCase{"srec_cat.s37", srecord, 0x08000000, "arm.bin"},
                    ToolchainCase{"srec_cat.hex", intel_hex, 0x08000000, "arm.bin"},
                    ToolchainCase{"srec_cat-segment.hex", intel_hex, 0x00010000, "arm.bin"},
                    ToolchainCase{"after-end.hex", intel_hex, 0x08000000, "arm.bin"},
                    ToolchainCase{"after-end.srec", srecord, 0x08000000, "arm.bin"}),
    [](const testing::TestParamInfo<ToolchainCase>& info) {
      std::string name;
      for (const char* c = info.param.file; *c != '\0'; ++c) {
        name += std::isalnum(static_cast<unsigned char>(*c)) ? *c : '_';
      }
      return name;
    });

}  // namespace
}  // namespace pelmo
