#pragma once

#include "app/operation_step.hpp"
#include "app/run_context.hpp"
#include "pelmo/protocol/result_code.hpp"

namespace pelmo {

// The bootloader information request, shown the same way on its own and while a HEX image is
// being placed.
inline constexpr OperationStep READ_BOOTLOADER_INFO_STEP{
    .label = "Reading bootloader information ", .ok_width = {14}, .error_width = {14}};

// Handlers of the operations that move no file.
ResultCode handle_read_firmware_info(RunContext& run);
ResultCode handle_read_bootloader_info(RunContext& run);
ResultCode handle_clear_control(RunContext& run);
ResultCode handle_read_control(RunContext& run);
ResultCode handle_restart(RunContext& run);

}  // namespace pelmo
