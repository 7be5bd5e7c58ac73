#include "pelmo/protocol/result_code.hpp"

#include <array>

namespace pelmo {
namespace {

struct KnownCode {
  ResultCode code;
  ResultKind kind;
  std::string_view text;
};

// Every number with a meaning of its own; any other failure down to -255 is a device status.
constexpr std::array<KnownCode, 13> KNOWN_CODES{{
    {RC_OK, ResultKind::success, "success"},
    {RC_FAILED, ResultKind::local_failure, "operation failed"},
    // Never made on this side: the device's end of data, a failure on any but a chunked read.
    {RC_OUT_OF_RANGE, ResultKind::device_status, "out of range (device status 0xFD)"},
    {RC_ZERO_LENGTH, ResultKind::local_failure, "zero length"},
    {RC_BAD_HEADER, ResultKind::local_or_device,
     "bad frame start byte, or invalid firmware header"},
    {RC_BAD_CRC, ResultKind::local_or_device, "CRC mismatch, or invalid firmware CRC"},
    {RC_NO_DRIVER, ResultKind::local_failure, "no usable link driver"},
    {RC_MISMATCH, ResultKind::local_failure, "answer or contents do not match"},
    {RC_INCOMPLETE, ResultKind::local_failure, "incomplete factory table"},
    {RC_BAD_LENGTH, ResultKind::local_failure, "bad length"},
    {RC_NULL_POINTER, ResultKind::local_failure, "missing buffer or record"},
    {RC_TIMEOUT, ResultKind::local_failure, "no response (time-out)"},
    {RC_CANCELLED, ResultKind::local_failure, "cancelled"},
}};

constexpr ResultCode LOWEST_DEVICE_STATUS = -255;

const KnownCode* find_known(ResultCode code) {
  for (const KnownCode& known : KNOWN_CODES) {
    if (known.code == code) {
      return &known;
    }
  }
  return nullptr;
}

}  // namespace

ResultKind result_kind(ResultCode code) {
  if (const KnownCode* known = find_known(code)) {
    return known->kind;
  }
  return code < 0 && code >= LOWEST_DEVICE_STATUS ? ResultKind::device_status
                                                  : ResultKind::not_a_result;
}

std::optional<std::uint8_t> device_status_of(ResultCode code) {
  const ResultKind kind = result_kind(code);
  if (kind != ResultKind::device_status && kind != ResultKind::local_or_device) {
    return std::nullopt;
  }
  return static_cast<std::uint8_t>(static_cast<std::uint32_t>(code) & 0xFFu);
}

std::string_view result_text(ResultCode code) {
  if (const KnownCode* known = find_known(code)) {
    return known->text;
  }
  return result_kind(code) == ResultKind::device_status ? "failure status from the device"
                                                        : "not a result code";
}

}  // namespace pelmo
