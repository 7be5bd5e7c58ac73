#include "pelmo/commands/records.hpp"

#include <cstring>

#include "pelmo/protocol/bytes.hpp"

namespace pelmo {
namespace {

// Walks a record field by field in wire order, so one description serves both directions.
class WireReader {
 public:
  explicit WireReader(const std::uint8_t* bytes) : at_(bytes) {}
  void u32(std::uint32_t& value) {
    value = load_u32(ByteOrder::little, at_);
    at_ += 4;
  }
  void u16(std::uint16_t& value) {
    value = load_u16_le(at_);
    at_ += 2;
  }
  template <typename T, std::size_t N>
  void raw(T (&field)[N]) {
    static_assert(sizeof(T) == 1);
    std::memcpy(field, at_, N);
    at_ += N;
  }
  void raw(std::uint8_t& value) { value = *at_++; }

 private:
  const std::uint8_t* at_;
};

class WireWriter {
 public:
  explicit WireWriter(std::uint8_t* bytes) : at_(bytes) {}
  void u32(const std::uint32_t& value) {
    store_u32(ByteOrder::little, value, at_);
    at_ += 4;
  }
  void u16(const std::uint16_t& value) {
    store_u16_le(value, at_);
    at_ += 2;
  }
  template <typename T, std::size_t N>
  void raw(const T (&field)[N]) {
    static_assert(sizeof(T) == 1);
    std::memcpy(at_, field, N);
    at_ += N;
  }
  void raw(const std::uint8_t& value) { *at_++ = value; }

 private:
  std::uint8_t* at_;
};

template <typename Io, typename Record>
void visit(Io& io, Record& r) requires std::is_same_v<std::remove_const_t<Record>, FirmwareInfo> {
  io.u32(r.size);
  io.u32(r.crc32);
  io.u32(r.debug_marker1);
  io.u32(r.debug_marker2);
  io.u32(r.debug_marker3);
  io.u32(r.magic);
  io.u16(r.version_major);
  io.u16(r.version_minor);
  io.u16(r.version_patch);
  io.u16(r.reserved);
  io.raw(r.name);
  io.raw(r.compile_date);
  io.raw(r.compile_time);
}

template <typename Io, typename Record>
void visit(Io& io, Record& r) requires std::is_same_v<std::remove_const_t<Record>, BootloaderInfo> {
  io.u32(r.fw_address);
  io.u32(r.fw_max_size);
  io.u16(r.version_major);
  io.u16(r.version_minor);
  io.raw(r.name);
  io.raw(r.compile_date);
  io.raw(r.compile_time);
}

template <typename Io, typename Record>
void visit(Io& io, Record& r) requires std::is_same_v<std::remove_const_t<Record>, ControlRecord> {
  io.raw(r.reserved0);
  io.u16(r.struct_version);
  io.raw(r.reset_count);
  io.raw(r.reserved1);
}

template <typename Io, typename Record>
void visit(Io& io, Record& r) requires std::is_same_v<std::remove_const_t<Record>, FactoryTable> {
  io.raw(r.reserved0);
  io.u16(r.modif);
  io.u16(r.hw);
  io.raw(r.mac);
  io.raw(r.ip_addr);
  io.raw(r.ip_mask);
  io.raw(r.ip_gtw);
  io.raw(r.ipv6);
  io.raw(r.dhcp);
  io.raw(r.type);
  io.raw(r.sn);
  io.raw(r.reserved1);
}

template <typename Record, std::size_t N>
Record from_wire(std::span<const std::uint8_t, N> bytes) {
  Record record{};
  WireReader reader(bytes.data());
  visit(reader, record);
  return record;
}

template <std::size_t N, typename Record>
std::array<std::uint8_t, N> to_wire_bytes(const Record& record) {
  std::array<std::uint8_t, N> bytes{};
  WireWriter writer(bytes.data());
  visit(writer, record);
  return bytes;
}

}  // namespace

FirmwareInfo firmware_info_from_wire(std::span<const std::uint8_t, FIRMWARE_INFO_SIZE> bytes) {
  return from_wire<FirmwareInfo>(bytes);
}
BootloaderInfo bootloader_info_from_wire(
    std::span<const std::uint8_t, BOOTLOADER_INFO_SIZE> bytes) {
  return from_wire<BootloaderInfo>(bytes);
}
ControlRecord control_record_from_wire(std::span<const std::uint8_t, CONTROL_RECORD_SIZE> bytes) {
  return from_wire<ControlRecord>(bytes);
}
FactoryTable factory_table_from_wire(std::span<const std::uint8_t, FACTORY_TABLE_SIZE> bytes) {
  return from_wire<FactoryTable>(bytes);
}

std::array<std::uint8_t, FIRMWARE_INFO_SIZE> to_wire(const FirmwareInfo& record) {
  return to_wire_bytes<FIRMWARE_INFO_SIZE>(record);
}
std::array<std::uint8_t, BOOTLOADER_INFO_SIZE> to_wire(const BootloaderInfo& record) {
  return to_wire_bytes<BOOTLOADER_INFO_SIZE>(record);
}
std::array<std::uint8_t, CONTROL_RECORD_SIZE> to_wire(const ControlRecord& record) {
  return to_wire_bytes<CONTROL_RECORD_SIZE>(record);
}
std::array<std::uint8_t, FACTORY_TABLE_SIZE> to_wire(const FactoryTable& record) {
  return to_wire_bytes<FACTORY_TABLE_SIZE>(record);
}

bool is_debug_build(const FirmwareInfo& info) {
  return info.magic == FIRMWARE_MAGIC && info.debug_marker1 == DEBUG_MARKER1 &&
         info.debug_marker2 == DEBUG_MARKER2 && info.debug_marker3 == DEBUG_MARKER3;
}

}  // namespace pelmo
