#pragma once

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>

#include "app/console.hpp"

namespace pelmo::app_test {

// A directory of one test's own (removed afterwards) and a console writing into a file in it
// with a tick the test sets by hand. The console's file is read back through a second handle,
// so every expectation on it also checks that each write reached the file at once.
class Sandbox {
 public:
  Sandbox() = default;
  ~Sandbox() {
    std::fclose(stream_);
    std::error_code ignored;
    std::filesystem::remove_all(root_, ignored);
  }
  Sandbox(const Sandbox&) = delete;
  Sandbox& operator=(const Sandbox&) = delete;

  std::string path(const std::string& name) const { return (root_ / name).string(); }
  void write(const std::string& name, const std::string& bytes) const {
    std::ofstream(root_ / name, std::ios::binary) << bytes;
  }
  std::string read(const std::string& name) const {
    std::ostringstream bytes;
    bytes << std::ifstream(root_ / name, std::ios::binary).rdbuf();
    return bytes.str();
  }
  std::string console_text() const { return read("console.txt"); }

  std::uint32_t tick = 0;

 private:
  static std::filesystem::path unique_root() {
    static std::atomic<int> counter{0};
    return std::filesystem::temp_directory_path() /
           ("pelmo_app_test_" + std::to_string(std::random_device{}()) + "_" +
            std::to_string(counter++));
  }

  std::filesystem::path root_ = unique_root();
  std::FILE* stream_ =
      (std::filesystem::create_directories(root_), std::fopen(path("console.txt").c_str(), "wb"));

 public:
  Console console{stream_, [this] { return tick; }};
};

}  // namespace pelmo::app_test
