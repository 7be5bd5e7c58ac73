#include <gtest/gtest.h>

#include <string>

#include "app/usage.hpp"
#include "tests/app/sandbox.hpp"

namespace pelmo {
namespace {

TEST(Usage, BannerAndUsageAreTheTextByteForByte) {
  app_test::Sandbox box;
  print_banner(box.console.stream());
  print_usage(box.console.stream());
  EXPECT_EQ(box.console_text(),
            "PelmoWin (version 1.19) - Quillmark bootloader (serial line/ IP UDP)\n\n"
            "Usage:  PelmoWin.exe <connection> <timeout> <options> filename.bin\n"
            "Connection\n"
            "  Ser.Port:  @<n> = COM port n \n"
            "  UDP IP:    #<a.b.c.d> = IP address a.b.c.d \n"
            "Timeout:     *<n>   = extra timeout for nested comunications\n"
            "Options:     -iv    = read information about bootloader version\n"
            "             -i     = read information about FW\n"
            "             -r     = read firmware\n"
            "             -e     = erase firmware\n"
            "             -w     = write firmware\n"
            "             -v     = verificate firmware\n"
            "             -ewv   = erase, write and verify firmware\n"
            "             -rf    = read factory table \n"
            "             -ef    = erase factory table \n"
            "             -wf    = write factory table \n"
            "             -vf    = verificate factory table \n"
            "             -ewvf  = erase, write and verify factory table \n"
            "             -rc    = read calibration table \n"
            "             -ec    = erase calibration table \n"
            "             -wc    = write calibration table \n"
            "             -vc    = verificate calibration table \n"
            "             -ewvc  = erase, write and verify calibration table \n"
            "             -rb    = read calibration backup table \n"
            "             -eb    = erase calibration backup table \n"
            "             -wb    = write calibration backup table \n"
            "             -vb    = verificate calibration backup table \n"
            "             -ewvb  = erase, write and verify calibration backup table \n"
            "             -ectrl = clear control\n"
            "             -rctrl = read control\n"
            "             -rst   = restart\n"
            "\n"
            "Example:  \"PelmoWin.exe #192.168.1.15 -ewv Firmware.bin\"\n"
            "\n");
}

}  // namespace
}  // namespace pelmo
