// The device and its fault plan driven in process with encoded frames, then the built
// pelmo-device program over a real UDP socket and a real pseudo-terminal.

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <numeric>
#include <ostream>
#include <string>
#include <vector>

#include "pelmo/commands/command_code.hpp"
#include "pelmo/commands/records.hpp"
#include "pelmo/protocol/bytes.hpp"
#include "pelmo/protocol/crc32.hpp"
#include "pelmo/protocol/frame.hpp"
#include "simulator/device_status.hpp"
#include "simulator/options.hpp"
#include "simulator/responder.hpp"
#include "simulator/stream_framer.hpp"

namespace pelmo::sim {
namespace {

namespace fs = std::filesystem;
using enum CommandCode;
using Bytes = std::vector<std::uint8_t>;

Bytes request(std::uint8_t code, std::uint32_t address = 0, std::uint16_t length = 0,
              const Bytes& payload = {}) {
  Bytes frame(FRAME_BUFFER_SIZE);
  std::uint16_t size = 0;
  encode_frame(Direction::request, code, address, length, payload.data(), frame, &size);
  frame.resize(size);
  return frame;
}

struct Answer {
  ResultCode decoded = RC_FAILED;
  std::uint8_t status = 0;
  std::uint32_t address = 0;
  Bytes payload;
};

Answer decode(std::span<const std::uint8_t> frame) {
  FrameFields fields;
  const ResultCode decoded = decode_frame(Direction::response, frame, fields);
  return {decoded, fields.code, fields.address,
          Bytes(fields.payload.begin(), fields.payload.end())};
}

fs::path scratch(const std::string& name) {
  return fs::temp_directory_path() / ("pelmo-sim-" + std::to_string(::getpid()) + "-" + name);
}

// A device with its responder, configured by a command line.
struct Bench {
  explicit Bench(std::vector<std::string_view> arguments = {})
      : options(parse_options((arguments.push_back("--pty"), arguments))) {}

  std::vector<Transmission> send(CommandCode code, std::uint32_t address = 0,
                                 std::uint16_t length = 0, const Bytes& payload = {}) {
    return responder.on_frame(request(to_byte(code), address, length, payload));
  }
  // The one answer to a request.
  Answer ask(CommandCode code, std::uint32_t address = 0, std::uint16_t length = 0,
             const Bytes& payload = {}) {
    return decode(send(code, address, length, payload).at(0).bytes);
  }

