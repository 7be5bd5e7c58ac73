#include "python/src/hub_share.hpp"

#include <mutex>
#include <utility>
#include <vector>

#include "pelmo/transport/udp_transport.hpp"

namespace pelmo::python {
namespace {

struct Registry {
  std::mutex mutex;
  std::vector<std::pair<port::Ipv4Endpoint, std::weak_ptr<UdpHub>>> hubs;
};

Registry& registry() {
  static Registry instance;
  return instance;
}

}  // namespace

SharedHub share_udp_hub(port::PortLayer& ports, const UdpDevice& device) {
  const port::Ipv4Endpoint local =
      udp_local_endpoint(ports, port::Ipv4Endpoint{device.address, DEVICE_UDP_PORT});
  Registry& shared = registry();
  // A hub is closed under the registry's lock, so a device that comes while the last one leaves
  // waits until the port is free instead of failing to bind it. Declared before the lock: a hub
  // that failed to open is deleted after the lock is released.
  std::shared_ptr<UdpHub> hub;
  std::unique_lock lock(shared.mutex);
  std::erase_if(shared.hubs, [](const auto& entry) { return entry.second.expired(); });
  for (const auto& [endpoint, held] : shared.hubs) {
    if (endpoint == local) {
      if (hub = held.lock(); hub) {
        return {std::move(hub), OpenResult::success()};
      }
    }
  }
  hub = std::shared_ptr<UdpHub>(new UdpHub(ports), [](UdpHub* closing) {
    const std::lock_guard closing_lock(registry().mutex);
    delete closing;
  });
  OpenResult opened = hub->open(local);
  if (!opened.ok) {
    return {nullptr, std::move(opened)};
  }
  shared.hubs.emplace_back(local, hub);
  return {std::move(hub), std::move(opened)};
}

}  // namespace pelmo::python
