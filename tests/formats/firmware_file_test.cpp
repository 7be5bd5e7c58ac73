#include "pelmo/formats/firmware_file.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

namespace pelmo {
namespace {

using Bytes = std::vector<std::uint8_t>;
using enum FirmwareFormat;

Bytes bytes_of(std::string_view text) {
  return {text.begin(), text.end()};
}

// A little-endian ELF file: its header, one program header per segment right after it, then
// `payload` at offset 0x100. `is64` picks the class; `data` the EI_DATA byte (1: little-endian).
struct ProgramHeader {
  std::uint32_t type = 1;  // PT_LOAD
  std::uint64_t offset = 0x100;
  std::uint64_t vaddr = 0;
  std::uint64_t paddr = 0;
  std::uint64_t file_size = 0;
  std::uint64_t memory_size = 0;
};
Bytes elf_file(bool is64, const std::vector<ProgramHeader>& headers, const Bytes& payload,
               std::uint8_t data = 1) {
  const std::size_t header_size = is64 ? 64 : 52;
  const std::size_t entry_size = is64 ? 56 : 32;
  Bytes file(0x100, 0);
  const auto put = [&file](std::size_t at, std::uint64_t value, std::size_t size) {
    for (std::size_t i = 0; i < size; ++i) {
      file[at + i] = static_cast<std::uint8_t>(value >> (8 * i));
    }
  };
  const std::size_t word = is64 ? 8 : 4;
  file[0] = 0x7F, file[1] = 'E', file[2] = 'L', file[3] = 'F';
  file[4] = is64 ? 2 : 1, file[5] = data, file[6] = 1;
  put(16, 2, 2);                           // e_type: executable
  put(is64 ? 32 : 28, header_size, word);  // e_phoff
  put(is64 ? 52 : 40, header_size, 2);     // e_ehsize
  put(is64 ? 54 : 42, entry_size, 2);      // e_phentsize
  put(is64 ? 56 : 44, headers.size(), 2);  // e_phnum
  for (std::size_t index = 0; index < headers.size(); ++index) {
    const ProgramHeader& h = headers[index];
    const std::size_t at = header_size + index * entry_size;
    put(at, h.type, 4);
    // p_offset and the fields after it, each a word; p_flags comes first in ELF64 only.
    std::size_t field = at + (is64 ? 8 : 4);
    for (const std::uint64_t value : {h.offset, h.vaddr, h.paddr, h.file_size, h.memory_size}) {
      put(field, value, word);
      field += word;
    }
  }
  file.insert(file.end(), payload.begin(), payload.end());
  return file;
}

struct RefusalCase {
  const char* name;
  FirmwareFormat format;
  Bytes content;
  std::string error;
};

class Refusals : public testing::TestWithParam<RefusalCase> {};

TEST_P(Refusals, NameTheFileAndThePlace) {
  const RefusalCase& c = GetParam();
  const char* file_names[] = {"fw.bin", "fw.hex", "fw.srec", "fw.elf"};
  const FirmwareFileLoad load =
      parse_firmware_file(c.format, c.content, file_names[static_cast<int>(c.format)]);
  EXPECT_FALSE(load.file);
  EXPECT_EQ(load.error, c.error);
}

const Bytes SEGMENT_BYTES(16, 0xAB);
const Bytes ELF32_HEADER = elf_file(false, {}, {});
const std::string S1_AA = "S1040000AA51\n";

INSTANTIATE_TEST_SUITE_P(
    Files, Refusals,
    testing::Values(
        RefusalCase{"RawEmpty", raw, {}, "fw.bin: the file holds no firmware bytes"},
        RefusalCase{"HexChecksum", intel_hex,
                    bytes_of(":020000040800F2\n:0100000001FF\n:00000001FF\n"),
                    "fw.hex line 2: checksum mismatch"},
        RefusalCase{"HexShortLine", intel_hex, bytes_of(":0200000001\n"),
                    "fw.hex line 1: malformed record"},
        RefusalCase{"HexNoEnd", intel_hex, bytes_of(":0100000001FE\n"),
                    "fw.hex: no end-of-file record"},
        RefusalCase{"SrecChecksum", srecord, bytes_of("S0030000FC\nS1040000AA50\nS9030000FC\n"),
                    "fw.srec line 2: checksum mismatch"},
        RefusalCase{"SrecShortLine", srecord, bytes_of("S1040000AA\nS9030000FC\n"),
                    "fw.srec line 1: malformed record: its byte count does not match the line's "
                    "length"},
        RefusalCase{"SrecTrailingText", srecord, bytes_of("S1040000AA51 \nS9030000FC\n"),
                    "fw.srec line 1: malformed record: its byte count does not match the line's "
                    "length"},
        RefusalCase{"SrecNoTermination", srecord, bytes_of(S1_AA),
                    "fw.srec: no termination record (S7, S8 or S9)"},
        RefusalCase{"SrecWrongCount", srecord, bytes_of(S1_AA + "S5030002FA\nS9030000FC\n"),
                    "fw.srec line 2: the count record says 2 data records, the file has 1"},
        RefusalCase{"ElfTruncatedHeader", elf,
                    Bytes(ELF32_HEADER.begin(), ELF32_HEADER.begin() + 40),
                    "fw.elf: truncated ELF header: 40 bytes, 52 needed"},
        RefusalCase{"ElfBigEndian", elf, elf_file(false, {}, {}, 2),
                    "fw.elf: big-endian ELF files are not supported"},
        RefusalCase{
            "ElfSegmentPastFileEnd", elf,
            elf_file(false,
                     {{.offset = 0x108, .paddr = 0x08000000, .file_size = 16, .memory_size = 16}},
                     SEGMENT_BYTES),
            "fw.elf segment 0 at 0x08000000: its 16 bytes at file offset 264 lie past the "
            "end of the file (272 bytes)"},
        RefusalCase{
            "ElfFileSizeAboveMemorySize", elf,
            elf_file(false, {{.type = 6}, {.paddr = 0x08000100, .file_size = 16, .memory_size = 8}},
                     SEGMENT_BYTES),
            "fw.elf segment 1 at 0x08000100: file size 16 is above its memory size 8"},
        RefusalCase{"Elf64AddressAbove32Bits", elf,
                    elf_file(true, {{.paddr = 0xFFFFFFF8, .file_size = 16, .memory_size = 16}},
                             SEGMENT_BYTES),
                    "fw.elf segment 0 at 0xFFFFFFF8: its addresses do not fit 32 bits"}),
    [](const testing::TestParamInfo<RefusalCase>& info) { return std::string(info.param.name); });

constexpr FirmwareArea AREA{0x08000000, 512 * 1024};

struct PlacementCase {
  const char* name;
  FirmwareFile file;
  FirmwareArea area;
  Bytes image;  // empty: refused with `error`
  std::string error = {};
};

class Placement : public testing::TestWithParam<PlacementCase> {};

TEST_P(Placement, FillsGapsAndKeepsToTheArea) {
  const PlacementCase& c = GetParam();
  const PlacedFirmware placed = place_firmware(c.file, c.area);
  EXPECT_EQ(placed.image, c.image);
  EXPECT_EQ(placed.error, c.error);
}

INSTANTIATE_TEST_SUITE_P(
    Areas, Placement,
    testing::Values(
        // Gaps are erased flash; a later segment overwrites an earlier one.
        PlacementCase{"GapAndOverlap",
                      {intel_hex, {{0x08000002, {1, 2, 3}}, {0x08000003, {9}}}},
                      AREA,
                      {0xFF, 0xFF, 1, 9, 3}},
        PlacementCase{
            "EndsAtAreaEnd", {elf, {{0x08000003, {7}}}}, {0x08000000, 4}, {0xFF, 0xFF, 0xFF, 7}},
        PlacementCase{"PastAreaEnd",
                      {srecord, {{0x08000000, {1}}, {0x0807FFFE, {1, 2, 3}}}},
                      AREA,
                      {},
                      "the image reaches 0x08080000 (bytes 0x0807FFFE..0x08080000), past the end "
                      "of the device's firmware area 0x08000000..0x0807FFFF (512 KiB)"},
        PlacementCase{"BelowArea",
                      {elf, {{0x07FFFFFF, {1, 2}}}},
                      AREA,
                      {},
                      "bytes 0x07FFFFFF..0x08000000 lie below the start of the device's firmware "
                      "area 0x08000000..0x0807FFFF (512 KiB)"},
        // Addresses near the top of memory must not wrap past the check.
        PlacementCase{"AtTopOfMemory",
                      {elf, {{0xFFFFFFFF, {1, 2}}}},
                      {0xFFFFFF00, 0x100},
                      {},
                      "the image reaches 0x100000000 (bytes 0xFFFFFFFF..0x100000000), past the end "
                      "of the device's firmware area 0xFFFFFF00..0xFFFFFFFF (256 bytes)"},
        PlacementCase{
            "RawFromTheAreaStart", {raw, {{0, {1, 2, 3, 4}}}}, {0x08000000, 4}, {1, 2, 3, 4}},
        PlacementCase{"RawLargerThanArea",
                      {raw, {{0, {1, 2, 3, 4, 5}}}},
                      {0x08000000, 4},
                      {},
                      "the image is 5 bytes, more than the device's firmware area "
                      "0x08000000..0x08000003 (4 bytes) holds"}),
    [](const testing::TestParamInfo<PlacementCase>& info) { return std::string(info.param.name); });

TEST(FirmwareFile, FormatFromTheLastExtension) {
  const std::vector<std::pair<const char*, std::optional<FirmwareFormat>>> names{
      {"fw.bin", raw},       {"FW.HEX", intel_hex},     {"a.b/fw.Srec", srecord},
      {"fw.s19", srecord},   {"fw.S28", srecord},       {"fw.s37", srecord},
      {"fw.ELF", elf},       {"fw.bin.hex", intel_hex}, {"fw.hex.txt", std::nullopt},
      {"bin", std::nullopt}, {"fw.s29", std::nullopt},
  };
  for (const auto& [name, format] : names) {
    EXPECT_EQ(firmware_format_of(name), format) << name;
  }
}

// What the file system says reaches the message; a file above the bound is refused unread.
TEST(FirmwareFile, LoadNamesTheReason) {
  const std::filesystem::path folder =
      std::filesystem::path(testing::TempDir()) / "pelmo_firmware_file";
  std::filesystem::remove_all(folder);
  std::filesystem::create_directories(folder / "folder.bin");
  std::ofstream(folder / "fw.s19", std::ios::binary) << "S1040000AA51\r\nS9030000FC\r\n";
  std::ofstream(folder / "huge.bin", std::ios::binary).close();
  std::filesystem::resize_file(folder / "huge.bin", FIRMWARE_FILE_MAX_BYTES + 1);
  const auto load = [&folder](const char* name) {
    return load_firmware_file((folder / name).string());
  };
  const std::string prefix = (folder / "").string();
  EXPECT_EQ(load("none.bin").error, prefix + "none.bin: No such file or directory");
  EXPECT_EQ(load("fw.txt").error, prefix +
                                      "fw.txt: unknown firmware file type (the name must end "
                                      "in .bin, .hex, .srec, .s19, .s28, .s37 or .elf)");
  EXPECT_EQ(load("huge.bin").error,
            prefix + "huge.bin: the file is larger than 64 MiB, more than any firmware");
#ifndef _WIN32
  EXPECT_EQ(load("folder.bin").error, prefix + "folder.bin: Is a directory");
#endif
  const FirmwareFileLoad good = load("fw.s19");
  ASSERT_TRUE(good.file) << good.error;
  EXPECT_EQ(good.file->format, srecord);
  EXPECT_EQ(good.file->segments[0].bytes, Bytes{0xAA});
  std::filesystem::remove_all(folder);
}

}  // namespace
}  // namespace pelmo
