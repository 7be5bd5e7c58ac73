#pragma once

#include <cstdint>
#include <cstdio>
#include <span>
#include <string>

#include "app/console.hpp"
#include "pelmo/formats/binary_file.hpp"  // IWYU pragma: export (read_binary_file)
#include "pelmo/protocol/result_code.hpp"

namespace pelmo {

// A file a read result goes into, opened with `mode` ("wb" or "w"). A name that cannot be opened
// leaves stream() null: the data was read from the device successfully and the run does not fail
// for it. Once open, a write or close that fails loses data and must not pass for a complete file:
// finish() then says so, and the partial file is removed.
class OutputFile {
 public:
  OutputFile(std::string name, const char* mode);
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;
  // A file never finished (the run was interrupted) is closed and removed as partial.
  ~OutputFile();

  std::FILE* stream() const { return file_; }
  // Closes the file. False when it was open and a write or the close failed; a regular file is
  // then removed (a device such as /dev/full is left alone).
  bool finish();

 private:
  void discard();

  std::string name_;
  std::FILE* file_;
};

// Writes `bytes` into a new binary file `name`: false when the file opened but the data did not
// all reach it (the partial file is removed); true when written or when the name did not open.
bool write_binary_file(const std::string& name, std::span<const std::uint8_t> bytes);

// Reports an output file that failed after it was opened: "Error writing file <name>". Gives -1,
// the run's result.
ResultCode report_write_failure(Console& console, const std::string& name);

}  // namespace pelmo
