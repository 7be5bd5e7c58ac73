#include "pelmo/transport/udp_hub.hpp"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <utility>
#include <vector>

#include "pelmo/transport/udp_transport.hpp"

namespace pelmo {

namespace {

// The largest payload an IPv4 datagram can carry, so the reader never cuts one.
constexpr std::size_t MAX_DATAGRAM = 65507;

using Datagram = std::vector<std::uint8_t>;

// The datagrams waiting for one device's endpoint.
struct Route {
  std::mutex mutex;
  std::condition_variable arrived;
  std::deque<Datagram> queue;
};

std::uint64_t route_key(const port::Ipv4Endpoint& sender) {
  std::uint64_t key = 0;
  for (const std::uint8_t byte : sender.address) {
    key = (key << 8) | byte;
  }
  return (key << 16) | sender.port;
}

std::string endpoint_text(const port::Ipv4Endpoint& endpoint) {
  return dotted_address(endpoint.address) + ":" + std::to_string(endpoint.port);
}

}  // namespace

namespace detail {

// Shared by the hub, its reader and its endpoints, so an endpoint that outlives the hub's socket
// reads silence instead of reaching a closed one.
struct UdpHubCore {
  std::mutex socket_mutex;  // the socket's lifetime against sends from the links' threads
  std::unique_ptr<port::DatagramSocket> socket;
  std::atomic<bool> stopping{false};

  std::mutex routes_mutex;
  std::map<std::uint64_t, std::shared_ptr<Route>> routes;

  std::atomic<std::uint64_t> routed{0}, unknown_sender{0}, overflowed{0};

  std::shared_ptr<Route> route_of(const port::Ipv4Endpoint& sender) {
    const std::lock_guard lock(routes_mutex);
    const auto found = routes.find(route_key(sender));
    return found == routes.end() ? nullptr : found->second;
  }

  void deliver(const port::Ipv4Endpoint& sender, std::span<const std::uint8_t> bytes) {
    const std::shared_ptr<Route> route = route_of(sender);
    if (!route) {
      ++unknown_sender;
      return;
    }
    {
      const std::lock_guard lock(route->mutex);
      if (route->queue.size() >= UdpHub::QUEUE_LIMIT) {
        route->queue.pop_front();  // a link that fell this far behind wants the newest answers
        ++overflowed;
      }
      route->queue.emplace_back(bytes.begin(), bytes.end());
    }
    ++routed;
    route->arrived.notify_all();
  }

  // Runs on the reader thread until `stopping`; the socket stays open until it has returned.
  void read(port::DatagramSocket& from) {
    Datagram buffer(MAX_DATAGRAM);
    while (!stopping.load()) {
      if (!from.wait_readable(UdpHub::READER_SLICE_MS)) {
        continue;
      }
      port::Ipv4Endpoint sender;
      const std::int32_t count = from.receive_from(buffer, sender);
      if (count > 0) {
        deliver(sender, std::span(buffer).first(static_cast<std::size_t>(count)));
      }
    }
  }

  void unregister(const port::Ipv4Endpoint& device, const Route* route) {
    const std::lock_guard lock(routes_mutex);
    const auto found = routes.find(route_key(device));
    if (found != routes.end() && found->second.get() == route) {
      routes.erase(found);
    }
  }
};

}  // namespace detail

namespace {

// One device's view of the hub's socket.
class HubEndpoint final : public port::DatagramSocket {
 public:
  HubEndpoint(std::shared_ptr<detail::UdpHubCore> core, const port::Ipv4Endpoint& device,
              std::shared_ptr<Route> route)
      : core_(std::move(core)), device_(device), route_(std::move(route)) {}
  ~HubEndpoint() override { core_->unregister(device_, route_.get()); }
  HubEndpoint(const HubEndpoint&) = delete;
  HubEndpoint& operator=(const HubEndpoint&) = delete;

  port::OsError bind(const port::Ipv4Endpoint&) override { return {}; }  // the hub's is bound

  std::int32_t send_to(const port::Ipv4Endpoint& to, std::span<const std::uint8_t> bytes) override {
    const std::lock_guard lock(core_->socket_mutex);
    return core_->socket ? core_->socket->send_to(to, bytes) : -1;
  }

  std::int32_t receive_from(std::span<std::uint8_t> buffer, port::Ipv4Endpoint& from) override {
    Datagram datagram;
    {
      const std::lock_guard lock(route_->mutex);
      if (route_->queue.empty()) {
        return 0;
      }
      datagram = std::move(route_->queue.front());
      route_->queue.pop_front();
    }
    // Like a socket: the part that fits, the rest of the datagram is lost.
    const std::size_t count = std::min(datagram.size(), buffer.size());
    std::copy_n(datagram.begin(), count, buffer.begin());
    from = device_;
    return static_cast<std::int32_t>(count);
  }

  bool wait_readable(std::uint32_t timeout_ms) override {
    std::unique_lock lock(route_->mutex);
    return route_->arrived.wait_for(lock, std::chrono::milliseconds(timeout_ms),
                                    [this] { return !route_->queue.empty(); });
  }

 private:
  std::shared_ptr<detail::UdpHubCore> core_;
  port::Ipv4Endpoint device_;
  std::shared_ptr<Route> route_;
};

}  // namespace

UdpHub::UdpHub(port::PortLayer& ports)
    : ports_(ports), core_(std::make_shared<detail::UdpHubCore>()) {}

OpenResult UdpHub::open_for(const Ipv4Address& device, std::uint16_t port) {
  return open(udp_local_endpoint(ports_, {device, port}));
}

OpenResult UdpHub::open(const port::Ipv4Endpoint& local) {
  if (is_open()) {
    return OpenResult::failure("the UDP hub is open already on " + endpoint_text(local_));
  }
  BoundSocket bound = open_bound_socket(ports_, local);
  if (!bound.socket) {
    return bound.result;
  }
  port::DatagramSocket& socket = *bound.socket;
  {
    const std::lock_guard lock(core_->socket_mutex);
    core_->socket = std::move(bound.socket);
  }
  core_->stopping = false;
  local_ = local;
  reader_ = std::thread([core = core_, &socket] { core->read(socket); });
  return OpenResult::success();
}

void UdpHub::close() {
  if (!is_open()) {
    return;
  }
  core_->stopping = true;
  reader_.join();
  {
    const std::lock_guard lock(core_->socket_mutex);
    core_->socket.reset();
  }
  ports_.stop_sockets();
}

UdpHub::Attached UdpHub::attach(const port::Ipv4Endpoint& device) {
  if (!is_open()) {
    return {nullptr, OpenResult::failure("the UDP hub is not open")};
  }
  auto route = std::make_shared<Route>();
  {
    const std::lock_guard lock(core_->routes_mutex);
    if (!core_->routes.try_emplace(route_key(device), route).second) {
      return {nullptr, OpenResult::failure("UDP device " + endpoint_text(device) +
                                           " already has a link on this hub")};
    }
  }
  return {std::make_unique<HubEndpoint>(core_, device, std::move(route)), OpenResult::success()};
}

UdpHubCounters UdpHub::counters() const {
  return {core_->routed.load(), core_->unknown_sender.load(), core_->overflowed.load()};
}

}  // namespace pelmo
