// Builds a request frame with the installed library, reads it back as the device would, and checks
// every byte against a frame written out by hand. Exits 0 only when all of it agrees.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>

#include "commands/command_code.hpp"
#include "protocol/crc32.hpp"
#include "protocol/frame.hpp"

namespace {

int fail(const char* what) {
  std::printf("consumer: %s\n", what);
  return 1;
}

}  // namespace

int main() {
  // A factory table read asking for 244 bytes at address 0.
  constexpr std::array<std::uint8_t, 12> expected{0xB5, 0x01, 0x00, 0x00, 0x00, 0x00,
                                                  0xF4, 0x00, 0x8C, 0xF9, 0x00, 0x2A};
  std::array<std::uint8_t, pelmo::FRAME_BUFFER_SIZE> frame{};
  std::uint16_t frame_length = 0;
  const auto encoded =
      pelmo::encode_frame(pelmo::Direction::request, 0x01, 0, 244, nullptr, frame, &frame_length);
  if (encoded != pelmo::RC_OK || frame_length != expected.size()) {
    return fail("encode_frame failed");
  }
  if (!std::equal(expected.begin(), expected.end(), frame.begin())) {
    return fail("encoded bytes differ");
  }

  pelmo::FrameFields fields;
  const auto decoded =
      pelmo::decode_frame(pelmo::Direction::request, std::span(frame.data(), frame_length), fields);
  if (decoded != pelmo::RC_OK || fields.code != 0x01 || fields.length != 244) {
    return fail("decode_frame disagrees");
  }
  if (pelmo::command_name(fields.code) != "READ_FACTORY") {
    return fail("command_name disagrees");
  }

  constexpr std::array<std::uint8_t, 9> digits{'1', '2', '3', '4', '5', '6', '7', '8', '9'};
  if (pelmo::crc32_mpeg2(digits) != 0x0376E6E7u) {
    return fail("crc32_mpeg2 check value differs");
  }
  std::printf("consumer: frame ok\n");
  return 0;
}
