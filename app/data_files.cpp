#include "app/data_files.hpp"

#include <cstdio>

namespace pelmo {

FileReadResult read_binary_file(const std::string& name, std::span<std::uint8_t> buffer) {
  std::FILE* file = std::fopen(name.c_str(), "rb");
  if (file == nullptr) {
    return {FileReadStatus::cannot_open, 0};
  }
  const std::size_t length = std::fread(buffer.data(), 1, buffer.size(), file);
  const bool more = length == buffer.size() && std::fgetc(file) != EOF;
  std::fclose(file);
  return {more ? FileReadStatus::too_large : FileReadStatus::ok,
          static_cast<std::uint32_t>(length)};
}

void write_binary_file(const std::string& name, std::span<const std::uint8_t> bytes) {
  std::FILE* file = std::fopen(name.c_str(), "wb");
  if (file == nullptr) {
    return;
  }
  if (!bytes.empty()) {
    std::fwrite(bytes.data(), 1, bytes.size(), file);
  }
  std::fclose(file);
}

}  // namespace pelmo
