#include "pelmo/formats/firmware_image.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

namespace pelmo {
namespace {

const std::string LINEAR_0800 = ":020000040800F2\n";
const std::string HEX_END = ":00000001FF\n";
constexpr FirmwareArea MIB{0x08000000, 0x00100000};

TEST(FirmwareImage, LoadsByKindWithinTheBuffer) {
  using enum ImageStatus;
  struct Case {
    const char* name;
    std::optional<std::string> contents;  // none: no such file
    std::optional<FirmwareArea> area;     // none: it cannot be learnt
    ImageStatus status;
    std::uint32_t length;
    std::string head;        // of the 16-byte buffer; erased flash (0xFF) after it
    std::uint32_t line = 0;  // of the failing HEX record
  };
  const std::vector<Case> cases{
      {"fw.bin", "\x01\x02\x03", {}, loaded, 3, "\x01\x02\x03"},
      // The buffer's first bytes are kept; the caller decides whether that is a cut or a refusal.
      {"fw.bin", std::string(17, 'x'), {}, too_large, 16, std::string(16, 'x')},
      // Records placed from the area's address, the gap between them left erased.
      {"fw.hex.txt", LINEAR_0800 + ":040000001122334452\r\n:02000800AABB91\r\n" + HEX_END, MIB,
       loaded, 10, "\x11\x22\x33\x44\xFF\xFF\xFF\xFF\xAA\xBB"},
      {"fw.hex", ":040000001122334452\n" + HEX_END, {}, no_area, 0, ""},
      // Inside a 2 MiB area, yet past the buffer; then past an area of 8 bytes.
      {"fw.hex", LINEAR_0800 + ":01001000AA45\n" + HEX_END, FirmwareArea{0x08000000, 0x200000},
       too_large, 0, "", 2},
      {"fw.hex", LINEAR_0800 + ":01000800AA4D\n" + HEX_END, FirmwareArea{0x08000000, 8}, bad_hex, 0,
       "", 2},
      {"fw.hex", LINEAR_0800 + ":0100000001FF\n" + HEX_END, MIB, bad_hex, 0, "", 2},
  };
  const std::filesystem::path folder =
      std::filesystem::path(testing::TempDir()) / "pelmo_firmware_image";
  for (const Case& c : cases) {
    std::filesystem::remove_all(folder);
    std::filesystem::create_directories(folder);
    if (c.contents) {
      std::ofstream(folder / c.name, std::ios::binary) << *c.contents;
    }
    int asked = 0;
    std::vector<std::uint8_t> image(16, 0x00);
    const FirmwareImageLoad load = load_firmware_image((folder / c.name).string(), image, [&]() {
      ++asked;
      return c.area;
    });
    EXPECT_EQ(load.status, c.status) << c.name;
    EXPECT_EQ(load.length, c.length) << c.name;
    EXPECT_EQ(load.hex.line, c.line) << c.name;
    if (load.kind == ImageFileKind::intel_hex && load.status == loaded) {
      EXPECT_EQ(load.highest_address, c.area->address + c.length - 1) << c.name;
    }
    // The area is asked for once the HEX file has opened, and only for it.
    EXPECT_EQ(asked, load.kind == ImageFileKind::intel_hex && c.contents ? 1 : 0) << c.name;
    std::vector<std::uint8_t> expected(c.head.begin(), c.head.end());
    expected.resize(16, 0xFF);
    EXPECT_EQ(image, expected) << c.name;
  }
  std::filesystem::remove_all(folder);
}

}  // namespace
}  // namespace pelmo
