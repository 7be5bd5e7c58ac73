#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace pelmo {

// Bytes that belong at consecutive device addresses (raw: at offsets from the area's start).
struct ImageSegment {
  std::uint32_t address = 0;
  std::vector<std::uint8_t> bytes;
};

// A device address in messages: "0x08000000" (more digits only past 32 bits).
inline std::string address_text(std::uint64_t address) {
  char text[24];
  std::snprintf(text, sizeof text, "0x%08llX", static_cast<unsigned long long>(address));
  return text;
}

// What a format's segment reader gives: the segments in the file's order, or a fault located by
// `where` ("line 12", "segment 2 at 0x08000000"; empty when no one place is at fault) and worded
// by `error` ("checksum mismatch"). The file's name is the caller's to add.
struct SegmentRead {
  std::vector<ImageSegment> segments;
  std::string where;
  std::string error;
};

// Collects data as the records of a file give it: a record that continues the last segment
// extends it, any other starts a new one, so a file of many small records becomes a few segments.
// The total is bounded, so that no input can take more memory than `max_bytes` of data.
class SegmentBuilder {
 public:
  explicit SegmentBuilder(std::size_t max_bytes) : max_bytes_(max_bytes) {}

  // False, taking nothing, when the bytes would take the total past the bound.
  bool add(std::uint32_t address, std::span<const std::uint8_t> bytes) {
    if (bytes.size() > max_bytes_ - data_bytes_) {
      return false;
    }
    data_bytes_ += bytes.size();
    if (bytes.empty()) {
      return true;
    }
    const bool continues =
        !segments_.empty() &&
        std::uint64_t{segments_.back().address} + segments_.back().bytes.size() == address;
    if (!continues) {
      segments_.push_back({address, {}});
    }
    auto& last = segments_.back().bytes;
    last.insert(last.end(), bytes.begin(), bytes.end());
    return true;
  }

  std::size_t data_bytes() const { return data_bytes_; }
  std::vector<ImageSegment> take() { return std::move(segments_); }

 private:
  std::size_t max_bytes_;
  std::size_t data_bytes_ = 0;
  std::vector<ImageSegment> segments_;
};

}  // namespace pelmo
