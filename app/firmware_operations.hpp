#pragma once

#include "app/run_context.hpp"
#include "pelmo/protocol/result_code.hpp"

namespace pelmo {

// Handlers of the firmware operations.
ResultCode handle_read_firmware(RunContext& run);
ResultCode handle_write_firmware(RunContext& run);
ResultCode handle_verify_firmware(RunContext& run);
ResultCode handle_erase_firmware(RunContext& run);
ResultCode handle_erase_write_verify_firmware(RunContext& run);

}  // namespace pelmo
