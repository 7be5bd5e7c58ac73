#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "pelmo/protocol/result_code.hpp"

namespace pelmo {

// What kind of failure an outcome is, for callers that react by kind (exception classes, exit
// statuses, JSON records) rather than by result code.
enum class FailureKind : std::uint8_t {
  none,           // success
  device_status,  // the device answered with a non-zero status
  timeout,        // the device did not answer within the attempts and the deadline
  protocol,       // an answer that did not fit: CRC, length, record size, echo
  mismatch,       // a verify found the device's data different from the host's
  input,          // the host's data does not fit the device (image larger than its area, ...)
  link,           // the link could not be opened or a send failed
  cancelled,      // the caller stopped the work
};

// "device-status", "timeout", ...; "ok" for none.
std::string_view failure_kind_name(FailureKind kind);

// What one operation on one device did.
struct Outcome {
  ResultCode code = RC_OK;
  FailureKind kind = FailureKind::none;
  // One line for people; on success a short summary ("erased, wrote and verified 8192 bytes").
  std::string message;
  std::uint64_t bytes = 0;  // the data the operation moved (0 where it moves none)
  bool skipped = false;     // a flash found the image already on the device and wrote nothing

  bool ok() const { return code == RC_OK; }
};

}  // namespace pelmo
