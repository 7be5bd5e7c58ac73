#include "simulator/firmware_header.hpp"

#include <algorithm>
#include <array>

#include "pelmo/commands/records.hpp"
#include "pelmo/protocol/bytes.hpp"
#include "pelmo/protocol/crc32.hpp"
#include "simulator/device_status.hpp"

namespace pelmo::sim {
namespace {

constexpr std::size_t MAGIC_OFFSET = 20;

std::uint32_t content_crc(std::span<const std::uint8_t> storage, std::size_t size) {
  return crc32_mpeg2(storage.subspan(FIRMWARE_SEAL_SIZE, size - FIRMWARE_SEAL_SIZE));
}

}  // namespace

void seal_firmware(MemoryArea& firmware) {
  if (firmware.length() == 0) {
    return;
  }
  // A write shorter than the seal still gets one; the seal then extends the written length.
  const std::size_t size = std::max(firmware.length(), FIRMWARE_SEAL_SIZE);
  std::array<std::uint8_t, FIRMWARE_SEAL_SIZE> seal{};
  store_u32(ByteOrder::little, static_cast<std::uint32_t>(size), seal.data());
  store_u32(ByteOrder::little, content_crc(firmware.storage(), size), seal.data() + 4);
  firmware.write(0, seal);
}

std::uint8_t firmware_header_status(const MemoryArea& firmware) {
  const auto content = firmware.content();
  if (content.size() < FIRMWARE_INFO_SIZE ||
      load_u32(ByteOrder::little, content.data() + MAGIC_OFFSET) != FIRMWARE_MAGIC) {
    return STATUS_BAD_HEADER;
  }
  const std::uint32_t size = load_u32(ByteOrder::little, content.data());
  if (size < FIRMWARE_SEAL_SIZE || size > content.size()) {
    return STATUS_BAD_CRC;
  }
  const std::uint32_t stored_crc = load_u32(ByteOrder::little, content.data() + 4);
  return stored_crc == content_crc(content, size) ? STATUS_OK : STATUS_BAD_CRC;
}

}  // namespace pelmo::sim
