// Device sessions against the real simulator over UDP: inputs checked before anything is erased,
// the identical-image check writing nothing, and every kind of failure reported with its cause.
#include "pelmo/session/device_session.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/transport/device_process.hpp"

namespace pelmo::test {
namespace {

namespace fs = std::filesystem;

port::PortLayer& SYSTEM = port::system_port_layer();
// A firmware write block over UDP: the 1012-byte chunk in whole 8-byte units.
constexpr std::uint32_t FIRMWARE_BLOCK = 1008;

FirmwareFile raw_file(const Bytes& image) {
  return FirmwareFile{.format = FirmwareFormat::raw, .segments = {{.address = 0, .bytes = image}}};
}

class SessionOnSimulator : public ::testing::Test {
 protected:
  void SetUp() override {
    char name[] = "/tmp/pelmo-session-XXXXXX";
    ASSERT_NE(mkdtemp(name), nullptr);
    folder_ = name;
  }
  void TearDown() override {
    session_.close();
    hub_.close();
    device_.reset();
    fs::remove_all(folder_);
  }

  // Starts a device on 127.0.96.`host` with `options` and opens the session on it.
  void start(std::uint8_t host, std::vector<std::string> options = {},
             SessionOptions session_options = {}) {
    const Ipv4Address address{127, 0, 96, host};
    options.insert(options.begin(), {"--udp", dotted_address(address)});
    device_ = std::make_unique<DeviceProcess>(folder_, options);
    ASSERT_TRUE(device_->ready()) << device_->output();
    // A hub on an address of the tests' own, so that no other test's link shares the port.
    ASSERT_TRUE(hub_.open({{127, 0, 96, 1}, DEVICE_UDP_PORT}).ok);
    const Outcome opened = session_.open(UdpDevice{address}, session_options, &hub_);
    ASSERT_TRUE(opened.ok()) << opened.message;
  }

  std::size_t requests(const std::string& command) const {
    return device_->log_count("rx " + command);
  }

