#include "pelmo/formats/elf_file.hpp"

#include <string>

namespace pelmo {
namespace {

// Where the fields this reader needs lie in each class's file and program headers.
struct ElfLayout {
  std::size_t header_size;
  std::size_t phoff, phoff_size;  // e_phoff: offset of the program header table
  std::size_t ehsize;             // e_ehsize (2 bytes)
  std::size_t phentsize;          // e_phentsize (2 bytes)
  std::size_t phnum;              // e_phnum (2 bytes)
  std::size_t entry_size;         // the least a program header takes
  std::size_t word;               // size of p_offset, p_paddr, p_filesz, p_memsz
  std::size_t p_offset, p_paddr, p_filesz, p_memsz;
};
constexpr ElfLayout ELF32{52, 28, 4, 40, 42, 44, 32, 4, 4, 12, 16, 20};
constexpr ElfLayout ELF64{64, 32, 8, 52, 54, 56, 56, 8, 8, 24, 32, 40};

constexpr std::uint8_t ELF_CLASS_32 = 1;
constexpr std::uint8_t ELF_CLASS_64 = 2;
constexpr std::uint8_t ELF_DATA_LITTLE = 1;
constexpr std::uint8_t ELF_DATA_BIG = 2;
constexpr std::uint8_t ELF_CURRENT_VERSION = 1;
constexpr std::uint32_t PT_LOAD = 1;
constexpr std::uint16_t PN_XNUM = 0xFFFF;  // the real count is elsewhere: too many for firmware

// A little-endian field of `size` bytes at `offset`; the caller has checked it lies in `bytes`.
std::uint64_t field(std::span<const std::uint8_t> bytes, std::size_t offset, std::size_t size) {
  std::uint64_t value = 0;
  for (std::size_t index = size; index-- > 0;) {
    value = (value << 8) | bytes[offset + index];
  }
  return value;
}

SegmentRead refuse(std::string error) {
  return {{}, {}, std::move(error)};
}

}  // namespace

SegmentRead read_elf_segments(std::span<const std::uint8_t> content, std::size_t max_bytes) {
  constexpr std::size_t IDENT_SIZE = 16;
  if (content.size() < IDENT_SIZE || content[0] != 0x7F || content[1] != 'E' || content[2] != 'L' ||
      content[3] != 'F') {
    return refuse("not an ELF file");
  }
  const std::uint8_t elf_class = content[4];
  if (elf_class != ELF_CLASS_32 && elf_class != ELF_CLASS_64) {
    return refuse("unsupported ELF class " + std::to_string(elf_class) +
                  " (only 32- and 64-bit files are read)");
  }
  if (content[5] == ELF_DATA_BIG) {
    return refuse("big-endian ELF files are not supported");
  }
  if (content[5] != ELF_DATA_LITTLE || content[6] != ELF_CURRENT_VERSION) {
    return refuse("unsupported ELF data encoding or version");
  }
  const ElfLayout& layout = elf_class == ELF_CLASS_32 ? ELF32 : ELF64;
  if (content.size() < layout.header_size) {
    return refuse("truncated ELF header: " + std::to_string(content.size()) + " bytes, " +
                  std::to_string(layout.header_size) + " needed");
  }
  const std::uint64_t table = field(content, layout.phoff, layout.phoff_size);
  const std::uint64_t entry_size = field(content, layout.phentsize, 2);
  const std::uint64_t entries = field(content, layout.phnum, 2);
  if (field(content, layout.ehsize, 2) < layout.header_size) {
    return refuse("ELF header size " + std::to_string(field(content, layout.ehsize, 2)) +
                  " is below " + std::to_string(layout.header_size));
  }
  if (entries == PN_XNUM) {
    return refuse("too many program headers");
  }
  if (entries != 0 && entry_size < layout.entry_size) {
    return refuse("program header size " + std::to_string(entry_size) + " is below " +
                  std::to_string(layout.entry_size));
  }
  // Both counts are 16-bit, so their product cannot overflow.
  if (table > content.size() || entries * entry_size > content.size() - table) {
    return refuse("the program header table lies past the end of the file");
  }

  SegmentRead read;
  SegmentBuilder builder(max_bytes);
  for (std::uint64_t index = 0; index < entries; ++index) {
    const auto entry = content.subspan(table + index * entry_size, layout.entry_size);
    if (field(entry, 0, 4) != PT_LOAD) {
      continue;
    }
    const std::uint64_t offset = field(entry, layout.p_offset, layout.word);
    const std::uint64_t address = field(entry, layout.p_paddr, layout.word);
    const std::uint64_t file_size = field(entry, layout.p_filesz, layout.word);
    const std::uint64_t memory_size = field(entry, layout.p_memsz, layout.word);
    if (file_size == 0) {
      continue;  // zero-initialised memory only
    }
    const auto fail = [&](std::string error) {
      read.where = "segment " + std::to_string(index) + " at " + address_text(address);
      read.error = std::move(error);
      read.segments.clear();
      return std::move(read);
    };
    if (file_size > memory_size) {
      return fail("file size " + std::to_string(file_size) + " is above its memory size " +
                  std::to_string(memory_size));
    }
    if (offset > content.size() || file_size > content.size() - offset) {
      return fail("its " + std::to_string(file_size) + " bytes at file offset " +
                  std::to_string(offset) + " lie past the end of the file (" +
                  std::to_string(content.size()) + " bytes)");
    }
    if (address > 0xFFFFFFFFu || file_size > 0x100000000u - address) {
      return fail("its addresses do not fit 32 bits");
    }
    if (!builder.add(static_cast<std::uint32_t>(address), content.subspan(offset, file_size))) {
      return fail("more data than a firmware file may hold");
    }
  }
  read.segments = builder.take();
  return read;
}

}  // namespace pelmo
