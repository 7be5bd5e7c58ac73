#pragma once

#include <cstdint>
#include <span>

#include "pelmo/commands/records.hpp"
#include "pelmo/protocol/link_driver.hpp"
#include "pelmo/protocol/result_code.hpp"

namespace pelmo {

// Commands on the device's three tables. The factory table moves as one 120-byte record; the
// calibration table and its backup (`backup` true) are raw bytes of any length. Every command
// takes the link first; a null link or one without send/receive gives RC_NO_DRIVER and nothing
// is sent. A null record gives RC_NULL_POINTER, also with nothing sent.

// Reads the factory table until the device reports the end of data. The bytes read land in the
// record at their offsets (also when the read fails later); an answer reaching past byte 119
// fails with RC_BAD_LENGTH.
ResultCode read_factory_table(const LinkDriver* link, FactoryTable* table);

// Probe, the record's 120 bytes in blocks, then the end command.
ResultCode write_factory_table(const LinkDriver* link, const FactoryTable* table);

ResultCode erase_factory_table(const LinkDriver* link);

// Has the device compare bytes 8 to 119 of the record; RC_MISMATCH when they differ.
ResultCode verify_factory_table(const LinkDriver* link, const FactoryTable* table);

// Reads a calibration table into `destination` until the device reports the end of data; an
// answer that would cross its end fails with RC_BAD_LENGTH. `size_out` (optional) receives the
// number of bytes read.
ResultCode read_calibration_table(const LinkDriver* link, bool backup,
                                  std::span<std::uint8_t> destination,
                                  std::uint32_t* size_out = nullptr);

// Probe, a second begin command, `data` in blocks, then the end command. Empty data is a valid
// (empty) table.
ResultCode write_calibration_table(const LinkDriver* link, bool backup,
                                   std::span<const std::uint8_t> data);

ResultCode erase_calibration_table(const LinkDriver* link, bool backup);

// Has the device compare `data` with the table; RC_MISMATCH when they differ. Empty data sends
// nothing and succeeds.
ResultCode verify_calibration_table(const LinkDriver* link, bool backup,
                                    std::span<const std::uint8_t> data);

}  // namespace pelmo
