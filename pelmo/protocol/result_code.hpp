#pragma once

#include <cstdint>

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

// Folds a device status byte into the result space (s OR 0xFFFFFF00); status 0 stays RC_OK.
constexpr ResultCode device_status_code(std::uint8_t status) {
  return status == 0 ? RC_OK : static_cast<ResultCode>(status) - 256;
}

// The status byte a device would send to produce `code` (its low byte).
constexpr std::uint8_t status_of_code(ResultCode code) {
  return static_cast<std::uint8_t>(static_cast<std::uint32_t>(code) & 0xFFu);
}

}  // namespace pelmo
