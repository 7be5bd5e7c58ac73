#include "cli/intel_hex_output.hpp"

#include <gtest/gtest.h>

#include <numeric>
#include <vector>

#include "pelmo/formats/firmware_file.hpp"

namespace pelmo::cli {
namespace {

TEST(IntelHexOutput, RecordsByteForByte) {
  const std::vector<std::uint8_t> two = {0x01, 0x02};
  EXPECT_EQ(":020000040800F2\r\n:020000000102FB\r\n:00000001FF\r\n",
            intel_hex_text(0x08000000, two));
  EXPECT_EQ(":00000001FF\r\n", intel_hex_text(0x08000000, {}));
}

TEST(IntelHexOutput, ReadsBackAcrossA64KiBBoundary) {
  std::vector<std::uint8_t> bytes(70);
  std::iota(bytes.begin(), bytes.end(), std::uint8_t{0x80});
  const std::string text = intel_hex_text(0x0800FFE8, bytes);
  // Records stop at the boundary and a new base follows it.
  EXPECT_NE(std::string::npos, text.find(":08FFF800"));
  EXPECT_NE(std::string::npos, text.find(":020000040801F1\r\n:10000000"));
  const FirmwareFileLoad load = parse_firmware_file(
      FirmwareFormat::intel_hex,
      std::span(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()), "out.hex");
  ASSERT_TRUE(load.file) << load.error;
  const PlacedFirmware placed = place_firmware(*load.file, {0x0800FFE8, 0x1000});
  EXPECT_EQ(bytes, placed.image) << placed.error;
}

}  // namespace
}  // namespace pelmo::cli