  fs::path folder_;
  std::unique_ptr<DeviceProcess> device_;
  UdpHub hub_{SYSTEM};
  DeviceSession session_{SYSTEM};
};

TEST_F(SessionOnSimulator, SkipIdenticalWritesNothingOnlyWhenTheDeviceHoldsExactlyTheImage) {
  start(2);
  const Bytes image = sealed_firmware(20000, "SAME", 3);
  ASSERT_TRUE(session_.flash(raw_file(image)).ok());

  const Outcome again = session_.flash(raw_file(image), {.skip_identical = true});
  EXPECT_TRUE(again.ok()) << again.message;
  EXPECT_TRUE(again.skipped);
  EXPECT_EQ(requests("ERASE_FW"), 1u);
  EXPECT_EQ(requests("WRITE_FW"), (20000u + FIRMWARE_BLOCK - 1) / FIRMWARE_BLOCK);

  // A shorter image the device's firmware merely begins with is not the same firmware.
  const Bytes prefix(image.begin(), image.begin() + 12000);
  const Outcome shorter = session_.flash(raw_file(prefix), {.skip_identical = true});
  EXPECT_TRUE(shorter.ok()) << shorter.message;
  EXPECT_FALSE(shorter.skipped);
  EXPECT_EQ(requests("ERASE_FW"), 2u);

  // One differing byte after the seal is found by the device's compare.
  Bytes changed = prefix;
  changed[5000] ^= 0x40;
  const Outcome different = session_.flash(raw_file(changed), {.skip_identical = true});
  EXPECT_FALSE(different.skipped);
  EXPECT_EQ(requests("ERASE_FW"), 3u);
  std::vector<std::uint8_t> read_back;
  ASSERT_TRUE(session_.read(read_back).ok());
  EXPECT_TRUE(std::equal(changed.begin() + 8, changed.end(), read_back.begin() + 8));
}

TEST_F(SessionOnSimulator, AnImageTheAreaCannotHoldIsRefusedBeforeAnyErase) {
  start(3, {"--fw-max-size", "8192"});
  const Outcome outcome = session_.flash(raw_file(sealed_firmware(8200, "BIG", 1)));
  EXPECT_EQ(outcome.kind, FailureKind::input);
  EXPECT_NE(outcome.message.find("0x08000000..0x08001FFF"), std::string::npos) << outcome.message;
  EXPECT_EQ(requests("ERASE_FW"), 0u);
  EXPECT_EQ(requests("WRITE_FW"), 0u);
}

TEST_F(SessionOnSimulator, ProgressNamesEachStepAndReachesItsTotal) {
  start(4);
  std::vector<std::pair<Step, std::uint64_t>> seen;  // step and its last `done`
  std::uint64_t write_total = 0;
  session_.set_observer([&](const StepProgress& progress) {
    EXPECT_EQ(progress.device, "udp:127.0.96.4");
    if (seen.empty() || seen.back().first != progress.step) {
      seen.emplace_back(progress.step, progress.done);
    }
    seen.back().second = progress.done;
    if (progress.step == Step::write) {
      write_total = progress.total;
    }
  });
  ASSERT_TRUE(session_.flash(raw_file(sealed_firmware(5000, "STEPS", 2))).ok());
  const std::vector<std::pair<Step, std::uint64_t>> expected = {
      {Step::query, 0}, {Step::erase, 0}, {Step::write, 5000}, {Step::verify, 5000}};
  EXPECT_EQ(seen, expected);
  EXPECT_EQ(write_total, 5000u);
}

// Each kind of failure, caused for real, with the words its message must carry.
struct FailureCase {
  const char* name;
  std::vector<std::string> device_options;
  FailureKind kind;
  ResultCode code;
  const char* message_part;
};

const std::vector<FailureCase> FAILURES = {
    {"device_status",
     {"--status", "ERASE_FW=0xF0"},
     FailureKind::device_status,
     -16,
     "erase: the device answered status 0xF0"},
    {"verify_mismatch", {}, FailureKind::mismatch, RC_MISMATCH, "differs"},
    {"record_too_long",
     {"--extra-payload", "BOOTLOADER_INFO"},
     FailureKind::protocol,
     RC_MISMATCH,
     "query:"},
    {"silent_device",
     {"--silent-code", "BOOTLOADER_INFO"},
     FailureKind::timeout,
     RC_TIMEOUT,
     "query: no answer from the device after 3 attempts in 0."},
};

void PrintTo(const FailureCase& row, std::ostream* out) {
  *out << row.name;
}

class SessionFailures : public SessionOnSimulator,
                        public ::testing::WithParamInterface<FailureCase> {};

TEST_P(SessionFailures, CarryTheirKindCodeAndCause) {
  const FailureCase& row = GetParam();
  start(10, row.device_options, {.attempts = 3, .fixed_wait_ms = 50});
  const Bytes image = sealed_firmware(4096, "KIND", 1);
  const Outcome outcome = row.kind == FailureKind::mismatch ? session_.verify(raw_file(image))
                                                            : session_.flash(raw_file(image));
  EXPECT_EQ(outcome.kind, row.kind) << outcome.message;
  EXPECT_EQ(outcome.code, row.code);
  EXPECT_NE(outcome.message.find(row.message_part), std::string::npos) << outcome.message;
}

INSTANTIATE_TEST_SUITE_P(Kinds, SessionFailures, ::testing::ValuesIn(FAILURES),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(SessionOnSimulator, ACancelEndsTheWorkBetweenExchangesAndSaysSo) {
  start(5);
  std::uint64_t done_when_cancelled = 0;
  session_.set_observer([&](const StepProgress& progress) {
    if (progress.step == Step::write) {
      done_when_cancelled = progress.done;
    }
  });
  session_.set_cancel([&] { return done_when_cancelled >= 8 * FIRMWARE_BLOCK; });
  const Outcome outcome = session_.flash(raw_file(sealed_firmware(64 * 1024, "STOP", 1)));
  EXPECT_EQ(outcome.kind, FailureKind::cancelled);
  EXPECT_NE(outcome.message.find("incomplete"), std::string::npos) << outcome.message;
  EXPECT_EQ(requests("WRITE_FW"), 8u);
}

}  // namespace
}  // namespace pelmo::test
