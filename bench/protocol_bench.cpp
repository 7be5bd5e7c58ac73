// Throughput of the frame codec and its CRC at the sizes the links use: a 12-byte command, the
// 256-byte serial data frame, the 1024-byte UDP data frame and the largest frame of 2048 bytes.
#include <benchmark/benchmark.h>

#include <array>
#include <vector>

#include "bench/hex_text.hpp"
#include "pelmo/protocol/crc32.hpp"
#include "pelmo/protocol/frame.hpp"

namespace {

void frame_sizes(benchmark::internal::Benchmark* b) {
  for (const int size : {12, 256, 1024, 2048}) {
    b->Arg(size);
  }
}

void BM_crc32_mpeg2(benchmark::State& state) {
  const auto bytes = pelmo::bench::pseudo_random_bytes(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    benchmark::DoNotOptimize(pelmo::crc32_mpeg2(bytes));
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_crc32_mpeg2)->Apply(frame_sizes);

void BM_encode_frame(benchmark::State& state) {
  const auto payload_size = static_cast<std::uint16_t>(state.range(0) - pelmo::FRAME_OVERHEAD);
  const auto payload = pelmo::bench::pseudo_random_bytes(payload_size);
  std::array<std::uint8_t, pelmo::FRAME_BUFFER_SIZE> frame{};
  std::uint16_t frame_length = 0;
  for (auto _ : state) {
    // 0x84: a firmware block, which carries its payload.
    const auto rc =
        pelmo::encode_frame(pelmo::Direction::request, 0x84, 0x1000, payload_size,
                            payload_size ? payload.data() : nullptr, frame, &frame_length);
    benchmark::DoNotOptimize(rc);
    benchmark::DoNotOptimize(frame.data());
  }
  if (frame_length != state.range(0)) {
    state.SkipWithError("frame of unexpected length");
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_encode_frame)->Apply(frame_sizes);

void BM_decode_frame(benchmark::State& state) {
  const auto payload_size = static_cast<std::uint16_t>(state.range(0) - pelmo::FRAME_OVERHEAD);
  const auto payload = pelmo::bench::pseudo_random_bytes(payload_size);
  std::array<std::uint8_t, pelmo::FRAME_BUFFER_SIZE> frame{};
  std::uint16_t frame_length = 0;
  pelmo::encode_frame(pelmo::Direction::response, 0, 0x1000, payload_size,
                      payload_size ? payload.data() : nullptr, frame, &frame_length);
  const std::span<const std::uint8_t> received(frame.data(), frame_length);
  pelmo::FrameFields fields;
  for (auto _ : state) {
    const auto rc = pelmo::decode_frame(pelmo::Direction::response, received, fields);
    benchmark::DoNotOptimize(rc);
    benchmark::DoNotOptimize(fields);
  }
  if (pelmo::decode_frame(pelmo::Direction::response, received, fields) != pelmo::RC_OK) {
    state.SkipWithError("frame does not decode");
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_decode_frame)->Apply(frame_sizes);

}  // namespace
