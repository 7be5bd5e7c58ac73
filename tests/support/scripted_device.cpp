#include "tests/support/scripted_device.hpp"

#include <algorithm>

#include "pelmo/protocol/frame.hpp"

namespace pelmo::test_support {

std::vector<std::uint8_t> response_frame(std::uint8_t status, std::uint32_t address,
                                         std::span<const std::uint8_t> payload) {
  std::vector<std::uint8_t> frame(payload.size() + FRAME_OVERHEAD);
  std::uint16_t length = 0;
  encode_frame(Direction::response, status, address, static_cast<std::uint16_t>(payload.size()),
               payload.empty() ? nullptr : payload.data(), frame, &length);
  frame.resize(length);
  return frame;
}

ScriptedDevice::ScriptedDevice()
    : link_{.send = {},
            .receive = {},
            .progress = [this] { ++progress_calls_; },
            .erase_timeout_ms = 25000,
            .write_timeout_ms = 200,
            .chunk_size = 244,
            .max_attempts = 3} {
  link_.send = [this](std::span<const std::uint8_t> bytes) {
    SentRequest& request = requests_.emplace_back();
    request.bytes.assign(bytes.begin(), bytes.end());
    FrameFields fields;
    if (decode_frame(Direction::request, bytes, fields) == RC_OK) {
      request.code = fields.code;
      request.address = fields.address;
      request.length = fields.length;
      request.payload.assign(fields.payload.begin(), fields.payload.end());
    }
    Reply reply;
    if (!script_.empty()) {
      reply = std::move(script_.front());
      script_.pop_front();
    } else if (responder_) {
      reply = responder_(request);
    }
    if (!reply.answer.empty()) {
      pending_.push_back(std::move(reply.answer));
    }
    return reply.send_result.value_or(static_cast<std::int32_t>(bytes.size()));
  };
  link_.receive = [this](std::span<std::uint8_t> buffer, std::uint16_t min_count,
                         std::uint32_t timeout_ms) {
    std::int32_t count = 0;
    if (!pending_.empty()) {
      count = static_cast<std::int32_t>(std::min(pending_.front().size(), buffer.size()));
      std::copy_n(pending_.front().begin(), count, buffer.begin());
      pending_.pop_front();
    }
    receives_.push_back({buffer.size(), min_count, timeout_ms, count, requests_.size()});
    return count;
  };
}

ScriptedDevice& ScriptedDevice::script(std::vector<Reply> replies) {
  std::move(replies.begin(), replies.end(), std::back_inserter(script_));
  return *this;
}

std::vector<RequestHeader> ScriptedDevice::request_headers() const {
  std::vector<RequestHeader> headers;
  for (const SentRequest& request : requests_) {
    headers.push_back({request.code, request.address, request.length});
  }
  return headers;
}

}  // namespace pelmo::test_support
