// Every bootloader command against a device whose answers come from the fuzz input: silence,
// failed sends, raw bytes, or frames with any status, a near or exact echo of the request's
// address and any payload, some with a broken CRC, some sent twice. Destinations and sources are
// heap blocks of exactly their size, so a command that reads or writes past them is caught; a
// command that never ends is caught by libFuzzer's -timeout.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "commands/commands.hpp"
#include "commands/transfer.hpp"
#include "fuzz/fuzz_check.hpp"
#include "protocol/exchange.hpp"
#include "tests/support/scripted_device.hpp"

namespace {

using namespace pelmo;
using test_support::Reply;

// One hostile answer to `request`, taken from the input; silence once the input is used up.
Reply hostile_reply(FuzzedDataProvider& input, const test_support::SentRequest& request,
                    test_support::ScriptedDevice& device) {
  if (input.remaining_bytes() == 0) {
    return test_support::silence();
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
    default: {
      const auto status =
          input.ConsumeBool() ? std::uint8_t{0} : input.ConsumeIntegral<std::uint8_t>();
      const std::uint32_t address = request.address + input.ConsumeIntegralInRange(-1, 1);
      const auto payload = input.ConsumeBytes<std::uint8_t>(input.ConsumeIntegralInRange(0, 2100));
      Reply reply = test_support::answer(status, address, payload);
      if (input.ConsumeBool()) {
        reply.answer = test_support::with_bad_crc(std::move(reply.answer));
      }
      if (input.ConsumeBool()) {
        device.inject_input(reply.answer);  // a stale copy for the next receive
      }
      return reply;
    }
  }
}

// A heap block of exactly `size` bytes.
struct Block {
  explicit Block(std::size_t size) : size(size), bytes(std::make_unique<std::uint8_t[]>(size)) {}
  std::span<std::uint8_t> span() { return {bytes.get(), size}; }
  std::size_t size;
  std::unique_ptr<std::uint8_t[]> bytes;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider input(data, size);
  test_support::ScriptedDevice device;
  LinkDriver& link = device.link();
  link.chunk_size = input.ConsumeIntegralInRange<std::uint16_t>(0, 2100);
  link.max_attempts = input.ConsumeIntegralInRange<std::uint16_t>(0, 4);
  const int command = input.ConsumeIntegralInRange(0, 17);
  const bool backup = input.ConsumeBool();
  Block block(input.ConsumeIntegralInRange<std::size_t>(0, 8192));
  std::fill_n(block.bytes.get(), block.size, 0xA5);
  const auto length = static_cast<std::uint32_t>(block.size + input.ConsumeIntegralInRange(-9, 1));
  device.respond_with([&](const test_support::SentRequest& request) {
    return hostile_reply(input, request, device);
  });

  // Records on the heap, each exactly its size.
  const auto factory = std::make_unique<FactoryTable>();
  const auto firmware_info = std::make_unique<FirmwareInfo>();
  const auto bootloader_info = std::make_unique<BootloaderInfo>();
  const auto control = std::make_unique<ControlRecord>();
  const LinkDriver* driver = &link;
  std::uint32_t read = 0;
  const bool reads = command == 0 || command == 4;
  const std::function<ResultCode()> commands[] = {
      [&] { return read_firmware(driver, block.span(), &read); },
      [&] { return write_firmware(driver, block.span(), length); },
      [&] { return erase_firmware(driver); },
      [&] { return verify_firmware(driver, block.span()); },
      [&] { return read_calibration_table(driver, backup, block.span(), &read); },
      [&] { return write_calibration_table(driver, backup, block.span()); },
      [&] { return erase_calibration_table(driver, backup); },
      [&] { return verify_calibration_table(driver, backup, block.span()); },
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
    FUZZ_CHECK(read <= block.size);
  }
  return 0;
}
