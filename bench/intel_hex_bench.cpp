// Loading a 1 MiB firmware image from Intel HEX text (about 2.9 MB), from memory and from a file
// the way the tool opens it.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "bench/hex_text.hpp"
#include "pelmo/formats/intel_hex.hpp"

namespace {

constexpr std::uint32_t IMAGE_SIZE = 1024 * 1024;
constexpr std::uint32_t BASE = 0x08000000;  // a typical flash start; the file uses 04 records

const std::string& hex_text() {
  static const std::string text =
      pelmo::bench::make_intel_hex(pelmo::bench::pseudo_random_bytes(IMAGE_SIZE), BASE);
  return text;
}

void BM_read_intel_hex_text(benchmark::State& state) {
  const std::string& text = hex_text();
  std::vector<std::uint8_t> image(IMAGE_SIZE);
  for (auto _ : state) {
    const auto length = pelmo::read_intel_hex(std::string_view{text}, image, IMAGE_SIZE, BASE);
    if (length != IMAGE_SIZE) {
      state.SkipWithError("image not loaded");
      break;
    }
    benchmark::DoNotOptimize(image.data());
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}
BENCHMARK(BM_read_intel_hex_text)->Unit(benchmark::kMillisecond);

void BM_read_intel_hex_file(benchmark::State& state) {
  const auto path = std::filesystem::temp_directory_path() / "pelmo-bench-1mib.hex";
  {
    std::FILE* out = std::fopen(path.c_str(), "wb");
    if (out == nullptr) {
      state.SkipWithError("cannot write the HEX file");
      return;
    }
    std::fwrite(hex_text().data(), 1, hex_text().size(), out);
    std::fclose(out);
  }
  std::vector<std::uint8_t> image(IMAGE_SIZE);
  for (auto _ : state) {
    std::FILE* input = std::fopen(path.c_str(), "r");
    const auto length = pelmo::read_intel_hex(input, image, IMAGE_SIZE, BASE);
    if (input != nullptr) {
      std::fclose(input);
    }
    if (length != IMAGE_SIZE) {
      state.SkipWithError("image not loaded");
      break;
    }
    benchmark::DoNotOptimize(image.data());
  }
  std::filesystem::remove(path);
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(hex_text().size()));
}
BENCHMARK(BM_read_intel_hex_file)->Unit(benchmark::kMillisecond);

}  // namespace
