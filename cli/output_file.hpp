#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <span>
#include <string>
#include <string_view>

namespace pelmo::cli {

// A file that is written whole or not at all. A regular file (or a new one) is written under a
// temporary name in the same folder and renamed over `path` at commit; anything else that exists
// at `path` (a device such as /dev/null, a pipe) is written in place. A file whose temporary
// cannot be created is refused when it is opened, before any device is asked for its data.
class OutputFile {
 public:
  struct Opened;
  // Creates the temporary file (or opens the device); on failure a one-line reason.
  static Opened open(const std::string& path);

  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;
  ~OutputFile();  // removes the temporary file unless committed

  const std::string& path() const { return path_; }
  // Appends; a failure is remembered and reported by commit.
  void write(std::span<const std::uint8_t> bytes);
  void write(std::string_view text);
  // Flushes, closes and renames into place: "" on success, else why it failed (the temporary
  // file is then removed and `path` left as it was).
  std::string commit();
  // Closes and removes the temporary file.
  void discard();

 private:
  OutputFile(std::string path, std::string temporary, std::FILE* file)
      : path_(std::move(path)), temporary_(std::move(temporary)), file_(file) {}

  std::string path_;
  std::string temporary_;  // empty when written in place
  std::FILE* file_ = nullptr;
  int error_ = 0;  // errno of the first failed write
};

struct OutputFile::Opened {
  std::unique_ptr<OutputFile> file;
  std::string error;
};

}  // namespace pelmo::cli
