#include "simulator/pty_endpoint.hpp"

#include <fcntl.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "simulator/endpoint_error.hpp"

namespace pelmo::sim {
namespace {

void make_raw(int fd) {
  termios settings{};
  if (::tcgetattr(fd, &settings) != 0) {
    throw EndpointError(system_failure("pty tcgetattr"));
  }
  ::cfmakeraw(&settings);
  settings.c_cflag |= CLOCAL | CREAD;
  ::cfsetispeed(&settings, B115200);
  ::cfsetospeed(&settings, B115200);
  settings.c_cc[VMIN] = 0;
  settings.c_cc[VTIME] = 0;
  if (::tcsetattr(fd, TCSANOW, &settings) != 0) {
    throw EndpointError(system_failure("pty tcsetattr"));
  }
}

void replace_symlink(const std::string& link, const std::string& target) {
  struct stat existing {};
  if (::lstat(link.c_str(), &existing) == 0) {
    if (!S_ISLNK(existing.st_mode)) {
      throw EndpointError("--pty-link: " + link + " exists and is not a symlink");
    }
    ::unlink(link.c_str());
  }
  if (::symlink(target.c_str(), link.c_str()) != 0) {
    throw EndpointError(system_failure("--pty-link " + link));
  }
}

}  // namespace

PtyEndpoint::PtyEndpoint(const std::string& link, std::uint32_t bytes_per_second)
    : input_(bytes_per_second), output_(bytes_per_second) {
  std::array<char, 256> name{};
  if (::openpty(&master_, &own_slave_, name.data(), nullptr, nullptr) != 0) {
    throw EndpointError(system_failure("openpty"));
  }
  slave_path_ = name.data();
  try {
    ::fcntl(master_, F_SETFD, FD_CLOEXEC);
    ::fcntl(own_slave_, F_SETFD, FD_CLOEXEC);
    if (::fcntl(master_, F_SETFL, ::fcntl(master_, F_GETFL) | O_NONBLOCK) != 0) {
      throw EndpointError(system_failure("pty O_NONBLOCK"));
    }
    make_raw(master_);
    if (!link.empty()) {
      replace_symlink(link, slave_path_);
      link_ = link;
    }
  } catch (...) {
    ::close(own_slave_);
    ::close(master_);
    throw;
  }
}

PtyEndpoint::~PtyEndpoint() {
  if (!link_.empty()) {
    ::unlink(link_.c_str());
  }
  ::close(own_slave_);
  ::close(master_);
}

void PtyEndpoint::linger(std::uint32_t max_ms) const {
  constexpr std::uint32_t STEP_MS = 5;
  // The kernel moves written bytes to the slave side a moment later; give it that moment first.
  constexpr std::uint32_t HANDOVER_MS = 20;
  ::usleep(HANDOVER_MS * 1000);
  for (std::uint32_t waited = HANDOVER_MS; waited < max_ms; waited += STEP_MS) {
    int unread = 0;
    if (::ioctl(own_slave_, FIONREAD, &unread) != 0 || unread == 0) {
      return;
    }
    ::usleep(STEP_MS * 1000);
  }
}

void PtyEndpoint::receive(std::uint64_t now_ns) {
  std::array<std::uint8_t, 4096> chunk;
  while (true) {
    const ssize_t count = ::read(master_, chunk.data(), chunk.size());
    if (count > 0) {
      input_.push(std::span(chunk).first(static_cast<std::size_t>(count)), now_ns);
      continue;
    }
    if (count < 0 && errno == EINTR) {
      continue;
    }
    return;
  }
}

std::vector<std::uint8_t> PtyEndpoint::arrived(std::uint64_t now_ns) {
  std::vector<std::uint8_t> bytes(input_.ready(now_ns));
  input_.consume(input_.peek(bytes));
  return bytes;
}

void PtyEndpoint::queue(std::span<const std::uint8_t> bytes, std::uint64_t now_ns) {
  output_.push(bytes, now_ns);
  flush(now_ns);
}

void PtyEndpoint::flush(std::uint64_t now_ns) {
  std::array<std::uint8_t, 4096> chunk;
  blocked_ = false;
  std::size_t due = output_.ready(now_ns);
  while (due > 0) {
    const std::size_t count = output_.peek(std::span(chunk).first(std::min(due, chunk.size())));
    const ssize_t written = ::write(master_, chunk.data(), count);
    if (written < 0 && errno == EINTR) {
      continue;
    }
    if (written <= 0) {
      // The pty is full: nobody reads the port. Wait until it takes bytes again.
      blocked_ = true;
      return;
    }
    output_.consume(static_cast<std::size_t>(written));
    due -= static_cast<std::size_t>(written);
  }
}

}  // namespace pelmo::sim
