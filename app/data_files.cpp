#include "app/data_files.hpp"

#include <cstdio>
#include <filesystem>
#include <system_error>
#include <utility>

namespace pelmo {

OutputFile::OutputFile(std::string name, const char* mode)
    : name_(std::move(name)), file_(std::fopen(name_.c_str(), mode)) {}

OutputFile::~OutputFile() {
  if (file_ != nullptr) {
    std::fclose(file_);
    discard();
  }
}

bool OutputFile::finish() {
  if (file_ == nullptr) {
    return true;
  }
  // Buffered bytes reach the file only here, so a full disk often shows first at the flush.
  const bool written = std::fflush(file_) == 0 && std::ferror(file_) == 0;
  const bool closed = std::fclose(file_) == 0;
  file_ = nullptr;
  if (written && closed) {
    return true;
  }
  discard();
  return false;
}

void OutputFile::discard() {
  std::error_code error;
  // Only a plain file stands for what was written: a device (/dev/full) or a link is left alone.
  if (std::filesystem::is_regular_file(std::filesystem::symlink_status(name_, error))) {
    std::filesystem::remove(name_, error);
  }
}

bool write_binary_file(const std::string& name, std::span<const std::uint8_t> bytes) {
  OutputFile file(name, "wb");
  if (file.stream() != nullptr && !bytes.empty()) {
    std::fwrite(bytes.data(), 1, bytes.size(), file.stream());  // a short write sets the error flag
  }
  return file.finish();
}

ResultCode report_write_failure(Console& console, const std::string& name) {
  console.print("Error writing file %s\n", name.c_str());
  return RC_FAILED;
}

}  // namespace pelmo
