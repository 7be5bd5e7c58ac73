#pragma once

#include "app/run_context.hpp"
#include "pelmo/protocol/result_code.hpp"

namespace pelmo {

// Handlers of the factory table operations; the table travels as its text file form.
ResultCode handle_read_factory(RunContext& run);
ResultCode handle_write_factory(RunContext& run);
ResultCode handle_verify_factory(RunContext& run);
ResultCode handle_erase_factory(RunContext& run);
ResultCode handle_erase_write_verify_factory(RunContext& run);

}  // namespace pelmo
