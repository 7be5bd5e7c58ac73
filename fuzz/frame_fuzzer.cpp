// decode_frame on arbitrary bytes, either direction. A frame that decodes must encode back to the
// very bytes it was taken from, and its payload must lie inside them.
#include <cstdint>
#include <vector>

#include "fuzz/fuzz_check.hpp"
#include "pelmo/protocol/frame.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 1 || size > 0xFFFF) {
    return 0;
  }
  const auto direction = (data[0] & 1) ? pelmo::Direction::request : pelmo::Direction::response;
  // The received bytes in a heap block of their own, so that reading past them is caught.
  const std::vector<std::uint8_t> received(data + 1, data + size);
  pelmo::FrameFields fields;
  if (pelmo::decode_frame(direction, received, fields) != pelmo::RC_OK) {
    return 0;
  }
  const bool has_payload =
      direction == pelmo::Direction::response || pelmo::code_carries_payload(fields.code);
  const std::size_t taken = pelmo::FRAME_OVERHEAD + (has_payload ? fields.length : 0);
  FUZZ_CHECK(taken <= received.size());
  if (has_payload && fields.length > 0) {
    FUZZ_CHECK(fields.payload.data() == received.data() + pelmo::FRAME_HEADER_SIZE);
    FUZZ_CHECK(fields.payload.size() == fields.length);
  }

  std::vector<std::uint8_t> encoded(taken);
  std::uint16_t length = 0;
  FUZZ_CHECK(pelmo::encode_frame(direction, fields.code, fields.address, fields.length,
                                 fields.payload.data(), encoded, &length) == pelmo::RC_OK);
  FUZZ_CHECK(length == taken);
  FUZZ_CHECK(std::equal(encoded.begin(), encoded.end(), received.begin()));
  return 0;
}
