#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <numeric>
#include <tuple>
#include <vector>

#include "pelmo/protocol/bytes.hpp"
#include "pelmo/protocol/crc32.hpp"
#include "pelmo/protocol/frame.hpp"
#include "tests/support/scripted_device.hpp"

namespace pelmo {
namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes encode(Direction direction, std::uint8_t code, std::uint32_t address, std::uint16_t length,
             const std::uint8_t* payload) {
  Bytes frame(FRAME_BUFFER_SIZE);
  std::uint16_t frame_length = 0;
  EXPECT_EQ(encode_frame(direction, code, address, length, payload, frame, &frame_length), RC_OK);
  frame.resize(frame_length);
  return frame;
}

TEST(Codec, CrcCheckValueAndWorkedExamples) {
  EXPECT_EQ(crc32_mpeg2(Bytes{'1', '2', '3', '4', '5', '6', '7', '8', '9'}), 0x0376E6E7u);
  EXPECT_EQ(encode(Direction::request, 0x01, 0, 244, nullptr),
            (Bytes{0xB5, 0x01, 0x00, 0x00, 0x00, 0x00, 0xF4, 0x00, 0x8C, 0xF9, 0x00, 0x2A}));
  EXPECT_EQ(encode(Direction::request, 0x8F, 0, 0, nullptr),
            (Bytes{0xB5, 0x8F, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x96, 0x39, 0xC7, 0x65}));
}

TEST(Codec, EncodeLengthRules) {
  const Bytes payload(4096, 0x5A);
  // length, payload given, result, frame length, length field
  for (const auto& [length, given, rc, frame_length, field] :
       std::vector<std::tuple<std::uint16_t, bool, ResultCode, int, int>>{
           // From 0x80 up a null payload makes an empty frame whatever the length says.
           {100, false, RC_OK, 12, 0},
           {2036, true, RC_OK, 2048, 2036},
           {2037, true, RC_BAD_LENGTH, 0, 0}}) {
    Bytes frame(FRAME_BUFFER_SIZE);
    std::uint16_t written = 0;
    const std::uint8_t* data = given ? payload.data() : nullptr;
    EXPECT_EQ(encode_frame(Direction::request, 0x84, 0, length, data, frame, &written), rc);
    EXPECT_EQ(written, frame_length) << length;
    EXPECT_EQ(frame[6] | frame[7] << 8, field) << length;
  }
}

TEST(Codec, DecodeCheckOrder) {
  const std::array<std::uint8_t, 4> payload{1, 2, 3, 4};
  Bytes valid = encode(Direction::response, 0, 0x40, 4, payload.data());
  valid.insert(valid.end(), {0xBA, 0x00, 0x77});  // bytes past the frame are ignored
  // Announces 10 payload bytes but ends after the header, with the header's CRC behind it.
  Bytes cut{RESPONSE_START, 0xE7, 0x40, 0, 0, 0, 10, 0};
  const std::uint32_t crc = crc32_mpeg2(cut);
  for (const int shift : {0, 8, 16, 24})
    cut.push_back(static_cast<std::uint8_t>(crc >> shift));
  // received, direction, result, code left in the fields (0x55: not stored)
  for (const auto& [received, direction, rc, code] :
       std::vector<std::tuple<Bytes, Direction, ResultCode, int>>{
           // Too short is reported before the start byte is looked at.
           {Bytes(11, 0x00), Direction::response, RC_BAD_LENGTH, 0x55},
           {valid, Direction::request, RC_BAD_HEADER, 0x55},
           {test_support::with_bad_crc(Bytes(valid.begin(), valid.begin() + 16)),
            Direction::response, RC_BAD_CRC, 0x55},
           // Arrived shorter than announced: the CRC is compared with the wrong bytes.
           {Bytes(valid.begin(), valid.begin() + 14), Direction::response, RC_BAD_CRC, 0x55},
           // The code is stored once the CRC matched, before the length check.
           {cut, Direction::response, RC_BAD_LENGTH, 0xE7},
           {valid, Direction::response, RC_OK, 0},
           // A request below 0x80 is 12 bytes, whatever its length field asks for.
           {encode(Direction::request, 0x02, 0x40, 244, nullptr), Direction::request, RC_OK, 2}}) {
    FrameFields fields{.code = 0x55, .address = 0xCAFEF00D, .length = 0, .payload = {}};
    EXPECT_EQ(decode_frame(direction, received, fields), rc) << received.size();
    EXPECT_EQ(fields.code, code) << received.size();
    EXPECT_EQ(fields.address, rc == RC_OK ? 0x40u : 0xCAFEF00Du) << received.size();
  }
}

}  // namespace
}  // namespace pelmo
