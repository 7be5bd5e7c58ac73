#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "pelmo/commands/records.hpp"
#include "pelmo/protocol/frame.hpp"
#include "simulator/device_config.hpp"
#include "simulator/memory_area.hpp"

namespace pelmo::sim {

// The device's four areas, in the order of the low nibble of their command codes (1 to 4).
enum class Area : std::uint8_t { factory, calib, calib_backup, firmware };
inline constexpr std::array<Area, 4> ALL_AREAS{Area::factory, Area::calib, Area::calib_backup,
                                               Area::firmware};

// One answer of the bootloader: the status byte, the address it echoes and its payload.
struct DeviceReply {
  std::uint8_t status = 0;
  std::uint32_t address = 0;
  std::vector<std::uint8_t> payload;
};

// Where a device with persistent state sends its changes (see StateStore).
class DeviceStorage {
 public:
  virtual ~DeviceStorage() = default;
  // The area's bytes from `first` to its written length changed.
  virtual void area_written(Area area, const MemoryArea& memory, std::size_t first) = 0;
  virtual void area_erased(Area area) = 0;
  virtual void control_changed(std::span<const std::uint8_t, CONTROL_RECORD_SIZE> record) = 0;
};

// The simulated bootloader: it executes one decoded request and says what to answer. It knows
// nothing of links, timing or faults.
class Device {
 public:
  explicit Device(const DeviceConfig& config);

  // Changes from now on are also handed to `storage` (null: state lives in memory only).
  void attach_storage(DeviceStorage* storage) { storage_ = storage; }

  DeviceReply handle(const FrameFields& request);

  const DeviceConfig& config() const { return config_; }
  MemoryArea& area(Area area);
  const MemoryArea& area(Area area) const;
  std::span<const std::uint8_t, CONTROL_RECORD_SIZE> control() const { return control_; }
  void restore_control(std::span<const std::uint8_t, CONTROL_RECORD_SIZE> record);

  // Preloads an area with bytes as the device holds them (a firmware image keeps the size and CRC
  // in its header as they are, valid or not); false when the bytes do not fit.
  bool load_area(Area area, std::span<const std::uint8_t> bytes);

  std::array<std::uint8_t, BOOTLOADER_INFO_SIZE> bootloader_info() const;

 private:
  DeviceReply read_chunk(Area area, const FrameFields& request) const;
  DeviceReply write_block(Area area, const FrameFields& request);
  DeviceReply verify_block(Area area, const FrameFields& request) const;
  void end_write(Area area);
  void erase(Area area);
  DeviceReply firmware_info() const;
  void set_reset_count(std::uint8_t count);

  DeviceConfig config_;
  std::array<MemoryArea, 4> areas_;
  std::array<std::uint8_t, CONTROL_RECORD_SIZE> control_{};
  DeviceStorage* storage_ = nullptr;
};

std::string_view area_name(Area area);

}  // namespace pelmo::sim
