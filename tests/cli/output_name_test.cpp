#include "cli/output_name.hpp"

#include <gtest/gtest.h>

namespace pelmo::cli {
namespace {

TEST(PerTargetPath, PutsTheTargetsNameBeforeTheExtension) {
  struct Case {
    const char* path;
    const char* target;
    const char* expected;
  };
  const Case cases[] = {
      {"out.bin", "udp:127.0.0.2", "out.udp-127.0.0.2.bin"},
      {"out.hex", "serial:/dev/ttyUSB0", "out.serial-dev-ttyUSB0.hex"},
      {"out.bin", "serial:/dev/serial/by-id/usb-FT X:1-if00",
       "out.serial-dev-serial-by-id-usb-FT-X-1-if00.bin"},
      {"out.bin", "serial:COM3", "out.serial-COM3.bin"},
      // The folder keeps its dots; only the file name's last one starts the extension.
      {"rack.1/out", "udp:10.0.0.1", "rack.1/out.udp-10.0.0.1"},
      {"C:\\rack.1\\table.txt", "udp:10.0.0.1", "C:\\rack.1\\table.udp-10.0.0.1.txt"},
      {"fw.tar.gz", "udp:10.0.0.1", "fw.tar.udp-10.0.0.1.gz"},
      // A name that is all extension has none.
      {"dir/.bin", "udp:10.0.0.1", "dir/.bin.udp-10.0.0.1"},
      {"udp:10.0.0.1:57999.bin", "udp:10.0.0.1:57999", "udp:10.0.0.1:57999.udp-10.0.0.1-57999.bin"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(c.expected, per_target_path(c.path, c.target)) << c.path << " " << c.target;
  }
}

}  // namespace
}  // namespace pelmo::cli
