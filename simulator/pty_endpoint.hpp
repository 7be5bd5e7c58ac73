#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "simulator/paced_line.hpp"

namespace pelmo::sim {

// The device's serial side: a pseudo-terminal pair whose master the simulator holds (in raw
// mode, so nothing is echoed or translated) while the program opens the slave as its COM port.
// The simulator keeps a slave descriptor of its own open as well, so that a program closing the
// port does not hang the master up between runs. Both directions go through a PacedLine: what the
// program writes reaches the device only as fast as a real line would carry it, and so does the
// device's answer.
class PtyEndpoint {
 public:
  // Throws EndpointError. `link`: a symlink to create to the slave (replacing an old symlink).
  PtyEndpoint(const std::string& link, std::uint32_t bytes_per_second);
  ~PtyEndpoint();
  PtyEndpoint(const PtyEndpoint&) = delete;
  PtyEndpoint& operator=(const PtyEndpoint&) = delete;

  int fd() const { return master_; }
  const std::string& slave_path() const { return slave_path_; }

  // Takes in everything the program has written so far; it arrives as the line rate allows.
  void receive(std::uint64_t now_ns);
  // The bytes that have arrived by `now_ns` and were not handed out before.
  std::vector<std::uint8_t> arrived(std::uint64_t now_ns);
  void queue(std::span<const std::uint8_t> bytes, std::uint64_t now_ns);
  // Writes what the line rate allows by now; bytes the pty cannot take yet stay queued.
  void flush(std::uint64_t now_ns);
  bool drained() const { return output_.empty(); }
  // Waits up to `max_ms` for the program to read what was sent: closing the master drops bytes
  // the slave side has not taken yet.
  void linger(std::uint32_t max_ms) const;
  // True while the pty refuses more bytes: wait for it to become writable instead of a time.
  bool blocked() const { return blocked_; }
  std::optional<std::uint64_t> next_write_ns() const {
    return blocked_ ? std::nullopt : output_.next_due_ns();
  }
  // When the next batch of the program's bytes arrives.
  std::optional<std::uint64_t> next_arrival_ns() const { return input_.next_due_ns(); }

 private:
  int master_ = -1;
  int own_slave_ = -1;
  std::string slave_path_;
  std::string link_;
  PacedLine input_;
  PacedLine output_;
  bool blocked_ = false;
};

}  // namespace pelmo::sim
