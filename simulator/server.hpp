#pragma once

#include <signal.h>

#include <cstdint>
#include <memory>
#include <ostream>
#include <vector>

#include "simulator/options.hpp"
#include "simulator/pty_endpoint.hpp"
#include "simulator/responder.hpp"
#include "simulator/scheduler.hpp"
#include "simulator/stream_framer.hpp"
#include "simulator/udp_endpoint.hpp"

namespace pelmo::sim {

// The simulator's single-threaded poll() loop: it reads requests from every endpoint, hands them
// to the responder and sends the answers back on the link they came from, at the time the fault
// plan says.
class Server {
 public:
  Server(const SimulatorOptions& options, Responder& responder, std::ostream& console);

  // Opens the endpoints and prints one "listening ..." line for each, then "ready". Throws
  // EndpointError.
  void open();
  // Serves until SIGINT or SIGTERM, or until the --exit-after requests are answered and sent.
  void serve();

 private:
  static std::uint64_t now_ns();
  bool limit_reached() const;
  void send_later(std::uint64_t now, const std::vector<Transmission>& pieces,
                  const std::function<void(const Transmission&)>& send);
  void on_udp_readable(UdpEndpoint& endpoint);
  // Hands the program's bytes that have arrived over the (paced) line to the framer.
  void on_pty_arrivals(std::uint64_t now);
  void handle_framer_events(const std::vector<FramerEvent>& events, std::uint64_t now);

  const SimulatorOptions& options_;
  Responder& responder_;
  std::ostream& console_;
  std::vector<std::unique_ptr<UdpEndpoint>> udp_;
  std::unique_ptr<PtyEndpoint> pty_;
  StreamFramer framer_;
  Scheduler scheduler_;
  sigset_t wait_mask_{};  // the signal mask to wait with: stop signals let through
};

}  // namespace pelmo::sim
