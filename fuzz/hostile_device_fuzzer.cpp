// Every bootloader command against a device whose answers come from the fuzz input. Destinations
// and sources are heap blocks of exactly their size, so a command that reads or writes past them is
// caught; one that never ends is caught by libFuzzer's -timeout (or its memory limit, as the
// scripted device records every request).
#include <fuzzer/FuzzedDataProvider.h>

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
#include "tests/support/scripted_device.hpp"

namespace {

using namespace pelmo;
using test_support::Reply;

// The device's answers, taken from the input: silence, failed sends, raw bytes or frames with any
// status, a near or exact echo of the request's address, any payload and maybe a broken CRC, some
// sent twice. A frame's recipe may become the answer to every later request, so that a command
// which would go on asking for ever (e.g. for data that never comes) hangs; otherwise the device
// falls silent once the input is used up.
test_support::Responder hostile(FuzzedDataProvider& input, test_support::ScriptedDevice& device) {
  struct Recipe {
    std::uint8_t status;
    int address_delta;
    std::vector<std::uint8_t> payload;
    bool bad_crc;
  };
  return [&input, &device,
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
      return forever ? frame(*forever) : test_support::silence();
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
        return test_support::answer(END_OF_DATA_STATUS, request.address);
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
    return reply;
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
  const int command = input.ConsumeIntegralInRange(0, 17);
  const bool backup = input.ConsumeBool();
  // Sized at construction, a vector's heap block holds exactly its elements.
  std::vector<std::uint8_t> block(input.ConsumeIntegralInRange<std::size_t>(0, 8192), 0xA5);
  const auto length =
      static_cast<std::uint32_t>(block.size() + input.ConsumeIntegralInRange(-9, 1));
  device.respond_with(hostile(input, device));

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
  };
  const ResultCode result = commands[command]();
  FUZZ_CHECK(result <= RC_OK);
  if (reads && result == RC_OK) {
    FUZZ_CHECK(read <= block.size());
  }
  if (result != RC_OK) {  // a failed record read leaves its record as it was
    FUZZ_CHECK(is_zero(*firmware_info) && is_zero(*bootloader_info) && is_zero(*control));
  }
  return 0;
}
