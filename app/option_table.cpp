#include "app/option_table.hpp"

#include <array>

namespace pelmo {
namespace {

using enum Operation;

// The usage text has always shown "-iv" for the bootloader information, while the program
// answers to "-io"; users' scripts rely on both facts, so the two spellings are kept apart.
constexpr std::array<OptionEntry, 25> OPTIONS{{
    {"-IO", OP_READ_BOOTLOADER_INFO, false, "-iv", "read information about bootloader version"},
    {"-I", OP_READ_FIRMWARE_INFO, false, "-i", "read information about FW"},
    {"-R", OP_READ_FIRMWARE, true, "-r", "read firmware"},
    {"-E", OP_ERASE_FIRMWARE, false, "-e", "erase firmware"},
    {"-W", OP_WRITE_FIRMWARE, true, "-w", "write firmware"},
    {"-V", OP_VERIFY_FIRMWARE, true, "-v", "verificate firmware"},
    {"-EWV", OP_ERASE_WRITE_VERIFY_FIRMWARE, true, "-ewv", "erase, write and verify firmware"},
    {"-RF", OP_READ_FACTORY, true, "-rf", "read factory table "},
    {"-EF", OP_ERASE_FACTORY, false, "-ef", "erase factory table "},
    {"-WF", OP_WRITE_FACTORY, true, "-wf", "write factory table "},
    {"-VF", OP_VERIFY_FACTORY, true, "-vf", "verificate factory table "},
    {"-EWVF", OP_ERASE_WRITE_VERIFY_FACTORY, true, "-ewvf",
     "erase, write and verify factory table "},
    {"-RC", OP_READ_CALIBRATION, true, "-rc", "read calibration table "},
    {"-EC", OP_ERASE_CALIBRATION, false, "-ec", "erase calibration table "},
    {"-WC", OP_WRITE_CALIBRATION, true, "-wc", "write calibration table "},
    {"-VC", OP_VERIFY_CALIBRATION, true, "-vc", "verificate calibration table "},
    {"-EWVC", OP_ERASE_WRITE_VERIFY_CALIBRATION, true, "-ewvc",
     "erase, write and verify calibration table "},
    {"-RB", OP_READ_CALIBRATION_BACKUP, true, "-rb", "read calibration backup table "},
    {"-EB", OP_ERASE_CALIBRATION_BACKUP, false, "-eb", "erase calibration backup table "},
    {"-WB", OP_WRITE_CALIBRATION_BACKUP, true, "-wb", "write calibration backup table "},
    {"-VB", OP_VERIFY_CALIBRATION_BACKUP, true, "-vb", "verificate calibration backup table "},
    {"-EWVB", OP_ERASE_WRITE_VERIFY_CALIBRATION_BACKUP, true, "-ewvb",
     "erase, write and verify calibration backup table "},
    {"-ECTRL", OP_CLEAR_CONTROL, false, "-ectrl", "clear control"},
    {"-RCTRL", OP_READ_CONTROL, false, "-rctrl", "read control"},
    {"-RST", OP_RESTART, false, "-rst", "restart"},
}};

}  // namespace

std::span<const OptionEntry> option_table() {
  return OPTIONS;
}

const OptionEntry* find_option(std::string_view upper_case_option) {
  for (const OptionEntry& entry : OPTIONS) {
    if (entry.option == upper_case_option) {
      return &entry;
    }
  }
  return nullptr;
}

}  // namespace pelmo
