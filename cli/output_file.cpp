#include "cli/output_file.hpp"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <random>

namespace pelmo::cli {
namespace {

namespace fs = std::filesystem;

std::string reason(const std::string& path, int error) {
  return "cannot write " + path + ": " + std::strerror(error);
}

// ".NAME.XXXXXXXX.tmp" beside `path`: hidden, and unlikely to meet another run's.
std::string temporary_name(const fs::path& path) {
  std::random_device random;
  char suffix[16];
  std::snprintf(suffix, sizeof suffix, "%08x", static_cast<unsigned>(random()));
  const fs::path name = "." + path.filename().string() + "." + suffix + ".tmp";
  return (path.parent_path() / name).string();
}

}  // namespace

OutputFile::Opened OutputFile::open(const std::string& path) {
  std::error_code error;
  const fs::file_status status = fs::status(path, error);
  if (fs::is_directory(status)) {
    return {nullptr, "cannot write " + path + ": it is a folder"};
  }
  const bool in_place = fs::exists(status) && !fs::is_regular_file(status);
  const std::string temporary = in_place ? std::string() : temporary_name(path);
  errno = 0;
  std::FILE* file = std::fopen(in_place ? path.c_str() : temporary.c_str(), "wb");
  if (file == nullptr) {
    return {nullptr, reason(path, errno != 0 ? errno : EACCES)};
  }
  return {std::unique_ptr<OutputFile>(new OutputFile(path, temporary, file)), {}};
}

OutputFile::~OutputFile() {
  discard();
}

void OutputFile::write(std::span<const std::uint8_t> bytes) {
  if (file_ == nullptr || error_ != 0 || bytes.empty()) {
    return;
  }
  errno = 0;
  if (std::fwrite(bytes.data(), 1, bytes.size(), file_) != bytes.size()) {
    error_ = errno != 0 ? errno : EIO;
  }
}

void OutputFile::write(std::string_view text) {
  write(std::span(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()));
}

std::string OutputFile::commit() {
  if (file_ == nullptr) {
    return reason(path_, EBADF);
  }
  errno = 0;
  if (std::fflush(file_) != 0 && error_ == 0) {
    error_ = errno != 0 ? errno : EIO;
  }
  errno = 0;
  const int closed = std::fclose(file_);
  file_ = nullptr;
  if (closed != 0 && error_ == 0) {
    error_ = errno != 0 ? errno : EIO;
  }
  if (error_ != 0) {
    const std::string failure = reason(path_, error_);
    discard();
    return failure;
  }
  if (!temporary_.empty()) {
    std::error_code renamed;
    fs::rename(temporary_, path_, renamed);
    if (renamed) {
      discard();
      return "cannot write " + path_ + ": " + renamed.message();
    }
    temporary_.clear();
  }
  return {};
}

void OutputFile::discard() {
  if (file_ != nullptr) {
    std::fclose(file_);
    file_ = nullptr;
  }
  if (!temporary_.empty()) {
    std::error_code ignored;
    fs::remove(temporary_, ignored);
    temporary_.clear();
  }
}

}  // namespace pelmo::cli
