// The built pelmo-device program over its real links: a UDP socket on the loopback and a
// pseudo-terminal, each for a short scenario.

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "sim_test_support.hpp"

namespace pelmo::sim::test {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

// pelmo-device as a child process whose standard output and error the test reads.
class DeviceProcess {
 public:
  explicit DeviceProcess(const std::vector<std::string>& arguments) {
    int pipe_fds[2];
    if (::pipe(pipe_fds) != 0) {
      ADD_FAILURE() << "pipe";
      return;
    }
    pid_ = ::fork();
    if (pid_ == 0) {
      ::dup2(pipe_fds[1], STDOUT_FILENO);
      ::dup2(pipe_fds[1], STDERR_FILENO);
      ::close(pipe_fds[0]);
      std::vector<char*> argv{const_cast<char*>(PELMO_DEVICE_PATH)};
      for (const std::string& argument : arguments) {
        argv.push_back(const_cast<char*>(argument.c_str()));
      }
      argv.push_back(nullptr);
      ::execv(PELMO_DEVICE_PATH, argv.data());
      ::_exit(127);
    }
    ::close(pipe_fds[1]);
    output_ = pipe_fds[0];
  }

  ~DeviceProcess() {
    if (pid_ > 0 && !exited_) {
      ::kill(pid_, SIGKILL);
      ::waitpid(pid_, nullptr, 0);
    }
    if (output_ >= 0) {
      ::close(output_);
    }
  }

  // Output lines up to and including the first that starts with `marker` (or all of them when
  // the program ends or 5 s pass first).
  std::vector<std::string> lines_until(const std::string& marker) {
    std::vector<std::string> lines;
    const auto deadline = Clock::now() + std::chrono::seconds(5);
    while (Clock::now() < deadline) {
      const std::size_t end = text_.find('\n');
      if (end != std::string::npos) {
        lines.push_back(text_.substr(0, end));
        text_.erase(0, end + 1);
        if (lines.back().rfind(marker, 0) == 0) {
          return lines;
        }
        continue;
      }
      pollfd fd{output_, POLLIN, 0};
      if (::poll(&fd, 1, 100) > 0) {
        char chunk[512];
        const ssize_t count = ::read(output_, chunk, sizeof chunk);
        if (count <= 0) {
          break;
        }
        text_.append(chunk, static_cast<std::size_t>(count));
      }
    }
    ADD_FAILURE() << "no line starting with " << marker;
    return lines;
  }

  // The exit status, or -1 when it does not end within `seconds`.
  int wait_exit(int seconds) {
    const auto deadline = Clock::now() + std::chrono::seconds(seconds);
    while (Clock::now() < deadline) {
      int status = 0;
      if (::waitpid(pid_, &status, WNOHANG) == pid_) {
        exited_ = true;
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
      }
      ::usleep(10000);
    }
    return -1;
  }

  void signal(int number) { ::kill(pid_, number); }

