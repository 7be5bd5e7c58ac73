#include "app/usage.hpp"

#include "app/option_table.hpp"
#include "pelmo/version.hpp"

namespace pelmo {
namespace {

// Trailing blanks on the connection lines are part of the text.
constexpr std::string_view USAGE_HEAD =
    "Usage:  PelmoWin.exe <connection> <timeout> <options> filename.bin\n"
    "Connection\n"
    "  Ser.Port:  @<n> = COM port n \n"
    "  UDP IP:    #<a.b.c.d> = IP address a.b.c.d \n"
    "Timeout:     *<n>   = extra timeout for nested comunications\n";

constexpr std::string_view USAGE_TAIL =
    "\n"
    "Example:  \"PelmoWin.exe #192.168.1.15 -ewv Firmware.bin\"\n"
    "\n";

// The option lines: the first opens with the heading, the rest line up under it.
constexpr std::string_view OPTIONS_HEADING = "Options:     ";
constexpr std::string_view OPTIONS_INDENT = "             ";
constexpr int OPTION_COLUMN_WIDTH = 6;

void put(std::FILE* console, std::string_view text) {
  std::fwrite(text.data(), 1, text.size(), console);
}

}  // namespace

void print_banner(std::FILE* console) {
  std::fprintf(console, "PelmoWin (version %.*s) - Quillmark bootloader (serial line/ IP UDP)\n\n",
               static_cast<int>(VERSION.size()), VERSION.data());
  std::fflush(console);
}

void print_usage(std::FILE* console) {
  put(console, USAGE_HEAD);
  bool first = true;
  for (const OptionEntry& entry : option_table()) {
    put(console, first ? OPTIONS_HEADING : OPTIONS_INDENT);
    std::fprintf(console, "%-*.*s = %.*s\n", OPTION_COLUMN_WIDTH,
                 static_cast<int>(entry.usage_option.size()), entry.usage_option.data(),
                 static_cast<int>(entry.description.size()), entry.description.data());
    first = false;
  }
  put(console, USAGE_TAIL);
  std::fflush(console);
}

}  // namespace pelmo
