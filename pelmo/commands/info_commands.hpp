#pragma once

#include "pelmo/commands/records.hpp"
#include "pelmo/protocol/link_driver.hpp"
#include "pelmo/protocol/result_code.hpp"

namespace pelmo {

// One-exchange commands on the device's records. Every command takes the link first; a null link
// or one without send/receive gives RC_NO_DRIVER and nothing is sent. None reports progress.
// On any failure the destination record is left as the caller gave it.

// The firmware header (96 bytes); any other payload length is RC_MISMATCH.
ResultCode read_firmware_info(const LinkDriver* link, FirmwareInfo& info);

// The bootloader record (76 bytes); any other payload length is RC_MISMATCH.
ResultCode read_bootloader_info(const LinkDriver* link, BootloaderInfo& info);

// The control record: up to 76 payload bytes, the rest of the record zero.
ResultCode read_control(const LinkDriver* link, ControlRecord& record);

ResultCode clear_control(const LinkDriver* link);

// After a successful restart the device leaves its bootloader; send nothing more on this link.
ResultCode restart_device(const LinkDriver* link);

}  // namespace pelmo
