#include "pelmo/protocol/frame_assembler.hpp"

#include <gtest/gtest.h>

#include <vector>

namespace pelmo {
namespace {

using Bytes = std::vector<std::uint8_t>;
using Pieces = std::vector<Bytes>;

Bytes frame(Direction direction, std::uint8_t code, std::uint32_t address, const Bytes& payload,
            std::uint16_t length = 0) {
  Bytes bytes(FRAME_BUFFER_SIZE);
  std::uint16_t size = 0;
  EXPECT_EQ(encode_frame(direction, code, address, payload.empty() ? length : payload.size(),
                         payload.empty() ? nullptr : payload.data(), bytes, &size),
            RC_OK);
  bytes.resize(size);
  return bytes;
}

Bytes operator+(Bytes left, const Bytes& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

// Payload bytes that hold no start byte, so a dropped frame's rest never starts another candidate.
const Bytes ANSWER = frame(Direction::response, 0, 0x40, {1, 2, 3, 4});  // 16 bytes
const Bytes ACK = frame(Direction::response, 0xFA, 0x1000, {});          // 12 bytes
const Bytes LARGEST = frame(Direction::response, 0, 0, Bytes(MAX_FRAME_PAYLOAD, 0x5A));

Bytes with_bad_crc(Bytes bytes) {
  bytes.back() ^= 0x01;
  return bytes;
}

// Feeds every piece (taking frames whenever the assembler is full) and collects what comes out.
struct Outcome {
  std::vector<Bytes> frames;
  DroppedBytes dropped;
  std::size_t held = 0;
};
Outcome assemble(FrameAssembler& assembler, const Pieces& pieces, bool expire = false) {
  Outcome out;
  const auto take_all = [&] {
    for (auto next = assembler.take_frame(); !next.empty(); next = assembler.take_frame()) {
      out.frames.emplace_back(next.begin(), next.end());
    }
  };
  for (const Bytes& piece : pieces) {
    for (std::span<const std::uint8_t> rest(piece); !rest.empty();) {
      rest = rest.subspan(assembler.feed(rest));
      take_all();
    }
  }
  if (expire) {
    assembler.expire();
    take_all();
  }
  out.dropped = assembler.take_dropped();
  out.held = assembler.buffered();
  return out;
}

struct AssemblyCase {
  const char* name;
  Direction direction;
  Pieces pieces;
  std::vector<Bytes> frames;
  std::size_t dropped;
  ResultCode first_reason;
  std::size_t held;  // left waiting for more bytes
  bool expire = false;
};

class Assembly : public ::testing::TestWithParam<AssemblyCase> {};

TEST_P(Assembly, DeliversOnlyWholeGoodFrames) {
  const AssemblyCase& row = GetParam();
  FrameAssembler assembler(row.direction);
  const Outcome out = assemble(assembler, row.pieces, row.expire);
  EXPECT_EQ(out.frames, row.frames);
  EXPECT_EQ(out.dropped.count, row.dropped);
  EXPECT_EQ(out.dropped.first_reason, row.dropped == 0 ? RC_OK : row.first_reason);
  EXPECT_EQ(out.held, row.held);
}

const Bytes FALSE_START{0xBA, 0x00, 0, 0, 0, 0, 0xFF, 0xFF};  // announces 65535 payload bytes
const Bytes READ_REQUEST = frame(Direction::request, 0x01, 0, {}, 244);  // asks, carries nothing
const Bytes WRITE_REQUEST = frame(Direction::request, 0x84, 0x10, {9, 8, 7});

INSTANTIATE_TEST_SUITE_P(
    Cases, Assembly,
    ::testing::Values(
        AssemblyCase{"one_piece", Direction::response, {ANSWER}, {ANSWER}, 0, RC_OK, 0},
        AssemblyCase{"garbage_before",
                     Direction::response,
                     {{0x00, 0xB5, 0x11}, Bytes{0x7E} + ANSWER},
                     {ANSWER},
                     4,
                     RC_BAD_HEADER,
                     0},
        AssemblyCase{
            "two_in_one_piece", Direction::response, {ACK + ANSWER}, {ACK, ANSWER}, 0, RC_OK, 0},
        AssemblyCase{"bad_crc_then_good",
                     Direction::response,
                     {with_bad_crc(ANSWER) + ACK},
                     {ACK},
                     16,
                     RC_BAD_CRC,
                     0},
        AssemblyCase{"false_header_then_good",
                     Direction::response,
                     {FALSE_START, ANSWER},
                     {ANSWER},
                     8,
                     RC_BAD_LENGTH,
                     0},
        // A request frame in a response stream is garbage.
        AssemblyCase{
            "wrong_direction", Direction::response, {WRITE_REQUEST}, {}, 15, RC_BAD_HEADER, 0},
        AssemblyCase{"largest_frame", Direction::response, {LARGEST}, {LARGEST}, 0, RC_OK, 0},
        // A part of a frame waits for the rest.
        AssemblyCase{"partial_waits",
                     Direction::response,
                     {ACK + Bytes(ANSWER.begin(), ANSWER.end() - 1)},
                     {ACK},
                     0,
                     RC_OK,
                     15},
        // A stray start byte announces a frame that hides the real one; only the line going quiet
        // tells it was a false start.
        AssemblyCase{
            "stray_start_waits", Direction::response, {Bytes{0xBA} + ANSWER}, {}, 0, RC_OK, 17},
        AssemblyCase{"stray_start_expires",
                     Direction::response,
                     {Bytes{0xBA} + ANSWER},
                     {ANSWER},
                     1,
                     RC_BAD_LENGTH,
                     0,
                     true},
        AssemblyCase{"short_start_expires",
                     Direction::response,
                     {ACK + Bytes{0xBA, 0x00, 0x01}},
                     {ACK},
                     3,
                     RC_BAD_LENGTH,
                     0,
                     true},
        // A request code below 0x80 never carries a payload, whatever its length field says.
        AssemblyCase{"requests",
                     Direction::request,
                     {Bytes{0xBA} + READ_REQUEST + WRITE_REQUEST},
                     {READ_REQUEST, WRITE_REQUEST},
                     1,
                     RC_BAD_HEADER,
                     0}),
    [](const auto& info) { return std::string(info.param.name); });

// However the bytes are cut, the same frames come out.
TEST(Assembly, SplitAtEveryPosition) {
  const Bytes stream = Bytes{0x11, 0xB5} + ANSWER + ACK;
  for (std::size_t cut = 0; cut <= stream.size(); ++cut) {
    FrameAssembler assembler(Direction::response);
    const Outcome out = assemble(
        assembler, {Bytes(stream.begin(), stream.begin() + static_cast<std::ptrdiff_t>(cut)),
                    Bytes(stream.begin() + static_cast<std::ptrdiff_t>(cut), stream.end())});
    EXPECT_EQ(out.frames, (std::vector<Bytes>{ANSWER, ACK})) << cut;
    EXPECT_EQ(out.held, 0u) << cut;
  }
  FrameAssembler bytewise(Direction::response);
  Pieces single;
  for (const std::uint8_t byte : stream) {
    single.push_back({byte});
  }
  EXPECT_EQ(assemble(bytewise, single).frames, (std::vector<Bytes>{ANSWER, ACK}));
}

// Frames that are not taken fill the assembler, which then takes no more; garbage never does.
TEST(Assembly, MemoryIsBounded) {
  FrameAssembler assembler(Direction::response);
  const Bytes two = LARGEST + LARGEST;
  EXPECT_EQ(assembler.feed(two), FrameAssembler::CAPACITY);
  EXPECT_EQ(assembler.feed(ACK), 0u);
  for (int taken = 0; taken < 2; ++taken) {
    const auto next = assembler.take_frame();
    EXPECT_EQ(Bytes(next.begin(), next.end()), LARGEST);
  }
  EXPECT_EQ(assembler.feed(ACK), ACK.size());
  EXPECT_EQ(assembler.buffered(), ACK.size());
  assembler.clear();
  EXPECT_EQ(assembler.buffered(), 0u);
  EXPECT_TRUE(assembler.take_frame().empty());
  const Bytes noise(10 * FrameAssembler::CAPACITY, 0x33);
  EXPECT_EQ(assembler.feed(noise), noise.size());
  EXPECT_EQ(assembler.take_dropped().count, noise.size());
  EXPECT_EQ(assembler.buffered(), 0u);
}

}  // namespace
}  // namespace pelmo
