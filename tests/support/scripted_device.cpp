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

std::vector<std::uint8_t> with_bad_crc(std::vector<std::uint8_t> frame) {
  if (!frame.empty()) {
    frame.back() ^= 0x01;
  }
  return frame;
}

Reply answer(std::uint8_t status, std::uint32_t address, std::span<const std::uint8_t> payload) {
  return Reply{.send_result = std::nullopt, .answer = response_frame(status, address, payload)};
}
Reply ack(std::uint32_t address) {
  return answer(0, address);
}
Reply silence() {
  return Reply{};
}
Reply raw(std::vector<std::uint8_t> bytes) {
  return Reply{.send_result = std::nullopt, .answer = std::move(bytes)};
}
Reply failed_send(std::int32_t send_result) {
  return Reply{.send_result = send_result, .answer = {}};
}

Responder acknowledge_all() {
  return [](const SentRequest& request) { return ack(request.address); };
}

Responder serve_area(std::vector<std::uint8_t> area) {
  return [area = std::move(area)](const SentRequest& request) {
    const bool read = request.code >= 0x01 && request.code <= 0x04;
    if (!read) {
      return ack(request.address);
    }
    if (request.address >= area.size()) {
      return answer(0xFD, request.address);
    }
    const std::size_t count = std::min<std::size_t>(request.length, area.size() - request.address);
    return answer(0, request.address, std::span(area).subspan(request.address, count));
  };
}

ScriptedDevice::ScriptedDevice() {
  link_.send = [this](std::span<const std::uint8_t> bytes) { return on_send(bytes); };
  link_.receive = [this](std::span<std::uint8_t> buffer, std::uint16_t min_count,
                         std::uint32_t timeout_ms) {
    return on_receive(buffer, min_count, timeout_ms);
  };
  link_.progress = [this] {
    ++progress_calls_;
    events_.push_back(Event::progress);
  };
  link_.erase_timeout_ms = 25000;
  link_.write_timeout_ms = 200;
  link_.extra_timeout_ms = 0;
  link_.chunk_size = 244;
  link_.max_attempts = 3;
}

ScriptedDevice& ScriptedDevice::then(Reply reply) {
  script_.push_back(std::move(reply));
  return *this;
}

ScriptedDevice& ScriptedDevice::script(std::vector<Reply> replies) {
  for (Reply& reply : replies) {
    script_.push_back(std::move(reply));
  }
  return *this;
}

ScriptedDevice& ScriptedDevice::respond_with(Responder responder) {
  responder_ = std::move(responder);
  return *this;
}

void ScriptedDevice::inject_input(std::vector<std::uint8_t> bytes) {
  pending_.push_back(std::move(bytes));
}

std::vector<RequestHeader> ScriptedDevice::request_headers() const {
  std::vector<RequestHeader> headers;
  headers.reserve(requests_.size());
  for (const SentRequest& request : requests_) {
    headers.push_back({request.code, request.address, request.length});
  }
  return headers;
}

std::int32_t ScriptedDevice::on_send(std::span<const std::uint8_t> bytes) {
  events_.push_back(Event::send);
  SentRequest request;
  request.bytes.assign(bytes.begin(), bytes.end());
  FrameFields fields;
  request.decode_result = decode_frame(Direction::request, bytes, fields);
  if (request.decode_result == RC_OK) {
    request.code = fields.code;
    request.address = fields.address;
    request.length = fields.length;
    request.payload.assign(fields.payload.begin(), fields.payload.end());
  }
  requests_.push_back(request);

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
}

std::int32_t ScriptedDevice::on_receive(std::span<std::uint8_t> buffer, std::uint16_t min_count,
                                        std::uint32_t timeout_ms) {
  events_.push_back(Event::receive);
  std::int32_t count = 0;
  if (!pending_.empty()) {
    const std::vector<std::uint8_t>& chunk = pending_.front();
    const std::size_t taken = std::min(chunk.size(), buffer.size());
    std::copy_n(chunk.begin(), taken, buffer.begin());
    count = static_cast<std::int32_t>(taken);
    pending_.pop_front();
  }
  receives_.push_back({buffer.size(), min_count, timeout_ms, count});
  return count;
}

}  // namespace pelmo::test_support
