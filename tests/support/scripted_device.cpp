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
      pending_.push_back({std::move(reply.answer), now_ms_ + reply.delay_ms});
    }
    return reply.send_result.value_or(static_cast<std::int32_t>(bytes.size()));
  };
  link_.receive = [this](std::span<std::uint8_t> buffer, std::uint16_t min_count,
                         std::uint32_t timeout_ms) {
    receives_.push_back({buffer.size(), min_count, timeout_ms, 0, requests_.size(), now_ms_});
    // Signed distances from now, so that a clock that wraps still orders arrivals.
    const auto due_in = [this](const Pending& p) {
      return static_cast<std::int32_t>(p.at_ms - now_ms_);
    };
    const auto first = std::min_element(pending_.begin(), pending_.end(),
                                        [&](auto& a, auto& b) { return due_in(a) < due_in(b); });
    const std::uint32_t wait = timeout_ms != 0 ? timeout_ms : DEFAULT_WAIT_MS;
    if (first == pending_.end() ||
        (clocked_ && static_cast<std::int64_t>(due_in(*first)) > std::int64_t{wait})) {
      now_ms_ += clocked_ ? wait : 0;
      return 0;
    }
    if (clocked_ && due_in(*first) > 0) {
      now_ms_ = first->at_ms;
    }
    const auto count = static_cast<std::int32_t>(std::min(first->bytes.size(), buffer.size()));
    std::copy_n(first->bytes.begin(), count, buffer.begin());
    pending_.erase(first);
    receives_.back().result = count;
    return count;
  };
}

void ScriptedDevice::use_clock(std::uint32_t start_ms) {
  clocked_ = true;
  now_ms_ = start_ms;
  link_.clock_ms = [this] { return now_ms_; };
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
