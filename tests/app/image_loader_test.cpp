#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "app/image_loader.hpp"
#include "pelmo/commands/records.hpp"
#include "tests/app/sandbox.hpp"
#include "tests/support/scripted_device.hpp"

namespace pelmo {
namespace {

const std::string BOOT = "\rReading bootloader information \rReading bootloader information ";
const std::string LINEAR_0800 = ":020000040800F2\n";
const std::string HEX_END = ":00000001FF\n";

TEST(ImageLoader, Rules) {
  struct Case {
    const char* name;
    std::string contents;
    std::vector<test_support::Reply> device;  // empty: silence
    std::uint32_t length;
    std::string head;  // of the 16-byte image; erased flash after it
    std::string console;
    std::size_t requests;  // bootloader information requests
  };
  const auto up_to = [](std::uint32_t fw_max_size) {
    BootloaderInfo info{};
    info.fw_address = 0x08000000;
    info.fw_max_size = fw_max_size;
    return std::vector{test_support::answer(0, 0, to_wire(info))};
  };
  const std::vector<Case> cases{
      {"fw.bin", "\x01\x02\x03", {}, 3, "\x01\x02\x03", "", 0},
      {"fw.bin", std::string(17, 'x'), {}, 16, std::string(16, 'x'), "", 0},
      // The kind is found anywhere in the name, ".bin" first.
      {"image.bin.hex", "raw", {}, 3, "raw", "", 0},
      // Records placed from the firmware address, the gap between them left erased.
      {"fw.hex.txt", LINEAR_0800 + ":040000001122334452\r\n:02000800AABB91\r\n" + HEX_END,
       up_to(0x00100000), 10, "\x11\x22\x33\x44\xFF\xFF\xFF\xFF\xAA\xBB", BOOT + "OK            \n",
       1},
      // The device allows 2 MiB, yet a record at offset 16 does not fit the buffer.
      {"fw.hex", LINEAR_0800 + ":01001000AA45\n" + HEX_END, up_to(0x00200000), 0, "",
       BOOT + "OK            \n", 1},
      {"fw.hex", LINEAR_0800 + ":01000800AA4D\n" + HEX_END, up_to(8), 0, "",
       BOOT + "OK            \n", 1},
      {"fw.hex", ":040000001122334452\n" + HEX_END, {}, 0, "", BOOT + "Error         \n", 3},
  };
  for (const Case& c : cases) {
    app_test::Sandbox box;
    test_support::ScriptedDevice device;
    device.script(c.device);
    box.write(c.name, c.contents);
    std::vector<std::uint8_t> image(16, 0x00);
    EXPECT_EQ(load_firmware_image(box.console, device.driver(), box.path(c.name), image), c.length)
        << c.name;
    std::vector<std::uint8_t> expected(c.head.begin(), c.head.end());
    expected.resize(16, 0xFF);
    EXPECT_EQ(image, expected) << c.name;
    EXPECT_EQ(box.console_text(), c.console) << c.name;
    EXPECT_EQ(device.requests().size(), c.requests) << c.name;
  }
}

}  // namespace
}  // namespace pelmo
