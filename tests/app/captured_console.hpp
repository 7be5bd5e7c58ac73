#pragma once

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>

#include "app/console.hpp"

namespace pelmo::app_test {

// A console writing into a temporary file, with a tick the test sets by hand.
class CapturedConsole {
 public:
  CapturedConsole();
  ~CapturedConsole();
  CapturedConsole(const CapturedConsole&) = delete;
  CapturedConsole& operator=(const CapturedConsole&) = delete;

  Console& console() { return console_; }
  // Everything written so far.
  std::string text();

  std::uint32_t tick = 0;

 private:
  std::FILE* stream_;
  Console console_;
};

// A directory of its own for one test's files, removed afterwards.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  std::string path(const std::string& name) const { return (root_ / name).string(); }
  void write(const std::string& name, const std::string& bytes) const;
  std::string read(const std::string& name) const;
  bool exists(const std::string& name) const { return std::filesystem::exists(root_ / name); }

 private:
  std::filesystem::path root_;
};

}  // namespace pelmo::app_test
