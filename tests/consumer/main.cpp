// Uses the installed library as another project would: builds a request frame, reads it back as
// the device would and checks every byte against a frame written out by hand; opens a link to a
// serial device that does not exist and checks that the reason comes back instead of being
// printed; reads the generated version. Exits 0 only when all of it agrees.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <string>

#include <pelmo/commands/command_code.hpp>
#include <pelmo/formats/intel_hex.hpp>
#include <pelmo/protocol/frame.hpp>
#include <pelmo/transport/device_link.hpp>
#include <pelmo/version.hpp>

int main() {
  // A factory table read asking for 244 bytes at address 0.
  constexpr std::array<std::uint8_t, 12> expected{0xB5, 0x01, 0x00, 0x00, 0x00, 0x00,
                                                  0xF4, 0x00, 0x8C, 0xF9, 0x00, 0x2A};
  std::array<std::uint8_t, pelmo::FRAME_BUFFER_SIZE> frame{};
  std::uint16_t length = 0;
  pelmo::FrameFields fields;
  const bool frame_ok =
      pelmo::encode_frame(pelmo::Direction::request, 0x01, 0, 244, nullptr, frame, &length) ==
          pelmo::RC_OK &&
      length == expected.size() && std::equal(expected.begin(), expected.end(), frame.begin()) &&
      pelmo::decode_frame(pelmo::Direction::request, std::span(frame.data(), length), fields) ==
          pelmo::RC_OK &&
      fields.length == 244 && pelmo::command_name(fields.code) == "READ_FACTORY";

  pelmo::DeviceLink link(pelmo::port::system_port_layer());
  const pelmo::OpenResult opened = link.open(
      pelmo::SerialPort{std::string("/nonexistent/pelmo-tty")}, pelmo::CLASSIC_SERIAL_PROFILE);
  const bool link_ok = !opened.ok && opened.message == "unable to open comport" &&
                       opened.os_error != 0 && link.driver() == nullptr;

  const bool version_ok = !pelmo::VERSION.empty() && pelmo::VERSION_MAJOR >= 1;
  if (!frame_ok || !link_ok || !version_ok) {
    std::printf("consumer: frame %d, link %d (%s), version %d\n", frame_ok, link_ok,
                opened.message.c_str(), version_ok);
    return 1;
  }
  std::printf("consumer: frame ok, link ok, version %.*s\n",
              static_cast<int>(pelmo::VERSION.size()), pelmo::VERSION.data());
  return 0;
}
