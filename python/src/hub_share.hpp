#pragma once

#include <memory>

#include "pelmo/transport/device_link.hpp"
#include "pelmo/transport/udp_hub.hpp"

namespace pelmo::python {

// A hub that UDP devices of this process share, or why none could be opened.
struct SharedHub {
  std::shared_ptr<UdpHub> hub;  // null on failure
  OpenResult result;
};

// The hub bound to the local endpoint a link to `device` would bind (the host address facing it,
// port 57998): the one already open for that endpoint while any device holds it, else a new one.
// The devices answer to port 57998, so two hubs on one host address could not both bind it; the
// registry keeps only weak references, and the last holder's release closes the hub and frees
// the port.
SharedHub share_udp_hub(port::PortLayer& ports, const UdpDevice& device);

}  // namespace pelmo::python
