#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace pelmo {

// Records the device sends or receives as frame payloads. Their in-memory layout matches the wire
// offsets; the conversions below read and write the wire's little-endian byte order on any host.

// Describes the firmware held in the device; its first 96 bytes are this header.
struct FirmwareInfo {
  std::uint32_t size;
  std::uint32_t crc32;
  std::uint32_t debug_marker1;
  std::uint32_t debug_marker2;
  std::uint32_t debug_marker3;
  std::uint32_t magic;
  std::uint16_t version_major;
  std::uint16_t version_minor;
  std::uint16_t version_patch;
  std::uint16_t reserved;
  char name[32];
  char compile_date[16];
  char compile_time[16];
};

inline constexpr std::uint32_t FIRMWARE_MAGIC = 0x136AA631u;
inline constexpr std::uint32_t DEBUG_MARKER1 = 0x55555555u;
inline constexpr std::uint32_t DEBUG_MARKER2 = 0xAAAAAAAAu;
inline constexpr std::uint32_t DEBUG_MARKER3 = 0xDBDBDBDBu;

// Describes the bootloader and the firmware area it manages.
struct BootloaderInfo {
  std::uint32_t fw_address;
  std::uint32_t fw_max_size;
  std::uint16_t version_major;
  std::uint16_t version_minor;
  char name[32];
  char compile_date[16];
  char compile_time[16];
};

// The bootloader's control data; the host reads two fields.
struct ControlRecord {
  std::uint8_t reserved0[2];
  std::uint16_t struct_version;
  std::uint8_t reset_count;
  std::uint8_t reserved1[71];
};

// The device's identity and network record.
struct FactoryTable {
  std::uint8_t reserved0[24];
  std::uint16_t modif;
  std::uint16_t hw;
  std::uint8_t mac[6];
  std::uint8_t ip_addr[6];
  std::uint8_t ip_mask[6];
  std::uint8_t ip_gtw[6];
  std::uint8_t ipv6;
  std::uint8_t dhcp;
  char type[32];
  char sn[32];
  std::uint8_t reserved1[2];
};

inline constexpr std::size_t FIRMWARE_INFO_SIZE = 96;
inline constexpr std::size_t BOOTLOADER_INFO_SIZE = 76;
inline constexpr std::size_t CONTROL_RECORD_SIZE = 76;
inline constexpr std::size_t FACTORY_TABLE_SIZE = 120;

static_assert(sizeof(FirmwareInfo) == FIRMWARE_INFO_SIZE);
static_assert(offsetof(FirmwareInfo, magic) == 20 && offsetof(FirmwareInfo, version_major) == 24);
static_assert(offsetof(FirmwareInfo, name) == 32 && offsetof(FirmwareInfo, compile_date) == 64);
static_assert(offsetof(FirmwareInfo, compile_time) == 80);
static_assert(sizeof(BootloaderInfo) == BOOTLOADER_INFO_SIZE);
static_assert(offsetof(BootloaderInfo, version_major) == 8 && offsetof(BootloaderInfo, name) == 12);
static_assert(offsetof(BootloaderInfo, compile_date) == 44);
static_assert(offsetof(BootloaderInfo, compile_time) == 60);
static_assert(sizeof(ControlRecord) == CONTROL_RECORD_SIZE);
static_assert(offsetof(ControlRecord, struct_version) == 2);
static_assert(offsetof(ControlRecord, reset_count) == 4);
static_assert(sizeof(FactoryTable) == FACTORY_TABLE_SIZE);
static_assert(offsetof(FactoryTable, modif) == 24 && offsetof(FactoryTable, hw) == 26);
static_assert(offsetof(FactoryTable, mac) == 28 && offsetof(FactoryTable, ip_addr) == 34);
static_assert(offsetof(FactoryTable, ip_mask) == 40 && offsetof(FactoryTable, ip_gtw) == 46);
static_assert(offsetof(FactoryTable, ipv6) == 52 && offsetof(FactoryTable, dhcp) == 53);
static_assert(offsetof(FactoryTable, type) == 54 && offsetof(FactoryTable, sn) == 86);
static_assert(offsetof(FactoryTable, reserved1) == 118);

// Wire form <-> record. `from_wire` takes exactly the record's size in bytes.
FirmwareInfo firmware_info_from_wire(std::span<const std::uint8_t, FIRMWARE_INFO_SIZE> bytes);
BootloaderInfo bootloader_info_from_wire(std::span<const std::uint8_t, BOOTLOADER_INFO_SIZE> bytes);
ControlRecord control_record_from_wire(std::span<const std::uint8_t, CONTROL_RECORD_SIZE> bytes);
FactoryTable factory_table_from_wire(std::span<const std::uint8_t, FACTORY_TABLE_SIZE> bytes);

std::array<std::uint8_t, FIRMWARE_INFO_SIZE> to_wire(const FirmwareInfo& record);
std::array<std::uint8_t, BOOTLOADER_INFO_SIZE> to_wire(const BootloaderInfo& record);
std::array<std::uint8_t, CONTROL_RECORD_SIZE> to_wire(const ControlRecord& record);
std::array<std::uint8_t, FACTORY_TABLE_SIZE> to_wire(const FactoryTable& record);

// A record's text field up to its first zero byte, never past its size.
template <std::size_t N>
std::string_view field_text(const char (&field)[N]) {
  std::size_t length = 0;
  while (length < N && field[length] != '\0') {
    ++length;
  }
  return {field, length};
}

// True when the header's magic and all three debug markers hold their debug-build values.
bool is_debug_build(const FirmwareInfo& info);

}  // namespace pelmo
