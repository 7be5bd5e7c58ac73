#pragma once

#include <cstdint>
#include <span>

#include "app/command_line.hpp"
#include "app/console.hpp"
#include "pelmo/commands/records.hpp"
#include "pelmo/protocol/link_driver.hpp"

namespace pelmo {

// Capacity of the image buffer that firmware images and calibration tables pass through.
inline constexpr std::uint32_t IMAGE_BUFFER_SIZE = 1048576;

// The records a run owns for its whole length.
struct RunRecords {
  FirmwareInfo firmware_info{};
  BootloaderInfo bootloader_info{};
  ControlRecord control{};
  FactoryTable factory_table{};
};

// What an operation handler works with; all of it belongs to the run.
struct RunContext {
  Console& console;
  const LinkDriver* link;
  std::span<std::uint8_t> image;  // the image buffer
  const CommandLine& command_line;
  RunRecords& records;
};

}  // namespace pelmo
