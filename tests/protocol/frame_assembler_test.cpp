#include "pelmo/protocol/frame_assembler.hpp"

#include <gtest/gtest.h>

#include <tuple>
#include <vector>

#include "tests/support/frame_bytes.hpp"

namespace pelmo {
namespace {

using Bytes = std::vector<std::uint8_t>;
using test_frames::operator+;
using Pieces = std::vector<Bytes>;

Bytes frame(Direction direction, std::uint8_t code, std::uint32_t address, const Bytes& payload,
            std::uint16_t length = 0) {
  return test_frames::encoded_frame(direction, code, address, payload, length);
}

// Payload bytes that hold no start byte, so a dropped frame's rest never starts another candidate.
const Bytes ANSWER = frame(Direction::response, 0, 0x40, {1, 2, 3, 4});  // 16 bytes
const Bytes ACK = frame(Direction::response, 0xFA, 0x1000, {});          // 12 bytes
const Bytes LARGEST = frame(Direction::response, 0, 0, Bytes(MAX_FRAME_PAYLOAD, 0x5A));

// Feeds every piece, taking frames whenever the assembler is full, then lets the line go quiet:
// the frames, the bytes held before the quiet, the bytes dropped and the first reason.
using Result = std::tuple<std::vector<Bytes>, std::size_t, std::size_t, ResultCode>;
Result assemble(Direction direction, const Pieces& pieces) {
  FrameAssembler assembler(direction);
  std::vector<Bytes> frames;
  const auto take_all = [&] {
    for (auto next = assembler.take_frame(); !next.empty(); next = assembler.take_frame()) {
      frames.emplace_back(next.begin(), next.end());
    }
  };
  for (const Bytes& piece : pieces) {
    for (std::span<const std::uint8_t> rest(piece); !rest.empty(); take_all()) {
      rest = rest.subspan(assembler.feed(rest));
    }
  }
  const std::size_t held = assembler.buffered();
  assembler.expire();
  take_all();
  const DroppedBytes dropped = assembler.take_dropped();
  return {frames, held, dropped.count, dropped.first_reason};
}

TEST(Assembly, DeliversOnlyWholeGoodFrames) {
  Bytes bad_crc = ANSWER;
  bad_crc.back() ^= 0x01;
  const Bytes false_start{0xBA, 0x00, 0, 0, 0, 0, 0xFF, 0xFF};     // announces 65535 payload bytes
  const Bytes read = frame(Direction::request, 0x01, 0, {}, 244);  // asks, carries nothing
  const Bytes write = frame(Direction::request, 0x84, 0x10, {9, 8, 7});
  using enum Direction;
  for (const auto& [name, pieces, result, direction] :
       std::vector<std::tuple<const char*, Pieces, Result, Direction>>{
           {"bad CRC, then good", {bad_crc + ACK}, {{ACK}, 0, 16, RC_BAD_CRC}, response},
           {"false header", {false_start, ANSWER}, {{ANSWER}, 0, 8, RC_BAD_LENGTH}, response},
           // A stray start byte announces a frame that hides the real one; only the line going
           // quiet tells it was a false start.
           {"stray start", {Bytes{0xBA} + ANSWER}, {{ANSWER}, 17, 1, RC_BAD_LENGTH}, response},
           {"short start", {ACK + Bytes{0xBA, 0x00, 0x01}}, {{ACK}, 3, 3, RC_BAD_LENGTH}, response},
           // A request code below 0x80 never carries a payload, whatever its length field says.
           {"requests",
            {Bytes{0xBA} + read + write},
            {{read, write}, 0, 1, RC_BAD_HEADER},
            request}}) {
    EXPECT_EQ(assemble(direction, pieces), result) << name;
  }
}

// However the bytes are cut, the same frames come out and only the garbage is dropped.
TEST(Assembly, SplitAtEveryPosition) {
  const Bytes stream = Bytes{0x11, 0xB5} + ANSWER + ACK;
  std::vector<Pieces> cuts(1);  // the first: a byte at a time
  for (std::size_t cut = 0; cut <= stream.size(); ++cut) {
    const auto at = stream.begin() + static_cast<std::ptrdiff_t>(cut);
    cuts.push_back({Bytes(stream.begin(), at), Bytes(at, stream.end())});
  }
  for (const std::uint8_t byte : stream)
    cuts[0].push_back({byte});
  for (const Pieces& pieces : cuts) {
    EXPECT_EQ(assemble(Direction::response, pieces), Result({ANSWER, ACK}, 0, 2, RC_BAD_HEADER))
        << pieces.size() << " pieces, the first of " << pieces[0].size();
  }
}

// Frames that are not taken fill the assembler, which then takes no more; garbage never does.
TEST(Assembly, MemoryIsBounded) {
  FrameAssembler assembler(Direction::response);
  EXPECT_EQ(assembler.feed(LARGEST + LARGEST), FrameAssembler::CAPACITY);
  EXPECT_EQ(assembler.feed(ACK), 0u);
  EXPECT_EQ(assembler.take_frame().size(), LARGEST.size());
  EXPECT_EQ(assembler.take_frame().size(), LARGEST.size());
  EXPECT_EQ(assembler.feed(ACK), ACK.size());
  assembler.clear();
  const Bytes noise(10 * FrameAssembler::CAPACITY, 0x33);
  EXPECT_EQ(assembler.feed(noise), noise.size());
  EXPECT_EQ(assembler.take_dropped().count, noise.size());
  EXPECT_EQ(assembler.buffered(), 0u);
}

}  // namespace
}  // namespace pelmo
