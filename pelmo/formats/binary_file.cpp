#include "pelmo/formats/binary_file.hpp"

#include <cstdio>

namespace pelmo {

FileReadResult read_binary_file(const std::string& name, std::span<std::uint8_t> buffer) {
  std::FILE* file = std::fopen(name.c_str(), "rb");
  if (file == nullptr) {
    return {FileReadStatus::cannot_open, 0};
  }
  const std::size_t length = std::fread(buffer.data(), 1, buffer.size(), file);
  const bool more = length == buffer.size() && std::fgetc(file) != EOF;
  // A name that opens but cannot be read (a directory on Linux; on Windows it fails to open)
  // is no file to take bytes from.
  const bool unreadable = std::ferror(file) != 0;
  std::fclose(file);
  if (unreadable) {
    return {FileReadStatus::cannot_open, 0};
  }
  return {more ? FileReadStatus::too_large : FileReadStatus::ok,
          static_cast<std::uint32_t>(length)};
}

}  // namespace pelmo
