#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <span>

#include "pelmo/commands/command_code.hpp"
#include "pelmo/protocol/exchange.hpp"
#include "pelmo/protocol/frame.hpp"
#include "pelmo/protocol/link_driver.hpp"
#include "pelmo/protocol/result_code.hpp"

namespace pelmo {

// The three ways a bootloader command talks to the device, each written once: the single
// command, the chunked read and the chunked block transfer. They expect a usable link (the
// commands check that first) and call its progress callback after each acknowledged step. Each
// tells the exchange which address its answers echo and what the device does before answering,
// which the adaptive way uses to drop stale answers and to choose its waits.

// Answers without payload are exactly one empty frame, so their reception can end as soon as
// that much is in; answers whose length is not known in advance wait for the link to fall quiet.
inline constexpr std::uint16_t ACK_MIN_COUNT = 12;
inline constexpr std::uint16_t DATA_MIN_COUNT = 0;

// Status a chunked read's answer carries once the area has no more data.
inline constexpr std::uint8_t END_OF_DATA_STATUS = 0xFD;

// A read that keeps getting empty answers at one offset gives up after this many in a row.
inline constexpr unsigned MAX_EMPTY_READ_ANSWERS = 16;

// The request and response buffers of one command call.
struct FrameBuffers {
  std::array<std::uint8_t, FRAME_BUFFER_SIZE> request{};
  std::array<std::uint8_t, FRAME_BUFFER_SIZE> response{};
};

// One request/answer step: encodes the request, exchanges it and decodes the answer. Returns the
// first failure of the three unchanged, or the device's non-zero status as a result code; on
// RC_OK `answer` describes the response, its payload pointing into `buffers.response`.
ResultCode request_step(const LinkDriver& link, CommandCode code, std::uint32_t address,
                        std::uint16_t length, std::span<const std::uint8_t> payload,
                        std::uint16_t min_count, std::uint32_t timeout_ms,
                        const AnswerExpectation& expect, FrameBuffers& buffers,
                        FrameFields& answer);

// Single command whose answer is only an acknowledgement (erase, begin, end): address 0, no
// payload, only the status is examined (nothing is matched); progress once on success. `wait`
// says whether the device erases before it answers.
ResultCode acknowledged_command(const LinkDriver& link, CommandCode code, std::uint32_t timeout_ms,
                                AnswerWait wait);

// Takes the payload of a query's answer; returns RC_OK or RC_MISMATCH.
using PayloadHandler = std::function<ResultCode(std::span<const std::uint8_t> payload)>;

// Single command that asks for a record or an action (information, control, restart): address 0,
// no payload, default time-out; the echoed address must be 0, then `handle` judges the payload.
// `answer_payload` is the longest payload the answer should carry. No progress.
ResultCode query_command(const LinkDriver& link, CommandCode code, std::size_t answer_payload,
                         const PayloadHandler& handle);

// Chunked read: asks for `chunk_size` bytes at the offset reached until the device answers with
// END_OF_DATA_STATUS, advancing by what each answer carries. The bytes land in `destination` at
// their offsets; an answer crossing its end fails with RC_BAD_LENGTH, MAX_EMPTY_READ_ANSWERS empty
// answers in a row with RC_TIMEOUT, a chunk size of 0 with RC_BAD_LENGTH before anything is sent.
// `bytes_read` (optional) receives the count on success. transfer_progress gets the offset
// reached and the destination's size after each answered chunk.
ResultCode chunked_read(const LinkDriver& link, CommandCode code,
                        std::span<std::uint8_t> destination, std::uint32_t* bytes_read);

// Which blocks a block transfer sends: offsets from `first_offset` while below `end`, advancing
// by `step`; each block is `step` long or reaches `end`, rounded up to `unit` bytes.
struct BlockPlan {
  std::uint32_t first_offset = 0;
  std::uint32_t end = 0;
  std::uint32_t step = 0;
  std::uint32_t unit = 1;
};

// Length of the block at `offset` under `plan` (offset below plan.end).
std::uint32_t block_length(const BlockPlan& plan, std::uint32_t offset);

// Chunked block transfer (write or verify blocks): each block is sent with its offset as address
// and `data`'s bytes from that offset as payload (0xFF past the end of `data`), and must be
// acknowledged with status 0, the same address and no payload (else RC_MISMATCH); progress after
// each, and transfer_progress with the block's end (at most plan.end) and plan.end. An empty range
// sends nothing; a step of 0 is RC_BAD_LENGTH.
ResultCode block_transfer(const LinkDriver& link, CommandCode code,
                          std::span<const std::uint8_t> data, const BlockPlan& plan,
                          std::uint32_t timeout_ms);

// Calls the link's progress callback when it has one.
void report_progress(const LinkDriver& link);
// Calls the link's transfer-progress callback when it has one.
void report_transfer(const LinkDriver& link, std::uint32_t done, std::uint32_t total);

}  // namespace pelmo
