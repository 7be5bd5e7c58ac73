#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "app/operation_handlers.hpp"
#include "commands/records.hpp"
#include "tests/app/captured_console.hpp"
#include "tests/support/scripted_device.hpp"

namespace pelmo {
namespace {

using enum Operation;
using test_support::ack;
using test_support::answer;
using test_support::RequestHeader;
using test_support::silence;

template <std::size_t N>
void set_text(char (&field)[N], std::string_view text) {
  std::memset(field, 0, N);
  std::memcpy(field, text.data(), std::min(N, text.size()));
}

std::string status_line(std::string_view label, std::string_view status) {
  return "\r" + std::string(label) + "\r" + std::string(label) + std::string(status);
}

// Runs handlers the way the run sequence does, against a scripted device.
class Handlers : public testing::Test {
 protected:
  Handlers() { captured.console().begin_status("", false); }

  ResultCode run(Operation operation, const std::string& file = {}) {
    line.operation = operation;
    line.file_name = file.empty() ? std::string{} : dir.path(file);
    RunContext context{captured.console(), device.driver(), image, line, records};
    return run_operation(context);
  }

  std::vector<std::uint8_t> codes() const { return codes_of(device); }

  static std::vector<std::uint8_t> codes_of(const test_support::ScriptedDevice& scripted) {
    std::vector<std::uint8_t> sent;
    for (const auto& request : scripted.requests()) {
      sent.push_back(request.code);
    }
    return sent;
  }

  struct Outcome {
    ResultCode result;
    std::string console;  // "%s" in an expectation stands for the file's path: see expand()
    std::vector<std::uint8_t> codes;
  };

  // One handler run on a console and device of its own, so that tables of cases stay apart.
  Outcome run_alone(Operation operation, const std::string& file,
                    std::vector<test_support::Reply> script = {}) {
    app_test::CapturedConsole fresh;
    fresh.console().begin_status("", false);
    test_support::ScriptedDevice scripted;
    scripted.script(std::move(script));
    line.operation = operation;
    line.file_name = dir.path(file);
    RunContext context{fresh.console(), scripted.driver(), image, line, records};
    const ResultCode result = run_operation(context);
    return {result, fresh.text(), codes_of(scripted)};
  }

  std::string expand(std::string text) const {
    if (const auto at = text.find("%s"); at != std::string::npos) {
      text.replace(at, 2, line.file_name);
    }
    return text;
  }

