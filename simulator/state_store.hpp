#pragma once

#include <filesystem>
#include <stdexcept>

#include "simulator/device.hpp"

namespace pelmo::sim {

// Keeps a device's areas and control record in files of one directory, so that successive runs
// of the simulator see the same device: one file per area holding exactly its written bytes
// (firmware.bin, factory.bin, calib.bin, calib_backup.bin) and control.bin with the 76-byte record.
// Every change is written through at once, only the bytes that changed.
class StateStore final : public DeviceStorage {
 public:
  // Creates the directory when it does not exist.
  explicit StateStore(std::filesystem::path directory);

  // Fills `device` from the files that exist (before attaching the store to it). Throws
  // StateError for a file larger than its area or one that cannot be read.
  void restore(Device& device) const;

  void area_written(Area area, const MemoryArea& memory, std::size_t first) override;
  void area_erased(Area area) override;
  void control_changed(std::span<const std::uint8_t, CONTROL_RECORD_SIZE> record) override;

  std::filesystem::path area_path(Area area) const;
  std::filesystem::path control_path() const;

 private:
  std::filesystem::path directory_;
};

struct StateError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Reads a whole file; throws StateError when it cannot.
std::vector<std::uint8_t> read_file_bytes(const std::filesystem::path& path);

}  // namespace pelmo::sim
