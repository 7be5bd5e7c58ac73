#pragma once

#include <cstdint>
#include <span>

#include "pelmo/protocol/link_driver.hpp"
#include "pelmo/protocol/result_code.hpp"

namespace pelmo {

// Sends `request` and collects the answer into `response` over `driver`, with up to
// `max_attempts` attempts. Only silence and failed sends are retried; the bytes that arrive are not
// looked at. The effective time-out is `timeout_ms` + `extra_timeout_ms` (0 selects the transport's
// default). Returns RC_OK with the count in `response_length`, RC_TIMEOUT, or RC_NO_DRIVER.
ResultCode exchange(const LinkDriver* driver, std::span<const std::uint8_t> request,
                    std::span<std::uint8_t> response, std::uint16_t min_count,
                    std::uint32_t timeout_ms, std::uint16_t* response_length = nullptr);

}  // namespace pelmo
