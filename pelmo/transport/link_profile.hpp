#pragma once

#include <cstdint>
#include <string_view>

namespace pelmo {

// The values a link is driven with: how long the device may take, how much one frame carries, how
// often a request is tried, and when a response counts as complete.
struct LinkProfile {
  std::uint32_t erase_timeout_ms = 0;  // the long erase commands
  std::uint32_t write_timeout_ms = 0;  // the write exchanges that wait for flash programming
  std::uint32_t extra_timeout_ms = 0;  // added to every exchange's time-out
  std::uint16_t chunk_size = 0;        // largest payload of one data frame
  std::uint16_t max_attempts = 0;      // send-and-receive attempts of one exchange
  std::uint32_t first_byte_ms = 0;     // default wait for the first byte of a response
  std::uint32_t quiet_ms = 0;          // quiet time that ends a response
};

// The serial line and the UDP endpoint the device's bootloader listens on.
inline constexpr std::int32_t SERIAL_BAUD_RATE = 115200;
inline constexpr std::string_view SERIAL_MODE = "8N1";
inline constexpr std::uint16_t DEVICE_UDP_PORT = 57998;

// The classic profiles, the values PelmoWin has always used. The chunk sizes make frames of 256
// bytes on the serial line and of 1024 bytes (one datagram) over UDP.
inline constexpr LinkProfile CLASSIC_SERIAL_PROFILE{
    .erase_timeout_ms = 25000,
    .write_timeout_ms = 200,
    .chunk_size = 244,
    .max_attempts = 3,
    .first_byte_ms = 250,
    .quiet_ms = 150,
};
inline constexpr LinkProfile CLASSIC_UDP_PROFILE{
    .erase_timeout_ms = 25000,
    .write_timeout_ms = 4000,
    .chunk_size = 1012,
    .max_attempts = 3,
    .first_byte_ms = 2000,
    .quiet_ms = 150,
};

// `profile` with the extra time-out a user asked for; a negative value counts as none.
constexpr LinkProfile with_extra_timeout(LinkProfile profile, std::int32_t extra_timeout_ms) {
  profile.extra_timeout_ms =
      extra_timeout_ms < 0 ? 0u : static_cast<std::uint32_t>(extra_timeout_ms);
  return profile;
}

}  // namespace pelmo
