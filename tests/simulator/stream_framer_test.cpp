#include "simulator/stream_framer.hpp"

#include <gtest/gtest.h>

#include "sim_test_support.hpp"

namespace pelmo::sim::test {
namespace {

// Events rendered as text: "F<size>" for a frame, "G<count>/<rc>" for dropped bytes.
std::string render(const std::vector<FramerEvent>& events) {
  std::string text;
  for (const FramerEvent& event : events) {
    if (!text.empty()) {
      text += ' ';
    }
    text += event.frame.empty()
                ? "G" + std::to_string(event.dropped) + "/" + std::to_string(event.reason)
                : "F" + std::to_string(event.frame.size());
  }
  return text;
}

Bytes concat(std::initializer_list<Bytes> parts) {
  Bytes all;
  for (const Bytes& part : parts) {
    all.insert(all.end(), part.begin(), part.end());
  }
  return all;
}

TEST(StreamFramer, CutsFramesAndFallsBackIntoStepAfterGarbage) {
  const Bytes read = request_frame(CommandCode::CMD_READ_FW, 0, 244);  // 12 bytes
  const Bytes block = request_frame(CommandCode::CMD_WRITE_FW, 0, 16, Bytes(16, 0x11));
  Bytes bad_crc = block;
  bad_crc.back() ^= 1;
  Bytes huge = read;
  huge[1] = 0x84;
  huge[6] = 0xFF;
  huge[7] = 0x7F;  // announces 32767 payload bytes
  // A header that announces 32 payload bytes, with nothing behind it.
  const Bytes false_start = {0xB5, 0x84, 0, 0, 0, 0, 32, 0};

  const struct {
    const char* name;
    Bytes stream;
    std::string events;              // from the bytes as they come
    std::string events_after_quiet;  // when the line has been quiet for QUIET_MS
  } cases[] = {
      {"two frames back to back", concat({read, block}), "F12 F28", ""},
      {"noise before a frame", concat({Bytes{0x00, 0x13, 0xBA}, read}), "G3/-6 F12", ""},
      {"frame with a bad CRC", concat({bad_crc, read}), "G28/-7 F12", ""},
      {"length no request can have", concat({huge, read}), "G12/-19 F12", ""},
      {"request below 0x80 ignores its length", request_frame(CommandCode::CMD_READ_FW, 0, 2000),
       "F12", ""},
      {"half a frame", Bytes(block.begin(), block.begin() + 20), "", "G20/-19"},
      // The false header waits for bytes that never come; the frame behind it is found when
      // the quiet time gives it up.
      {"false start hides a frame", concat({false_start, read}), "", "G8/-19 F12"},
  };
  for (const auto& c : cases) {
    StreamFramer framer;
    EXPECT_EQ(c.events, render(framer.feed(c.stream, 0))) << c.name;
    EXPECT_EQ(c.events_after_quiet, render(framer.expire(StreamFramer::QUIET_MS))) << c.name;
    EXPECT_FALSE(framer.deadline()) << c.name;
  }
}

TEST(StreamFramer, JoinsPiecesAndDropsAPartialFrameAfterQuiet) {
  const Bytes block = request_frame(CommandCode::CMD_WRITE_CALIB, 8, 100, Bytes(100, 7));
  StreamFramer framer;
  for (std::size_t i = 0; i + 1 < block.size(); ++i) {
    ASSERT_TRUE(framer.feed(std::span(block).subspan(i, 1), i).empty());
  }
  const auto events = framer.feed(std::span(block).last(1), 200);
  ASSERT_EQ("F112", render(events));
  EXPECT_EQ(block, events.front().frame);

  // Half a frame, then silence: kept until 100 ms after its last byte, then dropped.
  framer.feed(std::span(block).first(50), 1000);
  EXPECT_EQ(1100u, framer.deadline().value());
  EXPECT_TRUE(framer.expire(1099).empty());
  EXPECT_EQ("G50/-19", render(framer.expire(1100)));
  EXPECT_FALSE(framer.deadline());
  EXPECT_EQ("F112", render(framer.feed(block, 1200)));
}

}  // namespace
}  // namespace pelmo::sim::test
