#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "app/command_line.hpp"

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

struct Accepted {
  std::vector<std::string> arguments;
  Operation operation;
  std::optional<std::uint32_t> connection;  // none: UDP
  std::array<std::uint8_t, 4> ip_address;
  std::int32_t extra_timeout;
  std::string file_name;
};

class AcceptedCommandLine : public testing::TestWithParam<Accepted> {};

TEST_P(AcceptedCommandLine, GivesTheOperationLinkAndFile) {
  const Accepted& expected = GetParam();
  const auto line = parse(expected.arguments);
  ASSERT_TRUE(line.has_value());
  EXPECT_EQ(line->operation, expected.operation);
  EXPECT_EQ(line->connection, expected.connection);
  EXPECT_EQ(line->uses_udp(), !expected.connection.has_value());
  EXPECT_EQ(line->ip_address, expected.ip_address);
  EXPECT_EQ(line->extra_timeout, expected.extra_timeout);
  EXPECT_EQ(line->file_name, expected.file_name);
}

const std::string LONG_NAME = std::string(300, 'n') + ".bin";

INSTANTIATE_TEST_SUITE_P(
    Parser, AcceptedCommandLine,
    testing::Values(
        Accepted{{"@3", "-R", "fw.bin"}, OP_READ_FIRMWARE, 2, {}, 0, "fw.bin"},
        Accepted{{"-r", "@3", "fw.bin"}, OP_READ_FIRMWARE, 2, {}, 0, "fw.bin"},
        // A name before the option that needs it is skipped.
        Accepted{{"@3", "fw.bin", "-r"}, OP_READ_FIRMWARE, 2, {}, 0, ""},
        Accepted{{"#10.0.0.1", "-e", "fw.bin"}, OP_ERASE_FIRMWARE, {}, {10, 0, 0, 1}, 0, ""},
        // The COM port wins over the IP address, which is still stored.
        Accepted{{"#10.0.0.1", "@4", "-i"}, OP_READ_FIRMWARE_INFO, 3, {10, 0, 0, 1}, 0, ""},
        Accepted{{"@4", "#10.0.0.1", "-i"}, OP_READ_FIRMWARE_INFO, 3, {10, 0, 0, 1}, 0, ""},
        Accepted{{"#10.0.0.300", "-i"}, OP_READ_FIRMWARE_INFO, {}, {10, 0, 0, 44}, 0, ""},
        Accepted{{"#-1.256.0.7", "-i"}, OP_READ_FIRMWARE_INFO, {}, {255, 0, 0, 7}, 0, ""},
        Accepted{{"#192. 168.1.5x", "-i"}, OP_READ_FIRMWARE_INFO, {}, {192, 168, 1, 5}, 0, ""},
        Accepted{{"*-50", "@3", "-i"}, OP_READ_FIRMWARE_INFO, 2, {}, -50, ""},
        Accepted{{"*100", "@3", "*7", "-i"}, OP_READ_FIRMWARE_INFO, 2, {}, 7, ""},
        Accepted{{"@3", "-Ewv", "f.bin"}, OP_ERASE_WRITE_VERIFY_FIRMWARE, 2, {}, 0, "f.bin"},
        Accepted{{"@3", "-EWV", "f.bin"}, OP_ERASE_WRITE_VERIFY_FIRMWARE, 2, {}, 0, "f.bin"},
        Accepted{{"@3", "-ewv", "f.bin"}, OP_ERASE_WRITE_VERIFY_FIRMWARE, 2, {}, 0, "f.bin"},
        Accepted{{"@3", "-io"}, OP_READ_BOOTLOADER_INFO, 2, {}, 0, ""},
        Accepted{{"@3", "-IO"}, OP_READ_BOOTLOADER_INFO, 2, {}, 0, ""},
        // The last option wins; a file once expected stays expected.
        Accepted{{"@3", "-r", "-e", "x.bin"}, OP_ERASE_FIRMWARE, 2, {}, 0, "x.bin"},
        Accepted{{"@3", "-ewvf", "t.txt", "-i"}, OP_READ_FIRMWARE_INFO, 2, {}, 0, "t.txt"},
        Accepted{{"@3", "-i", "fw.bin"}, OP_READ_FIRMWARE_INFO, 2, {}, 0, ""},
        Accepted{{"@3", "-w", "a.bin", "B.Bin"}, OP_WRITE_FIRMWARE, 2, {}, 0, "B.Bin"},
        Accepted{{"@3", "-r", "*5"}, OP_READ_FIRMWARE, 2, {}, 5, ""},
        Accepted{{"@1", "-rst"}, OP_RESTART, 0, {}, 0, ""},
        Accepted{{"@3", "@17", "-rctrl"}, OP_READ_CONTROL, 16, {}, 0, ""},
        Accepted{{"@ 3x", "-ectrl"}, OP_CLEAR_CONTROL, 2, {}, 0, ""},
        Accepted{{"@256", "-i"}, OP_READ_FIRMWARE_INFO, 255, {}, 0, ""},
        Accepted{{"@99999999999", "-i"}, OP_READ_FIRMWARE_INFO, 2147483646, {}, 0, ""},
        Accepted{{"", "@3", "-i"}, OP_READ_FIRMWARE_INFO, 2, {}, 0, ""},
        Accepted{{"@3", "-wc", LONG_NAME}, OP_WRITE_CALIBRATION, 2, {}, 0, LONG_NAME},
        Accepted{{"@3", "-vb", "\xC3\xA9t\xC3\xA9.bin"},
                 OP_VERIFY_CALIBRATION_BACKUP,
                 2,
                 {},
                 0,
                 "\xC3\xA9t\xC3\xA9.bin"}));

