#include "pelmo/commands/table_commands.hpp"

#include <limits>

#include "pelmo/commands/transfer.hpp"
#include "pelmo/commands/write_probe.hpp"

namespace pelmo {
namespace {

// The first 8 bytes of the factory table are not compared by a verify.
constexpr std::uint32_t FACTORY_VERIFY_FIRST_OFFSET = 8;

// The calibration table and its backup differ only in their codes.
struct CalibrationCodes {
  CommandCode read;
  CommandCode write;
  CommandCode end;
  CommandCode erase;
  CommandCode verify;
};

constexpr CalibrationCodes CALIBRATION_CODES[2] = {
    {CommandCode::CMD_READ_CALIB, CommandCode::CMD_WRITE_CALIB, CommandCode::CMD_END_CALIB,
     CommandCode::CMD_ERASE_CALIB, CommandCode::CMD_VERIFY_CALIB},
    {CommandCode::CMD_READ_CALIB_BACKUP, CommandCode::CMD_WRITE_CALIB_BACKUP,
     CommandCode::CMD_END_CALIB_BACKUP, CommandCode::CMD_ERASE_CALIB_BACKUP,
     CommandCode::CMD_VERIFY_CALIB_BACKUP},
};

const CalibrationCodes& calibration_codes(bool backup) {
  return CALIBRATION_CODES[backup ? 1 : 0];
}

// Blocks of chunk_size from `first` up to `end`.
BlockPlan table_plan(const LinkDriver& link, std::uint32_t first, std::uint32_t end) {
  return {.first_offset = first, .end = end, .step = link.chunk_size, .unit = 1};
}

// Null bytes are only acceptable when there are none to send.
ResultCode check_data(std::span<const std::uint8_t> data) {
  if (data.data() == nullptr && !data.empty()) {
    return RC_NULL_POINTER;
  }
  if (data.size() > std::numeric_limits<std::uint32_t>::max()) {
    return RC_BAD_LENGTH;
  }
  return RC_OK;
}

}  // namespace

ResultCode read_factory_table(const LinkDriver* link, FactoryTable* table) {
  if (!link_usable(link)) {
    return RC_NO_DRIVER;
  }
  if (table == nullptr) {
    return RC_NULL_POINTER;
  }
  // What the device sends lands over the record's current bytes, even when a later step fails.
  auto bytes = to_wire(*table);
  const ResultCode rc = chunked_read(*link, CommandCode::CMD_READ_FACTORY, bytes, nullptr);
  *table = factory_table_from_wire(bytes);
  return rc;
}

ResultCode write_factory_table(const LinkDriver* link, const FactoryTable* table) {
  if (!link_usable(link)) {
    return RC_NO_DRIVER;
  }
  if (table == nullptr) {
    return RC_NULL_POINTER;
  }
  if (link->chunk_size == 0) {
    return RC_BAD_LENGTH;
  }
  ResultCode rc = probe_before_write(link);
  if (rc < 0) {
    return rc;
  }
  const auto bytes = to_wire(*table);
  rc = block_transfer(*link, CommandCode::CMD_WRITE_FACTORY, bytes,
                      table_plan(*link, 0, FACTORY_TABLE_SIZE), link->write_timeout_ms);
  if (rc != RC_OK) {
    return rc;
  }
  return acknowledged_command(*link, CommandCode::CMD_END_FACTORY, link->write_timeout_ms,
                              AnswerWait::round_trip);
}

ResultCode erase_factory_table(const LinkDriver* link) {
  if (!link_usable(link)) {
    return RC_NO_DRIVER;
  }
  return acknowledged_command(*link, CommandCode::CMD_ERASE_FACTORY, link->erase_timeout_ms,
                              AnswerWait::erase);
}

ResultCode verify_factory_table(const LinkDriver* link, const FactoryTable* table) {
  if (!link_usable(link)) {
    return RC_NO_DRIVER;
  }
  if (table == nullptr) {
    return RC_NULL_POINTER;
  }
  const auto bytes = to_wire(*table);
  return block_transfer(*link, CommandCode::CMD_VERIFY_FACTORY, bytes,
                        table_plan(*link, FACTORY_VERIFY_FIRST_OFFSET, FACTORY_TABLE_SIZE), 0);
}

ResultCode read_calibration_table(const LinkDriver* link, bool backup,
                                  std::span<std::uint8_t> destination, std::uint32_t* size_out) {
  if (!link_usable(link)) {
    return RC_NO_DRIVER;
  }
  if (destination.data() == nullptr) {
    return RC_NULL_POINTER;
  }
  return chunked_read(*link, calibration_codes(backup).read, destination, size_out);
}

ResultCode write_calibration_table(const LinkDriver* link, bool backup,
                                   std::span<const std::uint8_t> data) {
  if (!link_usable(link)) {
    return RC_NO_DRIVER;
  }
  ResultCode rc = check_data(data);
  if (rc != RC_OK) {
    return rc;
  }
  if (link->chunk_size == 0) {
    return RC_BAD_LENGTH;
  }
  rc = probe_before_write(link);
  if (rc < 0) {
    return rc;
  }
  // The device wants a second begin before calibration data, and may take a while to prepare.
  rc = acknowledged_command(*link, CommandCode::CMD_BEGIN_WRITE, link->write_timeout_ms,
                            AnswerWait::round_trip);
  if (rc != RC_OK) {
    return rc;
  }
  const CalibrationCodes& codes = calibration_codes(backup);
  rc = block_transfer(*link, codes.write, data,
                      table_plan(*link, 0, static_cast<std::uint32_t>(data.size())), 0);
  if (rc != RC_OK) {
    return rc;
  }
  return acknowledged_command(*link, codes.end, 0, AnswerWait::round_trip);
}

ResultCode erase_calibration_table(const LinkDriver* link, bool backup) {
  if (!link_usable(link)) {
    return RC_NO_DRIVER;
  }
  return acknowledged_command(*link, calibration_codes(backup).erase, 0, AnswerWait::erase);
}

ResultCode verify_calibration_table(const LinkDriver* link, bool backup,
                                    std::span<const std::uint8_t> data) {
  if (!link_usable(link)) {
    return RC_NO_DRIVER;
  }
  if (data.empty()) {
    return RC_OK;
  }
  const ResultCode rc = check_data(data);
  if (rc != RC_OK) {
    return rc;
  }
  return block_transfer(*link, calibration_codes(backup).verify, data,
                        table_plan(*link, 0, static_cast<std::uint32_t>(data.size())), 0);
}

}  // namespace pelmo
