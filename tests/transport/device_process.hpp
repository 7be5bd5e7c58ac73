#pragma once

// A pelmo-device process for tests that drive the library against the real simulator.
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "pelmo/commands/records.hpp"
#include "pelmo/protocol/bytes.hpp"
#include "pelmo/protocol/crc32.hpp"

extern char** environ;

namespace pelmo::test {

using Bytes = std::vector<std::uint8_t>;

inline Bytes file_bytes(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

inline void write_file(const std::filesystem::path& path, const Bytes& bytes) {
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
}

// A firmware image of `size` bytes (at least the header's) with a header the device accepts: its
// length and CRC sealed in, `name` and `major` as the version; the rest a pattern.
inline Bytes sealed_firmware(std::size_t size, const std::string& name, std::uint8_t major) {
  Bytes image(size);
  for (std::size_t i = 0; i < size; ++i) {
    image[i] = static_cast<std::uint8_t>(i * 7 + major);
  }
  std::fill_n(&image[8], FIRMWARE_INFO_SIZE - 8, 0);
  store_u32(ByteOrder::little, FIRMWARE_MAGIC, &image[20]);
  image[24] = major;  // version_major
  std::memcpy(&image[32], name.data(), std::min<std::size_t>(name.size(), 31));
  store_u32(ByteOrder::little, static_cast<std::uint32_t>(image.size()), &image[0]);
  store_u32(ByteOrder::little, crc32_mpeg2(std::span(image).subspan(8)), &image[4]);
  return image;
}

// pelmo-device started with `options`; its output goes to `folder`/device.out, its request log to
// `folder`/device.log. Stopped with SIGTERM when dropped.
class DeviceProcess {
 public:
  DeviceProcess(const std::filesystem::path& folder, std::vector<std::string> options)
      : output_(folder / "device.out"), log_(folder / "device.log") {
    options.insert(options.begin(), PELMO_DEVICE_PROGRAM);
    options.insert(options.end(), {"--log", log_.string()});
    std::vector<char*> argv;
    for (std::string& word : options) {
      argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, output_.c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
    if (posix_spawn(&pid_, argv[0], &actions, nullptr, argv.data(), environ) != 0) {
      pid_ = -1;
    }
    posix_spawn_file_actions_destroy(&actions);
  }
  ~DeviceProcess() { stop(); }
  DeviceProcess(const DeviceProcess&) = delete;
  DeviceProcess& operator=(const DeviceProcess&) = delete;

  // True once the device printed its ready line, within ten seconds.
  bool ready() const {
    for (int poll = 0; pid_ > 0 && poll < 500; ++poll) {
      if (output().find("ready\n") != std::string::npos) {
        return true;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return false;
  }
  std::string output() const {
    const Bytes text = file_bytes(output_);
    return {text.begin(), text.end()};
  }
  // The request log's lines that start with `kind` ("rx", "tx", "drop").
  std::size_t log_count(const std::string& kind) const {
    std::ifstream log(log_);
    std::size_t count = 0;
    for (std::string line; std::getline(log, line);) {
      count += line.starts_with(kind + " ");
    }
    return count;
  }
  // Exit status after SIGTERM (0 when the device stopped the way it should).
  int stop() {
    if (pid_ <= 0) {
      return -1;
    }
    kill(pid_, SIGTERM);
    int status = 0;
    waitpid(pid_, &status, 0);
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }

 private:
  std::filesystem::path output_, log_;
  pid_t pid_ = -1;
};

}  // namespace pelmo::test