  SimulatorOptions options;
  Device device{options.device};
  std::ostream log_sink{nullptr};  // the request log is checked end to end
  RequestLog log{log_sink};
  Responder responder{device, options.faults, log};
};

// Each transmission as [~ if stray][delay:]status/address/payload size, "crc" for a broken CRC or
// "xN" for N bytes that are no frame on their own; "-" when nothing is sent.
std::string render(const std::vector<Transmission>& out) {
  std::string text = out.empty() ? "-" : "";
  for (const Transmission& piece : out) {
    text += (text.empty() ? "" : ",") + std::string(piece.stray ? "~" : "") +
            (piece.delay_ms ? std::to_string(piece.delay_ms) + ":" : "");
    const Answer answer = decode(piece.bytes);
    char body[32];
    std::snprintf(body, sizeof body, "%02X/%u/%zu", answer.status, answer.address,
                  answer.payload.size());
    text += answer.decoded == RC_OK        ? body
            : answer.decoded == RC_BAD_CRC ? "crc"
                                           : "x" + std::to_string(piece.bytes.size());
  }
  return text;
}

// The serial line's framer reports each run of dropped bytes (the reason of its first) before the
// frame that ends it, keeps a partial frame until the line has been quiet for 100 ms, and then
// still finds the frame a false start hid.
TEST(StreamFramer, ReportsDropsInOrderAndGivesUpAPartialFrame) {
  const Bytes probe = request(0x8F);
  const Bytes read = request(0x01, 0, 4);      // seen one byte early, it announces 1024 bytes
  Bytes stream = {0x00, 0x11, REQUEST_START};  // garbage, then a start that hides `read`
  stream.insert(stream.end(), read.begin(), read.end());
  const auto events = [](const std::vector<FramerEvent>& list) {
    std::string text;
    for (const FramerEvent& event : list) {
      text += event.frame.empty() ? "drop" + std::to_string(event.dropped) + "/" +
                                        std::to_string(event.reason) + " "
                                  : "frame" + std::to_string(event.frame.size()) + " ";
    }
    return text;
  };
  StreamFramer framer;
  Bytes first = probe;
  first.insert(first.end(), stream.begin(), stream.end());
  EXPECT_EQ(events(framer.feed(first, 1000)), "frame12 drop2/-6 ");
  EXPECT_EQ(framer.deadline(), 1100u);
  EXPECT_EQ(events(framer.expire(1099)), "");
  EXPECT_EQ(events(framer.expire(1100)), "drop1/-19 frame12 ");
  EXPECT_EQ(framer.deadline(), std::nullopt);
}

TEST(Responder, FaultOptionsDoWhatTheySay) {
  const struct {
    std::vector<std::string_view> options;
    std::string outcome;  // the six answers, then the reset count the device ended with
  } cases[] = {
      {{}, "00/0/0 FA/0/0 00/0/0 00/16/0 00/0/24 00/0/0 r2"},
      {{"--silent-after", "3"}, "00/0/0 FA/0/0 00/0/0 - - - r2"},
      {{"--silent-code", "FW_INFO,0x02"}, "00/0/0 - 00/0/0 00/16/0 - 00/0/0 r2"},
      {{"--drop-responses", "100%"}, "- - - - - - r2"},
      {{"--status", "RESTART=0xE7@2", "--status", "0x82=1"},
       "00/0/0 FA/0/0 E7/0/0 01/16/0 FD/0/0 00/0/0 r1"},
      {{"--wrong-address", "WRITE_CALIB", "--extra-payload", "0x4F"},
       "00/0/1 FA/0/0 00/0/1 00/17/0 00/0/24 00/0/0 r2"},
      {{"--read-chunk", "10"}, "00/0/0 FA/0/0 00/0/0 00/16/0 00/0/10 00/0/0 r2"},
      {{"--delay-ms", "5", "--erase-ms", "1000", "--stray", "FW_INFO"},
       "5:00/0/0 ~5:FA/0/0,5:FA/0/0 5:00/0/0 5:00/16/0 5:00/0/24 1005:00/0/0 r2"},
      // Random faults follow the seed (1 unless given), each from a stream of its own.
      {{"--drop-requests", "50", "--corrupt-crc", "50", "--corrupt-crc-code", "0x24"},
       "00/0/0 crc - 00/16/0 crc crc r1"},
      {{"--drop-requests", "50", "--corrupt-crc", "50", "--corrupt-crc-code", "0x24", "--duplicate",
        "100"},
       "00/0/0,00/0/0 crc,crc - 00/16/0,00/16/0 crc,crc crc,crc r1"},
      {{"--duplicate", "100", "--split", "--split-gap-ms", "30", "--delay-ms", "5",
        "--silent-after", "1"},
       "5:x6,35:x6,35:x6,65:x6 - - - - - r1"},
  };
  for (const auto& c : cases) {
    Bench bench(c.options);
    std::string outcome;
    for (const auto& out :
         {bench.send(CMD_RESTART), bench.send(CMD_FW_INFO), bench.send(CMD_RESTART),
          bench.send(CMD_WRITE_CALIB, 16, 8, Bytes(8, 0x42)), bench.send(CMD_READ_CALIB, 0, 244),
          bench.send(CMD_ERASE_FACTORY)}) {
      outcome += render(out) + " ";
    }
    EXPECT_EQ(c.outcome, outcome + "r" + std::to_string(bench.device.control()[4]))
        << ::testing::PrintToString(c.options);
  }
}

// pelmo-device as a child process; its standard output and error come through one pipe.
class DeviceProcess {
 public:
  explicit DeviceProcess(const std::string& arguments)
      : command_("exec '" PELMO_DEVICE_PATH "' " + arguments + " 2>&1") {
    int ends[2];
    EXPECT_EQ(0, ::pipe(ends));
    if ((pid_ = ::fork()) == 0) {
      ::dup2(ends[1], 1);
      ::execl("/bin/sh", "sh", "-c", command_.c_str(), nullptr);
      ::_exit(127);
    }
    ::close(ends[1]);
    output_ = ::fdopen(ends[0], "r");
  }
  ~DeviceProcess() {
    if (exit_ < 0 && ::kill(pid_, SIGKILL) == 0) {
      ::waitpid(pid_, nullptr, 0);
    }
    std::fclose(output_);
  }

