#include "simulator/device.hpp"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <optional>

#include "pelmo/commands/command_code.hpp"
#include "pelmo/protocol/bytes.hpp"
#include "simulator/device_status.hpp"
#include "simulator/firmware_header.hpp"

namespace pelmo::sim {
namespace {

constexpr std::size_t CONTROL_VERSION_OFFSET = 2;
constexpr std::size_t CONTROL_RESET_COUNT_OFFSET = 4;
constexpr std::size_t FIRMWARE_WRITE_UNIT = 8;

// Area commands: the high nibble is the action, the low nibble (1 to 4) the area.
enum class Action : std::uint8_t { read = 0x0, end = 0x1, erase = 0x4, write = 0x8, verify = 0xC };

struct AreaCommand {
  Action action;
  Area area;
};

std::optional<AreaCommand> area_command(std::uint8_t code) {
  const unsigned area = code & 0x0Fu;
  const unsigned action = code >> 4;
  if (area < 1 || area > 4) {
    return std::nullopt;
  }
  for (Action known : {Action::read, Action::end, Action::erase, Action::write, Action::verify}) {
    if (static_cast<unsigned>(known) == action) {
      return AreaCommand{known, static_cast<Area>(area - 1)};
    }
  }
  return std::nullopt;
}

DeviceReply status_reply(std::uint8_t status, std::uint32_t address) {
  return DeviceReply{status, address, {}};
}

template <std::size_t N>
void put_text(std::uint8_t* field, const std::string& text) {
  std::memcpy(field, text.data(), std::min(text.size(), N - 1));
}

}  // namespace

std::string_view area_name(Area area) {
  switch (area) {
    case Area::factory:
      return "factory";
    case Area::calib:
      return "calib";
    case Area::calib_backup:
      return "calib_backup";
    case Area::firmware:
      return "firmware";
  }
  return "?";
}

Device::Device(const DeviceConfig& config)
    : config_(config),
      areas_{MemoryArea(FACTORY_TABLE_SIZE), MemoryArea(config.calib_max_size),
             MemoryArea(config.calib_max_size), MemoryArea(config.fw_max_size)} {
  store_u16_le(config.control_struct_version, control_.data() + CONTROL_VERSION_OFFSET);
}

MemoryArea& Device::area(Area area) {
  return areas_[static_cast<std::size_t>(area)];
}
const MemoryArea& Device::area(Area area) const {
  return areas_[static_cast<std::size_t>(area)];
}

void Device::restore_control(std::span<const std::uint8_t, CONTROL_RECORD_SIZE> record) {
  std::copy(record.begin(), record.end(), control_.begin());
}

bool Device::load_area(Area which, std::span<const std::uint8_t> bytes) {
  MemoryArea& memory = area(which);
  if (!memory.load(bytes)) {
    return false;
  }
  if (storage_ != nullptr) {
    storage_->area_erased(which);
    storage_->area_written(which, memory, 0);
  }
  return true;
}

DeviceReply Device::handle(const FrameFields& request) {
  if (const auto command = area_command(request.code)) {
    switch (command->action) {
      case Action::read:
        return read_chunk(command->area, request);
      case Action::write:
        return write_block(command->area, request);
      case Action::verify:
        return verify_block(command->area, request);
      case Action::end:
        end_write(command->area);
        return status_reply(STATUS_OK, 0);
      case Action::erase:
        erase(command->area);
        return status_reply(STATUS_OK, 0);
    }
  }
  switch (static_cast<CommandCode>(request.code)) {
    case CommandCode::CMD_FW_INFO:
      return firmware_info();
    case CommandCode::CMD_BOOTLOADER_INFO: {
      const auto record = bootloader_info();
      return DeviceReply{STATUS_OK, 0, {record.begin(), record.end()}};
    }
    case CommandCode::CMD_READ_CONTROL:
      return DeviceReply{STATUS_OK, 0, {control_.begin(), control_.end()}};
    case CommandCode::CMD_CLEAR_CONTROL:
      set_reset_count(0);
      return status_reply(STATUS_OK, 0);
    case CommandCode::CMD_RESTART:
      set_reset_count(static_cast<std::uint8_t>(control_[CONTROL_RESET_COUNT_OFFSET] + 1));
      return status_reply(STATUS_OK, 0);
    case CommandCode::CMD_BEGIN_WRITE:
      return status_reply(STATUS_OK, 0);
    default:
      return status_reply(STATUS_UNKNOWN_COMMAND, request.address);
  }
}

DeviceReply Device::read_chunk(Area which, const FrameFields& request) const {
  std::size_t count = config_.read_chunk != 0 ? config_.read_chunk : request.length;
  count = std::min(count, MAX_FRAME_PAYLOAD);
  if (request.address >= area(which).length()) {
    return status_reply(STATUS_OUT_OF_RANGE, request.address);
  }
  const auto bytes = area(which).read(request.address, count);
  return DeviceReply{STATUS_OK, request.address, {bytes.begin(), bytes.end()}};
}

DeviceReply Device::write_block(Area which, const FrameFields& request) {
  // Flash takes the firmware in whole 8-byte units, which is why the host pads its last block.
  if (which == Area::firmware && (request.address % FIRMWARE_WRITE_UNIT != 0 ||
                                  request.payload.size() % FIRMWARE_WRITE_UNIT != 0)) {
    return status_reply(STATUS_BAD_ALIGNMENT, request.address);
  }
  MemoryArea& memory = area(which);
  if (!memory.write(request.address, request.payload)) {
    return status_reply(STATUS_OUT_OF_RANGE, request.address);
  }
  if (storage_ != nullptr) {
    storage_->area_written(which, memory, request.address);
  }
  return status_reply(STATUS_OK, request.address);
}

DeviceReply Device::verify_block(Area which, const FrameFields& request) const {
  switch (area(which).compare(request.address, request.payload)) {
    case MemoryArea::Comparison::same:
      return status_reply(STATUS_OK, request.address);
    case MemoryArea::Comparison::different:
      return status_reply(STATUS_DIFFERENT, request.address);
    case MemoryArea::Comparison::out_of_range:
      break;
  }
  return status_reply(STATUS_OUT_OF_RANGE, request.address);
}

void Device::end_write(Area which) {
  if (which != Area::firmware) {
    return;
  }
  MemoryArea& memory = area(which);
  seal_firmware(memory);
  if (storage_ != nullptr && memory.length() > 0) {
    storage_->area_written(which, memory, 0);
  }
}

void Device::erase(Area which) {
  area(which).erase();
  if (storage_ != nullptr) {
    storage_->area_erased(which);
  }
}

DeviceReply Device::firmware_info() const {
  const MemoryArea& firmware = area(Area::firmware);
  const std::uint8_t status = firmware_header_status(firmware);
  if (status != STATUS_OK) {
    return status_reply(status, 0);
  }
  const auto header = firmware.content().first(FIRMWARE_INFO_SIZE);
  return DeviceReply{STATUS_OK, 0, {header.begin(), header.end()}};
}

std::array<std::uint8_t, BOOTLOADER_INFO_SIZE> Device::bootloader_info() const {
  std::array<std::uint8_t, BOOTLOADER_INFO_SIZE> record{};
  std::uint8_t* at = record.data();
  store_u32(ByteOrder::little, config_.fw_address, at + offsetof(BootloaderInfo, fw_address));
  store_u32(ByteOrder::little, config_.fw_max_size, at + offsetof(BootloaderInfo, fw_max_size));
  store_u16_le(config_.bl_version_major, at + offsetof(BootloaderInfo, version_major));
  store_u16_le(config_.bl_version_minor, at + offsetof(BootloaderInfo, version_minor));
  put_text<sizeof(BootloaderInfo::name)>(at + offsetof(BootloaderInfo, name), config_.bl_name);
  put_text<sizeof(BootloaderInfo::compile_date)>(at + offsetof(BootloaderInfo, compile_date),
                                                 config_.bl_compile_date);
  put_text<sizeof(BootloaderInfo::compile_time)>(at + offsetof(BootloaderInfo, compile_time),
                                                 config_.bl_compile_time);
  return record;
}

void Device::set_reset_count(std::uint8_t count) {
  control_[CONTROL_RESET_COUNT_OFFSET] = count;
  if (storage_ != nullptr) {
    storage_->control_changed(control_);
  }
}

}  // namespace pelmo::sim
