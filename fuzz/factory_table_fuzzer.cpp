// The factory table text readers on arbitrary text. A table that parses is printed in its file
// form, and that file must parse back to the same values. Text the strict check accepts reads the
// same under the lenient parser, and its table's text passes the check again with the same table.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "fuzz/fuzz_check.hpp"
#include "pelmo/formats/factory_table_text.hpp"

namespace {

// The bytes the file form carries: numbers, MAC, addresses in their form, flags, both texts up
// to their first zero byte.
pelmo::FactoryTable carried(pelmo::FactoryTable table) {
  std::memset(table.reserved0, 0, sizeof table.reserved0);
  std::memset(table.reserved1, 0, sizeof table.reserved1);
  for (char* text : {table.type, table.sn}) {  // a text ends at its first zero byte
    const std::size_t length = strnlen(text, 32);
    std::memset(text + length, 0, 32 - length);
  }
  if (table.ipv6 == 0) {  // four-number form: bytes 4 and 5 of each address are not printed
    for (std::uint8_t* address : {table.ip_addr, table.ip_mask, table.ip_gtw}) {
      address[4] = address[5] = 0;
    }
  }
  return table;
}

// A text the printer writes between double quotes comes back unchanged only when it holds no
// quote and no line end of its own.
bool quotes_cleanly(const char (&text)[32]) {
  return std::strpbrk(text, "\"\n") == nullptr;
}

bool same(const pelmo::FactoryTable& a, const pelmo::FactoryTable& b) {
  return std::memcmp(&a, &b, sizeof a) == 0;
}

void check_strictly(std::string_view text, pelmo::ResultCode lenient_result,
                    const pelmo::FactoryTable& lenient_table) {
  pelmo::FactoryTable table{};
  const pelmo::FactoryTextCheck check = pelmo::check_factory_table_text(text, table);
  FUZZ_CHECK(check.ok == check.message().empty());
  if (!check.ok) {
    // A fault names its line, or it is a key that never came.
    FUZZ_CHECK((check.line != 0) != (check.reason == "missing"));
    return;
  }
  FUZZ_CHECK(lenient_result == pelmo::RC_OK && same(table, lenient_table));
  const std::string written = pelmo::factory_table_text(table);
  pelmo::FactoryTable again{};
  FUZZ_CHECK(pelmo::check_factory_table_text(written, again).ok);
  FUZZ_CHECK(same(again, table));
  FUZZ_CHECK(pelmo::factory_table_text(again) == written);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  pelmo::FactoryTable table{};
  const pelmo::ResultCode result = pelmo::parse_factory_table(text, table);
  FUZZ_CHECK(result == pelmo::RC_OK || result == pelmo::RC_INCOMPLETE ||
             result == pelmo::RC_MISMATCH);
  FUZZ_CHECK(table.type[31] == 0 && table.sn[31] == 0);
  check_strictly(text, result, table);
  if (result != pelmo::RC_OK || !quotes_cleanly(table.type) || !quotes_cleanly(table.sn)) {
    return 0;
  }

  char* file_text = nullptr;
  std::size_t file_size = 0;
  std::FILE* file = open_memstream(&file_text, &file_size);
  pelmo::print_factory_table(table, nullptr, file);
  std::fclose(file);
  pelmo::FactoryTable again{};
  const pelmo::ResultCode reparsed =
      pelmo::parse_factory_table(std::string_view(file_text, file_size), again);
  std::free(file_text);
  FUZZ_CHECK(reparsed == pelmo::RC_OK);
  const pelmo::FactoryTable expected = carried(table);
  const pelmo::FactoryTable actual = carried(again);
  FUZZ_CHECK(std::memcmp(&expected, &actual, sizeof expected) == 0);
  return 0;
}
