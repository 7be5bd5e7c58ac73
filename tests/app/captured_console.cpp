#include "tests/app/captured_console.hpp"

#include <atomic>
#include <fstream>
#include <random>
#include <sstream>
#include <stdexcept>

namespace pelmo::app_test {

CapturedConsole::CapturedConsole()
    : stream_(std::tmpfile()), console_(stream_, [this] { return tick; }) {
  if (stream_ == nullptr) {
    throw std::runtime_error("no temporary file for the console");
  }
}

CapturedConsole::~CapturedConsole() {
  std::fclose(stream_);
}

std::string CapturedConsole::text() {
  std::fflush(stream_);
  const long end = std::ftell(stream_);
  std::string bytes(static_cast<std::size_t>(end), '\0');
  std::rewind(stream_);
  const std::size_t got = std::fread(bytes.data(), 1, bytes.size(), stream_);
  bytes.resize(got);
  std::fseek(stream_, 0, SEEK_END);
  return bytes;
}

TempDir::TempDir() {
  static std::atomic<int> counter{0};
  root_ = std::filesystem::temp_directory_path() /
          ("pelmo_app_test_" + std::to_string(std::random_device{}()) + "_" +
           std::to_string(counter++));
  std::filesystem::remove_all(root_);
  std::filesystem::create_directories(root_);
}

TempDir::~TempDir() {
  std::error_code ignored;
  std::filesystem::remove_all(root_, ignored);
}

void TempDir::write(const std::string& name, const std::string& bytes) const {
  std::ofstream(root_ / name, std::ios::binary) << bytes;
}

std::string TempDir::read(const std::string& name) const {
  std::ifstream in(root_ / name, std::ios::binary);
  std::ostringstream bytes;
  bytes << in.rdbuf();
  return bytes.str();
}

}  // namespace pelmo::app_test
