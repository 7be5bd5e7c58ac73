#include "app/data_files.hpp"

#include <cstdio>

namespace pelmo {

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
