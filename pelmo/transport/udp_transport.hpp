#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "pelmo/transport/framed_reception.hpp"
#include "pelmo/transport/local_address.hpp"
#include "pelmo/transport/port_layer.hpp"
#include "pelmo/transport/transport.hpp"

namespace pelmo {

class UdpHub;

// The local endpoint a UDP link to `device` binds: the device's port number, on the host address
// that fits the device best, or on all interfaces.
port::Ipv4Endpoint udp_local_endpoint(port::PortLayer& ports, const port::Ipv4Endpoint& device);

// A datagram socket bound to `local`, with the socket library started for it. On failure the
// socket is null, the library released again, and the result says which step failed and why.
struct BoundSocket {
  std::unique_ptr<port::DatagramSocket> socket;
  OpenResult result;
};
BoundSocket open_bound_socket(port::PortLayer& ports, const port::Ipv4Endpoint& local);

// Carries frames as UDP datagrams over IPv4: a request is one datagram to the device, a response is
// whatever the device sends back until a quiet time has passed, or, framed, the first whole frame
// its datagrams carry. Only datagrams from the device's address and port are accepted. Every
// socket call goes through port::DatagramSocket, so the socket may be the shared one of a UdpHub;
// a socket of its own is bound to the device's port number, so one host address then serves one
// such link at a time.
class UdpTransport final : public Transport {
 public:
  static constexpr std::uint32_t POLL_INTERVAL_MS = 5;
  static constexpr std::size_t MAX_LOCAL_ADDRESSES = 24;

  explicit UdpTransport(port::PortLayer& ports);
  ~UdpTransport() override { close(); }
  UdpTransport(const UdpTransport&) = delete;
  UdpTransport& operator=(const UdpTransport&) = delete;

  // Creates the socket and binds it to the device's port number, on the host address that fits
  // the device best (or on all interfaces); takes `times` only when every step succeeded.
  OpenResult open(const port::Ipv4Endpoint& device, ResponseTimes times);
  // Talks to `device` through `hub`'s shared socket instead of a socket of its own; refused while
  // the hub is closed or another link there talks to the same device. `hub` must outlive the
  // link.
  OpenResult open(UdpHub& hub, const port::Ipv4Endpoint& device, ResponseTimes times);

  // Sends `bytes` as one datagram to the device: the count sent, or SEND_FAILED. Framed, the
  // datagrams that arrived and were not taken are read away first.
  std::int32_t send(std::span<const std::uint8_t> bytes) override;
  // Quiet time: polls every 5 ms, measuring the idle time with the millisecond tick; a datagram
  // from any other sender ends the receive with 0. Framed: waits on the socket until the device's
  // datagrams hold a whole frame (a frame may span several); other senders' datagrams are
  // ignored.
  std::int32_t receive(std::span<std::uint8_t> buffer, std::uint16_t min_count,
                       std::uint32_t timeout_ms, const ProgressFunction& idle) override;
  // Closes the socket (a hub's endpoint: unregisters it) and releases the socket library.
  void close() override;
  bool is_open() const override { return socket_ != nullptr; }

  // The open socket, for a caller that waits on it with wait_readable.
  port::DatagramSocket* socket() const { return socket_.get(); }
  const port::Ipv4Endpoint& destination() const { return destination_; }
  const port::Ipv4Endpoint& local_endpoint() const { return local_address_; }
  const ResponseTimes& times() const { return times_; }

 private:
  // Takes an opened socket (`started_sockets`: this transport started the socket library for it
  // and releases it at close) as the link to `device`.
  OpenResult adopt(std::unique_ptr<port::DatagramSocket> socket, bool started_sockets,
                   const port::Ipv4Endpoint& device, const port::Ipv4Endpoint& local,
                   ResponseTimes times);

  port::PortLayer& ports_;
  std::unique_ptr<port::DatagramSocket> socket_;
  bool started_sockets_ = false;  // false on a hub's endpoint: the hub holds the library
  port::Ipv4Endpoint destination_;
  port::Ipv4Endpoint local_address_;
  ResponseTimes times_;
  FramedReception framed_;
};

}  // namespace pelmo
