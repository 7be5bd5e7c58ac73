#pragma once

#include <cstdint>
#include <string_view>

#include "pelmo/protocol/retransmission.hpp"

namespace pelmo {

// When a response counts as complete: after a quiet time (the classic way, which knows nothing of
// frames), or as soon as one whole response frame with a good CRC is in.
enum class Reception : std::uint8_t { quiet_time, framed };

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
  Reception reception = Reception::quiet_time;
  RetransmissionSettings retransmission{};
  // Non-zero: the erase wait scales with the area, base + per KiB (DeviceLink::set_erase_area).
  std::uint32_t erase_base_ms = 0;
  std::uint32_t erase_ms_per_kib = 0;
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

// The fast profiles: a reception ends at the frame, waits are event-driven, and the exchange
// retries the adaptive way (RoundTripEstimator) within a deadline. Override any value on a copy:
//   LinkProfile profile = FAST_UDP_PROFILE;
//   profile.max_attempts = 5;                         // at most 5 sends per request
//   profile.retransmission.deadline_ms = 30000;       // a link that may be down for longer
//   profile.retransmission.fixed_wait_ms = 500;       // no estimate: always wait 500 ms
// with_extra_timeout() lengthens every deadline and erase wait, not the round-trip waits.
inline constexpr RetransmissionSettings FAST_UDP_RETRANSMISSION{
    .adaptive = true,
    // Before the first answer: ten times less than the classic 2 s, still far above a LAN's
    // round trip with a flash write behind it.
    .initial_rto_ms = 200,
    // A LAN answers within a millisecond or two; the rest is the host's timer granularity
    // (about 16 ms on some Windows hosts) and the device's own scheduling.
    .min_rto_ms = 20,
    // Never wait longer per attempt than the classic default.
    .max_rto_ms = 2000,
    // A device that stays silent this long (plus the time its command may work) is gone.
    .deadline_ms = 10000,
    // Devices behind one socket back off apart.
    .jitter_percent = 10,
};
inline constexpr LinkProfile FAST_UDP_PROFILE{
    .erase_timeout_ms = 25000,  // until set_erase_area says how much is erased
    .write_timeout_ms = 4000,   // only lengthens the deadline of a write step
    .chunk_size = 1012,
    .max_attempts = 0,  // bounded by the deadline alone
    .first_byte_ms = 2000,
    // Framed, the quiet time only unmasks a false start (a stray start byte, or the tail of a
    // stale answer, announcing a frame that never completes). A frame's datagrams follow each
    // other at once, so 10 ms of silence is enough, and it is shorter than the floor of the
    // round-trip wait, so the real answer behind it is still taken without a resend.
    .quiet_ms = 10,
    .reception = Reception::framed,
    .retransmission = FAST_UDP_RETRANSMISSION,
    // An erase waits 1 s plus 20 ms per KiB (about 11 s for 512 KiB): flash erases at well under
    // that rate; a longer erase costs one resend, whose answer the same exchange still takes.
    .erase_base_ms = 1000,
    .erase_ms_per_kib = 20,
};
inline constexpr LinkProfile FAST_SERIAL_PROFILE{
    .erase_timeout_ms = 25000,
    .write_timeout_ms = 200,
    .chunk_size = 244,
    .max_attempts = 0,
    .first_byte_ms = 250,
    // USB serial adapters hand over what they received every 16 ms at worst, so a real frame
    // never pauses longer than that; 20 ms unmasks a false start before the round-trip floor.
    .quiet_ms = 20,
    .reception = Reception::framed,
    .retransmission = {.adaptive = true,
                       .initial_rto_ms = 250,  // the classic first-byte wait
                       .min_rto_ms = 20,
                       .max_rto_ms = 2000,
                       // 115200 8N1 carries 11520 bytes a second: a full 256-byte frame and its
                       // 12-byte answer take 24 ms on the line before the device has done anything.
                       .line_bytes_per_second = 11520,
                       .deadline_ms = 10000,
                       .jitter_percent = 10},
    .erase_base_ms = 1000,
    .erase_ms_per_kib = 20,
};

// `profile` with the extra time-out a user asked for; a negative value counts as none.
constexpr LinkProfile with_extra_timeout(LinkProfile profile, std::int32_t extra_timeout_ms) {
  profile.extra_timeout_ms =
      extra_timeout_ms < 0 ? 0u : static_cast<std::uint32_t>(extra_timeout_ms);
  return profile;
}

}  // namespace pelmo