  // The next output line that starts with `marker`, or "" at the end of the output.
  std::string line(std::string_view marker = "") {
    for (char text[256]; std::fgets(text, sizeof text, output_);) {
      if (std::string_view(text).starts_with(marker)) {
        return {text, std::strcspn(text, "\n")};
      }
    }
    return "";
  }

  // The exit status after SIGTERM when `stop`, or -1 while it still runs after 5 s.
  int wait_exit(bool stop = false) {
    if (stop) {
      ::kill(pid_, SIGTERM);
    }
    for (int status = 0, tries = 0; exit_ < 0 && tries < 500; ++tries, ::usleep(10000)) {
      if (::waitpid(pid_, &status, WNOHANG) == pid_) {
        exit_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
      }
    }
    return exit_;
  }

 private:
  const std::string command_;
  pid_t pid_ = -1;
  std::FILE* output_ = nullptr;
  int exit_ = -1;
};

// `count` bytes from the port, or what came within 3 s.
Bytes receive(int port, std::size_t count) {
  Bytes bytes(count);
  std::size_t received = 0;
  for (pollfd ready{port, POLLIN, 0}; received<count&& ::poll(&ready, 1, 3000)> 0;) {
    received += static_cast<std::size_t>(
        std::max<ssize_t>(0, ::read(port, &bytes[received], count - received)));
  }
  bytes.resize(received);
  return bytes;
}

TEST(Endpoints, PtyLinkPacesBothWaysAndGoesWithTheDevice) {
  const fs::path link = scratch("com3");
  DeviceProcess device("--pty-link " + link.string() + " --baud-pace");
  EXPECT_TRUE(device.line().starts_with("pty "));
  ASSERT_EQ("ready", device.line());
  const int port = ::open(link.c_str(), O_RDWR | O_NOCTTY);
  Bytes table(1012);
  std::iota(table.begin(), table.end(), 13);
  const Bytes write = request(0x82, 0, 1012, table);
  // The request itself crosses the line at its rate too: about 89 ms before the device has it.
  const auto sent = std::chrono::steady_clock::now();
  ASSERT_EQ(1024, ::write(port, write.data(), write.size()));
  EXPECT_EQ(STATUS_OK, decode(receive(port, 12)).status);
  EXPECT_GE(std::chrono::steady_clock::now() - sent, std::chrono::milliseconds(80));

  // A false header, then a read of the table in two pieces; the device finds the request once
  // the false frame's quiet time runs out.
  const Bytes read = request(to_byte(CMD_READ_CALIB), 0, 1012);
  ASSERT_EQ(9, ::write(port, "\x01\xB5\x84\0\0\0\0\x20\0", 9));
  ASSERT_EQ(5, ::write(port, read.data(), 5));
  ::usleep(20000);
  const auto start = std::chrono::steady_clock::now();
  ASSERT_EQ(7, ::write(port, read.data() + 5, 7));
  EXPECT_EQ(table, decode(receive(port, 1024)).payload);
  // 1024 bytes at 11520 bytes/s take about 89 ms.
  const auto took = std::chrono::steady_clock::now() - start;
  EXPECT_TRUE(took >= std::chrono::milliseconds(80) && took < std::chrono::seconds(1));
  ::close(port);
  EXPECT_EQ(0, device.wait_exit(true));
  EXPECT_FALSE(fs::exists(fs::symlink_status(link))) << "the link goes with the device";
}

TEST(Endpoints, RefusesWhatItCannotUse) {
  const struct {
    std::string arguments, message;
    int status;
  } cases[] = {{"--udp 127.0.0.2 --drop-requests 150", "a percentage is at most 100: '150'", 2},
               {"--pty --state /dev/null", "cannot use state directory /dev/null", 1}};
  for (const auto& c : cases) {
    DeviceProcess device(c.arguments);
    EXPECT_EQ("pelmo-device: " + c.message, device.line("pelmo-device:"));
    EXPECT_EQ(c.status, device.wait_exit());
  }
}

}  // namespace
}  // namespace pelmo::sim
