#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <span>

#include "pelmo/protocol/link_driver.hpp"
#include "pelmo/transport/local_address.hpp"
#include "pelmo/transport/port_layer.hpp"

namespace pelmo {

// Carries frames as UDP datagrams over IPv4: a request is one datagram to the device, a response is
// whatever the device sends back until a quiet time has passed. Only datagrams from the device's
// address and port are accepted. The caller owns the object.
class UdpTransport {
 public:
  static constexpr int OPEN_OK = 0;
  static constexpr int OPEN_FAILED = -1;  // socket library or bind
  static constexpr int NO_SOCKET = -2;
  static constexpr std::uint32_t POLL_INTERVAL_MS = 5;
  static constexpr std::size_t MAX_LOCAL_ADDRESSES = 24;

  explicit UdpTransport(port::PortLayer& ports);
  UdpTransport(const UdpTransport&) = delete;
  UdpTransport& operator=(const UdpTransport&) = delete;
  ~UdpTransport();

  // Creates the socket and binds it to the same port number as the device's, on the host address
  // that fits the device best (or on all interfaces); stores the time-outs and `progress` only
  // when every step succeeded. Returns OPEN_OK, OPEN_FAILED or NO_SOCKET; prints nothing.
  int open(Ipv4Address device_address, std::uint16_t port, std::int32_t first_byte_timeout_ms,
           std::int32_t inter_byte_timeout_ms, ProgressFunction progress);

  // Sends `bytes` as one datagram to the device: the count sent, 0 on failure or before open.
  std::int32_t send(std::span<const std::uint8_t> bytes);

  // Polls every 5 ms into `buffer` (its size is the capacity, cut to 65535), measuring the idle
  // time with the millisecond tick. Waits `timeout_ms` (0: the first-byte time-out given at open)
  // for a first datagram, then ends after the quiet time, or at the first empty poll once
  // `min_count` (> 0) bytes are in, or when the buffer is full. A datagram from any other sender
  // ends it with 0. Returns the count placed, 0 for silence, errors or before open.
  std::int32_t receive(std::span<std::uint8_t> buffer, std::uint16_t min_count,
                       std::uint32_t timeout_ms);

  // Closes the socket and releases the socket library; nothing happens when none is open.
  void close();

  bool is_open() const { return socket_ != nullptr; }
  const port::Ipv4Endpoint& destination() const { return destination_; }
  const port::Ipv4Endpoint& local_endpoint() const { return local_address_; }
  std::int32_t first_byte_timeout_ms() const { return first_byte_timeout_ms_; }
  std::int32_t inter_byte_timeout_ms() const { return inter_byte_timeout_ms_; }

 private:
  port::PortLayer& ports_;
  std::unique_ptr<port::DatagramSocket> socket_;
  port::Ipv4Endpoint destination_;
  port::Ipv4Endpoint local_address_;
  std::int32_t first_byte_timeout_ms_ = 1;
  std::int32_t inter_byte_timeout_ms_ = 1;
  ProgressFunction progress_;
};

}  // namespace pelmo
