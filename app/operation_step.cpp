#include "app/operation_step.hpp"

#include "app/interruption.hpp"

namespace pelmo {

ResultCode run_step(Console& console, const OperationStep& step,
                    const std::function<ResultCode()>& command) {
  stop_if_interrupted();  // a signal that came between two steps ends the run before the next
  ResultCode result = RC_OK;
  if (step.label_after_command) {
    result = command();
    console.begin_status(step.label, true);
  } else {
    console.begin_status(step.label, true);
    result = command();
  }
  if (result >= RC_OK) {
    console.print_status(ok_status(step.ok_width));
    return result;
  }
  const bool mismatch = result == RC_MISMATCH;
  if (mismatch && !step.mismatch_status.empty()) {
    console.print_status(step.mismatch_status);
  } else {
    console.print_status(error_status(step.error_width));
  }
  const std::string_view line = mismatch ? step.mismatch_line : step.failure_line;
  if (!line.empty()) {
    console.write_line(line);
  }
  return result;
}

}  // namespace pelmo
