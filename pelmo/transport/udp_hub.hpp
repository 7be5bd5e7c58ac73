#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <thread>

#include "pelmo/transport/link_profile.hpp"
#include "pelmo/transport/local_address.hpp"
#include "pelmo/transport/port_layer.hpp"
#include "pelmo/transport/transport.hpp"

namespace pelmo {

namespace detail {
struct UdpHubCore;  // what the hub's reader and its endpoints share
}

// What the hub's reader did with the datagrams it took from the socket.
struct UdpHubCounters {
  std::uint64_t routed = 0;          // queued for the device that sent them
  std::uint64_t unknown_sender = 0;  // from no registered device: dropped
  std::uint64_t overflowed = 0;      // oldest datagrams dropped because a device's queue was full
};

// The one owner of a datagram socket bound to the devices' port number, for talking to many UDP
// devices at once: devices answer to port 57998, so one host address can hold only one socket
// for all of them. A reader thread takes every datagram from the socket and queues it for the
// endpoint registered for its sender (address and port); datagrams from anyone else are dropped
// and counted. Each endpoint is a port::DatagramSocket that a UdpTransport uses as its own:
// sends go out through the shared socket, receives take the endpoint's queue.
//
// The caller owns the hub, one per host address and port, and keeps it while links use it. An
// endpoint unregisters when it is destroyed; after close the endpoints still alive read silence
// and fail to send.
class UdpHub {
 public:
  static constexpr std::size_t QUEUE_LIMIT = 64;  // datagrams waiting for one endpoint
  static constexpr std::uint32_t READER_SLICE_MS =
      20;  // the reader's longest wait between looks at close

  explicit UdpHub(port::PortLayer& ports);
  ~UdpHub() { close(); }
  UdpHub(const UdpHub&) = delete;
  UdpHub& operator=(const UdpHub&) = delete;

  // Binds `port` on the host address a UDP link to a device at `device` would bind (the
  // interface facing it, or all interfaces) and starts the reader.
  OpenResult open_for(const Ipv4Address& device, std::uint16_t port = DEVICE_UDP_PORT);
  // Binds exactly `local` and starts the reader.
  OpenResult open(const port::Ipv4Endpoint& local);
  // Stops the reader, then closes the socket and releases the socket library.
  void close();
  bool is_open() const { return reader_.joinable(); }
  port::Ipv4Endpoint local_endpoint() const { return local_; }

  struct Attached {
    std::unique_ptr<port::DatagramSocket> endpoint;  // null on failure
    OpenResult result;
  };
  // The endpoint for the device at `device`: it receives that device's datagrams only. Refused
  // while the hub is closed or another endpoint is registered for the same device.
  Attached attach(const port::Ipv4Endpoint& device);

  UdpHubCounters counters() const;

 private:
  port::PortLayer& ports_;
  std::shared_ptr<detail::UdpHubCore> core_;
  port::Ipv4Endpoint local_;
  std::thread reader_;
};

}  // namespace pelmo
