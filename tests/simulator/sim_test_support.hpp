#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

#include "commands/command_code.hpp"
#include "commands/records.hpp"
#include "protocol/bytes.hpp"
#include "protocol/frame.hpp"
#include "simulator/device.hpp"
#include "simulator/fault_plan.hpp"
#include "simulator/request_log.hpp"
#include "simulator/responder.hpp"

namespace pelmo::sim::test {

using Bytes = std::vector<std::uint8_t>;

inline Bytes request_frame(CommandCode code, std::uint32_t address, std::uint16_t length,
                           const Bytes& payload = {}) {
  Bytes frame(FRAME_BUFFER_SIZE);
  std::uint16_t size = 0;
  EXPECT_EQ(RC_OK, encode_frame(Direction::request, to_byte(code), address, length,
                                payload.empty() ? nullptr : payload.data(), frame, &size));
  frame.resize(size);
  return frame;
}

// A decoded answer of the device.
struct Answer {
  ResultCode decoded = RC_FAILED;
  std::uint8_t status = 0;
  std::uint32_t address = 0;
  Bytes payload;
};

inline Answer decode_answer(const Bytes& frame) {
  Answer answer;
  FrameFields fields;
  answer.decoded = decode_frame(Direction::response, frame, fields);
  answer.status = fields.code;
  answer.address = fields.address;
  answer.payload.assign(fields.payload.begin(), fields.payload.end());
  return answer;
}

// A device with its responder in process: requests go in as encoded frames, answers come back as
// the transmissions the endpoints would send.
struct Bench {
  explicit Bench(DeviceConfig config = {}, FaultPlan plan = {})
      : device(config), faults(std::move(plan)), log(log_text), responder(device, faults, log) {}

  std::vector<Transmission> send(CommandCode code, std::uint32_t address, std::uint16_t length,
                                 const Bytes& payload = {}) {
    return responder.on_frame(request_frame(code, address, length, payload));
  }

  // Sends one request that must be answered by exactly one transmission, and decodes it.
  Answer ask(CommandCode code, std::uint32_t address = 0, std::uint16_t length = 0,
             const Bytes& payload = {}) {
    const auto out = send(code, address, length, payload);
    EXPECT_EQ(1u, out.size());
    return out.empty() ? Answer{} : decode_answer(out.front().bytes);
  }

  std::vector<std::string> log_lines() const {
    std::vector<std::string> lines;
    std::istringstream in(log_text.str());
    for (std::string line; std::getline(in, line);) {
      lines.push_back(line);
    }
    return lines;
  }

  Device device;
  FaultPlan faults;
  std::ostringstream log_text;
  RequestLog log;
  Responder responder;
};

// A firmware image with a valid header magic and some content after it.
inline Bytes firmware_image(std::size_t size, std::uint8_t seed = 1) {
  Bytes image(size);
  for (std::size_t i = 0; i < size; ++i) {
    image[i] = static_cast<std::uint8_t>(i * 7 + seed);
  }
  if (size >= FIRMWARE_INFO_SIZE) {
    store_u32(ByteOrder::little, FIRMWARE_MAGIC, image.data() + 20);
  }
  return image;
}

}  // namespace pelmo::sim::test
