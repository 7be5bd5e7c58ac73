#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "pelmo/protocol/link_driver.hpp"
#include "pelmo/protocol/result_code.hpp"

namespace pelmo {

// What the device does before it answers, which decides how long the adaptive way waits.
enum class AnswerWait : std::uint8_t {
  round_trip,  // it answers as soon as it has done the request: the round-trip estimate
  erase,       // it erases first: the erase allowance (erase_timeout_ms), and no round-trip sample
};

// What the commands know of the answer they expect. The classic way uses none of it.
struct AnswerExpectation {
  // The address the answer echoes (block transfers and chunked reads: the offset; queries: 0).
  // An answer with status 0 and another address belongs to an earlier request and is dropped.
  std::optional<std::uint32_t> echo{};
  AnswerWait wait = AnswerWait::round_trip;
  // The longest answer, for the line time on a serial link; 0: min_count, or an empty frame.
  std::uint16_t answer_bytes = 0;
};

// Sends `request` and collects the answer into `response` over `driver`.
//
// The classic way (no estimator in the driver): up to `max_attempts` attempts, each waiting
// `timeout_ms` + `extra_timeout_ms` (0 selects the transport's default). Only silence and failed
// sends are retried; the bytes that arrive are not looked at.
//
// The adaptive way (estimator and clock in the driver): each attempt waits the estimate (backed
// off after silence) or, for an erase, the erase allowance; all attempts end at a deadline of
// deadline_ms + the time the command lets the device work (`timeout_ms`, or the erase allowance)
// + `extra_timeout_ms`, and after `max_attempts` sends when that is non-zero. An answer that does
// not match `expect.echo` is dropped and the same attempt waits on. Only an exchange answered on
// its first send gives a round-trip sample. `cancelled` is asked before each send and after each
// dropped answer.
//
// Returns RC_OK with the count in `response_length`, RC_TIMEOUT, RC_CANCELLED or RC_NO_DRIVER.
ResultCode exchange(const LinkDriver* driver, std::span<const std::uint8_t> request,
                    std::span<std::uint8_t> response, std::uint16_t min_count,
                    std::uint32_t timeout_ms, std::uint16_t* response_length = nullptr,
                    const AnswerExpectation& expect = {});

}  // namespace pelmo
