#include "pelmo/transport/posix/datagram_socket.hpp"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "pelmo/transport/posix/wait_readable.hpp"

namespace pelmo::port::posix {

namespace {

sockaddr_in to_sockaddr(const Ipv4Endpoint& endpoint) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(endpoint.port);
  std::memcpy(&address.sin_addr.s_addr, endpoint.address.data(), endpoint.address.size());
  return address;
}

class PosixDatagramSocket final : public DatagramSocket {
 public:
  explicit PosixDatagramSocket(int fd) : fd_(fd) {}
  PosixDatagramSocket(const PosixDatagramSocket&) = delete;
  PosixDatagramSocket& operator=(const PosixDatagramSocket&) = delete;
  ~PosixDatagramSocket() override { ::close(fd_); }

  OsError bind(const Ipv4Endpoint& local) override {
    const sockaddr_in address = to_sockaddr(local);
    if (::bind(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
      return {};
    }
    return {errno, errno == EADDRINUSE};
  }

  std::int32_t send_to(const Ipv4Endpoint& to, std::span<const std::uint8_t> bytes) override {
    const sockaddr_in address = to_sockaddr(to);
    const ssize_t sent = sendto(fd_, bytes.data(), bytes.size(), 0,
                                reinterpret_cast<const sockaddr*>(&address), sizeof address);
    return sent < 0 ? -1 : static_cast<std::int32_t>(sent);
  }

  std::int32_t receive_from(std::span<std::uint8_t> buffer, Ipv4Endpoint& from) override {
    sockaddr_in address{};
    socklen_t length = sizeof address;
    const ssize_t count = recvfrom(fd_, buffer.data(), buffer.size(), 0,
                                   reinterpret_cast<sockaddr*>(&address), &length);
    if (count <= 0) {
      return 0;  // nothing waiting, an error, or an empty datagram: all read as silence
    }
    from = Ipv4Endpoint{};
    if (length == sizeof address && address.sin_family == AF_INET) {
      std::memcpy(from.address.data(), &address.sin_addr.s_addr, from.address.size());
      from.port = ntohs(address.sin_port);
    }
    return static_cast<std::int32_t>(count);
  }

  bool wait_readable(std::uint32_t timeout_ms) override {
    return posix::wait_readable(fd_, timeout_ms);
  }

 private:
  int fd_;
};

}  // namespace

DatagramSocketResult open_datagram_socket() {
  // Non-blocking from the start: a receive returns at once when no datagram is waiting.
  const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (fd < 0) {
    return {nullptr, {errno}};
  }
  return {std::make_unique<PosixDatagramSocket>(fd), {}};
}

}  // namespace pelmo::port::posix