 private:
  pid_t pid_ = -1;
  int output_ = -1;
  bool exited_ = false;
  std::string text_;
};

fs::path scratch(const std::string& name) {
  return fs::temp_directory_path() / ("pelmo-sim-" + std::to_string(::getpid()) + "-" + name);
}

std::vector<std::string> read_lines(const fs::path& path) {
  std::vector<std::string> lines;
  std::ifstream in(path);
  for (std::string line; std::getline(in, line);) {
    lines.push_back(line);
  }
  return lines;
}

// A datagram with its sender's port, or an empty one after `timeout_ms` of silence.
struct Datagram {
  Bytes bytes;
  std::uint16_t port = 0;
};

Datagram receive(int socket, int timeout_ms) {
  pollfd fd{socket, POLLIN, 0};
  if (::poll(&fd, 1, timeout_ms) <= 0) {
    return {};
  }
  Datagram datagram;
  datagram.bytes.resize(4096);
  sockaddr_in from{};
  socklen_t size = sizeof from;
  const ssize_t count = ::recvfrom(socket, datagram.bytes.data(), datagram.bytes.size(), 0,
                                   reinterpret_cast<sockaddr*>(&from), &size);
  datagram.bytes.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
  datagram.port = ntohs(from.sin_port);
  return datagram;
}

TEST(Endpoints, UdpAnswersItsSenderWithSplitAndStrayDatagrams) {
  const fs::path log = scratch("udp.log");
  DeviceProcess device({"--udp", "127.0.0.2:0", "--log", log.string(), "--exit-after", "2",
                        "--split", "--stray", "BOOTLOADER_INFO", "--bl-name", "Loop"});
  const auto lines = device.lines_until("ready");
  ASSERT_EQ(2u, lines.size());
  ASSERT_EQ(0u, lines[0].rfind("listening udp 127.0.0.2:", 0)) << lines[0];
  const auto device_port = static_cast<std::uint16_t>(std::stoi(lines[0].substr(24)));

  const int host = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  sockaddr_in local{};
  local.sin_family = AF_INET;
  local.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  ASSERT_EQ(0, ::bind(host, reinterpret_cast<sockaddr*>(&local), sizeof local));
  sockaddr_in target{};
  target.sin_family = AF_INET;
  target.sin_port = htons(device_port);
  ::inet_pton(AF_INET, "127.0.0.2", &target.sin_addr);
  const auto send = [&](const Bytes& bytes) {
    ::sendto(host, bytes.data(), bytes.size(), 0, reinterpret_cast<sockaddr*>(&target),
             sizeof target);
  };

  // A datagram that is no frame gets no answer.
  send(Bytes{0xB5, 0x24, 0, 0});
  EXPECT_TRUE(receive(host, 200).bytes.empty());

  send(request_frame(CommandCode::CMD_BOOTLOADER_INFO, 0, 0));
  const Datagram stray = receive(host, 2000);
  const Datagram first = receive(host, 2000);
  const Datagram second = receive(host, 2000);
  EXPECT_NE(device_port, stray.port);
  EXPECT_EQ(device_port, first.port);
  EXPECT_EQ(device_port, second.port);
  Bytes joined = first.bytes;
  joined.insert(joined.end(), second.bytes.begin(), second.bytes.end());
  EXPECT_EQ(stray.bytes, joined);
  const Answer answer = decode_answer(joined);
  ASSERT_EQ(RC_OK, answer.decoded);
  ASSERT_EQ(BOOTLOADER_INFO_SIZE, answer.payload.size());
  EXPECT_EQ('L', answer.payload[12]);

  send(request_frame(CommandCode::CMD_RESTART, 0, 0));
  EXPECT_FALSE(receive(host, 2000).bytes.empty());
  EXPECT_EQ(0, device.wait_exit(5)) << "--exit-after 2 ends the run";
  ::close(host);

  const std::vector<std::string> expected = {
      "rx BAD_FRAME len=4 rc=-19",
      "rx BOOTLOADER_INFO addr=0x00000000 len=0",
      "tx BOOTLOADER_INFO status=0x00 addr=0x00000000 len=76 fault=stray+split",
      "rx RESTART addr=0x00000000 len=0",
      "tx RESTART status=0x00 addr=0x00000000 len=0 fault=split",
  };
  EXPECT_EQ(expected, read_lines(log));
  fs::remove(log);
}

TEST(Endpoints, PtyFramesTheStreamAndPacesItsAnswers) {
  const fs::path calib = scratch("calib.bin");
  const fs::path link = scratch("com3");
  Bytes table(1012);
  for (std::size_t i = 0; i < table.size(); ++i) {
    table[i] = static_cast<std::uint8_t>(i * 13);
  }
  std::ofstream(calib, std::ios::binary)
      .write(reinterpret_cast<const char*>(table.data()),
             static_cast<std::streamsize>(table.size()));
  DeviceProcess device({"--pty-link", link.string(), "--baud-pace", "--load-calib", calib.string(),
                        "--exit-after", "1"});
  const auto lines = device.lines_until("ready");
  ASSERT_EQ(2u, lines.size());
  ASSERT_EQ(0u, lines[0].rfind("pty /dev/", 0)) << lines[0];
  EXPECT_NE(std::string::npos, lines[0].find(" link " + link.string()));
  EXPECT_TRUE(fs::is_symlink(link));

  const int port = ::open(link.c_str(), O_RDWR | O_NOCTTY);
  ASSERT_GE(port, 0);
  termios settings{};
  ::tcgetattr(port, &settings);
  ::cfmakeraw(&settings);
  ::tcsetattr(port, TCSANOW, &settings);

  // Noise, then the request in two pieces.
  const Bytes request = request_frame(CommandCode::CMD_READ_CALIB, 0, 1012);
  ::write(port, "\x01\xB5\x02", 3);
  ::write(port, request.data(), 5);
  ::usleep(20000);
  const auto start = Clock::now();
  ::write(port, request.data() + 5, request.size() - 5);

  Bytes response;
  while (response.size() < 1024 && Clock::now() - start < std::chrono::seconds(3)) {
    pollfd fd{port, POLLIN, 0};
    if (::poll(&fd, 1, 100) > 0) {
      std::uint8_t chunk[1024];
      const ssize_t count = ::read(port, chunk, sizeof chunk);
      if (count > 0) {
        response.insert(response.end(), chunk, chunk + count);
      }
    }
  }
  const auto took = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start);
  const Answer answer = decode_answer(response);
  for (std::size_t i = 0; i + 8 < response.size() && i < table.size(); ++i) {
    if (response[i + 8] != table[i]) {
      ADD_FAILURE() << "first difference at " << i << " " << int(response[i + 8]) << " "
                    << int(table[i]);
      break;
    }
  }
  ASSERT_EQ(RC_OK, answer.decoded) << response.size();
  EXPECT_EQ(table, answer.payload);
  // 1024 bytes at 11520 bytes/s take about 89 ms.
  EXPECT_GE(took.count(), 80);
  EXPECT_LT(took.count(), 1000);

  EXPECT_EQ(0, device.wait_exit(5));
  ::close(port);
  EXPECT_FALSE(fs::exists(fs::symlink_status(link))) << "the link goes with the device";
  fs::remove(calib);
}

TEST(Endpoints, StopsOnSigtermAndRefusesBadArguments) {
  DeviceProcess serving({"--udp", "127.0.0.2:0"});
  serving.lines_until("ready");
  serving.signal(SIGTERM);
  EXPECT_EQ(0, serving.wait_exit(5));

  DeviceProcess refused({"--udp", "127.0.0.2:0", "--drop-requests", "150"});
  const auto lines = refused.lines_until("usage:");
  ASSERT_EQ(2u, lines.size());
  EXPECT_EQ("pelmo-device: a percentage is at most 100: '150'", lines[0]);
  EXPECT_EQ(2, refused.wait_exit(5));
}

}  // namespace
}  // namespace pelmo::sim::test
