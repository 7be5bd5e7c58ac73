#include "simulator/options.hpp"

#include <gtest/gtest.h>

namespace pelmo::sim {
namespace {

SimulatorOptions parse(std::initializer_list<std::string_view> arguments) {
  return parse_options(std::vector<std::string_view>(arguments));
}

TEST(Options, EndpointsAndDeviceSettings) {
  const SimulatorOptions options =
      parse({"--udp", "127.0.0.2", "--udp", "10.1.2.3:0", "--pty-link", "/tmp/x", "--fw-address",
             "0x08004000", "--fw-max-size", "131072", "--bl-version", "3.5", "--read-chunk", "50",
             "--exit-after", "4"});
  ASSERT_EQ(2u, options.udp.size());
  EXPECT_EQ((std::array<std::uint8_t, 4>{127, 0, 0, 2}), options.udp[0].address);
  EXPECT_EQ(57998, options.udp[0].port);
  EXPECT_EQ((std::array<std::uint8_t, 4>{10, 1, 2, 3}), options.udp[1].address);
  EXPECT_EQ(0, options.udp[1].port);
  EXPECT_TRUE(options.pty);
  EXPECT_EQ("/tmp/x", options.pty_link);
  EXPECT_EQ(0x08004000u, options.device.fw_address);
  EXPECT_EQ(131072u, options.device.fw_max_size);
  EXPECT_EQ(3, options.device.bl_version_major);
  EXPECT_EQ(5, options.device.bl_version_minor);
  EXPECT_EQ(50, options.device.read_chunk);
  EXPECT_EQ(4u, options.exit_after.value());
}

TEST(Options, FaultSettings) {
  const SimulatorOptions options =
      parse({"--pty", "--silent-code", "0x44,read_fw", "--status", "ERASE_FW=0xFD@2", "--status",
             "0x24=249", "--drop-requests", "12.5", "--duplicate", "100%", "--stray", "0x2F",
             "--corrupt-crc-code", "BOOTLOADER_INFO", "--seed", "99"});
  const FaultPlan& plan = options.faults;
  EXPECT_TRUE(plan.silent_codes.test(0x44));
  EXPECT_TRUE(plan.silent_codes.test(0x04));
  EXPECT_EQ(2u, plan.silent_codes.count());
  ASSERT_EQ(2u, plan.status_overrides.size());
  EXPECT_EQ(0x44, plan.status_overrides[0].code);
  EXPECT_EQ(0xFD, plan.status_overrides[0].status);
  EXPECT_EQ(2u, plan.status_overrides[0].nth);
  EXPECT_EQ(0xF9, plan.status_overrides[1].status);
  EXPECT_EQ(0u, plan.status_overrides[1].nth);
  EXPECT_EQ(125000u, plan.drop_requests.per_million);
  EXPECT_EQ(1000000u, plan.duplicate.per_million);
  EXPECT_TRUE(plan.stray_codes.test(0x2F));
  EXPECT_TRUE(plan.corrupt_crc_codes.test(0x2F));
  EXPECT_EQ(99u, plan.seed);
}

TEST(Options, BadCommandLinesAreRefused) {
  const std::vector<std::vector<std::string_view>> cases = {
      {},                                       // no endpoint
      {"--udp"},                                // missing value
      {"--udp", "127.0.0"},                     // three numbers
      {"--udp", "127.0.0.256"},                 // byte too large
      {"--udp", "127.0.0.1:65536"},             // port too large
      {"--pty", "--bogus"},                     // unknown option
      {"--pty", "--silent-code", "0x44,NOPE"},  // unknown code name
      {"--pty", "--status", "0x24"},            // no status
      {"--pty", "--status", "0x24=0x100"},      // status too large
      {"--pty", "--status", "0x24=1@0"},        // requests count from 1
      {"--pty", "--drop-requests", "100.5"},    // above 100 %
      {"--pty", "--drop-requests", "1.23456"},  // too many decimals
      {"--pty", "--read-chunk", "0"},           // no empty chunks
      {"--pty", "--read-chunk", "2037"},        // more than a frame carries
      {"--pty", "--bl-name", std::string_view("12345678901234567890123456789012")},
      {"--pty", "--fw-max-size", "95"},  // no room for the header
      {"--pty", "--delay-ms", "-1"},
  };
  for (const auto& arguments : cases) {
    EXPECT_THROW(parse_options(arguments), UsageError) << ::testing::PrintToString(arguments);
  }
}

TEST(Options, UsageListsEveryOption) {
  const std::string usage = usage_text();
  for (const char* name : {"--udp", "--pty-link", "--baud-pace", "--state", "--silent-after",
                           "--corrupt-crc", "--split", "--stray", "--erase-ms", "--log"}) {
    EXPECT_NE(std::string::npos, usage.find(name)) << name;
  }
  EXPECT_TRUE(parse({"--help"}).help);
}

}  // namespace
}  // namespace pelmo::sim
