#include "cli/output_name.hpp"

namespace pelmo::cli {
namespace {

bool safe_in_file_name(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
         c == '_' || c == '-';
}

std::string file_name_tag(std::string_view target_name) {
  std::string tag;
  for (const char c : target_name) {
    if (safe_in_file_name(c)) {
      tag += c;
    } else if (!tag.empty() && tag.back() != '-') {
      tag += '-';
    }
  }
  while (!tag.empty() && tag.back() == '-') {
    tag.pop_back();
  }
  return tag;
}

}  // namespace

std::string per_target_path(std::string_view path, std::string_view target_name) {
  const std::size_t folder_end = path.find_last_of("/\\");
  const std::size_t name_start = folder_end == std::string_view::npos ? 0 : folder_end + 1;
  // The extension starts at the name's last dot, unless that dot opens the name (".bin" alone).
  std::size_t dot = path.rfind('.');
  if (dot == std::string_view::npos || dot <= name_start) {
    dot = path.size();
  }
  std::string result(path.substr(0, dot));
  result += '.';
  result += file_name_tag(target_name);
  result += path.substr(dot);
  return result;
}

}  // namespace pelmo::cli
