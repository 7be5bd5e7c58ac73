#pragma once

#include <functional>
#include <string_view>

#include "app/console.hpp"
#include "app/status_text.hpp"
#include "pelmo/protocol/result_code.hpp"

namespace pelmo {

// One step of an operation: its label (ending in a blank), the widths of its OK and Error
// statuses, and the lines that explain a failure after the status.
struct OperationStep {
  std::string_view label;
  StatusWidth ok_width;
  StatusWidth error_width;
  // Status written instead of the Error text when the command reports RC_MISMATCH.
  std::string_view mismatch_status = {};
  // Line written after the status when the command reports RC_MISMATCH.
  std::string_view mismatch_line = {};
  // Line written after the status on any other failure.
  std::string_view failure_line = {};
  // The label appears only once the command has returned (progress until then shows the
  // previous, empty label).
  bool label_after_command = false;
};

// Shows the label, runs `command`, closes the line with the OK or Error status and explains a
// failure. Returns the command's result.
ResultCode run_step(Console& console, const OperationStep& step,
                    const std::function<ResultCode()>& command);

}  // namespace pelmo
