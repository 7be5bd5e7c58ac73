#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <vector>

#include "protocol/bytes.hpp"

namespace pelmo {
namespace {

// Offsets into 4-aligned arrays give every combination of 4-, 2- and 1-byte alignment.
struct CopyCase {
  std::size_t destination_offset;
  std::size_t source_offset;
  std::uint16_t count;
};

class CopyMemory : public ::testing::TestWithParam<CopyCase> {};

TEST_P(CopyMemory, CopiesExactlyCountBytesAtAnyAlignment) {
  const CopyCase& c = GetParam();
  alignas(4) std::array<std::uint8_t, 64> source{};
  alignas(4) std::array<std::uint8_t, 64> destination{};
  for (std::size_t i = 0; i < source.size(); ++i) {
    source[i] = static_cast<std::uint8_t>(i + 1);
  }
  destination.fill(0xEE);
  ASSERT_EQ(copy_memory(destination.data() + c.destination_offset, source.data() + c.source_offset,
                        c.count),
            RC_OK);
  for (std::size_t i = 0; i < destination.size(); ++i) {
    const bool inside = i >= c.destination_offset && i < c.destination_offset + c.count;
    const std::uint8_t expected =
        inside ? source[i - c.destination_offset + c.source_offset] : std::uint8_t{0xEE};
    ASSERT_EQ(destination[i], expected) << "byte " << i;
  }
}

INSTANTIATE_TEST_SUITE_P(Bytes, CopyMemory,
                         ::testing::Values(CopyCase{0, 0, 12},  // 4-byte units
                                           CopyCase{0, 0, 6},   // 2-byte units
                                           CopyCase{2, 4, 8},   // 2-byte units by alignment
                                           CopyCase{0, 0, 13},  // odd count: bytes
                                           CopyCase{1, 0, 16},  // odd address: bytes
                                           CopyCase{4, 3, 20}, CopyCase{0, 0, 1},
                                           CopyCase{3, 1, 48}));

TEST(CopyMemoryFailures, ZeroCountAndNullPointersTouchNothing) {
  std::array<std::uint8_t, 4> source{1, 2, 3, 4};
  std::array<std::uint8_t, 4> destination{};
  EXPECT_EQ(copy_memory(destination.data(), source.data(), 0), RC_ZERO_LENGTH);
  EXPECT_EQ(copy_memory(nullptr, source.data(), 4), RC_NULL_POINTER);
  EXPECT_EQ(copy_memory(destination.data(), nullptr, 4), RC_NULL_POINTER);
  EXPECT_EQ(copy_memory(nullptr, nullptr, 0), RC_NULL_POINTER);  // pointers are checked first
  EXPECT_EQ(destination, (std::array<std::uint8_t, 4>{}));
}

class FillMemory : public ::testing::TestWithParam<std::pair<std::size_t, std::uint32_t>> {};

TEST_P(FillMemory, SetsCountBytesToTheLowByte) {
  const auto [offset, count] = GetParam();
  alignas(4) std::array<std::uint8_t, 136> area{};
  area.fill(0x11);
  ASSERT_EQ(fill_memory(area.data() + offset, 0xABCDEFA5u, count), RC_OK);
  for (std::size_t i = 0; i < area.size(); ++i) {
    const bool inside = i >= offset && i < offset + count;
    ASSERT_EQ(area[i], inside ? 0xA5 : 0x11) << "byte " << i;
  }
}

INSTANTIATE_TEST_SUITE_P(Bytes, FillMemory,
                         ::testing::Values(std::pair<std::size_t, std::uint32_t>{0, 120},
                                           std::pair<std::size_t, std::uint32_t>{1, 120},
                                           std::pair<std::size_t, std::uint32_t>{2, 6},
                                           std::pair<std::size_t, std::uint32_t>{4, 7},
                                           std::pair<std::size_t, std::uint32_t>{3, 0}));

TEST(FillMemoryFailures, NullPointer) {
  EXPECT_EQ(fill_memory(nullptr, 0, 4), RC_NULL_POINTER);
}

TEST(ByteOrderHelpers, StoreAndLoadBothOrders) {
  std::array<std::uint8_t, 4> bytes{};
  EXPECT_EQ(store_u32(ByteOrder::little, 0x12345678u, bytes.data()), 4u);
  EXPECT_EQ(bytes, (std::array<std::uint8_t, 4>{0x78, 0x56, 0x34, 0x12}));
  EXPECT_EQ(load_u32(ByteOrder::little, bytes.data()), 0x12345678u);
  EXPECT_EQ(load_u32(ByteOrder::big, bytes.data()), 0x78563412u);

  EXPECT_EQ(store_u32(ByteOrder::big, 0x12345678u, bytes.data()), 4u);
  EXPECT_EQ(bytes, (std::array<std::uint8_t, 4>{0x12, 0x34, 0x56, 0x78}));
  EXPECT_EQ(load_u32(ByteOrder::big, bytes.data()), 0x12345678u);

  EXPECT_EQ(store_u32(ByteOrder::little, 1, nullptr), 0u);
  EXPECT_EQ(load_u32(ByteOrder::big, nullptr), 0u);
}

}  // namespace
}  // namespace pelmo
