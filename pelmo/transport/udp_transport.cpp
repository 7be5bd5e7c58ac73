#include "pelmo/transport/udp_transport.hpp"

#include <algorithm>
#include <array>
#include <optional>
#include <string>
#include <utility>

#include "pelmo/transport/udp_hub.hpp"

namespace pelmo {

namespace {

constexpr std::size_t MAX_CAPACITY = 0xFFFF;

std::string with_os_error(std::string text, const port::OsError& error) {
  return text + " (os error " + std::to_string(error.code) + ")";
}

// The device's datagrams as the framed reception reads them.
class DeviceDatagrams final : public ByteSource {
 public:
  DeviceDatagrams(port::DatagramSocket& socket, const port::Ipv4Endpoint& device)
      : socket_(socket), device_(device) {}
  bool wait_readable(std::uint32_t timeout_ms) override {
    return socket_.wait_readable(timeout_ms);
  }
  std::optional<std::size_t> read(std::span<std::uint8_t> buffer) override {
    port::Ipv4Endpoint sender;
    const std::int32_t count = socket_.receive_from(buffer, sender);
    if (count <= 0) {
      return std::nullopt;
    }
    if (sender != device_) {
      return 0;  // another sender's datagram neither ends nor spoils the response
    }
    return std::min(static_cast<std::size_t>(count), buffer.size());
  }

 private:
  port::DatagramSocket& socket_;
  const port::Ipv4Endpoint& device_;
};

}  // namespace

port::Ipv4Endpoint udp_local_endpoint(port::PortLayer& ports, const port::Ipv4Endpoint& device) {
  // The tool listens on the device's port number, on the interface facing the device when one
  // shares at least the first two address bytes with it, otherwise on all interfaces.
  port::Ipv4Endpoint local{{0, 0, 0, 0}, device.port};
  std::array<Ipv4Address, UdpTransport::MAX_LOCAL_ADDRESSES> host{};
  const std::size_t host_count = list_local_addresses(ports, host);
  if (const auto chosen = choose_local_address(std::span(host).first(host_count), device.address)) {
    local.address = *chosen;
  }
  return local;
}

BoundSocket open_bound_socket(port::PortLayer& ports, const port::Ipv4Endpoint& local) {
  if (const port::OsError error = ports.start_sockets(2, 2); error.failed()) {
    return {nullptr, OpenResult::failure(with_os_error("cannot start the socket library", error),
                                         error.code)};
  }
  port::DatagramSocketResult created = ports.open_datagram_socket();
  if (!created.socket) {
    ports.stop_sockets();
    return {nullptr, OpenResult::failure(with_os_error("cannot create a UDP socket", created.error),
                                         created.error.code)};
  }
  if (const port::OsError error = created.socket->bind(local); error.failed()) {
    created.socket.reset();
    ports.stop_sockets();
    const std::string where =
        "UDP port " + std::to_string(local.port) + " on " + dotted_address(local.address);
    return {nullptr, OpenResult::failure(
                         with_os_error(error.address_in_use
                                           ? where + " is already in use by another program or link"
                                           : "cannot bind " + where,
                                       error),
                         error.code)};
  }
  return {std::move(created.socket), OpenResult::success()};
}

UdpTransport::UdpTransport(port::PortLayer& ports) : ports_(ports) {}

OpenResult UdpTransport::open(const port::Ipv4Endpoint& device, ResponseTimes times) {
  const port::Ipv4Endpoint local = udp_local_endpoint(ports_, device);
  BoundSocket bound = open_bound_socket(ports_, local);
  if (!bound.socket) {
    return bound.result;
  }
  return adopt(std::move(bound.socket), true, device, local, times);
}

OpenResult UdpTransport::open(UdpHub& hub, const port::Ipv4Endpoint& device, ResponseTimes times) {
  UdpHub::Attached attached = hub.attach(device);
  if (!attached.endpoint) {
    return attached.result;
  }
  return adopt(std::move(attached.endpoint), false, device, hub.local_endpoint(), times);
}

OpenResult UdpTransport::adopt(std::unique_ptr<port::DatagramSocket> socket, bool started_sockets,
                               const port::Ipv4Endpoint& device, const port::Ipv4Endpoint& local,
                               ResponseTimes times) {
  close();  // a link opened before on this object
  socket_ = std::move(socket);
  started_sockets_ = started_sockets;
  destination_ = device;
  local_address_ = local;
  times_ = times;
  return OpenResult::success();
}

std::int32_t UdpTransport::send(std::span<const std::uint8_t> bytes) {
  if (!socket_) {
    return SEND_FAILED;
  }
  if (times_.reception == Reception::framed) {
    DeviceDatagrams source(*socket_, destination_);
    framed_.drain(source);
  }
  const std::int32_t sent = socket_->send_to(destination_, bytes);
  return sent < 0 ? SEND_FAILED : sent;
}

std::int32_t UdpTransport::receive(std::span<std::uint8_t> buffer, std::uint16_t min_count,
                                   std::uint32_t timeout_ms, const ProgressFunction& idle) {
  if (!socket_) {
    return 0;
  }
  const std::uint64_t first_byte_timeout = timeout_ms == 0 ? times_.first_byte_ms : timeout_ms;
  const std::size_t capacity = std::min(buffer.size(), MAX_CAPACITY);
  if (times_.reception == Reception::framed) {
    DeviceDatagrams source(*socket_, destination_);
    return framed_.receive(source, ports_, buffer.first(capacity),
                           static_cast<std::uint32_t>(first_byte_timeout), times_.quiet_ms, idle);
  }

  std::size_t received = 0;
  std::uint64_t idle_ms = 0;
  // A datagram resets the idle time but not `last`, so the first empty poll after it also counts
  // the time since the empty poll before it.
  std::uint32_t last = ports_.tick_ms();
  for (;;) {
    port::Ipv4Endpoint sender;
    const std::int32_t count =
        socket_->receive_from(buffer.subspan(received, capacity - received), sender);
    if (count > 0) {
      if (sender != destination_) {
        return 0;  // a stray datagram spoils the whole response
      }
      received += std::min(static_cast<std::size_t>(count), capacity - received);
      idle_ms = 0;
      if (received >= capacity) {
        return static_cast<std::int32_t>(received);
      }
    } else {
      if (min_count > 0 && received >= min_count) {
        return static_cast<std::int32_t>(received);
      }
      ports_.sleep_ms(POLL_INTERVAL_MS);
      const std::uint32_t now = ports_.tick_ms();
      idle_ms += static_cast<std::uint32_t>(now - last);  // the tick wraps
      last = now;
      if (received > 0 && idle_ms >= times_.quiet_ms) {
        return static_cast<std::int32_t>(received);
      }
      if (received == 0 && idle_ms >= first_byte_timeout) {
        return 0;
      }
    }
    if (idle) {
      idle();
    }
  }
}

void UdpTransport::close() {
  if (!socket_) {
    return;
  }
  socket_.reset();
  if (started_sockets_) {
    ports_.stop_sockets();
  }
}

}  // namespace pelmo
