#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace pelmo {

enum class FileReadStatus {
  ok,
  cannot_open,  // the name does not open, or opens but cannot be read (a directory)
  too_large,    // the file holds more bytes than the buffer; the buffer holds its first bytes
};

struct FileReadResult {
  FileReadStatus status;
  std::uint32_t length;  // bytes placed at the start of the buffer
};

// Reads a whole file in binary mode into the start of `buffer`, never past its end.
FileReadResult read_binary_file(const std::string& name, std::span<std::uint8_t> buffer);

}  // namespace pelmo
