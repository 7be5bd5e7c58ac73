#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <span>
#include <vector>

#include "pelmo/protocol/link_driver.hpp"
#include "pelmo/protocol/result_code.hpp"

namespace pelmo::test_support {

// A request frame as it reached the device.
struct SentRequest {
  std::vector<std::uint8_t> bytes;
  std::uint8_t code = 0;  // these fields stay 0 when the bytes do not decode as a request
  std::uint32_t address = 0;
  std::uint16_t length = 0;  // the length field
  std::vector<std::uint8_t> payload;
};

// The parts of a request most tests compare.
struct RequestHeader {
  std::uint8_t code = 0;
  std::uint32_t address = 0;
  std::uint16_t length = 0;
  friend bool operator==(const RequestHeader&, const RequestHeader&) = default;
};

// One call of the link's receive function.
struct ReceiveCall {
  std::size_t capacity = 0;
  std::uint16_t min_count = 0;
  std::uint32_t timeout_ms = 0;
  std::int32_t result = 0;
  std::size_t sends_before = 0;  // requests sent before this receive
  std::uint32_t at_ms = 0;       // the device's clock when the receive began
};

// The device's reaction to one request: what send reports and which bytes the next receive
// delivers (none: the device stays silent), and, on a clocked device, how long after the send.
struct Reply {
  std::optional<std::int32_t> send_result;  // unset: the full request length
  std::vector<std::uint8_t> answer;
  std::uint32_t delay_ms = 0;
};

// A response frame with any status, address and payload.
std::vector<std::uint8_t> response_frame(std::uint8_t status, std::uint32_t address,
                                         std::span<const std::uint8_t> payload = {});

// The same bytes with the last CRC byte flipped.
inline std::vector<std::uint8_t> with_bad_crc(std::vector<std::uint8_t> frame) {
  frame.back() ^= 0x01;
  return frame;
}

inline Reply raw(std::vector<std::uint8_t> bytes) {
  return {std::nullopt, std::move(bytes)};
}
inline Reply answer(std::uint8_t status, std::uint32_t address,
                    std::span<const std::uint8_t> payload = {}) {
  return raw(response_frame(status, address, payload));
}
inline Reply ack(std::uint32_t address = 0) {
  return answer(0, address);
}
inline Reply silence() {
  return {};
}
inline Reply failed_send(std::int32_t send_result) {
  return {send_result, {}};
}
inline Reply after(std::uint32_t delay_ms, Reply reply) {
  reply.delay_ms = delay_ms;
  return reply;
}

// Answers every request the script does not cover.
using Responder = std::function<Reply(const SentRequest&)>;

// An in-process stand-in for the device behind a LinkDriver. Every send is recorded and answered
// from the script (one Reply per send, in order), then by the responder (default: silence).
// Receives deliver queued bytes one chunk per call, cut to the capacity, and 0 when none wait.
// No time passes (a silent receive returns at once) unless the device keeps a clock
// (use_clock): then the link's clock_ms reads it, a receive delivers the earliest chunk that
// arrives within its time-out, moving the clock to its arrival, and a silent one lets the whole
// time-out pass (DEFAULT_WAIT_MS for a time-out of 0, like the serial line's default).
class ScriptedDevice {
 public:
  // Starts with the serial line's values: chunk 244, 3 attempts, write 200 ms, erase 25000 ms.
  ScriptedDevice();
  ScriptedDevice(const ScriptedDevice&) = delete;

  // The link to hand to the library; its fields may be changed freely.
  LinkDriver& link() { return link_; }
  const LinkDriver* driver() const { return &link_; }

  ScriptedDevice& then(Reply reply) { return script({std::move(reply)}); }
  ScriptedDevice& script(std::vector<Reply> replies);
  ScriptedDevice& respond_with(Responder responder) {
    responder_ = std::move(responder);
    return *this;
  }

  // Bytes the device sent unasked; they wait for the next receives, one chunk per call. On a
  // clocked device they arrive at `at_ms`.
  void inject_input(std::vector<std::uint8_t> bytes, std::uint32_t at_ms = 0) {
    pending_.push_back({std::move(bytes), at_ms});
  }

  static constexpr std::uint32_t DEFAULT_WAIT_MS = 250;

  // Starts the device's clock at `start_ms` and hands it to the link as clock_ms.
  void use_clock(std::uint32_t start_ms = 0);
  std::uint32_t now_ms() const { return now_ms_; }

  const std::vector<SentRequest>& requests() const { return requests_; }
  std::vector<RequestHeader> request_headers() const;
  const std::vector<ReceiveCall>& receives() const { return receives_; }
  int progress_calls() const { return progress_calls_; }

 private:
  LinkDriver link_;
  std::deque<Reply> script_;
  Responder responder_;
  struct Pending {
    std::vector<std::uint8_t> bytes;
    std::uint32_t at_ms = 0;
  };
  std::deque<Pending> pending_;
  bool clocked_ = false;
  std::uint32_t now_ms_ = 0;
  std::vector<SentRequest> requests_;
  std::vector<ReceiveCall> receives_;
  int progress_calls_ = 0;
};

}  // namespace pelmo::test_support
