#include "app/info_operations.hpp"

#include <string_view>

#include "pelmo/commands/info_commands.hpp"

namespace pelmo {
namespace {

// "%s" of a record's text field: up to its first zero byte, never past its end.
template <std::size_t N>
int text_width(const char (&field)[N]) {
  return static_cast<int>(field_text(field).size());
}

void show_firmware_info(Console& console, const FirmwareInfo& info) {
  console.print("Name:       %.*s\n", text_width(info.name), info.name);
  console.print("Version:    %d.%02d.%03d", info.version_major, info.version_minor,
                info.version_patch);
  const bool debug = is_debug_build(info);
  console.write_line(debug ? " (DEBUG)" : "");
  console.print("Compiled:   %.*s %.*s\n", text_width(info.compile_date), info.compile_date,
                text_width(info.compile_time), info.compile_time);
  if (!debug) {
    console.print("Size:       %d\n", static_cast<std::int32_t>(info.size));
    console.print("CRC32:      0x%08X\n", static_cast<unsigned>(info.crc32));
  }
}

// Why the firmware information could not be read.
void explain_firmware_info_failure(Console& console, ResultCode result) {
  switch (result) {
    case RC_BAD_HEADER:
      console.write_line("Firmware is not valid, invalid FW header");
      break;
    case RC_BAD_CRC:
      console.write_line("Firmware is not valid, invalid FW CRC");
      break;
    case RC_TIMEOUT:
      console.write_line("\nReceive timeout");
      break;
    default:
      console.print("Error code: (%d)\n", result);
      break;
  }
}

void show_bootloader_info(Console& console, const BootloaderInfo& info) {
  console.print("Name:        %.*s\n", text_width(info.name), info.name);
  console.print("Version:     %d.%02d\n", info.version_major, info.version_minor);
  console.print("Compiled:    %.*s %.*s\n", text_width(info.compile_date), info.compile_date,
                text_width(info.compile_time), info.compile_time);
  console.write_line(std::string_view("---------------------------------------", 39));
  console.print("FW Address:  %08X\n", static_cast<unsigned>(info.fw_address));
  console.print("FW Max.size: %08X\n", static_cast<unsigned>(info.fw_max_size));
}

void show_control_record(Console& console, const ControlRecord& record) {
  console.print("Struct version:    %d\n", record.struct_version);
  console.print("Reset count:       %d\n", record.reset_count);
}

}  // namespace

ResultCode handle_read_firmware_info(RunContext& run) {
  // The request goes out first; its label appears only when the answer is in.
  constexpr OperationStep STEP{.label = "Reading FW information ",
                               .ok_width = {14},
                               .error_width = {14},
                               .label_after_command = true};
  FirmwareInfo& info = run.records.firmware_info;
  info = FirmwareInfo{};
  const ResultCode result =
      run_step(run.console, STEP, [&] { return read_firmware_info(run.link, info); });
  if (result == RC_OK) {
    show_firmware_info(run.console, info);
  } else {
    explain_firmware_info_failure(run.console, result);
  }
  return result;
}

ResultCode handle_read_bootloader_info(RunContext& run) {
  BootloaderInfo& info = run.records.bootloader_info;
  const ResultCode result = run_step(run.console, READ_BOOTLOADER_INFO_STEP,
                                     [&] { return read_bootloader_info(run.link, info); });
  if (result == RC_OK) {
    show_bootloader_info(run.console, info);
  }
  return result;
}

ResultCode handle_clear_control(RunContext& run) {
  constexpr OperationStep STEP{
      .label = "Clearing PELMO Control ", .ok_width = {12}, .error_width = {12}};
  return run_step(run.console, STEP, [&] { return clear_control(run.link); });
}

ResultCode handle_read_control(RunContext& run) {
  constexpr OperationStep STEP{
      .label = "Reading PELMO Control ", .ok_width = {14}, .error_width = {14}};
  ControlRecord& record = run.records.control;
  const ResultCode result =
      run_step(run.console, STEP, [&] { return read_control(run.link, record); });
  if (result == RC_OK) {
    show_control_record(run.console, record);
  }
  return result;
}

ResultCode handle_restart(RunContext& run) {
  constexpr OperationStep STEP{
      .label = "Restarting target device ", .ok_width = {12}, .error_width = {12}};
  return run_step(run.console, STEP, [&] { return restart_device(run.link); });
}

}  // namespace pelmo
