// The ELF reader and the placement on arbitrary bytes.
#include <cstdint>

#include "fuzz/firmware_file_check.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  check_firmware_file(pelmo::FirmwareFormat::elf, data, size);
  return 0;
}
