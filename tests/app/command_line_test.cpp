#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "app/command_line.hpp"
#include "app/run.hpp"

namespace pelmo {
namespace {

using enum Operation;

std::optional<CommandLine> parse(const std::vector<std::string>& typed) {
  std::vector<const char*> arguments{"PelmoWin.exe"};
  for (const std::string& argument : typed) {
    arguments.push_back(argument.c_str());
  }
  return parse_command_line(arguments);
}

struct Case {
  std::vector<std::string> arguments;
  bool accepted = false;  // the rest holds only for an accepted line
  Operation operation = OP_READ_FIRMWARE_INFO;
  std::optional<std::uint32_t> com;  // none: UDP
  std::array<std::uint8_t, 4> ip{};
  std::int32_t extra = 0;
  std::string file;
};

Case refused(std::vector<std::string> arguments) {
  return {std::move(arguments), false, {}, {}, {}, 0, {}};
}

const std::vector<Case> CASES{
    {{"@3", "-R", "fw.bin"}, true, OP_READ_FIRMWARE, 2, {}, 0, "fw.bin"},
    {{"-r", "@3", "fw.bin"}, true, OP_READ_FIRMWARE, 2, {}, 0, "fw.bin"},
    {{"@1", "-rst"}, true, OP_RESTART, 0, {}, 0, ""},
    // A name before the option that needs one is skipped, as is one no option needs.
    {{"@3", "fw.bin", "-r"}, true, OP_READ_FIRMWARE, 2, {}, 0, ""},
    {{"", "@3", "-i", "fw.bin"}, true, OP_READ_FIRMWARE_INFO, 2, {}, 0, ""},
    {{"#10.0.0.1", "-e", "fw.bin"}, true, OP_ERASE_FIRMWARE, {}, {10, 0, 0, 1}, 0, ""},
    // A COM port anywhere wins over the IP address, which is still stored.
    {{"#10.0.0.1", "@4", "-i"}, true, OP_READ_FIRMWARE_INFO, 3, {10, 0, 0, 1}, 0, ""},
    {{"@4", "#10.0.0.1", "-i"}, true, OP_READ_FIRMWARE_INFO, 3, {10, 0, 0, 1}, 0, ""},
    {{"@3", "@17", "-rctrl"}, true, OP_READ_CONTROL, 16, {}, 0, ""},
    {{"@ 3x", "-ectrl"}, true, OP_CLEAR_CONTROL, 2, {}, 0, ""},
    {{"@99999999999", "-i"}, true, OP_READ_FIRMWARE_INFO, 2147483646, {}, 0, ""},
    {{"#-1.256.0.7", "-i"}, true, OP_READ_FIRMWARE_INFO, {}, {255, 0, 0, 7}, 0, ""},
    {{"#192. 168.1.5x", "-i"}, true, OP_READ_FIRMWARE_INFO, {}, {192, 168, 1, 5}, 0, ""},
    {{"*-50", "@3", "-i"}, true, OP_READ_FIRMWARE_INFO, 2, {}, -50, ""},
    {{"*100", "#1.2.3.4", "*7", "-i"}, true, OP_READ_FIRMWARE_INFO, {}, {1, 2, 3, 4}, 7, ""},
    {{"@3", "-Ewv", "f.bin"}, true, OP_ERASE_WRITE_VERIFY_FIRMWARE, 2, {}, 0, "f.bin"},
    // The last option and the last name win; a file once expected stays expected.
    {{"@3", "-r", "-e", "x.bin"}, true, OP_ERASE_FIRMWARE, 2, {}, 0, "x.bin"},
    {{"@3", "-ewvf", "t.txt", "-i"}, true, OP_READ_FIRMWARE_INFO, 2, {}, 0, "t.txt"},
    {{"@3", "-w", "a.bin", "B.Bin"}, true, OP_WRITE_FIRMWARE, 2, {}, 0, "B.Bin"},
    {{"@3", "-r", "*5"}, true, OP_READ_FIRMWARE, 2, {}, 5, ""},
    // No option, malformed numbers, an empty name (more in the end-to-end command-line suite).
    refused({"@3", "*5"}),
    refused({"#10 .0.0.1", "-i"}),
    refused({"#10..0.0.1", "-i"}),
    refused({"@x3", "-i"}),
    refused({"@3", "-i", "@0"}),
    refused({"*+", "@3", "-i"}),
    refused({"@3", "-w", "", "x.bin"}),
    // A name that begins with an option character is read as that kind of argument.
    refused({"@3", "-w", "-fw.bin"}),
    refused({"@3", "-w", "#fw.bin"}),
    refused({"@3", "-w", std::string(100000, '-')}),
};

TEST(CommandLine, OptionTable) {
  for (const Case& c : CASES) {
    const std::string shown = testing::PrintToString(c.arguments);
    const auto line = parse(c.arguments);
    ASSERT_EQ(line.has_value(), c.accepted) << shown;
    if (!line) {
      continue;
    }
    EXPECT_EQ(line->operation, c.operation) << shown;
    EXPECT_EQ(line->connection, c.com) << shown;
    EXPECT_EQ(line->ip_address, c.ip) << shown;
    EXPECT_EQ(line->extra_timeout, c.extra) << shown;
    EXPECT_EQ(line->file_name, c.file) << shown;
    // The link's values follow the chosen link; a negative extra time-out counts as none.
    const LinkProfile profile = link_profile(*line);
    EXPECT_EQ(profile.chunk_size, c.com ? 244 : 1012) << shown;
    EXPECT_EQ(profile.write_timeout_ms, c.com ? 200u : 4000u) << shown;
    EXPECT_EQ(profile.extra_timeout_ms, static_cast<std::uint32_t>(std::max(c.extra, 0))) << shown;
  }
}

}  // namespace
}  // namespace pelmo
