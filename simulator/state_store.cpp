#include "simulator/state_store.hpp"

#include <fstream>
#include <iterator>
#include <string>

namespace pelmo::sim {
namespace {

namespace fs = std::filesystem;

void write_range(const fs::path& path, std::size_t offset, std::span<const std::uint8_t> bytes) {
  // Open for update without truncating; create the file first if it is missing.
  if (!fs::exists(path)) {
    std::ofstream create(path, std::ios::binary);
  }
  std::fstream file(path, std::ios::binary | std::ios::in | std::ios::out);
  file.seekp(static_cast<std::streamoff>(offset));
  file.write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
  if (!file) {
    throw StateError("cannot write state file " + path.string());
  }
}

}  // namespace

std::vector<std::uint8_t> read_file_bytes(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    throw StateError("cannot read " + path.string());
  }
  std::vector<std::uint8_t> bytes((std::istreambuf_iterator<char>(file)),
                                  std::istreambuf_iterator<char>());
  if (file.bad()) {
    throw StateError("cannot read " + path.string());
  }
  return bytes;
}

StateStore::StateStore(fs::path directory) : directory_(std::move(directory)) {
  std::error_code error;
  fs::create_directories(directory_, error);
  if (error || !fs::is_directory(directory_)) {
    throw StateError("cannot use state directory " + directory_.string());
  }
}

fs::path StateStore::area_path(Area area) const {
  return directory_ / (std::string(area_name(area)) + ".bin");
}

fs::path StateStore::control_path() const {
  return directory_ / "control.bin";
}

void StateStore::restore(Device& device) const {
  for (Area area : ALL_AREAS) {
    const fs::path path = area_path(area);
    if (!fs::exists(path)) {
      continue;
    }
    // Taken as stored: a firmware file is not sealed again, so a broken header stays broken.
    if (!device.area(area).load(read_file_bytes(path))) {
      throw StateError(path.string() + " is larger than the " + std::string(area_name(area)) +
                       " area");
    }
  }
  if (fs::exists(control_path())) {
    const auto bytes = read_file_bytes(control_path());
    if (bytes.size() != CONTROL_RECORD_SIZE) {
      throw StateError(control_path().string() + " does not hold a 76-byte control record");
    }
    device.restore_control(
        std::span<const std::uint8_t, CONTROL_RECORD_SIZE>(bytes.data(), bytes.size()));
  }
}

void StateStore::area_written(Area area, const MemoryArea& memory, std::size_t first) {
  // The file always holds exactly the written bytes, so it may have to grow from its old end.
  const fs::path path = area_path(area);
  std::error_code error;
  const auto file_size = fs::exists(path) ? fs::file_size(path, error) : 0;
  const std::size_t from = std::min<std::size_t>(first, error ? 0 : file_size);
  write_range(path, from, memory.content().subspan(std::min(from, memory.length())));
}

void StateStore::area_erased(Area area) {
  std::ofstream truncate(area_path(area), std::ios::binary | std::ios::trunc);
  if (!truncate) {
    throw StateError("cannot write state file " + area_path(area).string());
  }
}

void StateStore::control_changed(std::span<const std::uint8_t, CONTROL_RECORD_SIZE> record) {
  write_range(control_path(), 0, record);
}

}  // namespace pelmo::sim
