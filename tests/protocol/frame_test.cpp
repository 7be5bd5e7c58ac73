#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <string_view>
#include <vector>

#include "protocol/crc32.hpp"
#include "protocol/frame.hpp"

namespace pelmo {
namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes encode(Direction direction, std::uint8_t code, std::uint32_t address, std::uint16_t length,
             const std::uint8_t* payload, std::size_t buffer_size, ResultCode* rc = nullptr) {
  Bytes buffer(buffer_size, 0xEE);
  std::uint16_t frame_length = 0xDEAD;
  const ResultCode result =
      encode_frame(direction, code, address, length, payload, buffer, &frame_length);
  if (rc != nullptr) {
    *rc = result;
  }
  if (result != RC_OK) {
    return {};
  }
  buffer.resize(frame_length);
  return buffer;
}

TEST(Crc32Mpeg2, CheckValueAndEmptyInput) {
  constexpr std::string_view digits = "123456789";
  const Bytes bytes(digits.begin(), digits.end());
  EXPECT_EQ(crc32_mpeg2(bytes), 0x0376E6E7u);
  EXPECT_EQ(crc32_mpeg2({}), 0xFFFFFFFFu);
  // Continuing over pieces gives the same value as one pass.
  const auto first = crc32_mpeg2_update(CRC32_MPEG2_INITIAL, std::span(bytes).first(4));
  EXPECT_EQ(crc32_mpeg2_update(first, std::span(bytes).subspan(4)), 0x0376E6E7u);
}

TEST(EncodeFrame, WorkedExamplesByteForByte) {
  EXPECT_EQ(encode(Direction::request, 0x01, 0, 244, nullptr, FRAME_BUFFER_SIZE),
            (Bytes{0xB5, 0x01, 0x00, 0x00, 0x00, 0x00, 0xF4, 0x00, 0x8C, 0xF9, 0x00, 0x2A}));
  EXPECT_EQ(encode(Direction::request, 0x8F, 0, 0, nullptr, FRAME_BUFFER_SIZE),
            (Bytes{0xB5, 0x8F, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x96, 0x39, 0xC7, 0x65}));
}

TEST(EncodeFrame, AddressLengthPayloadAndCrcLittleEndian) {
  const std::array<std::uint8_t, 3> payload{0xA1, 0xA2, 0xA3};
  const Bytes frame =
      encode(Direction::response, 0x07, 0x11223344, 3, payload.data(), FRAME_BUFFER_SIZE);
  ASSERT_EQ(frame.size(), 15u);
  EXPECT_EQ(Bytes(frame.begin(), frame.begin() + 11),
            (Bytes{0xBA, 0x07, 0x44, 0x33, 0x22, 0x11, 0x03, 0x00, 0xA1, 0xA2, 0xA3}));
  const std::uint32_t crc = crc32_mpeg2(std::span(frame).first(11));
  EXPECT_EQ(frame[11], crc & 0xFF);
  EXPECT_EQ(frame[14], crc >> 24);
}

struct EncodeCase {
  const char* name;
  Direction direction;
  std::uint8_t code;
  std::uint16_t length;
  bool with_payload;
  std::size_t buffer_size;
  ResultCode expected;
  std::size_t frame_length;
  std::uint16_t length_field;
};

class EncodeCases : public ::testing::TestWithParam<EncodeCase> {};

TEST_P(EncodeCases, LengthRules) {
  const EncodeCase& c = GetParam();
  const Bytes payload(4096, 0x5A);
  ResultCode rc = RC_OK;
  const Bytes frame = encode(c.direction, c.code, 0, c.length,
                             c.with_payload ? payload.data() : nullptr, c.buffer_size, &rc);
  ASSERT_EQ(rc, c.expected);
  if (rc == RC_OK) {
    ASSERT_EQ(frame.size(), c.frame_length);
    EXPECT_EQ(frame[6] | (frame[7] << 8), c.length_field);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Frame, EncodeCases,
    ::testing::Values(
        // Below 0x80 the length asks for bytes; a payload pointer is not looked at.
        EncodeCase{"ReadIgnoresPayload", Direction::request, 0x04, 100, true, 2048, RC_OK, 12, 100},
        // From 0x80 up a null payload makes an empty frame whatever the length says.
        EncodeCase{"NullPayloadIsEmpty", Direction::request, 0x84, 100, false, 2048, RC_OK, 12, 0},
        EncodeCase{"FillsBufferExactly", Direction::request, 0x84, 2036, true, 2048, RC_OK, 2048,
                   2036},
        EncodeCase{"OneByteTooMany", Direction::request, 0x84, 2037, true, 2048, RC_BAD_LENGTH, 0,
                   0},
        EncodeCase{"BufferBelowTwelve", Direction::request, 0x01, 0, false, 11, RC_BAD_LENGTH, 0,
                   0},
        EncodeCase{"EmptyFrameInTwelve", Direction::request, 0x8F, 0, false, 12, RC_OK, 12, 0},
        // A response carries its payload whatever the status byte.
        EncodeCase{"ResponseLowCode", Direction::response, 0x00, 5, true, 2048, RC_OK, 17, 5}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(EncodeFrame, NullOutputBuffer) {
  EXPECT_EQ(encode_frame(Direction::request, 0x01, 0, 0, nullptr, {}, nullptr), RC_NULL_POINTER);
}

// A response frame that only pretends to be `length_field` long: the CRC over its first 8 bytes
// sits right behind the header, as if it were complete.
Bytes truncated_with_matching_crc(std::uint8_t status, std::uint16_t length_field) {
  Bytes frame{0xBA,
              status,
              0x01,
              0x00,
              0x00,
              0x00,
              static_cast<std::uint8_t>(length_field),
              static_cast<std::uint8_t>(length_field >> 8)};
  const std::uint32_t crc = crc32_mpeg2(frame);
  for (int i = 0; i < 4; ++i) {
    frame.push_back(static_cast<std::uint8_t>(crc >> (8 * i)));
  }
  return frame;
}

struct DecodeCase {
  const char* name;
  Bytes received;
  Direction direction;
  ResultCode expected;
};

class DecodeCases : public ::testing::TestWithParam<DecodeCase> {};

TEST_P(DecodeCases, CheckOrder) {
  const DecodeCase& c = GetParam();
  FrameFields fields;
  fields.address = 0xCAFEF00D;
  EXPECT_EQ(decode_frame(c.direction, c.received, fields), c.expected);
  if (c.expected != RC_OK) {
    EXPECT_EQ(fields.address, 0xCAFEF00Du) << "outputs other than the code stay untouched";
  }
}

Bytes valid_response() {
  const std::array<std::uint8_t, 4> payload{1, 2, 3, 4};
  return encode(Direction::response, 0, 0x40, 4, payload.data(), 64);
}

Bytes without_last(Bytes bytes, std::size_t count) {
  bytes.resize(bytes.size() - count);
  return bytes;
}

Bytes with_byte(Bytes bytes, std::size_t index, std::uint8_t value) {
  bytes[index] = value;
  return bytes;
}

INSTANTIATE_TEST_SUITE_P(
    Frame, DecodeCases,
    ::testing::Values(
        // Too short is reported before the start byte is looked at.
        DecodeCase{"ElevenBytes", Bytes(11, 0x00), Direction::response, RC_BAD_LENGTH},
        DecodeCase{"RequestStartInResponse", with_byte(valid_response(), 0, 0xB5),
                   Direction::response, RC_BAD_HEADER},
        DecodeCase{"ResponseStartInRequest", valid_response(), Direction::request, RC_BAD_HEADER},
        DecodeCase{"FlippedPayloadBit", with_byte(valid_response(), 9, 0x03), Direction::response,
                   RC_BAD_CRC},
        // Arrived shorter than announced: the CRC is compared with the wrong bytes.
        DecodeCase{"Truncated", without_last(valid_response(), 2), Direction::response, RC_BAD_CRC},
        DecodeCase{"TruncatedMatchingCrc", truncated_with_matching_crc(0, 10), Direction::response,
                   RC_BAD_LENGTH},
        // A request below 0x80 is always 12 bytes, whatever its length field asks for.
        DecodeCase{"ReadRequest",
                   encode(Direction::request, 0x02, 0, 244, nullptr, FRAME_BUFFER_SIZE),
                   Direction::request, RC_OK}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(DecodeFrame, CodeIsStoredBeforeTheLengthCheck) {
  FrameFields fields;
  EXPECT_EQ(decode_frame(Direction::response, truncated_with_matching_crc(0xE7, 10), fields),
            RC_BAD_LENGTH);
  EXPECT_EQ(fields.code, 0xE7);
  EXPECT_EQ(fields.length, 0);
}

TEST(DecodeFrame, TrailingBytesIgnoredAndPayloadPointsIntoInput) {
  Bytes received = valid_response();
  received.insert(received.end(), {0xBA, 0x00, 0x77});
  FrameFields fields;
  ASSERT_EQ(decode_frame(Direction::response, received, fields), RC_OK);
  EXPECT_EQ(fields.address, 0x40u);
  EXPECT_EQ(fields.length, 4);
  ASSERT_EQ(fields.payload.size(), 4u);
  EXPECT_EQ(fields.payload.data(), received.data() + 8);
  EXPECT_EQ(fields.payload[3], 4);
}

TEST(DecodeFrame, NonZeroStatusStillDecodes) {
  FrameFields fields;
  const Bytes frame = encode(Direction::response, 0xFD, 7, 0, nullptr, 64);
  ASSERT_EQ(decode_frame(Direction::response, frame, fields), RC_OK);
  EXPECT_EQ(fields.code, 0xFD);
  EXPECT_EQ(fields.address, 7u);
  EXPECT_TRUE(fields.payload.empty());
}

TEST(DecodeFrame, RequestWithPayloadRoundTrips) {
  const std::array<std::uint8_t, 2> payload{9, 8};
  const Bytes frame = encode(Direction::request, 0x84, 0x100, 2, payload.data(), FRAME_BUFFER_SIZE);
  FrameFields fields;
  ASSERT_EQ(decode_frame(Direction::request, frame, fields), RC_OK);
  EXPECT_EQ(fields.code, 0x84);
  EXPECT_EQ(fields.address, 0x100u);
  EXPECT_EQ(Bytes(fields.payload.begin(), fields.payload.end()), (Bytes{9, 8}));
}

TEST(DecodeFrame, NullInput) {
  FrameFields fields;
  EXPECT_EQ(decode_frame(Direction::response, {}, fields), RC_NULL_POINTER);
}

}  // namespace
}  // namespace pelmo
