#pragma once

#include "app/operation.hpp"
#include "app/run_context.hpp"
#include "pelmo/protocol/result_code.hpp"

namespace pelmo {

using OperationHandler = ResultCode (*)(RunContext& run);

// The handler of `operation`, or null when it has none.
OperationHandler find_handler(Operation operation);

// Runs the handler of the run's operation; RC_FAILED when there is none.
ResultCode run_operation(RunContext& run);

}  // namespace pelmo
