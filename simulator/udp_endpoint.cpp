#include "simulator/udp_endpoint.hpp"

#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "simulator/endpoint_error.hpp"

namespace pelmo::sim {
namespace {

int bound_socket(const std::array<std::uint8_t, 4>& address, std::uint16_t port) {
  const int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (fd < 0) {
    throw EndpointError(system_failure("udp socket"));
  }
  sockaddr_in local{};
  local.sin_family = AF_INET;
  local.sin_port = htons(port);
  std::memcpy(&local.sin_addr.s_addr, address.data(), 4);
  if (::bind(fd, reinterpret_cast<const sockaddr*>(&local), sizeof local) != 0) {
    const std::string reason = system_failure("udp bind");
    ::close(fd);
    throw EndpointError(reason);
  }
  return fd;
}

std::string endpoint_text(int fd) {
  sockaddr_in bound{};
  socklen_t size = sizeof bound;
  ::getsockname(fd, reinterpret_cast<sockaddr*>(&bound), &size);
  char address[INET_ADDRSTRLEN] = {};
  ::inet_ntop(AF_INET, &bound.sin_addr, address, sizeof address);
  return std::string(address) + ":" + std::to_string(ntohs(bound.sin_port));
}

}  // namespace

UdpEndpoint::UdpEndpoint(const UdpAddress& address, bool with_stray_socket) {
  socket_ = bound_socket(address.address, address.port);
  description_ = endpoint_text(socket_);
  if (with_stray_socket) {
    try {
      stray_socket_ = bound_socket(address.address, 0);
    } catch (...) {
      ::close(socket_);
      throw;
    }
  }
}

UdpEndpoint::~UdpEndpoint() {
  if (stray_socket_ >= 0) {
    ::close(stray_socket_);
  }
  ::close(socket_);
}

void UdpEndpoint::receive_all(const DatagramHandler& handler) {
  std::array<std::uint8_t, 65536> buffer;
  while (true) {
    sockaddr_in sender{};
    socklen_t size = sizeof sender;
    const ssize_t count = ::recvfrom(socket_, buffer.data(), buffer.size(), 0,
                                     reinterpret_cast<sockaddr*>(&sender), &size);
    if (count < 0) {
      if (errno == EINTR) {
        continue;
      }
      return;  // nothing more waiting (or an error a lossy link would hide)
    }
    handler(std::span<const std::uint8_t>(buffer.data(), static_cast<std::size_t>(count)), sender);
  }
}

void UdpEndpoint::send(const sockaddr_in& to, std::span<const std::uint8_t> bytes, bool stray) {
  const int fd = stray && stray_socket_ >= 0 ? stray_socket_ : socket_;
  ::sendto(fd, bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr*>(&to), sizeof to);
}

}  // namespace pelmo::sim
