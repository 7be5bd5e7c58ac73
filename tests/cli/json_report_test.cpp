#include "cli/json_report.hpp"

#include <gtest/gtest.h>

#include <cstring>
#include <nlohmann/json.hpp>

namespace pelmo::cli {
namespace {

using Json = nlohmann::json;

template <std::size_t N>
void set_text(char (&field)[N], const char* text) {
  std::memset(field, 0, N);
  std::memcpy(field, text, std::strlen(text));
}

TargetReport info_report() {
  TargetReport report;
  report.target = "udp:10.0.0.1";
  report.seconds = 0.25;
  BootloaderInfo boot{};
  boot.fw_address = 0x08000000;
  boot.fw_max_size = 0x80000;
  boot.version_major = 3;
  boot.version_minor = 5;
  set_text(boot.name, "Boot\xff");  // a device's bytes need not be UTF-8
  report.bootloader = boot;
  FirmwareInfo firmware{};
  firmware.magic = FIRMWARE_MAGIC;
  firmware.debug_marker1 = DEBUG_MARKER1;
  firmware.debug_marker2 = DEBUG_MARKER2;
  firmware.debug_marker3 = DEBUG_MARKER3;
  firmware.version_major = 1;
  firmware.version_minor = 2;
  firmware.version_patch = 3;
  set_text(firmware.name, "App");
  report.firmware = firmware;
  return report;
}

TEST(JsonReport, OneObjectWithATargetPerDeviceInOrder) {
  RunReport run{Command::info, {info_report(), {}}};
  run.targets[1].target = "serial:COM3";
  run.targets[1].outcome = {.code = RC_TIMEOUT,
                            .kind = FailureKind::timeout,
                            .message = "query: no answer",
                            .bytes = 0,
                            .skipped = false};
  const std::string text = json_report(run);
  ASSERT_EQ(1, std::count(text.begin(), text.end(), '\n'));
  const Json json = Json::parse(text);
  EXPECT_EQ("info", json["command"]);
  EXPECT_EQ(false, json["ok"]);
  ASSERT_EQ(2u, json["targets"].size());
  const Json& first = json["targets"][0];
  EXPECT_EQ("udp:10.0.0.1", first["target"]);
  EXPECT_EQ(true, first["ok"]);
  EXPECT_EQ(0, first["code"]);
  EXPECT_TRUE(first["seconds"].is_number_float());
  EXPECT_TRUE(first["bytes"].is_number_integer());
  EXPECT_EQ(0x08000000, first["bootloader"]["fw_address"]);
  EXPECT_EQ("3.05", first["bootloader"]["version"]);
  EXPECT_EQ("Boot\xef\xbf\xbd", first["bootloader"]["name"]);
  EXPECT_EQ("1.02.003", first["firmware"]["version"]);
  EXPECT_EQ(true, first["firmware"]["debug"]);
  EXPECT_TRUE(first["firmware"]["size"].is_null()) << "a debug header holds no size";
  const Json& second = json["targets"][1];
  EXPECT_EQ("serial:COM3", second["target"]);
  EXPECT_EQ(false, second["ok"]);
  EXPECT_EQ(RC_TIMEOUT, second["code"]);
  EXPECT_EQ("timeout", second["result"]);
  EXPECT_FALSE(second.contains("firmware"));
}

TEST(JsonReport, AnOutputThatFailedFailsTheTarget) {
  RunReport run{Command::read, {{}}};
  run.targets[0].outcome.message = "cannot write /dev/full: No space left on device";
  run.targets[0].outcome.bytes = 4096;
  run.targets[0].output_failed = true;
  const Json json = Json::parse(json_report(run));
  EXPECT_EQ(false, json["ok"]);
  EXPECT_EQ(false, json["targets"][0]["ok"]);
  EXPECT_EQ(RC_FAILED, json["targets"][0]["code"]);
  EXPECT_EQ("output", json["targets"][0]["result"]);
}

TEST(JsonReport, RefusalHasNoTargets) {
  const Json json = Json::parse(json_refusal("flash", "fw.hex line 3: checksum mismatch"));
  EXPECT_EQ(Json::parse(R"({"command":"flash","ok":false,"refused":true,
                             "error":"fw.hex line 3: checksum mismatch","targets":[]})"),
            json);
}

}  // namespace
}  // namespace pelmo::cli
