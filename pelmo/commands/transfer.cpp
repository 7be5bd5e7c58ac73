#include "pelmo/commands/transfer.hpp"

#include <algorithm>
#include <limits>

#include "pelmo/protocol/bytes.hpp"
#include "pelmo/protocol/exchange.hpp"

namespace pelmo {

void report_progress(const LinkDriver& link) {
  if (link.progress) {
    link.progress();
  }
}

void report_transfer(const LinkDriver& link, std::uint32_t done, std::uint32_t total) {
  if (link.transfer_progress) {
    link.transfer_progress(done, total);
  }
}

namespace {

// The answer of a request that moves no data.
constexpr auto ACK_BYTES = static_cast<std::uint16_t>(FRAME_OVERHEAD);

std::uint16_t answer_bytes(std::size_t payload) {
  return static_cast<std::uint16_t>(std::min(payload, MAX_FRAME_PAYLOAD) + FRAME_OVERHEAD);
}

}  // namespace

ResultCode request_step(const LinkDriver& link, CommandCode code, std::uint32_t address,
                        std::uint16_t length, std::span<const std::uint8_t> payload,
                        std::uint16_t min_count, std::uint32_t timeout_ms,
                        const AnswerExpectation& expect, FrameBuffers& buffers,
                        FrameFields& answer) {
  std::uint16_t request_length = 0;
  ResultCode rc =
      encode_frame(Direction::request, to_byte(code), address, length,
                   payload.empty() ? nullptr : payload.data(), buffers.request, &request_length);
  if (rc != RC_OK) {
    return rc;
  }
  std::uint16_t response_length = 0;
  rc = exchange(&link, std::span(buffers.request).first(request_length), buffers.response,
                min_count, timeout_ms, &response_length, expect);
  if (rc != RC_OK) {
    return rc;
  }
  rc =
      decode_frame(Direction::response, std::span(buffers.response).first(response_length), answer);
  if (rc != RC_OK) {
    return rc;
  }
  return device_status_code(answer.code);
}

ResultCode acknowledged_command(const LinkDriver& link, CommandCode code, std::uint32_t timeout_ms,
                                AnswerWait wait) {
  FrameBuffers buffers;
  FrameFields answer;
  const ResultCode rc = request_step(link, code, 0, 0, {}, ACK_MIN_COUNT, timeout_ms,
                                     {.wait = wait, .answer_bytes = ACK_BYTES}, buffers, answer);
  if (rc != RC_OK) {
    return rc;
  }
  report_progress(link);
  return RC_OK;
}

ResultCode query_command(const LinkDriver& link, CommandCode code, std::size_t answer_payload,
                         const PayloadHandler& handle) {
  FrameBuffers buffers;
  FrameFields answer;
  const ResultCode rc =
      request_step(link, code, 0, 0, {}, DATA_MIN_COUNT, 0,
                   {.echo = 0, .answer_bytes = answer_bytes(answer_payload)}, buffers, answer);
  if (rc != RC_OK) {
    return rc;
  }
  if (answer.address != 0) {
    return RC_MISMATCH;
  }
  return handle(answer.payload);
}

ResultCode chunked_read(const LinkDriver& link, CommandCode code,
                        std::span<std::uint8_t> destination, std::uint32_t* bytes_read) {
  if (link.chunk_size == 0) {
    return RC_BAD_LENGTH;
  }
  // Offsets travel as 32-bit addresses; nothing beyond that can be reached anyway.
  destination = destination.first(
      std::min<std::size_t>(destination.size(), std::numeric_limits<std::uint32_t>::max()));
  FrameBuffers buffers;
  std::uint32_t offset = 0;
  unsigned empty_in_row = 0;
  // Every round either moves the offset on (bounded by the destination) or counts an empty
  // answer (bounded by MAX_EMPTY_READ_ANSWERS), so the loop always ends.
  for (;;) {
    FrameFields answer;
    const ResultCode rc = request_step(
        link, code, offset, link.chunk_size, {}, DATA_MIN_COUNT, 0,
        {.echo = offset, .answer_bytes = answer_bytes(link.chunk_size)}, buffers, answer);
    if (rc == device_status_code(END_OF_DATA_STATUS)) {
      if (bytes_read != nullptr) {
        *bytes_read = offset;
      }
      return RC_OK;
    }
    if (rc != RC_OK) {
      return rc;
    }
    if (answer.address != offset) {
      return RC_MISMATCH;
    }
    const std::size_t count = answer.payload.size();
    if (count > destination.size() - offset) {
      return RC_BAD_LENGTH;
    }
    if (count == 0) {
      if (++empty_in_row == MAX_EMPTY_READ_ANSWERS) {
        return RC_TIMEOUT;
      }
    } else {
      empty_in_row = 0;
      copy_memory(destination.data() + offset, answer.payload.data(),
                  static_cast<std::uint16_t>(count));
    }
    report_progress(link);
    offset += static_cast<std::uint32_t>(count);
    report_transfer(link, offset, static_cast<std::uint32_t>(destination.size()));
  }
}

std::uint32_t block_length(const BlockPlan& plan, std::uint32_t offset) {
  const std::uint32_t unit = std::max<std::uint32_t>(plan.unit, 1);
  const std::uint64_t length = std::min<std::uint64_t>(plan.step, plan.end - offset);
  return static_cast<std::uint32_t>((length + unit - 1) / unit * unit);
}

ResultCode block_transfer(const LinkDriver& link, CommandCode code,
                          std::span<const std::uint8_t> data, const BlockPlan& plan,
                          std::uint32_t timeout_ms) {
  if (plan.step == 0) {
    return RC_BAD_LENGTH;
  }
  FrameBuffers buffers;
  std::array<std::uint8_t, MAX_FRAME_PAYLOAD> padded{};
  for (std::uint64_t offset = plan.first_offset; offset < plan.end; offset += plan.step) {
    const auto address = static_cast<std::uint32_t>(offset);
    const std::uint32_t length = block_length(plan, address);
    if (length > MAX_FRAME_PAYLOAD) {
      return RC_BAD_LENGTH;  // the same answer the encoder would give for an oversized frame
    }
    std::span<const std::uint8_t> payload;
    if (offset + length <= data.size()) {
      payload = data.subspan(address, length);
    } else {
      // The block reaches past the caller's bytes: pad with the value of erased memory.
      const std::size_t available =
          offset < data.size() ? static_cast<std::size_t>(data.size() - offset) : 0;
      if (available > 0) {
        std::copy_n(data.subspan(address).begin(), available, padded.begin());
      }
      std::fill(padded.begin() + static_cast<std::ptrdiff_t>(available), padded.begin() + length,
                std::uint8_t{0xFF});
      payload = std::span<const std::uint8_t>(padded).first(length);
    }
    FrameFields answer;
    const ResultCode rc = request_step(
        link, code, address, static_cast<std::uint16_t>(length), payload, ACK_MIN_COUNT, timeout_ms,
        {.echo = address, .answer_bytes = ACK_BYTES}, buffers, answer);
    if (rc != RC_OK) {
      return rc;
    }
    if (answer.address != address || !answer.payload.empty()) {
      return RC_MISMATCH;
    }
    report_progress(link);
    report_transfer(link,
                    static_cast<std::uint32_t>(std::min<std::uint64_t>(offset + length, plan.end)),
                    plan.end);
  }
  return RC_OK;
}

}  // namespace pelmo
