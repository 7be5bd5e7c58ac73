#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace pelmo::sim {

inline constexpr std::uint8_t ERASED_BYTE = 0xFF;

// One erasable memory area of the device: `limit` bytes of storage and the length written so
// far (the highest byte a write reached since the last erase). Reads end at that length; writes and
// compares may reach up to the limit.
class MemoryArea {
 public:
  explicit MemoryArea(std::size_t limit);

  std::size_t limit() const { return storage_.size(); }
  std::size_t length() const { return length_; }
  // The written part of the area.
  std::span<const std::uint8_t> content() const { return {storage_.data(), length_}; }
  // The whole storage, erased bytes included.
  std::span<const std::uint8_t> storage() const { return storage_; }

  void erase();
  // Stores `data` at `offset`; false (nothing stored) when it would pass the limit.
  bool write(std::size_t offset, std::span<const std::uint8_t> data);
  enum class Comparison { same, different, out_of_range };
  Comparison compare(std::size_t offset, std::span<const std::uint8_t> data) const;
  // Up to `count` written bytes from `offset`; empty at or past the written length.
  std::span<const std::uint8_t> read(std::size_t offset, std::size_t count) const;
  // Replaces the whole content (an erase, then `data` at offset 0); false when it is too large.
  bool load(std::span<const std::uint8_t> data);

 private:
  std::vector<std::uint8_t> storage_;
  std::size_t length_ = 0;
};

}  // namespace pelmo::sim
