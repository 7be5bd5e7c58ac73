#include "pelmo/transport/device_link.hpp"

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
  ResponseTimes times() const { return {profile.first_byte_ms, profile.quiet_ms}; }
};

}  // namespace

DeviceLink::DeviceLink(port::PortLayer& ports, ProgressFunction progress) : ports_(ports) {
  driver_.send = [this](std::span<const std::uint8_t> bytes) {
    return transport_ ? transport_->send(bytes) : Transport::SEND_FAILED;
  };
  driver_.receive = [this](std::span<std::uint8_t> buffer, std::uint16_t min_count,
                           std::uint32_t timeout_ms) {
    return transport_ ? transport_->receive(buffer, min_count, timeout_ms, driver_.progress) : 0;
  };
  driver_.progress = std::move(progress);
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
  return result;
}

void DeviceLink::close() {
  transport_.reset();  // each transport releases its device or socket when dropped
}

}  // namespace pelmo
