#include "tests/support/scripted_device.hpp"

#include <algorithm>
#include <ostream>

#include "pelmo/protocol/frame.hpp"

namespace pelmo::test_support {

std::ostream& operator<<(std::ostream& out, const RequestHeader& header) {
  return out << "{code 0x" << std::hex << static_cast<unsigned>(header.code) << std::dec
             << ", address " << header.address << ", length " << header.length << "}";
}

std::vector<std::uint8_t> response_frame(std::uint8_t status, std::uint32_t address,
                                         std::span<const std::uint8_t> payload) {
  std::vector<std::uint8_t> frame(payload.size() + FRAME_OVERHEAD);
  std::uint16_t length = 0;
  encode_frame(Direction::response, status, address, static_cast<std::uint16_t>(payload.size()),
               payload.empty() ? nullptr : payload.data(), frame, &length);
  frame.resize(length);
  return frame;
}

Responder serve_area(std::vector<std::uint8_t> area) {
  return [area = std::move(area)](const SentRequest& request) {
    if (request.code < 0x01 || request.code > 0x04) {  // not a read
      return ack(request.address);
    }
    if (request.address >= area.size()) {
      return answer(0xFD, request.address);
    }
    const std::size_t count = std::min<std::size_t>(request.length, area.size() - request.address);
    return answer(0, request.address, std::span(area).subspan(request.address, count));
  };
}

ScriptedDevice::ScriptedDevice()
    : link_{.send = [this](std::span<const std::uint8_t> bytes) { return on_send(bytes); },
            .receive =
                [this](std::span<std::uint8_t> buffer, std::uint16_t min_count,
                       std::uint32_t timeout_ms) {
                  return on_receive(buffer, min_count, timeout_ms);
                },
            .progress =
                [this] {
                  ++progress_calls_;
                  events_.push_back(Event::progress);
                },
            .erase_timeout_ms = 25000,
            .write_timeout_ms = 200,
            .extra_timeout_ms = 0,
            .chunk_size = 244,
            .max_attempts = 3} {}

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

std::int32_t ScriptedDevice::on_send(std::span<const std::uint8_t> bytes) {
  events_.push_back(Event::send);
  SentRequest& request = requests_.emplace_back();
  request.bytes.assign(bytes.begin(), bytes.end());
  FrameFields fields;
  if ((request.decode_result = decode_frame(Direction::request, bytes, fields)) == RC_OK) {
    request.code = fields.code;
    request.address = fields.address;
    request.length = fields.length;
    request.payload.assign(fields.payload.begin(), fields.payload.end());
  }
  Reply reply =
      script_.empty() ? (responder_ ? responder_(request) : Reply{}) : std::move(script_.front());
  if (!script_.empty()) {
    script_.pop_front();
  }
  if (!reply.answer.empty()) {
    pending_.push_back(std::move(reply.answer));
  }
  return reply.send_result.value_or(static_cast<std::int32_t>(bytes.size()));
}

std::int32_t ScriptedDevice::on_receive(std::span<std::uint8_t> buffer, std::uint16_t min_count,
                                        std::uint32_t timeout_ms) {
  events_.push_back(Event::receive);
  std::int32_t count = 0;
  if (!pending_.empty()) {
    count = static_cast<std::int32_t>(std::min(pending_.front().size(), buffer.size()));
    std::copy_n(pending_.front().begin(), count, buffer.begin());
    pending_.pop_front();
  }
  receives_.push_back({buffer.size(), min_count, timeout_ms, count});
  return count;
}

}  // namespace pelmo::test_support
