#include "pelmo/transport/device_link.hpp"

#include <algorithm>
#include <functional>
#include <utility>

namespace pelmo {

namespace {

struct Opener {
  port::PortLayer& ports;
  const LinkProfile& profile;
  std::unique_ptr<Transport>& transport;
  UdpHub* hub;  // UDP devices go through it when set

  OpenResult operator()(const SerialPort& port) const {
    auto serial = std::make_unique<SerialTransport>(ports);
    OpenResult result = serial->open(port, SERIAL_BAUD_RATE, SERIAL_MODE, times());
    transport = std::move(serial);
    return result;
  }
  OpenResult operator()(const UdpDevice& device) const {
    auto udp = std::make_unique<UdpTransport>(ports);
    const port::Ipv4Endpoint endpoint{device.address, device.port};
    OpenResult result = hub ? udp->open(*hub, endpoint, times()) : udp->open(endpoint, times());
    transport = std::move(udp);
    return result;
  }
  ResponseTimes times() const {
    return {profile.first_byte_ms, profile.quiet_ms, profile.reception};
  }
};

// Seeds the jitter per device, so that links opened together still retry apart.
std::uint64_t link_seed(const DeviceAddress& device, std::uint32_t tick) {
  struct Hash {
    std::uint64_t operator()(const SerialPort& port) const {
      if (const auto* com = std::get_if<ComPort>(&port)) {
        return static_cast<std::uint64_t>(com->index);
      }
      return std::hash<std::string>{}(std::get<std::string>(port));
    }
    std::uint64_t operator()(const UdpDevice& udp) const {
      return std::uint64_t{udp.address[0]} << 40 | std::uint64_t{udp.address[1]} << 32 |
             std::uint64_t{udp.address[2]} << 24 | std::uint64_t{udp.address[3]} << 16 | udp.port;
    }
  };
  return std::visit(Hash{}, device) << 20 ^ tick;
}

}  // namespace

std::string device_name(const DeviceAddress& device) {
  if (const auto* udp = std::get_if<UdpDevice>(&device)) {
    const std::string port = udp->port == DEVICE_UDP_PORT ? "" : ":" + std::to_string(udp->port);
    return "udp:" + dotted_address(udp->address) + port;
  }
  const SerialPort& serial = std::get<SerialPort>(device);
  if (const auto* com = std::get_if<ComPort>(&serial)) {
    return "serial:COM" + std::to_string(com->index + 1);
  }
  return "serial:" + std::get<std::string>(serial);
}

DeviceLink::DeviceLink(port::PortLayer& ports, ProgressFunction progress) : ports_(ports) {
  driver_.send = [this](std::span<const std::uint8_t> bytes) {
    return transport_ ? transport_->send(bytes) : Transport::SEND_FAILED;
  };
  driver_.receive = [this](std::span<std::uint8_t> buffer, std::uint16_t min_count,
                           std::uint32_t timeout_ms) {
    return transport_ ? transport_->receive(buffer, min_count, timeout_ms, driver_.progress) : 0;
  };
  driver_.progress = std::move(progress);
  driver_.tally = &tally_;
}

DeviceLink::~DeviceLink() = default;

OpenResult DeviceLink::open(const DeviceAddress& device, const LinkProfile& profile) {
  return open_through(device, profile, nullptr);
}

OpenResult DeviceLink::open(UdpHub& hub, const UdpDevice& device, const LinkProfile& profile) {
  return open_through(device, profile, &hub);
}

OpenResult DeviceLink::open_through(const DeviceAddress& device, const LinkProfile& profile,
                                    UdpHub* hub) {
  close();
  name_ = device_name(device);
  OpenResult result = std::visit(Opener{ports_, profile, transport_, hub}, device);
  if (!result.ok) {
    transport_.reset();
    return result;
  }
  driver_.erase_timeout_ms = profile.erase_timeout_ms;
  driver_.write_timeout_ms = profile.write_timeout_ms;
  driver_.extra_timeout_ms = profile.extra_timeout_ms;
  driver_.chunk_size = profile.chunk_size;
  driver_.max_attempts = profile.max_attempts;
  use_retransmission(device, profile);
  return result;
}

void DeviceLink::use_retransmission(const DeviceAddress& device, const LinkProfile& profile) {
  profile_ = profile;
  estimator_.reset();
  driver_.estimator = nullptr;
  driver_.clock_ms = {};
  if (profile.retransmission.adaptive) {
    estimator_.emplace(profile.retransmission, link_seed(device, ports_.tick_ms()));
    driver_.estimator = &*estimator_;
    driver_.clock_ms = [this] { return ports_.tick_ms(); };
  }
}

void DeviceLink::set_erase_area(std::uint64_t bytes) {
  if (profile_.erase_base_ms == 0 && profile_.erase_ms_per_kib == 0) {
    return;
  }
  const std::uint64_t wait =
      profile_.erase_base_ms + (bytes + 1023) / 1024 * profile_.erase_ms_per_kib;
  driver_.erase_timeout_ms = static_cast<std::uint32_t>(std::min<std::uint64_t>(wait, UINT32_MAX));
}

void DeviceLink::set_transfer_observer(TransferObserver observer) {
  if (!observer) {
    driver_.transfer_progress = {};
    return;
  }
  driver_.transfer_progress = [this, observer = std::move(observer)](std::uint32_t done,
                                                                     std::uint32_t total) {
    observer(TransferProgress{name_, done, total});
  };
}

void DeviceLink::close() {
  transport_.reset();  // each transport releases its device or socket when dropped
}

}  // namespace pelmo
