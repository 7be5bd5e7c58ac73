#pragma once

#include "pelmo/protocol/link_driver.hpp"
#include "pelmo/protocol/result_code.hpp"

namespace pelmo {

// The begin-write request (CMD_BEGIN_WRITE) that every write sends first, with the default
// time-out. An answer that does not decode lets the write go on, without progress; a non-zero
// status fails it with the status code; a good answer calls progress once.
ResultCode probe_before_write(const LinkDriver* link);

}  // namespace pelmo
