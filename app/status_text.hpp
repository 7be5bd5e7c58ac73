#pragma once

#include <string>
#include <string_view>

namespace pelmo {

// A step's closing status: OK or Error padded with blanks to a fixed width, then a line feed.
// The padding covers the seconds text the progress display left on the line.
struct StatusWidth {
  int value;
};

inline std::string padded_status(std::string_view word, StatusWidth width) {
  std::string text(word);
  if (static_cast<int>(text.size()) < width.value) {
    text.append(static_cast<std::size_t>(width.value) - text.size(), ' ');
  }
  text.push_back('\n');
  return text;
}

inline std::string ok_status(StatusWidth width) {
  return padded_status("OK", width);
}
inline std::string error_status(StatusWidth width) {
  return padded_status("Error", width);
}

}  // namespace pelmo
