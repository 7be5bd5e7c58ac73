#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "pelmo/protocol/link_driver.hpp"
#include "pelmo/protocol/round_trip_estimator.hpp"
#include "pelmo/transport/link_profile.hpp"
#include "pelmo/transport/port_layer.hpp"
#include "pelmo/transport/serial_transport.hpp"
#include "pelmo/transport/transport.hpp"
#include "pelmo/transport/udp_hub.hpp"
#include "pelmo/transport/udp_transport.hpp"

namespace pelmo {

// A device reached over UDP/IPv4; the host listens on the same port number.
struct UdpDevice {
  Ipv4Address address{};
  std::uint16_t port = DEVICE_UDP_PORT;
};

// Where a device is: a serial port (a COM number or a device path) or a UDP endpoint.
using DeviceAddress = std::variant<SerialPort, UdpDevice>;

// The device's name for people and records: "udp:192.168.1.15", "serial:COM3",
// "serial:/dev/ttyUSB0" (a UDP port other than the protocol's is added as ":PORT").
std::string device_name(const DeviceAddress& device);

// One step of a read, write or verify on one device, for progress bars and machine records.
struct TransferProgress {
  std::string_view device;  // device_name() of the link
  std::uint32_t done = 0;   // bytes acknowledged so far
  std::uint32_t total = 0;  // bytes the transfer moves in all
};
using TransferObserver = std::function<void(const TransferProgress&)>;

// The link to one device: it opens the transport, owns it, drives it with one LinkProfile and
// gives the commands the LinkDriver they take. One object per device; several may be open at once.
// The LinkDriver refers to this object, so it neither moves nor copies.
//
// A new kind of transport implements Transport (transport.hpp), adds its address to
// DeviceAddress and its open to DeviceLink::open.
class DeviceLink {
 public:
  // `progress` is called while a transport waits and after each step the device acknowledged.
  explicit DeviceLink(port::PortLayer& ports, ProgressFunction progress = {});
  DeviceLink(const DeviceLink&) = delete;
  DeviceLink& operator=(const DeviceLink&) = delete;
  ~DeviceLink();

  // Opens the device's transport (the serial line at 115200 8N1) with `profile`'s response times.
  // A link already open is closed first.
  OpenResult open(const DeviceAddress& device, const LinkProfile& profile);
  // Opens a UDP device through `hub`'s shared socket, so that one process can drive many UDP
  // devices at once; refused while another link on the hub talks to the same device. `hub` must
  // outlive the link.
  OpenResult open(UdpHub& hub, const UdpDevice& device, const LinkProfile& profile);
  void close();
  bool is_open() const { return transport_ != nullptr && transport_->is_open(); }

  // The driver the commands take; null while the link is closed.
  const LinkDriver* driver() const { return is_open() ? &driver_ : nullptr; }
  Transport* transport() const { return transport_.get(); }

  // The round-trip estimate of an adaptive profile (kept from its open on); null otherwise.
  const RoundTripEstimator* estimator() const { return estimator_ ? &*estimator_ : nullptr; }

  // The size of the area the next erase clears; with a profile that scales its erase wait
  // (erase_base_ms, erase_ms_per_kib) the erase waits base + per KiB begun. Otherwise no effect.
  void set_erase_area(std::uint64_t bytes);
  // Asked before each send and between answers: true ends the exchange with RC_CANCELLED.
  void set_cancel(std::function<bool()> cancelled) { driver_.cancelled = std::move(cancelled); }
  // Told after each chunk of a read, write or verify: this device, bytes done and in total.
  void set_transfer_observer(TransferObserver observer);

  // How the last exchange that went unanswered ended: its sends and the time they waited.
  const ExchangeTally& last_timeout() const { return tally_; }

  // device_name() of the device last opened ("" before any open).
  const std::string& name() const { return name_; }

 private:
  void use_retransmission(const DeviceAddress& device, const LinkProfile& profile);
  OpenResult open_through(const DeviceAddress& device, const LinkProfile& profile, UdpHub* hub);

  port::PortLayer& ports_;
  std::string name_;
  std::unique_ptr<Transport> transport_;
  LinkDriver driver_;  // send and receive reach transport_; progress is the one callback
  std::optional<RoundTripEstimator> estimator_;
  LinkProfile profile_{};
  ExchangeTally tally_{};
};

}  // namespace pelmo
