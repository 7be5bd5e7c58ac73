#include "pelmo/commands/firmware_commands.hpp"

#include <limits>

#include "pelmo/commands/transfer.hpp"
#include "pelmo/commands/write_probe.hpp"

namespace pelmo {
namespace {

// The device programs its flash in 8-byte units: blocks start on them and are whole units long.
constexpr std::uint32_t FIRMWARE_UNIT = 8;

// The first 8 bytes of the area are not compared by a verify.
constexpr std::uint32_t VERIFY_FIRST_OFFSET = 8;

std::uint32_t firmware_step(const LinkDriver& link) {
  return link.chunk_size / FIRMWARE_UNIT * FIRMWARE_UNIT;
}

bool fits_u32(std::size_t size) {
  return size <= std::numeric_limits<std::uint32_t>::max();
}

}  // namespace

ResultCode read_firmware(const LinkDriver* link, std::span<std::uint8_t> destination,
                         std::uint32_t* size_out) {
  if (!link_usable(link)) {
    return RC_NO_DRIVER;
  }
  if (destination.data() == nullptr) {
    return RC_NULL_POINTER;
  }
  return chunked_read(*link, CommandCode::CMD_READ_FW, destination, size_out);
}

ResultCode erase_firmware(const LinkDriver* link) {
  if (!link_usable(link)) {
    return RC_NO_DRIVER;
  }
  return acknowledged_command(*link, CommandCode::CMD_ERASE_FW, link->erase_timeout_ms,
                              AnswerWait::erase);
}

ResultCode write_firmware(const LinkDriver* link, std::span<const std::uint8_t> buffer,
                          std::uint32_t length) {
  if (!link_usable(link)) {
    return RC_NO_DRIVER;
  }
  if (buffer.data() == nullptr && length > 0) {
    return RC_NULL_POINTER;
  }
  if (length > buffer.size() || link->chunk_size < MIN_FIRMWARE_CHUNK) {
    return RC_BAD_LENGTH;
  }
  ResultCode rc = probe_before_write(link);
  if (rc < 0) {
    return rc;
  }
  const BlockPlan plan{
      .first_offset = 0, .end = length, .step = firmware_step(*link), .unit = FIRMWARE_UNIT};
  rc = block_transfer(*link, CommandCode::CMD_WRITE_FW, buffer, plan, link->write_timeout_ms);
  if (rc != RC_OK) {
    return rc;
  }
  return acknowledged_command(*link, CommandCode::CMD_END_FW, link->write_timeout_ms,
                              AnswerWait::round_trip);
}

ResultCode verify_firmware(const LinkDriver* link, std::span<const std::uint8_t> image) {
  if (!link_usable(link)) {
    return RC_NO_DRIVER;
  }
  if (image.size() < MIN_VERIFY_LENGTH) {
    return RC_BAD_LENGTH;
  }
  if (image.data() == nullptr) {
    return RC_NULL_POINTER;
  }
  if (!fits_u32(image.size()) || link->chunk_size < MIN_FIRMWARE_CHUNK) {
    return RC_BAD_LENGTH;
  }
  const BlockPlan plan{.first_offset = VERIFY_FIRST_OFFSET,
                       .end = static_cast<std::uint32_t>(image.size()),
                       .step = firmware_step(*link),
                       .unit = 1};
  return block_transfer(*link, CommandCode::CMD_VERIFY_FW, image, plan, 0);
}

}  // namespace pelmo
