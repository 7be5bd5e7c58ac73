// The program's argument parser on arbitrary argument lists: the input's bytes split at each zero
// byte, each piece a heap block of its own behind the program name.
#include <cstdint>
#include <string>
#include <vector>

#include "app/command_line.hpp"
#include "fuzz/fuzz_check.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string input(reinterpret_cast<const char*>(data), size);
  std::vector<std::string> pieces{"PelmoWin"};
  for (std::size_t start = 0; start <= input.size() && pieces.size() < 64;) {
    const std::size_t end = std::min(input.find('\0', start), input.size());
    pieces.push_back(input.substr(start, end - start));
    start = end + 1;
  }
  std::vector<const char*> arguments;
  for (const std::string& piece : pieces) {
    arguments.push_back(piece.c_str());
  }
  const auto line = pelmo::parse_command_line(arguments);
  if (line) {
    // A file name is only ever taken whole from one argument.
    FUZZ_CHECK(line->file_name.empty() || input.find(line->file_name) != std::string::npos);
  }
  return 0;
}
