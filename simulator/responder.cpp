#include "simulator/responder.hpp"

#include <string>

#include "pelmo/commands/command_code.hpp"
#include "pelmo/protocol/frame.hpp"

namespace pelmo::sim {
namespace {

constexpr std::uint8_t EXTRA_PAYLOAD_BYTE = 0xEE;

bool is_erase(std::uint8_t code) {
  for (CommandCode erase : {CommandCode::CMD_ERASE_FACTORY, CommandCode::CMD_ERASE_CALIB,
                            CommandCode::CMD_ERASE_CALIB_BACKUP, CommandCode::CMD_ERASE_FW}) {
    if (to_byte(erase) == code) {
      return true;
    }
  }
  return false;
}

void add_fault(std::string& faults, const char* name) {
  if (!faults.empty()) {
    faults += '+';
  }
  faults += name;
}

}  // namespace

Responder::Responder(Device& device, const FaultPlan& plan, RequestLog& log)
    : device_(device), plan_(plan), log_(log), dice_(plan.seed) {}

void Responder::on_garbage(std::size_t count, ResultCode reason) {
  if (count > 0) {
    log_.bad_frame(count, reason);
  }
}

const char* Responder::silence_reason(std::uint8_t code) const {
  if (plan_.silent_after && requests_ > *plan_.silent_after) {
    return "silent-after";
  }
  if (requests_ <= plan_.silent_first) {
    return "silent-first";
  }
  if (plan_.silent_codes.test(code)) {
    return "silent-code";
  }
  return nullptr;
}

const StatusOverride* Responder::status_override(std::uint8_t code) const {
  for (const StatusOverride& entry : plan_.status_overrides) {
    if (entry.code == code && (entry.nth == 0 || entry.nth == executed_per_code_[code])) {
      return &entry;
    }
  }
  return nullptr;
}

std::vector<Transmission> Responder::on_frame(std::span<const std::uint8_t> bytes) {
  FrameFields request;
  const ResultCode decoded = decode_frame(Direction::request, bytes, request);
  if (decoded != RC_OK) {
    // A real device stays silent on a frame it cannot read.
    log_.bad_frame(bytes.size(), decoded);
    return {};
  }
  ++requests_;
  const std::uint8_t code = request.code;
  log_.received(code, request.address, request.length);

  if (const char* reason = silence_reason(code)) {
    log_.dropped(code, reason);
    return {};
  }
  if (dice_.roll(RandomFault::drop_request, plan_.drop_requests)) {
    log_.dropped(code, "request-lost");
    return {};
  }

  std::string faults;
  ++executed_per_code_[code];
  DeviceReply reply;
  if (const StatusOverride* forced = status_override(code)) {
    reply = DeviceReply{forced->status, request.address, {}};
    add_fault(faults, "status");
  } else {
    reply = device_.handle(request);
  }
  if (dice_.roll(RandomFault::drop_response, plan_.drop_responses)) {
    log_.dropped(code, "response-lost");
    return {};
  }
  if (plan_.wrong_address_codes.test(code)) {
    reply.address += 1;
    add_fault(faults, "wrong-address");
  }
  if (plan_.extra_payload_codes.test(code)) {
    reply.payload.push_back(EXTRA_PAYLOAD_BYTE);
    add_fault(faults, "extra-payload");
  }

  std::vector<std::uint8_t> frame(FRAME_OVERHEAD + reply.payload.size());
  std::uint16_t frame_length = 0;
  encode_frame(Direction::response, reply.status, reply.address,
               static_cast<std::uint16_t>(reply.payload.size()), reply.payload.data(), frame,
               &frame_length);
  frame.resize(frame_length);
  // `|`, not `||`: the dice roll for every answer, so a code-selected fault leaves the random
  // stream where a run without it would have it.
  const bool corrupt =
      plan_.corrupt_crc_codes.test(code) | dice_.roll(RandomFault::corrupt_crc, plan_.corrupt_crc);
  if (corrupt) {
    frame.back() ^= 0xFFu;
    add_fault(faults, "corrupt-crc");
  }

  const std::uint32_t delay = plan_.delay_ms + (is_erase(code) ? plan_.erase_ms : 0);
  std::vector<Transmission> out;
  const bool stray = plan_.stray_codes.test(code) | dice_.roll(RandomFault::stray, plan_.stray);
  if (stray) {
    out.push_back({frame, delay, true});
    add_fault(faults, "stray");
  }
  const auto send_answer = [&](std::uint32_t at) {
    if (plan_.split && frame.size() > 1) {
      const auto half = static_cast<std::ptrdiff_t>(frame.size() / 2);
      out.push_back({{frame.begin(), frame.begin() + half}, at, false});
      out.push_back({{frame.begin() + half, frame.end()}, at + plan_.split_gap_ms, false});
    } else {
      out.push_back({frame, at, false});
    }
  };
  send_answer(delay);
  if (plan_.split) {
    add_fault(faults, "split");
  }
  if (dice_.roll(RandomFault::duplicate, plan_.duplicate)) {
    // The copy follows the last piece of the first answer, never interleaved with it.
    send_answer(out.back().delay_ms);
    add_fault(faults, "duplicate");
  }
  log_.answered(code, reply.status, reply.address, static_cast<std::uint16_t>(reply.payload.size()),
                faults);
  return out;
}

}  // namespace pelmo::sim