  app_test::CapturedConsole captured;
  test_support::ScriptedDevice device;
  app_test::TempDir dir;
  std::vector<std::uint8_t> image = std::vector<std::uint8_t>(IMAGE_BUFFER_SIZE);
  CommandLine line;
  RunRecords records;
};

// --- information and control -------------------------------------------------------------

FirmwareInfo sample_firmware(bool debug_markers, std::uint32_t magic) {
  FirmwareInfo info{};
  info.size = 1000;
  info.crc32 = 0x0A0B0C0D;
  info.magic = magic;
  if (debug_markers) {
    info.debug_marker1 = DEBUG_MARKER1;
    info.debug_marker2 = DEBUG_MARKER2;
    info.debug_marker3 = DEBUG_MARKER3;
  }
  info.version_major = 1;
  info.version_minor = 2;
  info.version_patch = 3;
  set_text(info.name, "AppFw");
  set_text(info.compile_date, "Jan  2 2025");
  set_text(info.compile_time, "10:11:12");
  return info;
}

constexpr std::string_view FW_INFO_LABEL = "Reading FW information ";

struct FirmwareDisplay {
  const char* name;
  bool debug_markers;
  std::uint32_t magic;
  const char* display;
};

class FirmwareInfoDisplay : public Handlers, public testing::WithParamInterface<FirmwareDisplay> {};

TEST_P(FirmwareInfoDisplay, ShowsTheRecord) {
  const auto wire = to_wire(sample_firmware(GetParam().debug_markers, GetParam().magic));
  device.then(answer(0, 0, wire));
  EXPECT_EQ(run(OP_READ_FIRMWARE_INFO), RC_OK);
  EXPECT_EQ(captured.text(),
            status_line(FW_INFO_LABEL, "OK            \n") + std::string(GetParam().display));
}

INSTANTIATE_TEST_SUITE_P(
    Info, FirmwareInfoDisplay,
    testing::Values(
        FirmwareDisplay{
            "Release", false, FIRMWARE_MAGIC,
            "Name:       AppFw\nVersion:    1.02.003\nCompiled:   Jan  2 2025 10:11:12\n"
            "Size:       1000\nCRC32:      0x0A0B0C0D\n"},
        FirmwareDisplay{"Debug", true, FIRMWARE_MAGIC,
                        "Name:       AppFw\nVersion:    1.02.003 (DEBUG)\n"
                        "Compiled:   Jan  2 2025 10:11:12\n"},
        FirmwareDisplay{
            "MarkersWithoutMagic", true, 0x136AA630,
            "Name:       AppFw\nVersion:    1.02.003\nCompiled:   Jan  2 2025 10:11:12\n"
            "Size:       1000\nCRC32:      0x0A0B0C0D\n"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(Handlers, FirmwareInfoTextFieldsStopAtTheirEnd) {
  FirmwareInfo info = sample_firmware(true, FIRMWARE_MAGIC);
  std::memset(info.name, 'N', sizeof info.name);
  std::memset(info.compile_date, 'D', sizeof info.compile_date);
  std::memset(info.compile_time, 'T', sizeof info.compile_time);
  device.then(answer(0, 0, to_wire(info)));
  EXPECT_EQ(run(OP_READ_FIRMWARE_INFO), RC_OK);
  EXPECT_EQ(captured.text(),
            status_line(FW_INFO_LABEL, "OK            \n") + "Name:       " + std::string(32, 'N') +
                "\nVersion:    1.02.003 (DEBUG)\n" + "Compiled:   " + std::string(16, 'D') + " " +
                std::string(16, 'T') + "\n");
}

TEST_F(Handlers, FirmwareInfoLabelAppearsOnlyAfterTheRequest) {
  std::string console_at_request = "unset";
  device.respond_with([&](const test_support::SentRequest&) {
    console_at_request = captured.text();
    return silence();
  });
  run(OP_READ_FIRMWARE_INFO);
  EXPECT_EQ(console_at_request, "");
}

struct FirmwareFailure {
  const char* name;
  test_support::Reply reply;
  ResultCode result;
  const char* explanation;
};

class FirmwareInfoFailure : public Handlers, public testing::WithParamInterface<FirmwareFailure> {};

TEST_P(FirmwareInfoFailure, ExplainsTheResult) {
  device.respond_with([reply = GetParam().reply](const auto&) { return reply; });
  records.firmware_info.size = 77;  // left over from nothing: the handler clears the record
  EXPECT_EQ(run(OP_READ_FIRMWARE_INFO), GetParam().result);
  EXPECT_EQ(captured.text(),
            status_line(FW_INFO_LABEL, "Error         \n") + GetParam().explanation);
  EXPECT_EQ(records.firmware_info.size, 0u);
}

const std::vector<std::uint8_t> SHORT_RECORD(95, 0);

INSTANTIATE_TEST_SUITE_P(
    Info, FirmwareInfoFailure,
    testing::Values(FirmwareFailure{"BadHeader", answer(0xFA, 0), RC_BAD_HEADER,
                                    "Firmware is not valid, invalid FW header\n"},
                    FirmwareFailure{"BadCrc", answer(0xF9, 0), RC_BAD_CRC,
                                    "Firmware is not valid, invalid FW CRC\n"},
                    FirmwareFailure{"Silence", silence(), RC_TIMEOUT, "\nReceive timeout\n"},
                    FirmwareFailure{"DeviceStatus", answer(0x05, 0), -251, "Error code: (-251)\n"},
                    FirmwareFailure{"ShortRecord", answer(0, 0, SHORT_RECORD), RC_MISMATCH,
                                    "Error code: (-11)\n"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(Handlers, BootloaderInfoDisplay) {
  BootloaderInfo info{};
  info.fw_address = 0x08004000;
  info.fw_max_size = 0x000FC000;
  info.version_major = 2;
  info.version_minor = 5;
  set_text(info.name, "Boot");
  set_text(info.compile_date, "Feb  3 2024");
  set_text(info.compile_time, "08:09:10");
  device.then(answer(0, 0, to_wire(info)));
  EXPECT_EQ(run(OP_READ_BOOTLOADER_INFO), RC_OK);
  EXPECT_EQ(captured.text(), status_line("Reading bootloader information ", "OK            \n") +
                                 "Name:        Boot\nVersion:     2.05\n"
                                 "Compiled:    Feb  3 2024 08:09:10\n" +
                                 std::string(39, '-') +
                                 "\nFW Address:  08004000\nFW Max.size: 000FC000\n");
}

TEST_F(Handlers, ControlRecordDisplay) {
  const std::vector<std::uint8_t> payload{0x01, 0x00, 0x02, 0x00, 0x07, 0x01};
  device.then(answer(0, 0, payload));
  EXPECT_EQ(run(OP_READ_CONTROL), RC_OK);
  EXPECT_EQ(captured.text(), status_line("Reading PELMO Control ", "OK            \n") +
                                 "Struct version:    2\nReset count:       7\n");
}

// Operations of one step that moves no data: the label, the request and both statuses.
struct SingleStep {
  Operation operation;
  std::uint8_t code;
  const char* label;
  const char* ok;
  const char* error;
};

class SingleStepOperation : public Handlers, public testing::WithParamInterface<SingleStep> {};

TEST_P(SingleStepOperation, ReportsOk) {
  device.respond_with(test_support::acknowledge_all());
  EXPECT_EQ(run(GetParam().operation), RC_OK);
  EXPECT_EQ(captured.text(), status_line(GetParam().label, GetParam().ok));
  EXPECT_EQ(codes(), std::vector<std::uint8_t>{GetParam().code});
}

TEST_P(SingleStepOperation, ReportsTheDeviceStatusAsError) {
  device.then(answer(0x01, 0));
  EXPECT_EQ(run(GetParam().operation), -255);
  EXPECT_EQ(captured.text(), status_line(GetParam().label, GetParam().error));
}

INSTANTIATE_TEST_SUITE_P(
    Steps, SingleStepOperation,
    testing::Values(
        SingleStep{OP_CLEAR_CONTROL, 0x4E, "Clearing PELMO Control ", "OK          \n",
                   "Error       \n"},
        SingleStep{OP_RESTART, 0x4F, "Restarting target device ", "OK          \n",
                   "Error       \n"},
        SingleStep{OP_ERASE_FIRMWARE, 0x44, "Erasing FW ", "OK        \n", "Error     \n"},
        SingleStep{OP_ERASE_FACTORY, 0x41, "Erasing factory table ", "OK        \n",
                   "Error     \n"},
        SingleStep{OP_ERASE_CALIBRATION, 0x42, "Erasing calibration table ", "OK         \n",
                   "Error      \n"},
        SingleStep{OP_ERASE_CALIBRATION_BACKUP, 0x43, "Erasing backup calibration table ",
                   "OK         \n", "Error      \n"}));

TEST(HandlerTable, EveryOptionHasAHandlerAndUnknownCodesHaveNone) {
  for (const Operation operation : {OP_READ_CALIBRATION,
                                    OP_READ_CALIBRATION_BACKUP,
                                    OP_READ_FACTORY,
                                    OP_READ_FIRMWARE,
                                    OP_WRITE_CALIBRATION,
                                    OP_WRITE_CALIBRATION_BACKUP,
                                    OP_WRITE_FACTORY,
                                    OP_WRITE_FIRMWARE,
                                    OP_VERIFY_CALIBRATION,
                                    OP_VERIFY_CALIBRATION_BACKUP,
                                    OP_VERIFY_FACTORY,
                                    OP_VERIFY_FIRMWARE,
                                    OP_ERASE_CALIBRATION,
                                    OP_ERASE_CALIBRATION_BACKUP,
                                    OP_ERASE_FACTORY,
                                    OP_ERASE_FIRMWARE,
                                    OP_ERASE_WRITE_VERIFY_CALIBRATION,
                                    OP_ERASE_WRITE_VERIFY_CALIBRATION_BACKUP,
                                    OP_ERASE_WRITE_VERIFY_FACTORY,
                                    OP_ERASE_WRITE_VERIFY_FIRMWARE,
                                    OP_READ_FIRMWARE_INFO,
                                    OP_READ_BOOTLOADER_INFO,
                                    OP_CLEAR_CONTROL,
                                    OP_READ_CONTROL,
                                    OP_RESTART}) {
    EXPECT_NE(find_handler(operation), nullptr) << operation_code(operation);
  }
  EXPECT_EQ(find_handler(static_cast<Operation>(5)), nullptr);
}

TEST_F(Handlers, OperationWithoutHandlerFails) {
  EXPECT_EQ(run(static_cast<Operation>(50)), RC_FAILED);
  EXPECT_EQ(captured.text(), "");
  EXPECT_TRUE(device.requests().empty());
}

// --- firmware ------------------------------------------------------------------------------

std::vector<std::uint8_t> pattern(std::size_t size) {
  std::vector<std::uint8_t> bytes(size);
  for (std::size_t i = 0; i < size; ++i) {
    bytes[i] = static_cast<std::uint8_t>(i * 7 + 1);
  }
  return bytes;
}

std::string as_text(const std::vector<std::uint8_t>& bytes) {
  return std::string(bytes.begin(), bytes.end());
}

TEST_F(Handlers, ReadFirmwareWritesTheFile) {
  const auto firmware = pattern(600);
  device.respond_with(test_support::serve_area(firmware));
  EXPECT_EQ(run(OP_READ_FIRMWARE, "out.bin"), RC_OK);
  EXPECT_EQ(captured.text(), status_line("Reading FW ", "OK        \n"));
  EXPECT_EQ(dir.read("out.bin"), as_text(firmware));
}

TEST_F(Handlers, ReadOfNothingLeavesAnEmptyFile) {
  device.respond_with(test_support::serve_area({}));
  EXPECT_EQ(run(OP_READ_FIRMWARE, "out.bin"), RC_OK);
  EXPECT_TRUE(dir.exists("out.bin"));
  EXPECT_EQ(dir.read("out.bin"), "");
}

TEST_F(Handlers, ReadSucceedsWhenTheOutputCannotBeCreated) {
  device.respond_with(test_support::serve_area(pattern(10)));
  EXPECT_EQ(run(OP_READ_FIRMWARE, "no/such/dir/out.bin"), RC_OK);
  EXPECT_EQ(captured.text(), status_line("Reading FW ", "OK        \n"));
  EXPECT_EQ(run(OP_READ_CALIBRATION, "no/such/dir/out.bin"), RC_OK);
}

TEST_F(Handlers, FailedReadWritesNoFile) {
  device.script({silence(), silence(), silence()});
  EXPECT_EQ(run(OP_READ_FIRMWARE, "out.bin"), RC_TIMEOUT);
  EXPECT_EQ(captured.text(), status_line("Reading FW ", "Error     \n"));
  EXPECT_FALSE(dir.exists("out.bin"));
}

TEST_F(Handlers, WriteFirmwarePadsTheLastBlockWithErasedFlash) {
  std::fill(image.begin(), image.end(), 0x00);  // whatever an earlier use left
  const auto firmware = pattern(1001);
  dir.write("fw.bin", as_text(firmware));
  device.respond_with(test_support::acknowledge_all());
  EXPECT_EQ(run(OP_WRITE_FIRMWARE, "fw.bin"), RC_OK);
  EXPECT_EQ(captured.text(), status_line("Writing FW ", "OK        \n"));
  const auto& requests = device.requests();
  ASSERT_EQ(requests.size(), 7u);  // probe, 5 blocks, end
  const auto& last = requests[5];
  EXPECT_EQ((RequestHeader{last.code, last.address, last.length}), (RequestHeader{0x84, 960, 48}));
  std::vector<std::uint8_t> expected(firmware.begin() + 960, firmware.end());
  expected.resize(48, 0xFF);
  EXPECT_EQ(last.payload, expected);
}

TEST_F(Handlers, FirmwareInputProblemsSendNothing) {
  struct Case {
    const char* file;
    const char* contents;  // null: no file
    const char* message;   // "%s" stands for the file's path
  };
  for (const Case& c :
       {Case{"fw.txt", "x", "Unknown file type (%s)\n"},
        Case{"gone.bin", nullptr, "Error while opening file %s\n"}, Case{"empty.bin", "", ""}}) {
    for (const Operation operation :
         {OP_WRITE_FIRMWARE, OP_VERIFY_FIRMWARE, OP_ERASE_WRITE_VERIFY_FIRMWARE}) {
      if (c.contents != nullptr) {
        dir.write(c.file, c.contents);
      }
      const Outcome outcome = run_alone(operation, c.file);
      EXPECT_EQ(outcome.result, RC_FAILED);
      EXPECT_EQ(outcome.console, expand(c.message)) << c.file;
      EXPECT_TRUE(outcome.codes.empty());
    }
  }
}

TEST_F(Handlers, VerifyFirmwareDifference) {
  dir.write("fw.bin", as_text(pattern(200)));
  device.then(answer(0xF5, 8));
  EXPECT_EQ(run(OP_VERIFY_FIRMWARE, "fw.bin"), RC_MISMATCH);
  EXPECT_EQ(captured.text(), status_line("Verificating FW ", "Error     \n") + "FW is different\n");
}

TEST_F(Handlers, EraseWriteVerifyFirmware) {
  dir.write("fw.bin", as_text(pattern(200)));
  device.respond_with(test_support::acknowledge_all());
  EXPECT_EQ(run(OP_ERASE_WRITE_VERIFY_FIRMWARE, "fw.bin"), RC_OK);
  EXPECT_EQ(captured.text(), status_line("Erasing FW ", "OK       \n") +
                                 status_line("Writing FW ", "OK        \n") +
                                 status_line("Verificating FW ", "OK       \n"));
  EXPECT_EQ(codes(), (std::vector<std::uint8_t>{0x44, 0x8F, 0x84, 0x14, 0xC4}));
}

TEST_F(Handlers, EraseWriteVerifyFirmwareDifferenceIsTheStatus) {
  dir.write("fw.bin", as_text(pattern(200)));
  device.script({ack(), ack(), ack(0), ack(), answer(0xF5, 8)});
  EXPECT_EQ(run(OP_ERASE_WRITE_VERIFY_FIRMWARE, "fw.bin"), RC_MISMATCH);
  EXPECT_EQ(captured.text(), status_line("Erasing FW ", "OK       \n") +
                                 status_line("Writing FW ", "OK        \n") +
                                 status_line("Verificating FW ", "Error. FW is different\n"));
}

TEST_F(Handlers, EraseWriteVerifyFirmwareFailures) {
  struct Case {
    std::vector<test_support::Reply> script;
    ResultCode result;
    std::string output;
    std::vector<std::uint8_t> codes;
  };
  const std::string erased = status_line("Erasing FW ", "OK       \n");
  const std::string written = status_line("Writing FW ", "OK        \n");
  const std::vector<Case> cases{
      {{answer(0x02, 0)}, -254, status_line("Erasing FW ", "Error         \n"), {0x44}},
      {{ack(), answer(0x03, 0)},
       -253,
       erased + status_line("Writing FW ", "Error         \n"),
       {0x44, 0x8F}},
      {{ack(), ack(), ack(0), ack(), answer(0x04, 8)},
       -252,
       erased + written + status_line("Verificating FW ", "Error        \n"),
       {0x44, 0x8F, 0x84, 0x14, 0xC4}},
  };
  dir.write("fw.bin", as_text(pattern(200)));
  for (const Case& c : cases) {
    const Outcome outcome = run_alone(OP_ERASE_WRITE_VERIFY_FIRMWARE, "fw.bin", c.script);
    EXPECT_EQ(outcome.result, c.result);
    EXPECT_EQ(outcome.console, c.output);
    EXPECT_EQ(outcome.codes, c.codes);
  }
}

// --- calibration tables ------------------------------------------------------------------------

TEST_F(Handlers, ReadCalibrationBackupWritesTheFile) {
  const auto table = pattern(300);
  device.respond_with(test_support::serve_area(table));
  EXPECT_EQ(run(OP_READ_CALIBRATION_BACKUP, "cal.bin"), RC_OK);
  EXPECT_EQ(captured.text(), status_line("Reading backup calibration table ", "OK         \n"));
  EXPECT_EQ(dir.read("cal.bin"), as_text(table));
  EXPECT_EQ(device.requests().front().code, 0x03);
}

TEST_F(Handlers, WriteCalibrationSendsTheFile) {
  const auto table = pattern(300);
  dir.write("cal.bin", as_text(table));
  device.respond_with(test_support::acknowledge_all());
  EXPECT_EQ(run(OP_WRITE_CALIBRATION, "cal.bin"), RC_OK);
  EXPECT_EQ(captured.text(), status_line("Writing calibration table ", "OK           \n"));
  EXPECT_EQ(codes(), (std::vector<std::uint8_t>{0x8F, 0x8F, 0x82, 0x82, 0x12}));
  EXPECT_EQ(device.requests()[3].payload,
            std::vector<std::uint8_t>(table.begin() + 244, table.end()));
}

TEST_F(Handlers, VerifyOfAnEmptyCalibrationFileSendsNothing) {
  dir.write("cal.bin", "");
  EXPECT_EQ(run(OP_VERIFY_CALIBRATION, "cal.bin"), RC_OK);
  EXPECT_EQ(captured.text(), status_line("Verificating calibration table ", "OK      \n"));
  EXPECT_TRUE(device.requests().empty());
}

TEST_F(Handlers, VerifyCalibrationBackupDifference) {
  dir.write("cal.bin", "abc");
  device.then(answer(0xF5, 0));
  EXPECT_EQ(run(OP_VERIFY_CALIBRATION_BACKUP, "cal.bin"), RC_MISMATCH);
  EXPECT_EQ(captured.text(),
            status_line("Verificating backup calibration table ", "Error      \n") +
                "Calibration table is different\n");
  EXPECT_EQ(codes(), std::vector<std::uint8_t>{0xC3});
}

TEST_F(Handlers, CalibrationFileProblemsSendNothing) {
  const std::string big(IMAGE_BUFFER_SIZE + 1, 'b');
  dir.write("big.bin", big);
  struct Case {
    Operation operation;
    const char* file;
    std::string message;  // "%s" stands for the file's path
  };
  const std::vector<Case> cases{
      {OP_WRITE_CALIBRATION, "gone.bin", "Error while opening file %s\n"},
      {OP_VERIFY_CALIBRATION_BACKUP, "gone.bin", "Error while opening file %s\n"},
      // The combined operations close their empty status line with a bare Error.
      {OP_ERASE_WRITE_VERIFY_CALIBRATION, "gone.bin", "\rError        \n"},
      {OP_ERASE_WRITE_VERIFY_CALIBRATION_BACKUP, "gone.bin", "\rError        \n"},
      {OP_WRITE_CALIBRATION_BACKUP, "big.bin", "File %s is larger than 1048576 bytes\n"},
      {OP_ERASE_WRITE_VERIFY_CALIBRATION, "big.bin", "File %s is larger than 1048576 bytes\n"},
  };
  for (const Case& c : cases) {
    const Outcome outcome = run_alone(c.operation, c.file);
    EXPECT_EQ(outcome.result, RC_FAILED);
    EXPECT_EQ(outcome.console, expand(c.message)) << operation_code(c.operation) << " " << c.file;
    EXPECT_TRUE(outcome.codes.empty());
  }
}

TEST_F(Handlers, EraseWriteVerifyCalibrationBackup) {
  dir.write("cal.bin", as_text(pattern(10)));
  device.respond_with(test_support::acknowledge_all());
  EXPECT_EQ(run(OP_ERASE_WRITE_VERIFY_CALIBRATION_BACKUP, "cal.bin"), RC_OK);
  EXPECT_EQ(captured.text(),
            status_line("Erasing backup calibration table ", "OK        \n") +
                status_line("Writing backup calibration table ", "OK        \n") +
                status_line("Verificating backup calibration table ", "OK        \n"));
  EXPECT_EQ(codes(), (std::vector<std::uint8_t>{0x43, 0x8F, 0x8F, 0x83, 0x13, 0xC3}));
}

TEST_F(Handlers, EraseWriteVerifyCalibrationFailures) {
  struct Case {
    std::vector<test_support::Reply> script;
    ResultCode result;
    std::string tail;
  };
  const std::string erased = status_line("Erasing calibration table ", "OK        \n");
  const std::string written = status_line("Writing calibration table ", "OK        \n");
  const std::string verifying = "Verificating calibration table ";
  const std::vector<Case> cases{
      {{answer(0x10, 0)}, -240, status_line("Erasing calibration table ", "Error        \n")},
      {{ack(), ack(), answer(0x10, 0)},
       -240,
       erased + status_line("Writing calibration table ", "Error       \n")},
      {{ack(), ack(), ack(), ack(0), ack(), answer(0xF5, 0)},
       RC_MISMATCH,
       erased + written + status_line(verifying, "Error       \n") +
           "Calibration table is different\n"},
      {{ack(), ack(), ack(), ack(0), ack(), answer(0x10, 0)},
       -240,
       erased + written + status_line(verifying, "Error       \n") +
           "Error while verificating calibration table\n"},
  };
  dir.write("cal.bin", as_text(pattern(10)));
  for (const Case& c : cases) {
    const Outcome outcome = run_alone(OP_ERASE_WRITE_VERIFY_CALIBRATION, "cal.bin", c.script);
    EXPECT_EQ(outcome.result, c.result);
    EXPECT_EQ(outcome.console, c.tail);
  }
}

// --- factory table -----------------------------------------------------------------------------

const std::string FACTORY_FILE =
    "SN: \"A B\"\n"
    "TYPE: X1\n"
    "MODIF: 2\n"
    "HW: 3\n"
    "MAC: 0a:1b:2c:3d:4e:5f\n"
    "DHCP: 1\n"
    "IPV4_ADDR: 192.168.1.10\n"
    "IPV4_MASK: 255.255.255.0\n"
    "IPV4_GTW: 192.168.1.1\n";

const std::string FACTORY_LISTING =
    "Factory table values:\n"
    "TYPE:       \"X1\"\n"
    "SN:         \"A B\"\n"
    "HW:         3\n"
    "MODIF:      2\n"
    "MAC:        0A:1B:2C:3D:4E:5F\n"
    "DHCP:       1\n"
    "IPV4_ADDR:  192.168.1.10\n"
    "IPV4_MASK:  255.255.255.0\n"
    "IPV4_GTW:   192.168.1.1\n"
    "\n";

FactoryTable sample_factory_table() {
  FactoryTable table{};
  set_text(table.sn, "A B");
  set_text(table.type, "X1");
  table.modif = 2;
  table.hw = 3;
  const std::uint8_t mac[6] = {0x0A, 0x1B, 0x2C, 0x3D, 0x4E, 0x5F};
  std::memcpy(table.mac, mac, 6);
  table.dhcp = 1;
  const std::uint8_t addr[4] = {192, 168, 1, 10};
  const std::uint8_t mask[4] = {255, 255, 255, 0};
  const std::uint8_t gtw[4] = {192, 168, 1, 1};
  std::memcpy(table.ip_addr, addr, 4);
  std::memcpy(table.ip_mask, mask, 4);
  std::memcpy(table.ip_gtw, gtw, 4);
  return table;
}

TEST_F(Handlers, WriteFactoryListsAndSendsTheParsedTable) {
  dir.write("ft.txt", FACTORY_FILE);
  device.respond_with(test_support::acknowledge_all());
  EXPECT_EQ(run(OP_WRITE_FACTORY, "ft.txt"), RC_OK);
  EXPECT_EQ(captured.text(),
            FACTORY_LISTING + status_line("Writing factory table ", "OK        \n"));
  ASSERT_EQ(codes(), (std::vector<std::uint8_t>{0x8F, 0x81, 0x11}));
  const auto wire = to_wire(sample_factory_table());
  EXPECT_EQ(device.requests()[1].payload, std::vector<std::uint8_t>(wire.begin(), wire.end()));
}

TEST_F(Handlers, FactoryParseFailureSendsNothing) {
  // No MAC line: 9 points.
  std::string incomplete = FACTORY_FILE;
  incomplete.erase(incomplete.find("MAC:"), incomplete.find("DHCP:") - incomplete.find("MAC:"));
  dir.write("ft.txt", incomplete);
  for (const Operation operation :
       {OP_WRITE_FACTORY, OP_VERIFY_FACTORY, OP_ERASE_WRITE_VERIFY_FACTORY}) {
    const Outcome outcome = run_alone(operation, "ft.txt");
    EXPECT_EQ(outcome.result, RC_INCOMPLETE);
    std::string listing = FACTORY_LISTING;
    listing.replace(listing.find("0A:1B:2C:3D:4E:5F"), 17, "00:00:00:00:00:00");
    EXPECT_EQ(outcome.console, "Parsing factory table file error\n" + listing);
    EXPECT_TRUE(outcome.codes.empty());
  }
}

TEST_F(Handlers, MissingFactoryFileIsNamed) {
  EXPECT_EQ(run(OP_VERIFY_FACTORY, "gone.txt"), RC_FAILED);
  EXPECT_EQ(captured.text(), "Error while opening file " + dir.path("gone.txt") + "\n");
}

TEST_F(Handlers, VerifyFactoryFailures) {
  struct Case {
    Operation operation;
    std::vector<test_support::Reply> script;
    ResultCode result;
    std::string steps;
  };
  const std::string verifying = "Verificating factory table ";
  const std::vector<Case> cases{
      {OP_VERIFY_FACTORY,
       {answer(0xF5, 8)},
       RC_MISMATCH,
       status_line(verifying, "Error      \n") + "Factory table is different\n"},
      {OP_VERIFY_FACTORY,
       {answer(0x20, 8)},
       -224,
       status_line(verifying, "Error      \n") + "Error while verificating factory table\n"},
      {OP_ERASE_WRITE_VERIFY_FACTORY,
       {ack(), ack(), ack(0), ack(), answer(0xF5, 8)},
       RC_MISMATCH,
       status_line("Erasing factory table ", "OK        \n") +
           status_line("Writing factory table ", "OK        \n") +
           status_line(verifying, "Error      \n") + "Factory table is different\n"},
      {OP_ERASE_WRITE_VERIFY_FACTORY,
       {answer(0x20, 0)},
       -224,
       status_line("Erasing factory table ", "Error        \n")},
      {OP_ERASE_WRITE_VERIFY_FACTORY,
       {ack(), answer(0x20, 0)},
       -224,
       status_line("Erasing factory table ", "OK        \n") +
           status_line("Writing factory table ", "Error      \n")},
  };
  dir.write("ft.txt", FACTORY_FILE);
  for (const Case& c : cases) {
    const Outcome outcome = run_alone(c.operation, "ft.txt", c.script);
    EXPECT_EQ(outcome.result, c.result);
    EXPECT_EQ(outcome.console, FACTORY_LISTING + c.steps);
  }
}

TEST_F(Handlers, ReadFactoryListsAndWritesTheTextFile) {
  const auto wire = to_wire(sample_factory_table());
  device.respond_with(test_support::serve_area({wire.begin(), wire.end()}));
  EXPECT_EQ(run(OP_READ_FACTORY, "ft.txt"), RC_OK);
  EXPECT_EQ(captured.text(),
            status_line("Reading factory table ", "OK          \n") + FACTORY_LISTING);
  std::string file_form = FACTORY_LISTING;
  file_form.pop_back();  // the empty line is the console's only
  EXPECT_EQ(dir.read("ft.txt"), "# " + file_form);
}

TEST_F(Handlers, ReadFactoryWithoutAnOutputFileStillLists) {
  const auto wire = to_wire(sample_factory_table());
  device.respond_with(test_support::serve_area({wire.begin(), wire.end()}));
  EXPECT_EQ(run(OP_READ_FACTORY, "no/such/dir/ft.txt"), RC_OK);
  EXPECT_EQ(captured.text(),
            status_line("Reading factory table ", "OK          \n") + FACTORY_LISTING);
}

}  // namespace
}  // namespace pelmo
