#include "pelmo/transport/framed_reception.hpp"

#include <algorithm>

namespace pelmo {

std::int32_t FramedReception::receive(ByteSource& source, port::PortLayer& clock,
                                      std::span<std::uint8_t> buffer, std::uint32_t timeout_ms,
                                      std::uint32_t quiet_ms, const ProgressFunction& idle) {
  const std::uint32_t start = clock.tick_ms();
  std::uint32_t last_bytes = start;
  bool woke = false;    // the last wait said something is there
  int empty_wakes = 0;  // wakes in a row after which the read found nothing
  for (;;) {
    if (const auto frame = assembler_.take_frame(); !frame.empty()) {
      const std::size_t count = std::min(frame.size(), buffer.size());
      std::copy_n(frame.begin(), count, buffer.begin());
      return static_cast<std::int32_t>(count);
    }
    if (const std::optional<std::size_t> got = source.read(scratch_)) {
      assembler_.feed(std::span(scratch_).first(*got));
      if (*got > 0) {
        last_bytes = clock.tick_ms();
      }
      woke = false;
      empty_wakes = 0;
      continue;
    }
    if (woke) {
      ++empty_wakes;
    }
    const std::uint32_t now = clock.tick_ms();
    const std::uint32_t elapsed = now - start;  // the tick wraps
    if (elapsed >= timeout_ms) {
      return 0;
    }
    std::uint32_t wait_ms = std::min(timeout_ms - elapsed, WAIT_SLICE_MS);
    if (assembler_.buffered() > 0 && quiet_ms > 0) {
      const std::uint32_t quiet = now - last_bytes;
      if (quiet >= quiet_ms) {
        assembler_.expire();
        continue;
      }
      wait_ms = std::min(wait_ms, quiet_ms - quiet);
    }
    // A line that hung up keeps reporting itself readable while no read delivers anything;
    // waiting on it again would spin.
    if (empty_wakes >= 2) {
      clock.sleep_ms(wait_ms);
      woke = false;
    } else {
      woke = source.wait_readable(wait_ms);
    }
    if (idle) {
      idle();
    }
  }
}

void FramedReception::drain(ByteSource& source) {
  for (std::size_t reads = 0; reads < MAX_DRAIN_READS && source.read(scratch_); ++reads) {
  }
  assembler_.clear();
}

}  // namespace pelmo
