#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "pelmo/protocol/result_code.hpp"
#include "simulator/device.hpp"
#include "simulator/fault_plan.hpp"
#include "simulator/request_log.hpp"

namespace pelmo::sim {

// Bytes to send back on the link the request came from, `delay_ms` after it arrived. A stray
// piece goes out from another UDP port of the device (a serial link has no such thing and skips
// it).
struct Transmission {
  std::vector<std::uint8_t> bytes;
  std::uint32_t delay_ms = 0;
  bool stray = false;
};

// Turns one received frame into what goes back: decodes it, logs it, applies the fault plan
// around the device's own answer and encodes that answer. Link-independent; the endpoints deliver
// the transmissions in order of their delay (pieces with equal delays in the order given).
class Responder {
 public:
  Responder(Device& device, const FaultPlan& plan, RequestLog& log);

  // One frame: a datagram, or the bytes the serial framer delimited.
  std::vector<Transmission> on_frame(std::span<const std::uint8_t> bytes);
  // Bytes of the serial stream that belonged to no frame, and why the first of them was dropped.
  void on_garbage(std::size_t count, ResultCode reason);

  // Requests that decoded, answered or not.
  std::uint64_t requests() const { return requests_; }

 private:
  const char* silence_reason(std::uint8_t code) const;
  const StatusOverride* status_override(std::uint8_t code) const;

  Device& device_;
  const FaultPlan& plan_;
  RequestLog& log_;
  FaultDice dice_;
  std::uint64_t requests_ = 0;
  std::array<std::uint32_t, 256> executed_per_code_{};
};

}  // namespace pelmo::sim
