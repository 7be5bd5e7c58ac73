#include "pelmo/transport/udp_transport.hpp"

#include <algorithm>
#include <utility>

namespace pelmo {

namespace {

constexpr std::size_t MAX_CAPACITY = 0xFFFF;

// The receive time-out option every receive sets: 0 s and 5000 us, one polling pause. It does not
// change how the non-blocking socket behaves; a socket that refuses it is not used.
constexpr std::uint32_t RECEIVE_TIMEOUT_SECONDS = 0;
constexpr std::uint32_t RECEIVE_TIMEOUT_MICROSECONDS = 5000;

}  // namespace

UdpTransport::UdpTransport(port::PortLayer& ports) : ports_(ports) {}

UdpTransport::~UdpTransport() {
  close();
}

int UdpTransport::open(Ipv4Address device_address, std::uint16_t port,
                       std::int32_t first_byte_timeout_ms, std::int32_t inter_byte_timeout_ms,
                       ProgressFunction progress) {
  if (!ports_.start_sockets(2, 2)) {
    return OPEN_FAILED;
  }
  std::unique_ptr<port::DatagramSocket> socket = ports_.open_datagram_socket();
  if (!socket) {
    return NO_SOCKET;
  }
  const port::Ipv4Endpoint destination{device_address, port};
  // The tool listens on the device's port number, on the interface facing the device when one
  // shares at least the first two address bytes with it, otherwise on all interfaces.
  port::Ipv4Endpoint local{{0, 0, 0, 0}, port};
  std::array<Ipv4Address, MAX_LOCAL_ADDRESSES> host{};
  const std::size_t host_count = list_local_addresses(ports_, host);
  if (const auto chosen = choose_local_address(std::span(host).first(host_count), device_address)) {
    local.address = *chosen;
  }
  if (!socket->bind(local)) {
    return OPEN_FAILED;
  }

  socket_ = std::move(socket);
  destination_ = destination;
  local_address_ = local;
  first_byte_timeout_ms_ = first_byte_timeout_ms;
  inter_byte_timeout_ms_ = inter_byte_timeout_ms;
  progress_ = std::move(progress);
  return OPEN_OK;
}

std::int32_t UdpTransport::send(std::span<const std::uint8_t> bytes) {
  if (!socket_) {
    return 0;
  }
  const std::int32_t sent = socket_->send_to(destination_, bytes);
  return sent < 0 ? 0 : sent;
}

std::int32_t UdpTransport::receive(std::span<std::uint8_t> buffer, std::uint16_t min_count,
                                   std::uint32_t timeout_ms) {
  if (!socket_) {
    return 0;
  }
  socket_->set_non_blocking();  // every call; a refusal shows as nothing arriving
  const std::int64_t first_byte_timeout =
      timeout_ms == 0 ? first_byte_timeout_ms_ : static_cast<std::int64_t>(timeout_ms);
  if (!socket_->set_receive_timeout(RECEIVE_TIMEOUT_SECONDS, RECEIVE_TIMEOUT_MICROSECONDS)) {
    return 0;
  }
  const std::size_t capacity = std::min(buffer.size(), MAX_CAPACITY);

  std::size_t received = 0;
  std::int64_t idle_ms = 0;
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
      if (received > 0 && idle_ms >= inter_byte_timeout_ms_) {
        return static_cast<std::int32_t>(received);
      }
      if (received == 0 && idle_ms >= first_byte_timeout) {
        return 0;
      }
    }
    if (progress_) {
      progress_();
    }
  }
}

void UdpTransport::close() {
  if (!socket_) {
    return;
  }
  socket_.reset();
  ports_.stop_sockets();
}

}  // namespace pelmo
