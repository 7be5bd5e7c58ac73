#include "pelmo/transport/win32/win32_datagram_socket.hpp"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <utility>

#include "pelmo/transport/win32/win32_api.hpp"

namespace pelmo::port::win32 {

namespace {

// One datagram never exceeds what an int count can express.
constexpr std::size_t MAX_DATAGRAM = 0xFFFF;

int datagram_size(std::size_t size) {
  return static_cast<int>(std::min(size, MAX_DATAGRAM));
}

sockaddr_in to_socket_address(const Ipv4Endpoint& endpoint) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(endpoint.port);
  // The endpoint holds the address in dotted order, which is network order already.
  std::memcpy(&address.sin_addr, endpoint.address.data(), endpoint.address.size());
  return address;
}

Ipv4Endpoint from_socket_address(const sockaddr_in& address) {
  Ipv4Endpoint endpoint;
  std::memcpy(endpoint.address.data(), &address.sin_addr, endpoint.address.size());
  endpoint.port = ntohs(address.sin_port);
  return endpoint;
}

class Win32DatagramSocket final : public DatagramSocket {
 public:
  explicit Win32DatagramSocket(SOCKET socket) : socket_(socket) {}
  ~Win32DatagramSocket() override { closesocket(socket_); }
  Win32DatagramSocket(const Win32DatagramSocket&) = delete;
  Win32DatagramSocket& operator=(const Win32DatagramSocket&) = delete;

  OsError bind(const Ipv4Endpoint& local) override {
    const sockaddr_in address = to_socket_address(local);
    if (::bind(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0) {
      return {};
    }
    const int error = WSAGetLastError();
    return {error, error == WSAEADDRINUSE};
  }

  std::int32_t send_to(const Ipv4Endpoint& to, std::span<const std::uint8_t> bytes) override {
    const sockaddr_in address = to_socket_address(to);
    const int sent =
        sendto(socket_, reinterpret_cast<const char*>(bytes.data()), datagram_size(bytes.size()), 0,
               reinterpret_cast<const sockaddr*>(&address), sizeof(address));
    return sent == SOCKET_ERROR ? -1 : sent;
  }

  std::int32_t receive_from(std::span<std::uint8_t> buffer, Ipv4Endpoint& from) override {
    sockaddr_in address{};
    int address_size = sizeof(address);
    const int received =
        recvfrom(socket_, reinterpret_cast<char*>(buffer.data()), datagram_size(buffer.size()), 0,
                 reinterpret_cast<sockaddr*>(&address), &address_size);
    // Every error reads as "nothing arrived": WSAEWOULDBLOCK when the queue is empty,
    // WSAECONNRESET, which Windows reports after an earlier datagram met a closed port, and
    // WSAEMSGSIZE for a datagram larger than the space left (Winsock drops its tail).
    if (received == SOCKET_ERROR || received <= 0) {
      return 0;
    }
    from = from_socket_address(address);
    return received;
  }

  bool wait_readable(std::uint32_t timeout_ms) override {
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(socket_, &readable);
    timeval timeout{};
    timeout.tv_sec = static_cast<long>(timeout_ms / 1000);
    timeout.tv_usec = static_cast<long>(timeout_ms % 1000) * 1000;
    return select(0, &readable, nullptr, nullptr, &timeout) > 0;
  }

 private:
  SOCKET socket_;
};

}  // namespace

DatagramSocketResult open_datagram_socket() {
  const SOCKET socket = ::socket(AF_INET, SOCK_DGRAM, 0);
  if (socket == INVALID_SOCKET) {
    return {nullptr, {WSAGetLastError()}};
  }
  auto owned = std::make_unique<Win32DatagramSocket>(socket);
  // Non-blocking from the start: a receive returns at once when no datagram is waiting.
  u_long enabled = 1;
  if (ioctlsocket(socket, FIONBIO, &enabled) != 0) {
    return {nullptr, {WSAGetLastError()}};
  }
  return {std::move(owned), {}};
}

}  // namespace pelmo::port::win32
