#include "pelmo/protocol/frame.hpp"

#include <algorithm>

#include "pelmo/protocol/bytes.hpp"
#include "pelmo/protocol/crc32.hpp"

namespace pelmo {

ResultCode encode_frame(Direction direction, std::uint8_t code, std::uint32_t address,
                        std::uint16_t length, const std::uint8_t* payload,
                        std::span<std::uint8_t> output, std::uint16_t* frame_length) {
  if (output.data() == nullptr) {
    return RC_NULL_POINTER;
  }
  const bool request = direction == Direction::request;
  std::size_t count = 0;
  std::uint16_t length_field = length;
  if (!request || code_carries_payload(code)) {
    if (payload == nullptr) {
      length_field = 0;
    }
    count = length_field;
  }
  const std::size_t capacity = std::min<std::size_t>(output.size(), 0xFFFF);
  if (FRAME_OVERHEAD + count > capacity) {
    return RC_BAD_LENGTH;
  }
  std::uint8_t* frame = output.data();
  frame[0] = request ? REQUEST_START : RESPONSE_START;
  frame[1] = code;
  store_u32(ByteOrder::little, address, frame + 2);
  store_u16_le(length_field, frame + 6);
  if (count > 0) {
    copy_memory(frame + FRAME_HEADER_SIZE, payload, static_cast<std::uint16_t>(count));
  }
  const std::size_t crc_offset = FRAME_HEADER_SIZE + count;
  store_u32(ByteOrder::little, crc32_mpeg2({frame, crc_offset}), frame + crc_offset);
  if (frame_length != nullptr) {
    *frame_length = static_cast<std::uint16_t>(FRAME_OVERHEAD + count);
  }
  return RC_OK;
}

ResultCode decode_frame(Direction direction, std::span<const std::uint8_t> received,
                        FrameFields& fields) {
  if (received.data() == nullptr) {
    return RC_NULL_POINTER;
  }
  if (received.size() < FRAME_OVERHEAD) {
    return RC_BAD_LENGTH;
  }
  const bool request = direction == Direction::request;
  if (received[0] != (request ? REQUEST_START : RESPONSE_START)) {
    return RC_BAD_HEADER;
  }
  const std::uint16_t length_field = load_u16_le(received.data() + 6);
  const std::size_t taken = std::min<std::size_t>(received.size(), length_field + FRAME_OVERHEAD);
  const std::size_t crc_offset = taken - 4;
  if (crc32_mpeg2(received.first(crc_offset)) !=
      load_u32(ByteOrder::little, received.data() + crc_offset)) {
    return RC_BAD_CRC;
  }
  fields.code = received[1];
  const bool has_payload = !request || code_carries_payload(received[1]);
  const std::size_t expected = has_payload ? length_field + FRAME_OVERHEAD : FRAME_OVERHEAD;
  if (taken != expected) {
    return RC_BAD_LENGTH;
  }
  fields.length = length_field;
  fields.address = load_u32(ByteOrder::little, received.data() + 2);
  fields.payload = received.subspan(FRAME_HEADER_SIZE, has_payload ? length_field : 0);
  return RC_OK;
}

}  // namespace pelmo
