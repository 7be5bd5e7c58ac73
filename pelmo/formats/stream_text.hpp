#pragma once

#include <cstddef>
#include <cstdio>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace pelmo {

// Everything from the stream's current position to its end, read in one go, or none when the
// stream holds more than `max_bytes` (an endless source such as /dev/zero included: it is read no
// further than that). A read error ends the text where it happened.
std::optional<std::string> read_stream_text(std::FILE* input, std::size_t max_bytes);

// Hands the stream's lines, from its current position to its end, to `take` as pieces cut the way
// `take_line_piece` cuts them, reading the stream in blocks. Stops early when `take` returns false.
void for_each_line_piece(std::FILE* input, std::size_t max_chars,
                         const std::function<bool(std::string_view piece)>& take);

// Takes the next line from `rest` the way a bounded line read does: at most `max_chars` characters,
// ending after the first LF. A longer line is left in `rest` as further pieces. Returns the piece
// with its LF, if any; `rest` must not be empty.
inline std::string_view take_line_piece(std::string_view& rest, std::size_t max_chars) {
  const std::string_view window = rest.substr(0, max_chars);
  const std::size_t line_feed = window.find('\n');
  const std::size_t length = line_feed == std::string_view::npos ? window.size() : line_feed + 1;
  const std::string_view piece = rest.substr(0, length);
  rest.remove_prefix(length);
  return piece;
}

// Removes one trailing LF, then one trailing CR, so lines may end in LF or CR LF.
inline std::string_view strip_line_end(std::string_view line) {
  if (!line.empty() && line.back() == '\n') {
    line.remove_suffix(1);
  }
  if (!line.empty() && line.back() == '\r') {
    line.remove_suffix(1);
  }
  return line;
}

}  // namespace pelmo
