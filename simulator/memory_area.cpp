#include "simulator/memory_area.hpp"

#include <algorithm>

namespace pelmo::sim {

MemoryArea::MemoryArea(std::size_t limit) : storage_(limit, ERASED_BYTE) {}

void MemoryArea::erase() {
  std::fill(storage_.begin(), storage_.end(), ERASED_BYTE);
  length_ = 0;
}

bool MemoryArea::write(std::size_t offset, std::span<const std::uint8_t> data) {
  if (offset > storage_.size() || data.size() > storage_.size() - offset) {
    return false;
  }
  std::copy(data.begin(), data.end(), storage_.begin() + static_cast<std::ptrdiff_t>(offset));
  length_ = std::max(length_, offset + data.size());
  return true;
}

MemoryArea::Comparison MemoryArea::compare(std::size_t offset,
                                           std::span<const std::uint8_t> data) const {
  if (offset > storage_.size() || data.size() > storage_.size() - offset) {
    return Comparison::out_of_range;
  }
  const auto start = storage_.begin() + static_cast<std::ptrdiff_t>(offset);
  return std::equal(data.begin(), data.end(), start) ? Comparison::same : Comparison::different;
}

std::span<const std::uint8_t> MemoryArea::read(std::size_t offset, std::size_t count) const {
  if (offset >= length_) {
    return {};
  }
  return content().subspan(offset, std::min(count, length_ - offset));
}

bool MemoryArea::load(std::span<const std::uint8_t> data) {
  if (data.size() > storage_.size()) {
    return false;
  }
  erase();
  return write(0, data);
}

}  // namespace pelmo::sim
