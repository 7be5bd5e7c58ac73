#include <gtest/gtest.h>

#include "protocol/crc32.hpp"
#include "sim_test_support.hpp"
#include "simulator/device_status.hpp"

namespace pelmo::sim::test {
namespace {

constexpr std::uint16_t UDP_STEP = 1008;

// Writes `image` the way the host does: probe, blocks padded to 8-byte units, end.
void write_firmware(Bench& bench, const Bytes& image) {
  ASSERT_EQ(STATUS_OK, bench.ask(CommandCode::CMD_BEGIN_WRITE).status);
  for (std::size_t offset = 0; offset < image.size(); offset += UDP_STEP) {
    const std::size_t length = std::min<std::size_t>(UDP_STEP, image.size() - offset);
    Bytes block(image.begin() + offset, image.begin() + offset + length);
    block.resize((length + 7) / 8 * 8, 0xFF);
    const Answer ack = bench.ask(CommandCode::CMD_WRITE_FW, static_cast<std::uint32_t>(offset),
                                 static_cast<std::uint16_t>(block.size()), block);
    ASSERT_EQ(STATUS_OK, ack.status);
    ASSERT_EQ(offset, ack.address);
    ASSERT_TRUE(ack.payload.empty());
  }
  ASSERT_EQ(STATUS_OK, bench.ask(CommandCode::CMD_END_FW).status);
}

Bytes read_area(Bench& bench, CommandCode code, std::uint16_t chunk) {
  Bytes data;
  for (int guard = 0; guard < 10000; ++guard) {
    const Answer answer = bench.ask(code, static_cast<std::uint32_t>(data.size()), chunk);
    EXPECT_EQ(RC_OK, answer.decoded);
    if (answer.status == STATUS_OUT_OF_RANGE) {
      EXPECT_EQ(data.size(), answer.address);
      return data;
    }
    EXPECT_EQ(STATUS_OK, answer.status);
    EXPECT_EQ(data.size(), answer.address);
    EXPECT_LE(answer.payload.size(), chunk);
    data.insert(data.end(), answer.payload.begin(), answer.payload.end());
  }
  ADD_FAILURE() << "read never ended";
  return data;
}

Bytes sealed(Bytes image) {
  store_u32(ByteOrder::little, static_cast<std::uint32_t>(image.size()), image.data());
  store_u32(ByteOrder::little, crc32_mpeg2(std::span(image).subspan(8)), image.data() + 4);
  return image;
}

TEST(Device, FirmwareRoundTripSealsSizeAndCrcIntoTheHeader) {
  Bench bench;
  const Bytes image = firmware_image(3000);
  ASSERT_EQ(STATUS_OK, bench.ask(CommandCode::CMD_ERASE_FW).status);
  write_firmware(bench, image);

  for (std::size_t offset = 8; offset < image.size(); offset += UDP_STEP) {
    const std::size_t length = std::min<std::size_t>(UDP_STEP, image.size() - offset);
    const Bytes block(image.begin() + offset, image.begin() + offset + length);
    const Answer ack = bench.ask(CommandCode::CMD_VERIFY_FW, static_cast<std::uint32_t>(offset),
                                 static_cast<std::uint16_t>(length), block);
    EXPECT_EQ(STATUS_OK, ack.status) << offset;
    EXPECT_EQ(offset, ack.address);
  }
  EXPECT_EQ(sealed(image), read_area(bench, CommandCode::CMD_READ_FW, 1012));
  EXPECT_EQ(sealed(image), read_area(bench, CommandCode::CMD_READ_FW, 244));

  const Answer info = bench.ask(CommandCode::CMD_FW_INFO);
  ASSERT_EQ(STATUS_OK, info.status);
  EXPECT_EQ(0u, info.address);
  const Bytes stored = sealed(image);
  EXPECT_EQ(Bytes(stored.begin(), stored.begin() + 96), info.payload);
}

TEST(Device, FirmwareInformationStatuses) {
  const Bytes good = sealed(firmware_image(512));
  Bytes foreign_magic = good;
  foreign_magic[20] ^= 1;
  Bytes wrong_crc = good;
  wrong_crc[4] ^= 0xFF;
  Bytes changed_content = good;
  changed_content[300] ^= 0x10;
  Bytes size_past_content = good;
  store_u32(ByteOrder::little, 513, size_past_content.data());
  const Bytes header_only(good.begin(), good.begin() + 95);

  const struct {
    const char* name;
    Bytes stored;
    std::uint8_t status;
  } cases[] = {
      {"erased", {}, STATUS_BAD_HEADER},
      {"shorter than the header", header_only, STATUS_BAD_HEADER},
      {"foreign magic", foreign_magic, STATUS_BAD_HEADER},
      {"stored CRC wrong", wrong_crc, STATUS_BAD_CRC},
      {"content changed", changed_content, STATUS_BAD_CRC},
      {"size past the content", size_past_content, STATUS_BAD_CRC},
      {"valid", good, STATUS_OK},
  };
  for (const auto& c : cases) {
    Bench bench;
    ASSERT_TRUE(bench.device.load_area(Area::firmware, c.stored));
    const Answer info = bench.ask(CommandCode::CMD_FW_INFO);
    EXPECT_EQ(c.status, info.status) << c.name;
    EXPECT_EQ(c.status == STATUS_OK ? 96u : 0u, info.payload.size()) << c.name;
  }
}

TEST(Device, BlockStatusesAtTheLimitsAndOnDifferences) {
  DeviceConfig config;
  config.fw_max_size = 1024;
  config.calib_max_size = 100;
  Bench bench(config);
  const Bytes eight(8, 0x11);
  ASSERT_EQ(STATUS_OK, bench.ask(CommandCode::CMD_WRITE_CALIB, 92, 8, eight).status);

  const struct {
    const char* name;
    CommandCode code;
    std::uint32_t address;
    Bytes payload;
    std::uint8_t status;
  } cases[] = {
      {"calib write reaching the limit", CommandCode::CMD_WRITE_CALIB, 92, eight, STATUS_OK},
      {"calib write past the limit", CommandCode::CMD_WRITE_CALIB, 93, eight, STATUS_OUT_OF_RANGE},
      {"calib verify equal", CommandCode::CMD_VERIFY_CALIB, 92, eight, STATUS_OK},
      {"calib verify different", CommandCode::CMD_VERIFY_CALIB, 92, Bytes(8, 0x12),
       STATUS_DIFFERENT},
      {"calib verify past the limit", CommandCode::CMD_VERIFY_CALIB, 96, eight,
       STATUS_OUT_OF_RANGE},
      {"erased backup verifies as 0xFF", CommandCode::CMD_VERIFY_CALIB_BACKUP, 0, Bytes(8, 0xFF),
       STATUS_OK},
      {"factory write past 120", CommandCode::CMD_WRITE_FACTORY, 113, eight, STATUS_OUT_OF_RANGE},
      {"firmware write at the end", CommandCode::CMD_WRITE_FW, 1016, eight, STATUS_OK},
      {"firmware write past the limit", CommandCode::CMD_WRITE_FW, 1024, eight,
       STATUS_OUT_OF_RANGE},
      {"firmware block of 5 bytes", CommandCode::CMD_WRITE_FW, 0, Bytes(5, 1),
       STATUS_BAD_ALIGNMENT},
      {"firmware block at offset 4", CommandCode::CMD_WRITE_FW, 4, eight, STATUS_BAD_ALIGNMENT},
  };
  for (const auto& c : cases) {
    const Answer answer =
        bench.ask(c.code, c.address, static_cast<std::uint16_t>(c.payload.size()), c.payload);
    EXPECT_EQ(c.status, answer.status) << c.name;
    EXPECT_EQ(c.address, answer.address) << c.name;
    EXPECT_TRUE(answer.payload.empty()) << c.name;
  }
}

TEST(Device, ReadsAnswerWhatIsAskedUntilTheStoredLengthThenEndOfData) {
  Bench bench;
  Bytes table(300);
  for (std::size_t i = 0; i < table.size(); ++i) {
    table[i] = static_cast<std::uint8_t>(i);
  }
  ASSERT_TRUE(bench.device.load_area(Area::calib, table));
  const struct {
    std::uint32_t address;
    std::uint16_t asked;
    std::uint8_t status;
    std::size_t answered;
  } cases[] = {
      {0, 244, STATUS_OK, 244},
      {244, 244, STATUS_OK, 56},
      {299, 10, STATUS_OK, 1},
      {0, 0, STATUS_OK, 0},
      {300, 244, STATUS_OUT_OF_RANGE, 0},
      {5000, 1, STATUS_OUT_OF_RANGE, 0},
  };
  for (const auto& c : cases) {
    const Answer answer = bench.ask(CommandCode::CMD_READ_CALIB, c.address, c.asked);
    EXPECT_EQ(c.status, answer.status) << c.address;
    EXPECT_EQ(c.address, answer.address);
    ASSERT_EQ(c.answered, answer.payload.size()) << c.address;
    EXPECT_TRUE(
        std::equal(answer.payload.begin(), answer.payload.end(), table.begin() + c.address));
  }
  EXPECT_EQ(STATUS_OUT_OF_RANGE, bench.ask(CommandCode::CMD_READ_CALIB_BACKUP, 0, 244).status);

  // Erase makes the area empty again.
  ASSERT_EQ(STATUS_OK, bench.ask(CommandCode::CMD_ERASE_CALIB).status);
  EXPECT_EQ(STATUS_OUT_OF_RANGE, bench.ask(CommandCode::CMD_READ_CALIB, 0, 244).status);
  EXPECT_EQ(STATUS_OK, bench.ask(CommandCode::CMD_VERIFY_CALIB, 0, 4, Bytes(4, 0xFF)).status);
}

TEST(Device, ReadChunkOptionOverridesTheAskedLength) {
  DeviceConfig config;
  config.read_chunk = 50;
  Bench bench(config);
  ASSERT_TRUE(bench.device.load_area(Area::factory, Bytes(120, 0xAB)));
  const Bytes read = read_area(bench, CommandCode::CMD_READ_FACTORY, 244);
  EXPECT_EQ(Bytes(120, 0xAB), read);
  // 50 + 50 + 20, then the end.
  EXPECT_EQ(8u, bench.log_lines().size());
}

TEST(Device, RecordsAndControl) {
  DeviceConfig config;
  config.fw_address = 0x08004000;
  config.fw_max_size = 0x20000;
  config.bl_version_major = 3;
  config.bl_version_minor = 5;
  config.bl_name = "Test Boot";
  config.bl_compile_date = "Feb  2 2026";
  config.bl_compile_time = "08:09:10";
  Bench bench(config);

  const Answer boot = bench.ask(CommandCode::CMD_BOOTLOADER_INFO);
  ASSERT_EQ(BOOTLOADER_INFO_SIZE, boot.payload.size());
  const BootloaderInfo info =
      bootloader_info_from_wire(std::span<const std::uint8_t, BOOTLOADER_INFO_SIZE>(boot.payload));
  EXPECT_EQ(0x08004000u, info.fw_address);
  EXPECT_EQ(0x20000u, info.fw_max_size);
  EXPECT_EQ(3, info.version_major);
  EXPECT_EQ(5, info.version_minor);
  EXPECT_EQ("Test Boot", field_text(info.name));
  EXPECT_EQ("Feb  2 2026", field_text(info.compile_date));
  EXPECT_EQ("08:09:10", field_text(info.compile_time));

  const auto reset_count = [&] {
    const Answer control = bench.ask(CommandCode::CMD_READ_CONTROL);
    EXPECT_EQ(CONTROL_RECORD_SIZE, control.payload.size());
    const ControlRecord record = control_record_from_wire(
        std::span<const std::uint8_t, CONTROL_RECORD_SIZE>(control.payload));
    EXPECT_EQ(1, record.struct_version);
    return record.reset_count;
  };
  EXPECT_EQ(0, reset_count());
  for (int i = 0; i < 3; ++i) {
    const Answer restart = bench.ask(CommandCode::CMD_RESTART);
    EXPECT_EQ(STATUS_OK, restart.status);
    EXPECT_TRUE(restart.payload.empty());
  }
  EXPECT_EQ(3, reset_count());
  EXPECT_EQ(STATUS_OK, bench.ask(CommandCode::CMD_CLEAR_CONTROL).status);
  EXPECT_EQ(0, reset_count());
}

TEST(Device, AcknowledgementsAreByteExact) {
  Bench bench;
  const auto out = bench.send(CommandCode::CMD_WRITE_CALIB, 0x0123, 4, Bytes{1, 2, 3, 4});
  ASSERT_EQ(1u, out.size());
  Bytes expected = {0xBA, 0x00, 0x23, 0x01, 0x00, 0x00, 0x00, 0x00};
  const std::uint32_t crc = crc32_mpeg2(expected);
  for (int i = 0; i < 4; ++i) {
    expected.push_back(static_cast<std::uint8_t>(crc >> (8 * i)));
  }
  EXPECT_EQ(expected, out.front().bytes);

  // A code that is no command is refused with the address echoed.
  const auto unknown = bench.responder.on_frame([] {
    Bytes frame(12);
    encode_frame(Direction::request, 0x55, 7, 0, nullptr, frame);
    return frame;
  }());
  ASSERT_EQ(1u, unknown.size());
  const Answer answer = decode_answer(unknown.front().bytes);
  EXPECT_EQ(STATUS_UNKNOWN_COMMAND, answer.status);
  EXPECT_EQ(7u, answer.address);
}

}  // namespace
}  // namespace pelmo::sim::test
