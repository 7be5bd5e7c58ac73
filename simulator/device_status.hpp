#pragma once

#include <cstdint>

namespace pelmo::sim {

// Status bytes the simulated bootloader answers with. The host gives 0xFD, 0xFA and 0xF9 a
// meaning of their own; the others it passes up as numbers (status - 256).
inline constexpr std::uint8_t STATUS_OK = 0x00;
inline constexpr std::uint8_t STATUS_UNKNOWN_COMMAND = 0xFE;  // -2: no such command code
inline constexpr std::uint8_t STATUS_OUT_OF_RANGE = 0xFD;     // -3: end of data, or past the limit
inline constexpr std::uint8_t STATUS_BAD_ALIGNMENT =
    0xFB;                                                // -5: firmware block not in 8-byte units
inline constexpr std::uint8_t STATUS_BAD_HEADER = 0xFA;  // -6: no valid firmware header
inline constexpr std::uint8_t STATUS_BAD_CRC = 0xF9;     // -7: firmware CRC does not match
inline constexpr std::uint8_t STATUS_DIFFERENT = 0xF5;   // -11: verify found other contents

}  // namespace pelmo::sim
