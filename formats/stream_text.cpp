#include "formats/stream_text.hpp"

namespace pelmo {

std::string read_stream_text(std::FILE* input) {
  std::string text;
  if (input == nullptr) {
    return text;
  }
  // Size the buffer once from the file's length where the stream can tell it, so a large image file
  // costs one allocation; streams that cannot seek grow as they are read.
  std::size_t expected = 0;
  const long start = std::ftell(input);
  if (start >= 0 && std::fseek(input, 0, SEEK_END) == 0) {
    const long end = std::ftell(input);
    if (end > start) {
      expected = static_cast<std::size_t>(end - start);
    }
    if (std::fseek(input, start, SEEK_SET) != 0) {
      return text;
    }
  }
  constexpr std::size_t GROWTH = 64 * 1024;
  std::size_t used = 0;
  text.resize(expected + 1);  // one byte more, so the end of file is seen without another resize
  for (;;) {
    if (used == text.size()) {
      text.resize(text.size() + GROWTH);
    }
    const std::size_t got = std::fread(text.data() + used, 1, text.size() - used, input);
    used += got;
    if (got == 0) {
      break;
    }
  }
  text.resize(used);
  return text;
}

}  // namespace pelmo
