// pelmo-hex-load FILE.hex [OUT.bin]
// Loads an Intel HEX file into a 1 MiB image the way the tool does (one read of the whole file,
// base address 0) and, when OUT.bin is given, writes the image length's bytes there, so the whole
// job compares with a converter that writes a binary. Exit status 0 on success.
#include <cstdio>
#include <vector>

#include "pelmo/formats/intel_hex.hpp"

int main(int argc, char** argv) {
  if (argc < 2 || argc > 3) {
    std::fprintf(stderr, "usage: %s FILE.hex [OUT.bin]\n", argv[0]);
    return 2;
  }
  constexpr std::uint32_t IMAGE_SIZE = 1024 * 1024;
  std::vector<std::uint8_t> image(IMAGE_SIZE);
  std::FILE* input = std::fopen(argv[1], "r");
  if (input == nullptr) {
    std::perror(argv[1]);
    return 1;
  }
  const std::uint32_t length = pelmo::read_intel_hex(input, image, IMAGE_SIZE, 0);
  std::fclose(input);
  if (length == 0) {
    std::fprintf(stderr, "%s: not a loadable Intel HEX image\n", argv[1]);
    return 1;
  }
  if (argc == 3) {
    std::FILE* output = std::fopen(argv[2], "wb");
    const bool written =
        output != nullptr && std::fwrite(image.data(), 1, length, output) == length;
    if (output == nullptr || std::fclose(output) != 0 || !written) {
      std::perror(argv[2]);
      return 1;
    }
  }
  return 0;
}
