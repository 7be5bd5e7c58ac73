#include "app/firmware_operations.hpp"

#include <optional>

#include "app/data_files.hpp"
#include "app/image_loader.hpp"
#include "app/interruption.hpp"
#include "app/operation_step.hpp"
#include "pelmo/commands/firmware_commands.hpp"

namespace pelmo {
namespace {

constexpr std::string_view READING = "Reading FW ";
constexpr std::string_view WRITING = "Writing FW ";
constexpr std::string_view VERIFYING = "Verificating FW ";
constexpr std::string_view ERASING = "Erasing FW ";

// The loaded image's length, or none when the loader failed (it has said why).
std::optional<std::uint32_t> load_image(RunContext& run) {
  const std::uint32_t length =
      load_firmware_for_run(run.console, run.link, run.command_line.file_name, run.image);
  if (length == 0) {
    return std::nullopt;
  }
  return length;
}

ResultCode write_step(RunContext& run, const OperationStep& step, std::uint32_t length) {
  // The whole buffer goes along: the last block is padded from the bytes after the image.
  return changing_firmware([&] {
    return run_step(run.console, step, [&] { return write_firmware(run.link, run.image, length); });
  });
}

ResultCode verify_step(RunContext& run, const OperationStep& step, std::uint32_t length) {
  return run_step(run.console, step,
                  [&] { return verify_firmware(run.link, run.image.first(length)); });
}

ResultCode erase_step(RunContext& run, const OperationStep& step) {
  return changing_firmware(
      [&] { return run_step(run.console, step, [&] { return erase_firmware(run.link); }); });
}

}  // namespace

ResultCode handle_read_firmware(RunContext& run) {
  constexpr OperationStep STEP{.label = READING, .ok_width = {10}, .error_width = {10}};
  std::uint32_t length = 0;
  const ResultCode result =
      run_step(run.console, STEP, [&] { return read_firmware(run.link, run.image, &length); });
  if (result == RC_OK && !write_binary_file(run.command_line.file_name, run.image.first(length))) {
    return report_write_failure(run.console, run.command_line.file_name);
  }
  return result;
}

ResultCode handle_write_firmware(RunContext& run) {
  const auto length = load_image(run);
  if (!length) {
    return RC_FAILED;
  }
  return write_step(run, {.label = WRITING, .ok_width = {10}, .error_width = {10}}, *length);
}

ResultCode handle_verify_firmware(RunContext& run) {
  const auto length = load_image(run);
  if (!length) {
    return RC_FAILED;
  }
  return verify_step(run,
                     {.label = VERIFYING,
                      .ok_width = {10},
                      .error_width = {10},
                      .mismatch_line = "FW is different"},
                     *length);
}

ResultCode handle_erase_firmware(RunContext& run) {
  return erase_step(run, {.label = ERASING, .ok_width = {10}, .error_width = {10}});
}

ResultCode handle_erase_write_verify_firmware(RunContext& run) {
  const auto length = load_image(run);
  if (!length) {
    return RC_FAILED;
  }
  ResultCode result = erase_step(run, {.label = ERASING, .ok_width = {9}, .error_width = {14}});
  if (result != RC_OK) {
    return result;
  }
  result = write_step(run, {.label = WRITING, .ok_width = {10}, .error_width = {14}}, *length);
  if (result != RC_OK) {
    return result;
  }
  return verify_step(run,
                     {.label = VERIFYING,
                      .ok_width = {9},
                      .error_width = {13},
                      .mismatch_status = "Error. FW is different\n"},
                     *length);
}

}  // namespace pelmo
