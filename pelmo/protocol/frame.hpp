#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "pelmo/protocol/result_code.hpp"

namespace pelmo {

// Which way a frame travels: requests go host to device (start byte 0xB5), responses come back
// (start byte 0xBA).
enum class Direction : std::uint8_t { response = 0, request = 1 };

inline constexpr std::uint8_t REQUEST_START = 0xB5;
inline constexpr std::uint8_t RESPONSE_START = 0xBA;
inline constexpr std::size_t FRAME_HEADER_SIZE = 8;     // start, code, address, length
inline constexpr std::size_t FRAME_OVERHEAD = 12;       // header and CRC
inline constexpr std::size_t FRAME_BUFFER_SIZE = 2048;  // the commands' request/response buffers
inline constexpr std::size_t MAX_FRAME_PAYLOAD = FRAME_BUFFER_SIZE - FRAME_OVERHEAD;

// Codes of 0x80 and above may carry a payload in a request; below it, the length field is the
// number of bytes asked for.
constexpr bool code_carries_payload(std::uint8_t code) {
  return (code & 0x80u) != 0;
}

// Builds a frame into `output` (its size counts up to 65535 bytes). For a request with a code
// below 0x80, `length` is the requested count and `payload` is not looked at; otherwise a null
// `payload` makes an empty frame whatever `length` says. Stores 12 + n in `frame_length` if given.
ResultCode encode_frame(Direction direction, std::uint8_t code, std::uint32_t address,
                        std::uint16_t length, const std::uint8_t* payload,
                        std::span<std::uint8_t> output, std::uint16_t* frame_length = nullptr);

// What a decoded frame tells; the payload points into the received bytes.
struct FrameFields {
  std::uint8_t code = 0;  // command code of a request, status of a response
  std::uint32_t address = 0;
  std::uint16_t length = 0;
  std::span<const std::uint8_t> payload;
};

// Checks received bytes as a frame of `direction`. `code` is filled once the CRC matched, even
// when the length check after it fails; the other fields only on RC_OK. Bytes past the frame's
// announced length are ignored.
ResultCode decode_frame(Direction direction, std::span<const std::uint8_t> received,
                        FrameFields& fields);

}  // namespace pelmo
