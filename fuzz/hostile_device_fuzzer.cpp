// Every bootloader command against a device whose answers come from the fuzz input, the classic
// way or the adaptive way (a device clock that moves on every wait, answers late by any amount).
// Destinations and sources are heap blocks of exactly their size, so a command that reads or
// writes past them is caught; one that never ends is caught by libFuzzer's -timeout (or its memory
// limit, as the scripted device records every request). The adaptive way must also keep time:
// every exchange ends by its deadline, so a command lasts at most its sends times the longest
// deadline, and a bare exchange at most its own.
#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "fuzz/fuzz_check.hpp"
#include "pelmo/commands/commands.hpp"
#include "pelmo/commands/transfer.hpp"
#include "pelmo/protocol/exchange.hpp"
#include "pelmo/protocol/round_trip_estimator.hpp"
#include "tests/support/scripted_device.hpp"

namespace {

using namespace pelmo;
using test_support::Reply;

// The device's answers, taken from the input: silence, failed sends, raw bytes or frames with any
// status, a near or exact echo of the request's address, any payload and maybe a broken CRC, some
// sent twice. A frame's recipe may become the answer to every later request, so that a command
// which would go on asking for ever (e.g. for data that never comes) hangs; otherwise the device
// falls silent once the input is used up.
// On a clocked device every answer comes after a delay from the input.
test_support::Responder hostile(FuzzedDataProvider& input, test_support::ScriptedDevice& device,
                                bool delayed) {
  struct Recipe {
    std::uint8_t status;
    int address_delta;
    std::vector<std::uint8_t> payload;
    bool bad_crc;
  };
  const auto late = [&input, delayed](Reply reply) {
    if (delayed && input.remaining_bytes() > 0) {
      reply.delay_ms = input.ConsumeIntegralInRange<std::uint32_t>(0, 3000);
    }
    return reply;
  };
  return [&input, &device, late,
          forever = std::optional<Recipe>()](const test_support::SentRequest& request) mutable {
    const auto frame = [&](const Recipe& recipe) {
      Reply reply = test_support::answer(recipe.status, request.address + recipe.address_delta,
                                         recipe.payload);
      if (recipe.bad_crc) {
        reply.answer = test_support::with_bad_crc(std::move(reply.answer));
      }
      return reply;
    };
    if (forever || input.remaining_bytes() == 0) {
      return forever ? late(frame(*forever)) : test_support::silence();
    }
    switch (input.ConsumeIntegralInRange(0, 5)) {
      case 0:
        return test_support::silence();
      case 1:
        return test_support::failed_send(input.ConsumeIntegral<std::int32_t>());
      case 2:
        return test_support::raw(
            input.ConsumeBytes<std::uint8_t>(input.ConsumeIntegral<std::uint16_t>()));
      case 3:
        return late(test_support::answer(END_OF_DATA_STATUS, request.address));
      default:
        break;
    }
    Recipe recipe{input.ConsumeBool() ? std::uint8_t{0} : input.ConsumeIntegral<std::uint8_t>(),
                  input.ConsumeIntegralInRange(-1, 1),
                  input.ConsumeBytes<std::uint8_t>(input.ConsumeIntegralInRange(0, 2100)),
                  input.ConsumeBool()};
    Reply reply = frame(recipe);
    if (input.ConsumeBool()) {
      device.inject_input(reply.answer);  // a stale copy for the next receive
    }
    if (input.ConsumeBool()) {
      forever = std::move(recipe);
    }
    return late(std::move(reply));
  };
}

template <typename Record>
bool is_zero(const Record& record) {
  const Record zero{};
  return std::memcmp(&record, &zero, sizeof record) == 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider input(data, size);
  test_support::ScriptedDevice device;
  LinkDriver& link = device.link();
  link.chunk_size = input.ConsumeIntegralInRange<std::uint16_t>(0, 2100);
  link.max_attempts = input.ConsumeIntegralInRange<std::uint16_t>(0, 4);
  constexpr int BARE_EXCHANGE = 18;
  const int command = input.ConsumeIntegralInRange(0, BARE_EXCHANGE);
  const bool backup = input.ConsumeBool();
  // Sized at construction, a vector's heap block holds exactly its elements.
  std::vector<std::uint8_t> block(input.ConsumeIntegralInRange<std::size_t>(0, 8192), 0xA5);
  const auto length =
      static_cast<std::uint32_t>(block.size() + input.ConsumeIntegralInRange(-9, 1));
  // The adaptive way, with settings from the input; waits are kept long enough that a silent
  // exchange makes a few hundred attempts at most.
  const bool adaptive = input.ConsumeBool();
  RetransmissionSettings settings{
      .adaptive = true,
      .initial_rto_ms = input.ConsumeIntegralInRange<std::uint32_t>(0, 3000),
      .min_rto_ms = input.ConsumeIntegralInRange<std::uint32_t>(10, 100),
      .max_rto_ms = input.ConsumeIntegralInRange<std::uint32_t>(0, 5000),
      .line_bytes_per_second = input.ConsumeBool() ? 11520u : 0u,
      .deadline_ms = input.ConsumeIntegralInRange<std::uint32_t>(0, 5000),
      .fixed_wait_ms =
          input.ConsumeBool() ? input.ConsumeIntegralInRange<std::uint32_t>(10, 500) : 0,
      .jitter_percent = input.ConsumeIntegralInRange<std::uint32_t>(0, 50)};
  RoundTripEstimator estimator(settings, input.ConsumeIntegral<std::uint64_t>());
  if (adaptive) {
    device.use_clock(input.ConsumeIntegral<std::uint32_t>());  // any start: the clock may wrap
    link.estimator = &estimator;
    link.write_timeout_ms = input.ConsumeIntegralInRange<std::uint32_t>(0, 4000);
    link.erase_timeout_ms = input.ConsumeIntegralInRange<std::uint32_t>(1, 30000);
    link.extra_timeout_ms = input.ConsumeIntegralInRange<std::uint32_t>(0, 1000);
  }
  const std::uint32_t started = device.now_ms();
  // The longest any one exchange may take: its deadline with the longest device work.
  const std::uint64_t longest = std::uint64_t{settings.deadline_ms} + link.extra_timeout_ms +
                                std::max(link.write_timeout_ms, link.erase_timeout_ms);
  device.respond_with(hostile(input, device, adaptive));

  // Records on the heap, each exactly its size.
  const auto factory = std::make_unique<FactoryTable>();
  const auto firmware_info = std::make_unique<FirmwareInfo>();
  const auto bootloader_info = std::make_unique<BootloaderInfo>();
  const auto control = std::make_unique<ControlRecord>();
  const LinkDriver* driver = &link;
  std::uint32_t read = 0;
  const bool reads = command == 0 || command == 4;
  const std::function<ResultCode()> commands[] = {
      [&] { return read_firmware(driver, std::span(block), &read); },
      [&] { return write_firmware(driver, std::span(block), length); },
      [&] { return erase_firmware(driver); },
      [&] { return verify_firmware(driver, std::span(block)); },
      [&] { return read_calibration_table(driver, backup, std::span(block), &read); },
      [&] { return write_calibration_table(driver, backup, std::span(block)); },
      [&] { return erase_calibration_table(driver, backup); },
      [&] { return verify_calibration_table(driver, backup, std::span(block)); },
      [&] { return read_factory_table(driver, factory.get()); },
      [&] { return write_factory_table(driver, factory.get()); },
      [&] { return erase_factory_table(driver); },
      [&] { return verify_factory_table(driver, factory.get()); },
      [&] { return read_firmware_info(driver, *firmware_info); },
      [&] { return read_bootloader_info(driver, *bootloader_info); },
      [&] { return read_control(driver, *control); },
      [&] { return clear_control(driver); },
      [&] { return restart_device(driver); },
      [&] { return probe_before_write(driver); },
      [&] {  // one bare exchange with any expectation: it must end by its own deadline
        const std::array<std::uint8_t, 12> request{0xB5, 0x8F};
        std::array<std::uint8_t, 64> response{};
        const AnswerExpectation expect{
            .echo = input.ConsumeBool() ? std::optional(input.ConsumeIntegral<std::uint32_t>())
                                        : std::nullopt,
            .wait = input.ConsumeBool() ? AnswerWait::erase : AnswerWait::round_trip};
        const std::uint32_t work = input.ConsumeIntegralInRange<std::uint32_t>(0, 4000);
        const ResultCode rc = exchange(driver, request, response, 12, work, nullptr, expect);
        if (adaptive) {
          // An erase may wait its allowance (with the extra time-out) three times over.
          const std::uint64_t erase_wait =
              std::uint64_t{link.erase_timeout_ms} + link.extra_timeout_ms;
          const std::uint64_t budget =
              std::uint64_t{settings.deadline_ms} +
              (expect.wait == AnswerWait::erase ? 3 * erase_wait : link.extra_timeout_ms + work);
          FUZZ_CHECK(device.now_ms() - started <= budget);
        }
        return rc;
      },
  };
  const ResultCode result = commands[command]();
  FUZZ_CHECK(result <= RC_OK);
  if (adaptive && command != BARE_EXCHANGE) {  // (which checks its own deadline)
    FUZZ_CHECK(device.now_ms() - started <= device.requests().size() * longest);
  }
  if (reads && result == RC_OK) {
    FUZZ_CHECK(read <= block.size());
  }
  if (result != RC_OK) {  // a failed record read leaves its record as it was
    FUZZ_CHECK(is_zero(*firmware_info) && is_zero(*bootloader_info) && is_zero(*control));
  }
  return 0;
}
