#pragma once

#include <netinet/in.h>

#include <cstdint>
#include <functional>
#include <span>
#include <string>

#include "simulator/options.hpp"

namespace pelmo::sim {

// The device's UDP side: one socket bound to the device's address and port that answers every
// request to its sender, and, when stray datagrams are wanted, a second socket on the same address
// with another port to send them from.
class UdpEndpoint {
 public:
  UdpEndpoint(const UdpAddress& address, bool with_stray_socket);  // throws EndpointError
  ~UdpEndpoint();
  UdpEndpoint(const UdpEndpoint&) = delete;
  UdpEndpoint& operator=(const UdpEndpoint&) = delete;

  int fd() const { return socket_; }
  // "127.0.0.2:57998", with the port actually bound.
  const std::string& description() const { return description_; }

  using DatagramHandler =
      std::function<void(std::span<const std::uint8_t> bytes, const sockaddr_in& sender)>;
  // Hands every datagram that is waiting to `handler`.
  void receive_all(const DatagramHandler& handler);
  // A failed send is what a lossy link does: nothing is reported.
  void send(const sockaddr_in& to, std::span<const std::uint8_t> bytes, bool stray);

 private:
  int socket_ = -1;
  int stray_socket_ = -1;
  std::string description_;
};

}  // namespace pelmo::sim
