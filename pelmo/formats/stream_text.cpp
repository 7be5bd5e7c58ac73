#include "pelmo/formats/stream_text.hpp"

#include <algorithm>
#include <cstring>
#include <vector>

namespace pelmo {

std::optional<std::string> read_stream_text(std::FILE* input, std::size_t max_bytes) {
  std::string text;
  if (input == nullptr) {
    return text;
  }
  // One byte past the bound tells a text of exactly `max_bytes` from a longer one.
  const std::size_t readable = max_bytes + 1;
  // Size the buffer once from the file's length where the stream can tell it; streams that cannot
  // seek grow as they are read.
  std::size_t expected = 0;
  const long start = std::ftell(input);
  if (start >= 0 && std::fseek(input, 0, SEEK_END) == 0) {
    const long end = std::ftell(input);
    // The length is only a hint for the first allocation (a directory, for one, reports a length
    // that no buffer could hold, and its read then fails at once).
    if (end > start) {
      expected = std::min(static_cast<std::size_t>(end - start), readable);
    }
    if (std::fseek(input, start, SEEK_SET) != 0) {
      return text;
    }
  }
  constexpr std::size_t GROWTH = 64 * 1024;
  std::size_t used = 0;
  text.resize(std::min(expected + 1, readable));  // one more, to see the end without a resize
  while (used < readable) {
    if (used == text.size()) {
      text.resize(std::min(text.size() + GROWTH, readable));
    }
    const std::size_t got = std::fread(text.data() + used, 1, text.size() - used, input);
    used += got;
    if (got == 0) {
      break;
    }
  }
  if (used > max_bytes) {
    return std::nullopt;
  }
  text.resize(used);
  return text;
}

void for_each_line_piece(std::FILE* input, std::size_t max_chars,
                         const std::function<bool(std::string_view piece)>& take) {
  if (input == nullptr || max_chars == 0) {
    return;
  }
  constexpr std::size_t BLOCK = 64 * 1024;
  std::vector<char> buffer(BLOCK + max_chars);
  std::size_t filled = 0;
  bool at_end = false;
  for (;;) {
    std::string_view rest(buffer.data(), filled);
    // Hand out every piece that is complete: one ending in LF, or one of the full length.
    while (!rest.empty()) {
      const std::string_view window = rest.substr(0, max_chars);
      if (!at_end && window.find('\n') == std::string_view::npos && window.size() < max_chars) {
        break;  // the line goes on in the next block
      }
      if (!take(take_line_piece(rest, max_chars))) {
        return;
      }
    }
    if (at_end) {
      return;
    }
    // Keep the unfinished line at the front and fill up behind it.
    std::memmove(buffer.data(), rest.data(), rest.size());
    filled = rest.size();
    const std::size_t got = std::fread(buffer.data() + filled, 1, buffer.size() - filled, input);
    filled += got;
    at_end = got == 0;
  }
}

}  // namespace pelmo