class RefusedCommandLine : public testing::TestWithParam<std::vector<std::string>> {};

TEST_P(RefusedCommandLine, IsABadParameter) {
  EXPECT_FALSE(parse(GetParam()).has_value());
}

INSTANTIATE_TEST_SUITE_P(
    Parser, RefusedCommandLine,
    testing::Values(
        std::vector<std::string>{}, std::vector<std::string>{"@3"}, std::vector<std::string>{"-i"},
        std::vector<std::string>{"-i", "fw.bin"}, std::vector<std::string>{"@3", "fw.bin"},
        std::vector<std::string>{"@3", "*5"}, std::vector<std::string>{"#10.0.0", "-i"},
        std::vector<std::string>{"#10 .0.0.1", "-i"}, std::vector<std::string>{"#10..0.0.1", "-i"},
        std::vector<std::string>{"#", "-i"}, std::vector<std::string>{"@0", "-i"},
        std::vector<std::string>{"@-1", "-i"}, std::vector<std::string>{"@", "-i"},
        std::vector<std::string>{"@x3", "-i"}, std::vector<std::string>{"@3", "-i", "@0"},
        std::vector<std::string>{"*", "@3", "-i"}, std::vector<std::string>{"*+", "@3", "-i"},
        std::vector<std::string>{"@3", "-iv"}, std::vector<std::string>{"@3", "-ewvx"},
        std::vector<std::string>{"@3", "-"}, std::vector<std::string>{"@3", "-i\xC3\xA9"},
        std::vector<std::string>{"@3", "-r", ""}, std::vector<std::string>{"@3", "-w", "", "x.bin"},
        // A name that begins with an option character is read as that argument.
        std::vector<std::string>{"@3", "-w", "-fw.bin"},
        std::vector<std::string>{"@3", "-w", "#fw.bin"},
        std::vector<std::string>{"@3", "-w", std::string(100000, '-')}));

TEST(Parser, SurvivesArbitraryArgumentBytes) {
  // Every byte value as first and later character, in arguments of many lengths.
  for (int first = 0; first < 256; ++first) {
    for (std::size_t length : {1u, 2u, 5u, 200u}) {
      std::string argument(length, static_cast<char>((255 - first) | 1));
      argument[0] = static_cast<char>(first);
      if (first == 0) {
        argument.clear();
      }
      (void)parse({argument, "@3", "-r"});
      (void)parse({"@3", argument});
      const auto line = parse({"@3", "-r", argument});
      const bool plain_name =
          !argument.empty() && std::string_view("@#*-").find(argument[0]) == std::string_view::npos;
      if (plain_name) {
        ASSERT_TRUE(line.has_value()) << first;
        EXPECT_EQ(line->file_name, argument);
      }
    }
  }
}

}  // namespace
}  // namespace pelmo
