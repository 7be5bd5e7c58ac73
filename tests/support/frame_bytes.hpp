#pragma once

// Frames as byte vectors, for tests that feed receivers piece by piece.
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "pelmo/protocol/frame.hpp"

namespace pelmo::test_frames {

using Bytes = std::vector<std::uint8_t>;

// One encoded frame; a `length` other than the payload's is only for frames without payload.
inline Bytes encoded_frame(Direction direction, std::uint8_t code, std::uint32_t address,
                           const Bytes& payload, std::uint16_t length = 0) {
  Bytes bytes(FRAME_BUFFER_SIZE);
  std::uint16_t size = 0;
  EXPECT_EQ(encode_frame(direction, code, address,
                         payload.empty() ? length : static_cast<std::uint16_t>(payload.size()),
                         payload.empty() ? nullptr : payload.data(), bytes, &size),
            RC_OK);
  bytes.resize(size);
  return bytes;
}

inline Bytes operator+(Bytes left, const Bytes& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

}  // namespace pelmo::test_frames
