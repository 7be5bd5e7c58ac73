// Rules every bootloader command shares: the link check, the status rule, the echo and payload
// checks, and that failures end the command without retries above the exchange.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <vector>

#include "commands/commands.hpp"
#include "tests/commands/command_test_support.hpp"

namespace pelmo {
namespace {

using namespace test_support;

// Erases, ends and begins are judged by their status alone; queries also by echo and payload.
enum class Kind { chunked_read, block_write, block_verify, acknowledged, query };

struct CommandUnderTest {
  const char* name;
  Kind kind;
  std::function<ResultCode(const LinkDriver*)> run;
};

std::vector<CommandUnderTest> all_commands() {
  auto buffer = std::make_shared<std::vector<std::uint8_t>>(pattern(4096));
  auto destination = std::make_shared<std::vector<std::uint8_t>>(4096);
  auto table = std::make_shared<FactoryTable>();
  const std::span<const std::uint8_t> image(buffer->data(), 600);
  return {
      {"read_firmware", Kind::chunked_read,
       [=](const LinkDriver* l) { return read_firmware(l, *destination); }},
      {"erase_firmware", Kind::acknowledged, [](const LinkDriver* l) { return erase_firmware(l); }},
      {"write_firmware", Kind::block_write,
       [=](const LinkDriver* l) { return write_firmware(l, *buffer, 600); }},
      {"verify_firmware", Kind::block_verify,
       [=](const LinkDriver* l) { return verify_firmware(l, image); }},
      {"read_factory_table", Kind::chunked_read,
       [=](const LinkDriver* l) { return read_factory_table(l, table.get()); }},
      {"write_factory_table", Kind::block_write,
       [=](const LinkDriver* l) { return write_factory_table(l, table.get()); }},
      {"erase_factory_table", Kind::acknowledged,
       [](const LinkDriver* l) { return erase_factory_table(l); }},
      {"verify_factory_table", Kind::block_verify,
       [=](const LinkDriver* l) { return verify_factory_table(l, table.get()); }},
      {"read_calibration_table", Kind::chunked_read,
       [=](const LinkDriver* l) { return read_calibration_table(l, false, *destination); }},
      {"write_calibration_backup", Kind::block_write,
       [=](const LinkDriver* l) { return write_calibration_table(l, true, image); }},
      {"erase_calibration_table", Kind::acknowledged,
       [](const LinkDriver* l) { return erase_calibration_table(l, false); }},
      {"verify_calibration_table", Kind::block_verify,
       [=](const LinkDriver* l) { return verify_calibration_table(l, false, image); }},
      {"read_firmware_info", Kind::query,
       [](const LinkDriver* l) {
         FirmwareInfo info{};
         return read_firmware_info(l, info);
       }},
      {"read_bootloader_info", Kind::query,
       [](const LinkDriver* l) {
         BootloaderInfo info{};
         return read_bootloader_info(l, info);
       }},
      {"read_control", Kind::query,
       [](const LinkDriver* l) {
         ControlRecord record{};
         return read_control(l, record);
       }},
      {"clear_control", Kind::query, [](const LinkDriver* l) { return clear_control(l); }},
      {"restart_device", Kind::query, [](const LinkDriver* l) { return restart_device(l); }},
  };
}

class EveryCommand : public ::testing::TestWithParam<CommandUnderTest> {
 protected:
  ScriptedDevice device;
};

TEST_P(EveryCommand, NeedsAUsableLink) {
  EXPECT_EQ(GetParam().run(nullptr), RC_NO_DRIVER);
  LinkDriver no_receive = device.link();
  no_receive.receive = nullptr;
  EXPECT_EQ(GetParam().run(&no_receive), RC_NO_DRIVER);
  LinkDriver no_send = device.link();
  no_send.send = nullptr;
  EXPECT_EQ(GetParam().run(&no_send), RC_NO_DRIVER);
  EXPECT_TRUE(device.events().empty());
}

TEST_P(EveryCommand, EndOfDataStatusEndsReadsAndFailsEverythingElse) {
  device.respond_with([](const SentRequest& r) { return answer(0xFD, r.address); });
  const ResultCode expected = GetParam().kind == Kind::chunked_read ? RC_OK : RC_OUT_OF_RANGE;
  EXPECT_EQ(GetParam().run(device.driver()), expected);
  EXPECT_EQ(device.requests().size(), 1u);
  EXPECT_EQ(device.progress_calls(), 0);
}

TEST_P(EveryCommand, DeviceStatusBecomesItsNegativeCode) {
  for (const auto& [status, expected] :
       {std::pair{0x01, -255}, std::pair{0xFF, -1}, std::pair{0xE7, RC_TIMEOUT},
        std::pair{0xF9, RC_BAD_CRC}}) {
    ScriptedDevice failing;
    failing.respond_with([status](const SentRequest& r) {
      return answer(static_cast<std::uint8_t>(status), r.address);
    });
    EXPECT_EQ(GetParam().run(failing.driver()), expected) << "status " << status;
    EXPECT_EQ(failing.requests().size(), 1u) << "status " << status;
    EXPECT_EQ(failing.progress_calls(), 0);
  }
}

TEST_P(EveryCommand, SilenceIsATimeoutAfterTheAttempts) {
  EXPECT_EQ(GetParam().run(device.driver()), RC_TIMEOUT);
  EXPECT_EQ(device.requests().size(), 3u);
}

TEST_P(EveryCommand, UndecodableAnswerEndsWithTheDecoderCode) {
  // The probe lets undecodable answers pass, so a write fails at its next step, unretried.
  const std::size_t requests = GetParam().kind == Kind::block_write ? 2 : 1;
  for (const auto& [bytes, expected] :
       {std::pair{with_bad_crc(response_frame(0, 0)), RC_BAD_CRC},
        std::pair{std::vector<std::uint8_t>(11, 0xBA), RC_BAD_LENGTH},
        std::pair{std::vector<std::uint8_t>(12, 0xB5), RC_BAD_HEADER}}) {
    ScriptedDevice garbled;
    garbled.respond_with([bytes](const SentRequest&) { return raw(bytes); });
    EXPECT_EQ(GetParam().run(garbled.driver()), expected);
    EXPECT_EQ(garbled.requests().size(), requests);
  }
}

TEST_P(EveryCommand, WrongEchoIsAMismatchExceptForStatusOnlyAnswers) {
  device.respond_with([](const SentRequest& r) {
    if (r.code == 0x8F) {
      return ack(0);
    }
    // Otherwise well-formed answers: reads get data, records their exact size.
    const std::size_t size = r.code < 0x10 ? 4 : r.code == 0x24 ? 96 : r.code == 0x2F ? 76 : 0;
    const std::vector<std::uint8_t> data(size, 0x42);
    return answer(0, r.address + 4, data);
  });
  const bool status_only = GetParam().kind == Kind::acknowledged;
  EXPECT_EQ(GetParam().run(device.driver()), status_only ? RC_OK : RC_MISMATCH);
}

class BlockCommand : public EveryCommand {};

TEST_P(BlockCommand, PayloadInTheAcknowledgementIsAMismatch) {
  const std::vector<std::uint8_t> one{0x00};
  device.respond_with(
      [one](const SentRequest& r) { return r.code == 0x8F ? ack(0) : answer(0, r.address, one); });
  EXPECT_EQ(GetParam().run(device.driver()), RC_MISMATCH);
  // The first block failed: no further block and no end command went out.
  const auto headers = device.request_headers();
  const auto blocks = std::count_if(headers.begin(), headers.end(), [](const RequestHeader& h) {
    return (h.code & 0x80) != 0 && h.code != 0x8F;
  });
  EXPECT_EQ(blocks, 1);
  EXPECT_EQ(headers.back().code & 0xF0, GetParam().kind == Kind::block_write ? 0x80 : 0xC0);
}

INSTANTIATE_TEST_SUITE_P(Commands, EveryCommand, ::testing::ValuesIn(all_commands()),
                         [](const auto& info) { return std::string(info.param.name); });

std::vector<CommandUnderTest> block_commands() {
  std::vector<CommandUnderTest> commands = all_commands();
  std::erase_if(commands, [](const CommandUnderTest& c) {
    return c.kind != Kind::block_write && c.kind != Kind::block_verify;
  });
  return commands;
}

INSTANTIATE_TEST_SUITE_P(Commands, BlockCommand, ::testing::ValuesIn(block_commands()),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace pelmo
