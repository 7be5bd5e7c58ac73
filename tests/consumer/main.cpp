// Builds a request frame with the installed library, reads it back as the device would, and checks
// every byte against a frame written out by hand. Exits 0 only when all of it agrees.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>

#include <pelmo/commands/command_code.hpp>
#include <pelmo/formats/intel_hex.hpp>
#include <pelmo/protocol/frame.hpp>
#include <pelmo/transport/port_layer.hpp>

int main() {
  // A factory table read asking for 244 bytes at address 0.
  constexpr std::array<std::uint8_t, 12> expected{0xB5, 0x01, 0x00, 0x00, 0x00, 0x00,
                                                  0xF4, 0x00, 0x8C, 0xF9, 0x00, 0x2A};
  std::array<std::uint8_t, pelmo::FRAME_BUFFER_SIZE> frame{};
  std::uint16_t length = 0;
  pelmo::FrameFields fields;
  const bool ok =
      pelmo::encode_frame(pelmo::Direction::request, 0x01, 0, 244, nullptr, frame, &length) ==
          pelmo::RC_OK &&
      length == expected.size() && std::equal(expected.begin(), expected.end(), frame.begin()) &&
      pelmo::decode_frame(pelmo::Direction::request, std::span(frame.data(), length), fields) ==
          pelmo::RC_OK &&
      fields.length == 244 && pelmo::command_name(fields.code) == "READ_FACTORY";
  std::printf(ok ? "consumer: frame ok\n" : "consumer: the frame disagrees\n");
  return ok ? 0 : 1;
}
