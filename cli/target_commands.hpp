#pragma once

#include <cstdint>
#include <span>

#include "cli/job.hpp"
#include "cli/report.hpp"
#include "pelmo/session/device_session.hpp"

namespace pelmo::cli {

// Each runs the job's command on one target's open session and fills its report; `output` is the
// target's file when the command writes one (else null).

// flash, write, verify, erase, read
void run_firmware_command(DeviceSession& session, const Job& job, OutputFile* output,
                          TargetReport& report);
// factory and calib
void run_table_command(DeviceSession& session, const Job& job, OutputFile* output,
                       TargetReport& report);
// info, control, restart
void run_device_command(DeviceSession& session, const Job& job, TargetReport& report);

// Writes what a target read into its file and puts the file in place; a failure makes the
// target fail (its outcome keeps what the device did).
void store_output(OutputFile& output, std::span<const std::uint8_t> data, TargetReport& report);

}  // namespace pelmo::cli
