#include "pelmo/transport/win32/com_port_names.hpp"

#include <array>

namespace pelmo::port::win32 {

namespace {

constexpr std::array<std::string_view, COM_PORT_COUNT> PORT_NAMES = {
    R"(\\.\COM1)",  R"(\\.\COM2)",  R"(\\.\COM3)",  R"(\\.\COM4)",  R"(\\.\COM5)",  R"(\\.\COM6)",
    R"(\\.\COM7)",  R"(\\.\COM8)",  R"(\\.\COM9)",  R"(\\.\COM10)", R"(\\.\COM11)", R"(\\.\COM12)",
    R"(\\.\COM13)", R"(\\.\COM14)", R"(\\.\COM15)", R"(\\.\COM16)",
};

}  // namespace

std::string_view com_port_path(int port_index) {
  if (port_index < 0 || port_index >= COM_PORT_COUNT) {
    return {};
  }
  return PORT_NAMES[static_cast<std::size_t>(port_index)];
}

}  // namespace pelmo::port::win32
