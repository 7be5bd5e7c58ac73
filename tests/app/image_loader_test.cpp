#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "app/image_loader.hpp"
#include "pelmo/commands/records.hpp"
#include "tests/app/sandbox.hpp"
#include "tests/support/scripted_device.hpp"

namespace pelmo {
namespace {

const std::string BOOT = "\rReading bootloader information \rReading bootloader information ";

// The program's policy around the library's loader: its messages, the bootloader step that finds
// a HEX file's area, and a raw image longer than the buffer cut without a word.
TEST(ImageLoader, MessagesAndCut) {
  struct Case {
    const char* name;
    std::optional<std::string> contents;      // none: no such file
    std::vector<test_support::Reply> device;  // empty: silence
    std::uint32_t length;
    std::string console;   // "%s" stands for the file's path
    std::size_t requests;  // bootloader information requests
  };
  BootloaderInfo info{};
  info.fw_address = 0x08000000;
  info.fw_max_size = 0x00200000;
  const std::vector<test_support::Reply> boot{test_support::answer(0, 0, to_wire(info))};
  const std::string linear = ":020000040800F2\n";
  const std::vector<Case> cases{
      {"fw.bin", std::string(17, 'x'), {}, 16, "", 0},
      {"fw.BIN", "x", {}, 0, "Unknown file type (%s)\n", 0},
      {"gone.bin", {}, {}, 0, "Error while opening file %s\n", 0},
      {"fw.hex", linear + ":040000001122334452\n:00000001FF\n", boot, 4, BOOT + "OK            \n",
       1},
      // Past the 16-byte buffer, inside the 2 MiB area: refused.
      {"fw.hex", linear + ":01001000AA45\n:00000001FF\n", boot, 0, BOOT + "OK            \n", 1},
      {"fw.hex", ":00000001FF\n", {}, 0, BOOT + "Error         \n", 3},
  };
  for (const Case& c : cases) {
    app_test::Sandbox box;
    test_support::ScriptedDevice device;
    device.script(c.device);
    if (c.contents) {
      box.write(c.name, *c.contents);
    }
    std::vector<std::uint8_t> image(16);
    EXPECT_EQ(load_firmware_for_run(box.console, device.driver(), box.path(c.name), image),
              c.length)
        << c.name;
    std::string console = c.console;
    if (const auto at = console.find("%s"); at != std::string::npos) {
      console.replace(at, 2, box.path(c.name));
    }
    EXPECT_EQ(box.console_text(), console) << c.name;
    EXPECT_EQ(device.requests().size(), c.requests) << c.name;
  }
}

}  // namespace
}  // namespace pelmo
