#include "simulator/server.hpp"

#include <poll.h>
#include <signal.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>

namespace pelmo::sim {
namespace {

volatile std::sig_atomic_t stop_requested = 0;

void on_stop_signal(int) {
  stop_requested = 1;
}

constexpr std::uint64_t NS_PER_MS = 1000000;
// How long a finished run waits for the program to read the last answer from the pty.
constexpr std::uint32_t LINGER_MS = 1000;

// SIGINT and SIGTERM are blocked except inside ppoll(), so a signal can never slip in between
// the check of the flag and the wait.
sigset_t install_stop_signals() {
  struct sigaction action {};
  action.sa_handler = on_stop_signal;
  sigemptyset(&action.sa_mask);
  ::sigaction(SIGINT, &action, nullptr);
  ::sigaction(SIGTERM, &action, nullptr);
  sigset_t blocked;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGINT);
  sigaddset(&blocked, SIGTERM);
  sigset_t previous;
  ::sigprocmask(SIG_BLOCK, &blocked, &previous);
  sigdelset(&previous, SIGINT);
  sigdelset(&previous, SIGTERM);
  return previous;
}

}  // namespace

Server::Server(const SimulatorOptions& options, Responder& responder, std::ostream& console)
    : options_(options), responder_(responder), console_(console) {}

std::uint64_t Server::now_ns() {
  return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(
                                        std::chrono::steady_clock::now().time_since_epoch())
                                        .count());
}

void Server::open() {
  // Before the ready line: a caller may signal as soon as it has read it.
  wait_mask_ = install_stop_signals();
  const bool stray = options_.faults.stray_codes.any() || !options_.faults.stray.never();
  for (const UdpAddress& address : options_.udp) {
    udp_.push_back(std::make_unique<UdpEndpoint>(address, stray));
    console_ << "listening udp " << udp_.back()->description() << std::endl;
  }
  if (options_.pty) {
    pty_ = std::make_unique<PtyEndpoint>(options_.pty_link,
                                         options_.baud_pace ? PacedLine::UART_115200_8N1 : 0);
    console_ << "pty " << pty_->slave_path();
    if (!options_.pty_link.empty()) {
      console_ << " link " << options_.pty_link;
    }
    console_ << std::endl;
  }
  console_ << "ready" << std::endl;
}

bool Server::limit_reached() const {
  return options_.exit_after && responder_.requests() >= *options_.exit_after;
}

void Server::send_later(std::uint64_t now, const std::vector<Transmission>& pieces,
                        const std::function<void(const Transmission&)>& send) {
  for (const Transmission& piece : pieces) {
    scheduler_.add(now + piece.delay_ms * NS_PER_MS, [send, piece] { send(piece); });
  }
}

void Server::on_udp_readable(UdpEndpoint& endpoint) {
  const std::uint64_t now = now_ns();
  endpoint.receive_all([&](std::span<const std::uint8_t> bytes, const sockaddr_in& sender) {
    if (limit_reached()) {
      return;
    }
    send_later(now, responder_.on_frame(bytes), [&endpoint, sender](const Transmission& piece) {
      endpoint.send(sender, piece.bytes, piece.stray);
    });
  });
}

void Server::handle_framer_events(const std::vector<FramerEvent>& events, std::uint64_t now) {
  for (const FramerEvent& event : events) {
    if (event.frame.empty()) {
      responder_.on_garbage(event.dropped, event.reason);
      continue;
    }
    if (limit_reached()) {
      continue;
    }
    send_later(now, responder_.on_frame(event.frame), [this](const Transmission& piece) {
      if (!piece.stray) {  // a serial line has no other port to send from
        pty_->queue(piece.bytes, now_ns());
      }
    });
  }
}

void Server::on_pty_arrivals(std::uint64_t now) {
  const std::vector<std::uint8_t> bytes = pty_->arrived(now);
  if (!bytes.empty()) {
    handle_framer_events(framer_.feed(bytes, now / NS_PER_MS), now);
  }
}

void Server::serve() {
  const sigset_t wait_mask = wait_mask_;
  while (stop_requested == 0) {
    const std::uint64_t now = now_ns();
    scheduler_.run_due(now);
    if (pty_) {
      if (!pty_->blocked()) {
        pty_->flush(now);
      }
      on_pty_arrivals(now);
      // A frame found only when the quiet time expires schedules its answer here, so the wake-up
      // time is taken after it.
      handle_framer_events(framer_.expire(now / NS_PER_MS), now);
    }
    std::optional<std::uint64_t> wake = scheduler_.next_due_ns();
    const auto earliest = [&wake](std::optional<std::uint64_t> other) {
      if (other && (!wake || *other < *wake)) {
        wake = other;
      }
    };
    if (pty_) {
      earliest(pty_->next_write_ns());
      earliest(pty_->next_arrival_ns());
      if (const auto expiry = framer_.deadline()) {
        earliest(*expiry * NS_PER_MS);
      }
    }
    if (limit_reached() && scheduler_.empty() && (!pty_ || pty_->drained())) {
      if (pty_) {
        pty_->linger(LINGER_MS);
      }
      break;
    }

    std::vector<pollfd> fds;
    for (const auto& endpoint : udp_) {
      fds.push_back({endpoint->fd(), POLLIN, 0});
    }
    if (pty_) {
      fds.push_back({pty_->fd(), static_cast<short>(POLLIN | (pty_->blocked() ? POLLOUT : 0)), 0});
    }
    timespec timeout{};
    const timespec* timeout_pointer = nullptr;
    if (wake) {
      const std::uint64_t wait = *wake > now ? *wake - now : 0;
      timeout.tv_sec = static_cast<time_t>(wait / 1000000000ull);
      timeout.tv_nsec = static_cast<long>(wait % 1000000000ull);
      timeout_pointer = &timeout;
    }
    if (::ppoll(fds.data(), fds.size(), timeout_pointer, &wait_mask) < 0) {
      continue;  // EINTR: a stop signal or a harmless interruption; the loop head decides
    }
    for (std::size_t i = 0; i < udp_.size(); ++i) {
      if (fds[i].revents != 0) {
        on_udp_readable(*udp_[i]);
      }
    }
    if (pty_) {
      const short events = fds.back().revents;
      if ((events & POLLOUT) != 0) {
        pty_->flush(now_ns());
      }
      if ((events & POLLIN) != 0) {
        const std::uint64_t arrival = now_ns();
        pty_->receive(arrival);
        on_pty_arrivals(arrival);
      }
    }
  }
}

}  // namespace pelmo::sim
