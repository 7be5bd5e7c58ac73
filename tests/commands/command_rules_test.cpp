// Rules every bootloader command shares: the link check, its first request, the status rule, the
// echo and payload checks, and that failures end the command without retries above the exchange.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <tuple>
#include <utility>
#include <vector>

#include "pelmo/commands/commands.hpp"
#include "pelmo/commands/info_commands.hpp"
#include "tests/commands/command_test_support.hpp"

namespace pelmo {
namespace {

using namespace test_support;

// Erases are judged by their status alone; queries also by echo and payload.
enum class Kind { read, write, verify, erase, query };

std::vector<std::uint8_t> area(4096);
const std::vector<std::uint8_t> image = pattern(600);
FactoryTable table{};
FirmwareInfo fw_info{};
BootloaderInfo bl_info{};
ControlRecord control{};

struct CommandUnderTest {
  const char* name;
  Kind kind;
  std::uint8_t first_code;  // of the first request (a write's is the probe)
  std::uint32_t first_timeout_ms;
  std::function<ResultCode(const LinkDriver*)> run;
};

const CommandUnderTest COMMANDS[] = {
    {"read_fw", Kind::read, 0x04, 0, [](auto l) { return read_firmware(l, area); }},
    {"erase_fw", Kind::erase, 0x44, 25000, erase_firmware},
    {"write_fw", Kind::write, 0x8F, 0, [](auto l) { return write_firmware(l, image, 600); }},
    {"verify_fw", Kind::verify, 0xC4, 0, [](auto l) { return verify_firmware(l, image); }},
    {"read_fact", Kind::read, 0x01, 0, [](auto l) { return read_factory_table(l, &table); }},
    {"write_fact", Kind::write, 0x8F, 0, [](auto l) { return write_factory_table(l, &table); }},
    {"erase_fact", Kind::erase, 0x41, 25000, erase_factory_table},
    {"verify_fact", Kind::verify, 0xC1, 0, [](auto l) { return verify_factory_table(l, &table); }},
    {"read_calib", Kind::read, 0x02, 0,
     [](auto l) { return read_calibration_table(l, false, area); }},
    {"read_backup", Kind::read, 0x03, 0,
     [](auto l) { return read_calibration_table(l, true, area); }},
    {"write_calib", Kind::write, 0x8F, 0,
     [](auto l) { return write_calibration_table(l, false, image); }},
    {"erase_calib", Kind::erase, 0x42, 0, [](auto l) { return erase_calibration_table(l, false); }},
    {"erase_backup", Kind::erase, 0x43, 0, [](auto l) { return erase_calibration_table(l, true); }},
    {"verify_calib", Kind::verify, 0xC2, 0,
     [](auto l) { return verify_calibration_table(l, false, image); }},
    {"fw_info", Kind::query, 0x24, 0, [](auto l) { return read_firmware_info(l, fw_info); }},
    {"bl_info", Kind::query, 0x2F, 0, [](auto l) { return read_bootloader_info(l, bl_info); }},
    {"read_control", Kind::query, 0x2E, 0, [](auto l) { return read_control(l, control); }},
    {"clear_control", Kind::query, 0x4E, 0, clear_control},
    {"restart", Kind::query, 0x4F, 0, restart_device},
};

class EveryCommand : public ::testing::TestWithParam<CommandUnderTest> {};

TEST_P(EveryCommand, RefusesWithoutSending) {
  ScriptedDevice device;
  EXPECT_EQ(GetParam().run(nullptr), RC_NO_DRIVER);
  if (GetParam().kind != Kind::erase && GetParam().kind != Kind::query) {
    device.link().chunk_size = 0;
    EXPECT_EQ(GetParam().run(device.driver()), RC_BAD_LENGTH);
  }
  EXPECT_TRUE(device.requests().empty() && device.receives().empty());
}

TEST_P(EveryCommand, FailuresEndItUnretried) {
  const CommandUnderTest& command = GetParam();
  // responder, result, requests sent
  for (const auto& [responder, rc, requests] :
       std::vector<std::tuple<Responder, ResultCode, std::size_t>>{
           {[](const SentRequest& r) { return answer(0x01, r.address); }, -255, 1},
           // The end-of-data status ends a read; anything else it fails.
           {[](const SentRequest& r) { return answer(0xFD, r.address); },
            command.kind == Kind::read ? RC_OK : RC_OUT_OF_RANGE, 1},
           {[](const SentRequest&) { return silence(); }, RC_TIMEOUT, 3},
           // The probe lets an undecodable answer pass: a write fails at its next step.
           {[](const SentRequest&) { return raw(with_bad_crc(response_frame(0, 0))); }, RC_BAD_CRC,
            command.kind == Kind::write ? 2u : 1u}}) {
    ScriptedDevice device;
    device.respond_with(responder);
    EXPECT_EQ(command.run(device.driver()), rc);
    EXPECT_EQ(device.requests().size(), requests);
    EXPECT_EQ(device.progress_calls(), 0);
    // Answers of unknown length are awaited until the link falls quiet.
    const bool data = command.kind == Kind::read || command.kind == Kind::query;
    EXPECT_EQ(device.request_headers()[0].code, command.first_code);
    EXPECT_EQ(device.receives()[0].timeout_ms, command.first_timeout_ms);
    EXPECT_EQ(device.receives()[0].min_count, data ? 0 : 12);
  }
}

INSTANTIATE_TEST_SUITE_P(Commands, EveryCommand, ::testing::ValuesIn(COMMANDS),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(Commands, ArgumentRefusalsSendNothing) {
  ScriptedDevice device;
  const std::vector<std::uint8_t> buffer(200, 0);
  EXPECT_EQ(write_firmware(device.driver(), std::span(buffer).first(100), 101), RC_BAD_LENGTH);
  EXPECT_EQ(verify_firmware(device.driver(), std::span(buffer).first(95)), RC_BAD_LENGTH);
  EXPECT_EQ(verify_factory_table(device.driver(), nullptr), RC_NULL_POINTER);
  device.link().chunk_size = 7;  // less than one 8-byte unit
  EXPECT_EQ(write_firmware(device.driver(), buffer, 200), RC_BAD_LENGTH);
  EXPECT_EQ(verify_firmware(device.driver(), buffer), RC_BAD_LENGTH);
  EXPECT_TRUE(device.requests().empty() && device.receives().empty());
}

using Bytes = std::vector<std::uint8_t>;
using Reader = std::function<std::pair<ResultCode, Bytes>(const LinkDriver*)>;

// Reads into a record whose bytes start as 0x3C; gives the result and the record's bytes after.
template <typename Record>
Reader into(ResultCode (*read)(const LinkDriver*, Record&)) {
  return [read](const LinkDriver* link) {
    Record record;
    std::memset(&record, 0x3C, sizeof record);
    const ResultCode rc = read(link, record);
    const auto wire = to_wire(record);
    return std::pair{rc, Bytes(wire.begin(), wire.end())};
  };
}

// Actions have no record.
Reader action(ResultCode (*run)(const LinkDriver*)) {
  return [run](const LinkDriver* link) { return std::pair{run(link), Bytes{}}; };
}

TEST(Records, CopiesAndLengthChecks) {
  // reader, payload size, result
  for (const auto& [reader, size, rc] : std::vector<std::tuple<Reader, std::size_t, ResultCode>>{
           {into(read_firmware_info), 96, RC_OK},
           {into(read_firmware_info), 95, RC_MISMATCH},
           {into(read_bootloader_info), 76, RC_OK},
           {into(read_bootloader_info), 77, RC_MISMATCH},
           // The control record takes up to 76 bytes, zero behind a shorter answer.
           {into(read_control), 10, RC_OK},
           {into(read_control), 100, RC_OK},
           {action(clear_control), 0, RC_OK},
           {action(clear_control), 1, RC_MISMATCH},
           {action(restart_device), 1, RC_MISMATCH}}) {
    ScriptedDevice device;
    const Bytes payload = pattern(size, 17);
    device.then(answer(0, 0, payload));
    const auto [result, record] = reader(device.driver());
    EXPECT_EQ(result, rc) << size;
    // A failed read leaves the record as the caller gave it.
    Bytes expected(record.size(), rc == RC_OK ? 0x00 : 0x3C);
    std::copy_n(payload.begin(), rc == RC_OK ? std::min(size, record.size()) : 0, expected.begin());
    EXPECT_EQ(record, expected) << size;
    EXPECT_EQ(device.progress_calls(), 0);
  }
}

}  // namespace
}  // namespace pelmo
