#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "app/image_loader.hpp"
#include "commands/records.hpp"
#include "tests/app/captured_console.hpp"
#include "tests/support/scripted_device.hpp"

namespace pelmo {
namespace {

using test_support::answer;
using test_support::silence;

constexpr std::string_view BOOTLOADER_OK =
    "\rReading bootloader information \rReading bootloader information OK            \n";
constexpr std::string_view BOOTLOADER_ERROR =
    "\rReading bootloader information \rReading bootloader information Error         \n";

test_support::Reply bootloader_info(std::uint32_t fw_address, std::uint32_t fw_max_size) {
  BootloaderInfo info{};
  info.fw_address = fw_address;
  info.fw_max_size = fw_max_size;
  const auto wire = to_wire(info);
  return answer(0, 0, wire);
}

class ImageLoader : public testing::Test {
 protected:
  std::uint32_t load(const std::string& name, std::size_t capacity) {
    image.assign(capacity, 0x00);
    return load_firmware_image(captured.console(), device.driver(), name, image);
  }

  app_test::CapturedConsole captured;
  test_support::ScriptedDevice device;
  app_test::TempDir dir;
  std::vector<std::uint8_t> image;
};

TEST_F(ImageLoader, RawFileFillsTheBufferAndTheRestIsErasedFlash) {
  dir.write("fw.bin", "\x01\x02\x03");
  EXPECT_EQ(load(dir.path("fw.bin"), 8), 3u);
  EXPECT_EQ(image, (std::vector<std::uint8_t>{1, 2, 3, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}));
  EXPECT_EQ(captured.text(), "");
  EXPECT_TRUE(device.requests().empty());
}

TEST_F(ImageLoader, RawFileLongerThanTheBufferIsCutSilently) {
  dir.write("fw.bin", std::string(17, 'x'));
  EXPECT_EQ(load(dir.path("fw.bin"), 16), 16u);
  EXPECT_EQ(captured.text(), "");
}

TEST_F(ImageLoader, EmptyRawFileLoadsNothingWithoutAMessage) {
  dir.write("fw.bin", "");
  EXPECT_EQ(load(dir.path("fw.bin"), 16), 0u);
  EXPECT_EQ(captured.text(), "");
}

TEST_F(ImageLoader, BinInTheNameWinsOverHex) {
  dir.write("image.bin.hex", "raw bytes");
  EXPECT_EQ(load(dir.path("image.bin.hex"), 64), 9u);
  EXPECT_TRUE(device.requests().empty());
}

TEST_F(ImageLoader, KindIsTestedCaseSensitively) {
  dir.write("fw.BIN", "raw");
  const std::string name = dir.path("fw.BIN");
  EXPECT_EQ(load(name, 64), 0u);
  EXPECT_EQ(captured.text(), "Unknown file type (" + name + ")\n");
}

TEST_F(ImageLoader, MissingFileIsNamed) {
  for (const char* file : {"none.bin", "none.hex"}) {
    app_test::CapturedConsole fresh;
    std::vector<std::uint8_t> buffer(64);
    const std::string name = dir.path(file);
    EXPECT_EQ(load_firmware_image(fresh.console(), device.driver(), name, buffer), 0u);
    EXPECT_EQ(fresh.text(), "Error while opening file " + name + "\n");
  }
  EXPECT_TRUE(device.requests().empty());
}

TEST_F(ImageLoader, HexRecordsArePlacedFromTheFirmwareAddress) {
  // Linear address 0x0800, then 4 bytes at 0x08000000 and 2 bytes at 0x08000008: a gap between.
  dir.write("fw.hex",
            ":020000040800F2\r\n"
            ":040000001122334452\r\n"
            ":02000800AABB91\r\n"
            ":00000001FF\r\n");
  device.then(bootloader_info(0x08000000, 0x00100000));
  EXPECT_EQ(load(dir.path("fw.hex"), 16), 10u);
  EXPECT_EQ(captured.text(), BOOTLOADER_OK);
  EXPECT_EQ(image, (std::vector<std::uint8_t>{0x11, 0x22, 0x33, 0x44, 0xFF, 0xFF, 0xFF, 0xFF, 0xAA,
                                              0xBB, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}));
  ASSERT_EQ(device.requests().size(), 1u);
  EXPECT_EQ(device.requests()[0].code, 0x2F);
}

TEST_F(ImageLoader, HexImageIsBoundedByTheBufferWhenTheDeviceAllowsMore) {
  // 2 MiB allowed by the device, a 16-byte buffer here: a record at offset 16 cannot fit.
  dir.write("fw.hex",
            ":020000040800F2\n"
            ":01001000AA45\n"
            ":00000001FF\n");
  device.then(bootloader_info(0x08000000, 0x00200000));
  EXPECT_EQ(load(dir.path("fw.hex"), 16), 0u);
  EXPECT_EQ(captured.text(), BOOTLOADER_OK);
}

TEST_F(ImageLoader, HexImageIsBoundedByTheDeviceLimit) {
  dir.write("fw.hex",
            ":020000040800F2\n"
            ":01000800AA4D\n"
            ":00000001FF\n");
  device.then(bootloader_info(0x08000000, 8));
  EXPECT_EQ(load(dir.path("fw.hex"), 16), 0u);
}

TEST_F(ImageLoader, HexGivesUpWhenTheBootloaderCannotBeAsked) {
  dir.write("fw.hex", ":040000001122334452\n:00000001FF\n");
  device.script({silence(), silence(), silence()});
  EXPECT_EQ(load(dir.path("fw.hex"), 16), 0u);
  EXPECT_EQ(captured.text(), BOOTLOADER_ERROR);
  EXPECT_TRUE(std::all_of(image.begin(), image.end(), [](auto b) { return b == 0xFF; }));
}

TEST_F(ImageLoader, HexWithoutDataLoadsNothing) {
  dir.write("fw.hex", ":00000001FF\n");
  device.then(bootloader_info(0, 1024));
  EXPECT_EQ(load(dir.path("fw.hex"), 16), 0u);
  EXPECT_EQ(captured.text(), BOOTLOADER_OK);
}

}  // namespace
}  // namespace pelmo
