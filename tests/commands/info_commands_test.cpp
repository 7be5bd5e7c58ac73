#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <tuple>
#include <utility>
#include <vector>

#include "pelmo/commands/info_commands.hpp"
#include "tests/commands/command_test_support.hpp"

namespace pelmo {
namespace {

using namespace test_support;
using Bytes = std::vector<std::uint8_t>;
using Reader = std::function<std::pair<ResultCode, Bytes>(const LinkDriver*)>;

// Reads into a record whose bytes start as 0x3C; gives the result and the record's bytes after.
template <typename Record>
Reader into(ResultCode (*read)(const LinkDriver*, Record&)) {
  return [read](const LinkDriver* link) {
    Record record;
    std::memset(&record, 0x3C, sizeof record);
    const ResultCode rc = read(link, record);
    const auto wire = to_wire(record);
    return std::pair{rc, Bytes(wire.begin(), wire.end())};
  };
}

// Actions have no record.
Reader action(ResultCode (*run)(const LinkDriver*)) {
  return [run](const LinkDriver* link) { return std::pair{run(link), Bytes{}}; };
}

TEST(Records, CopiesAndLengthChecks) {
  // reader, payload size, result
  for (const auto& [reader, size, rc] : std::vector<std::tuple<Reader, std::size_t, ResultCode>>{
           {into(read_firmware_info), 96, RC_OK},
           {into(read_firmware_info), 95, RC_MISMATCH},
           {into(read_firmware_info), 97, RC_MISMATCH},
           {into(read_bootloader_info), 76, RC_OK},
           {into(read_bootloader_info), 77, RC_MISMATCH},
           // The control record takes up to 76 bytes, zero behind a shorter answer.
           {into(read_control), 10, RC_OK},
           {into(read_control), 100, RC_OK},
           {action(clear_control), 0, RC_OK},
           {action(clear_control), 1, RC_MISMATCH},
           {action(restart_device), 1, RC_MISMATCH}}) {
    ScriptedDevice device;
    const Bytes payload = pattern(size, 17);
    device.then(answer(0, 0, payload));
    const auto [result, record] = reader(device.driver());
    EXPECT_EQ(result, rc) << size;
    // A failed read leaves the record as the caller gave it.
    Bytes expected(record.size(), rc == RC_OK ? 0x00 : 0x3C);
    std::copy_n(payload.begin(), rc == RC_OK ? std::min(size, record.size()) : 0, expected.begin());
    EXPECT_EQ(record, expected) << size;
    EXPECT_EQ(device.progress_calls(), 0);
  }
}

}  // namespace
}  // namespace pelmo
