#include "pelmo/transport/posix/serial_device.hpp"

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <optional>
#include <utility>

#include "pelmo/transport/posix/custom_speed.hpp"
#include "pelmo/transport/posix/wait_readable.hpp"

namespace pelmo::port::posix {

namespace {

// How long a write may make no progress (the far end reads nothing) before it gives up with what
// was taken; a port without flow control never gets there.
constexpr int WRITE_STALL_LIMIT_MS = 2000;

class PosixSerialDevice final : public SerialDevice {
 public:
  // `original` holds the line settings the port had before this program changed them, if they
  // could be read.
  PosixSerialDevice(int fd, std::optional<termios> original) : fd_(fd), original_(original) {}
  PosixSerialDevice(const PosixSerialDevice&) = delete;
  PosixSerialDevice& operator=(const PosixSerialDevice&) = delete;

  ~PosixSerialDevice() override {
    // The next user of the port (a terminal's shell, another tool) gets it back as it was.
    if (original_) {
      tcsetattr(fd_, TCSANOW, &*original_);
    }
    // A pseudo-terminal keeps the exclusive flag after close and would refuse the next open.
    ioctl(fd_, TIOCNXCL);
    ::close(fd_);  // also drops the flock
  }

  std::int32_t read(std::span<std::uint8_t> buffer) override {
    if (buffer.empty()) {
      return 0;
    }
    const ssize_t count = ::read(fd_, buffer.data(), buffer.size());
    if (count >= 0) {
      return static_cast<std::int32_t>(count);
    }
    return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR ? 0 : -1;
  }

  std::int32_t write(std::span<const std::uint8_t> bytes) override {
    std::size_t written = 0;
    while (written < bytes.size()) {
      const ssize_t count = ::write(fd_, bytes.data() + written, bytes.size() - written);
      if (count > 0) {
        written += static_cast<std::size_t>(count);
        continue;
      }
      if (count < 0 && errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR) {
        return written > 0 ? static_cast<std::int32_t>(written) : -1;
      }
      // The output queue is full: wait until it drains.
      pollfd ready{fd_, POLLOUT, 0};
      const int events = poll(&ready, 1, WRITE_STALL_LIMIT_MS);
      if (events == 0 || (events < 0 && errno != EINTR)) {
        break;
      }
    }
    return static_cast<std::int32_t>(written);
  }

  bool wait_readable(std::uint32_t timeout_ms) override {
    return posix::wait_readable(fd_, timeout_ms);
  }

 private:
  int fd_;
  std::optional<termios> original_;
};

SerialOpenResult failure(SerialOpenStatus status, int os_error) {
  SerialOpenResult result;
  result.status = status;
  result.os_error = os_error;
  return result;
}

tcflag_t character_size(std::uint8_t data_bits) {
  switch (data_bits) {
    case 5:
      return CS5;
    case 6:
      return CS6;
    case 7:
      return CS7;
    default:
      return CS8;
  }
}

// The control-mode bits that carry the settings and must read back unchanged.
constexpr tcflag_t CHECKED_CONTROL_BITS =
    CSIZE | PARENB | PARODD | CSTOPB | CLOCAL | CREAD | CRTSCTS;

// Raw mode with the line settings; the driver must report back what was asked. Errno is set on
// failure.
bool apply_line_settings(int fd, const LineSettings& line) {
  termios wanted{};
  if (tcgetattr(fd, &wanted) != 0) {
    return false;
  }
  cfmakeraw(&wanted);
  wanted.c_cflag &= ~(CSIZE | PARENB | PARODD | CSTOPB | CRTSCTS);
  wanted.c_cflag |= CLOCAL | CREAD | character_size(line.data_bits);
  if (line.parity != Parity::none) {
    wanted.c_cflag |= PARENB;
  }
  if (line.parity == Parity::odd) {
    wanted.c_cflag |= PARODD;
  }
  if (line.stop_bits == 2) {
    wanted.c_cflag |= CSTOPB;
  }
  // The speed is set afterwards, in bits per second.
  if (tcsetattr(fd, TCSANOW, &wanted) != 0) {
    return false;
  }
  if (!set_line_speed(fd, static_cast<std::uint32_t>(line.baud_rate))) {
    errno = errno == 0 ? EINVAL : errno;
    return false;
  }
  termios applied{};
  if (tcgetattr(fd, &applied) != 0) {
    return false;
  }
  const bool same =
      (applied.c_cflag & CHECKED_CONTROL_BITS) == (wanted.c_cflag & CHECKED_CONTROL_BITS) &&
      (applied.c_lflag & (ICANON | ECHO | ISIG)) == 0;
  if (!same) {
    errno = EINVAL;
    return false;
  }
  return true;
}

// DTR and RTS as the settings ask. A pseudo-terminal has no modem lines and refuses the request;
// that is not a failure.
bool apply_modem_lines(int fd, const LineSettings& line) {
  for (const auto& [on, bit] : {std::pair{line.dtr, TIOCM_DTR}, std::pair{line.rts, TIOCM_RTS}}) {
    int bits = bit;
    if (ioctl(fd, on ? TIOCMBIS : TIOCMBIC, &bits) != 0 && errno != ENOTTY && errno != EINVAL) {
      return false;
    }
  }
  return true;
}

// Reads return at once with what has arrived, possibly nothing.
bool apply_read_timeouts(int fd) {
  termios settings{};
  if (tcgetattr(fd, &settings) != 0) {
    return false;
  }
  settings.c_cc[VMIN] = 0;
  settings.c_cc[VTIME] = 0;
  if (tcsetattr(fd, TCSANOW, &settings) != 0) {
    return false;
  }
  termios applied{};
  if (tcgetattr(fd, &applied) != 0) {
    return false;
  }
  if (applied.c_cc[VMIN] != 0 || applied.c_cc[VTIME] != 0) {
    errno = EINVAL;
    return false;
  }
  return true;
}

}  // namespace

SerialOpenResult open_serial_device(const std::string& path, const LineSettings& line) {
  const int fd = ::open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) {
    return failure(SerialOpenStatus::open_failed, errno);
  }
  // Two locks: flock stops every other process (root included), TIOCEXCL stops other users'
  // opens. Both come before any change to the line.
  if (flock(fd, LOCK_EX | LOCK_NB) != 0) {
    const int error = errno;
    ::close(fd);
    return failure(SerialOpenStatus::open_failed, error);
  }
  if (ioctl(fd, TIOCEXCL) != 0) {
    const int error = errno;
    ::close(fd);
    return failure(SerialOpenStatus::open_failed, error);
  }
  // From here the device object owns the descriptor; when dropped it puts the line settings back
  // and clears the exclusive flag.
  termios original{};
  auto device = std::make_unique<PosixSerialDevice>(
      fd, tcgetattr(fd, &original) == 0 ? std::optional(original) : std::nullopt);

  errno = 0;
  if (!apply_line_settings(fd, line) || !apply_modem_lines(fd, line)) {
    return failure(SerialOpenStatus::config_failed, errno);
  }
  if (!apply_read_timeouts(fd)) {
    return failure(SerialOpenStatus::timeouts_failed, errno);
  }
  // A late answer to an earlier, interrupted run may still wait in the port: it would be taken
  // for the answer to this run's first request.
  tcflush(fd, TCIFLUSH);
  SerialOpenResult result;
  result.status = SerialOpenStatus::ok;
  result.device = std::move(device);
  return result;
}

}  // namespace pelmo::port::posix
