#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace pelmo {

// One signed code space for library failures and device statuses: 0 is success, every failure is
// negative, and a non-zero device status byte s arrives as s - 256.
using ResultCode = std::int32_t;

inline constexpr ResultCode RC_OK = 0;
inline constexpr ResultCode RC_FAILED = -1;
inline constexpr ResultCode RC_OUT_OF_RANGE = -3;
inline constexpr ResultCode RC_ZERO_LENGTH = -4;
inline constexpr ResultCode RC_BAD_HEADER = -6;
inline constexpr ResultCode RC_BAD_CRC = -7;
inline constexpr ResultCode RC_NO_DRIVER = -10;
inline constexpr ResultCode RC_MISMATCH = -11;
inline constexpr ResultCode RC_INCOMPLETE = -14;
inline constexpr ResultCode RC_BAD_LENGTH = -19;
inline constexpr ResultCode RC_NULL_POINTER = -21;
inline constexpr ResultCode RC_TIMEOUT = -25;
// The caller stopped the work; outside the range device statuses fold into (-255..-1).
inline constexpr ResultCode RC_CANCELLED = -300;

// Folds a device status byte into the result space (s OR 0xFFFFFF00); status 0 stays RC_OK.
constexpr ResultCode device_status_code(std::uint8_t status) {
  return status == 0 ? RC_OK : static_cast<ResultCode>(status) - 256;
}

// Where a code comes from, as far as its number tells.
enum class ResultKind : std::uint8_t {
  success,
  local_failure,  // found on this side: time-out, CRC, length, mismatch, bad argument, ...
  device_status,  // a status byte the device answered with
  // RC_BAD_HEADER and RC_BAD_CRC: the numbers of the firmware statuses 0xFA and 0xF9 the device
  // sends, too; only the caller knows which it was.
  local_or_device,
  not_a_result,  // positive, or below the lowest device status
};

ResultKind result_kind(ResultCode code);

// The device status byte behind `code` (its low byte) when the device can have sent it: for codes
// of the kinds device_status and local_or_device.
std::optional<std::uint8_t> device_status_of(ResultCode code);

// A short English text for any code, in lower case without a final stop ("no response
// (time-out)"); device statuses without a meaning of their own share one text.
std::string_view result_text(ResultCode code);

}  // namespace pelmo
