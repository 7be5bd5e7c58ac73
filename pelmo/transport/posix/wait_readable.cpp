#include "pelmo/transport/posix/wait_readable.hpp"

#include <poll.h>
#include <time.h>

#include <algorithm>
#include <cerrno>
#include <climits>

namespace pelmo::port::posix {

namespace {

std::int64_t monotonic_ms() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<std::int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

}  // namespace

bool wait_readable(int fd, std::uint32_t timeout_ms) {
  const std::int64_t deadline = monotonic_ms() + timeout_ms;
  for (;;) {
    const std::int64_t left = std::max<std::int64_t>(deadline - monotonic_ms(), 0);
    pollfd ready{fd, POLLIN, 0};
    const int events = poll(&ready, 1, static_cast<int>(std::min<std::int64_t>(left, INT_MAX)));
    if (events >= 0) {
      return events > 0;
    }
    if (errno != EINTR) {
      return false;
    }
  }
}

}  // namespace pelmo::port::posix
