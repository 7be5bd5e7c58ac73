#include <gtest/gtest.h>

#include "sim_test_support.hpp"
#include "simulator/device_status.hpp"

namespace pelmo::sim::test {
namespace {

FaultPlan plan_with(void (*configure)(FaultPlan&)) {
  FaultPlan plan;
  configure(plan);
  return plan;
}

TEST(Responder, LogsEveryFrameInTheDocumentedFormat) {
  Bench bench;
  bench.send(CommandCode::CMD_READ_FW, 0, 1012);
  bench.send(CommandCode::CMD_WRITE_CALIB, 0x10, 3, Bytes{1, 2, 3});
  bench.responder.on_frame(Bytes{0xB5, 1, 2, 3, 4, 5, 6});
  Bytes broken = request_frame(CommandCode::CMD_FW_INFO, 0, 0);
  broken[9] ^= 1;
  bench.responder.on_frame(broken);
  bench.responder.on_garbage(3, RC_BAD_HEADER);
  const std::vector<std::string> expected = {
      "rx READ_FW addr=0x00000000 len=1012",
      "tx READ_FW status=0xFD addr=0x00000000 len=0",
      "rx WRITE_CALIB addr=0x00000010 len=3",
      "tx WRITE_CALIB status=0x00 addr=0x00000010 len=0",
      "rx BAD_FRAME len=7 rc=-19",
      "rx BAD_FRAME len=12 rc=-7",
      "rx BAD_FRAME len=3 rc=-6",
  };
  EXPECT_EQ(expected, bench.log_lines());
  EXPECT_EQ(2u, bench.responder.requests());
}

TEST(Responder, SilenceOptionsSkipTheRequestsTheyName) {
  const struct {
    const char* name;
    FaultPlan plan;
    std::vector<bool> answered;  // for RESTART, FW_INFO, RESTART, RESTART, FW_INFO
    std::string first_drop;
  } cases[] = {
      {"silent-first 2",
       plan_with([](FaultPlan& p) { p.silent_first = 2; }),
       {false, false, true, true, true},
       "drop RESTART reason=silent-first"},
      {"silent-after 3",
       plan_with([](FaultPlan& p) { p.silent_after = 3; }),
       {true, true, true, false, false},
       "drop RESTART reason=silent-after"},
      {"silent-code FW_INFO",
       plan_with([](FaultPlan& p) { p.silent_codes.set(0x24); }),
       {true, false, true, true, false},
       "drop FW_INFO reason=silent-code"},
      {"drop all requests",
       plan_with([](FaultPlan& p) { p.drop_requests.per_million = 1000000; }),
       {false, false, false, false, false},
       "drop RESTART reason=request-lost"},
  };
  const CommandCode order[] = {CommandCode::CMD_RESTART, CommandCode::CMD_FW_INFO,
                               CommandCode::CMD_RESTART, CommandCode::CMD_RESTART,
                               CommandCode::CMD_FW_INFO};
  for (const auto& c : cases) {
    Bench bench({}, c.plan);
    std::vector<bool> answered;
    for (CommandCode code : order) {
      answered.push_back(!bench.send(code, 0, 0).empty());
    }
    EXPECT_EQ(c.answered, answered) << c.name;
    EXPECT_EQ(5u, bench.responder.requests()) << c.name;
    // A request that was not answered was not executed either: the reset count shows it.
    const auto restarts_answered =
        static_cast<std::uint8_t>(answered[0] + answered[2] + answered[3]);
    EXPECT_EQ(restarts_answered, bench.device.control()[4]) << c.name;
    const auto lines = bench.log_lines();
    EXPECT_NE(lines.end(), std::find(lines.begin(), lines.end(), c.first_drop)) << c.name;
  }
}

TEST(Responder, LostResponseStillChangesTheDevice) {
  Bench bench({}, plan_with([](FaultPlan& p) { p.drop_responses.per_million = 1000000; }));
  EXPECT_TRUE(bench.send(CommandCode::CMD_RESTART, 0, 0).empty());
  EXPECT_EQ(1, bench.device.control()[4]);
  EXPECT_EQ("drop RESTART reason=response-lost", bench.log_lines().back());
}

TEST(Responder, StatusOverrideHitsEveryOrOnlyTheNthRequestAndDoesNotExecute) {
  FaultPlan plan;
  plan.status_overrides.push_back({0x82, 0x01, 2});  // second calibration block only
  plan.status_overrides.push_back({0x4F, 0xE7, 0});  // every restart
  Bench bench({}, plan);
  const Bytes block(4, 0x42);
  EXPECT_EQ(STATUS_OK, bench.ask(CommandCode::CMD_WRITE_CALIB, 0, 4, block).status);
  const Answer second = bench.ask(CommandCode::CMD_WRITE_CALIB, 4, 4, block);
  EXPECT_EQ(0x01, second.status);
  EXPECT_EQ(4u, second.address);
  EXPECT_EQ(STATUS_OK, bench.ask(CommandCode::CMD_WRITE_CALIB, 8, 4, block).status);
  EXPECT_EQ(0xE7, bench.ask(CommandCode::CMD_RESTART).status);
  EXPECT_EQ(0xE7, bench.ask(CommandCode::CMD_RESTART).status);

  EXPECT_EQ(0, bench.device.control()[4]);
  // The refused block left a hole of erased bytes.
  const auto stored = bench.device.area(Area::calib).content();
  EXPECT_EQ(Bytes({0x42, 0x42, 0x42, 0x42, 0xFF, 0xFF, 0xFF, 0xFF, 0x42, 0x42, 0x42, 0x42}),
            Bytes(stored.begin(), stored.end()));
  EXPECT_EQ("tx RESTART status=0xE7 addr=0x00000000 len=0 fault=status", bench.log_lines().back());
}

TEST(Responder, AnswerShapingFaults) {
  FaultPlan plan;
  plan.wrong_address_codes.set(0x84);
  plan.extra_payload_codes.set(0x24);
  plan.extra_payload_codes.set(0x4F);
  plan.corrupt_crc_codes.set(0x2F);
  Bench bench({}, plan);

  const Answer ack = bench.ask(CommandCode::CMD_WRITE_FW, 16, 8, Bytes(8, 0));
  EXPECT_EQ(17u, ack.address);
  EXPECT_EQ("tx WRITE_FW status=0x00 addr=0x00000011 len=0 fault=wrong-address",
            bench.log_lines().back());

  const Answer restart = bench.ask(CommandCode::CMD_RESTART);
  EXPECT_EQ(Bytes{0xEE}, restart.payload);

  const Answer boot = bench.ask(CommandCode::CMD_BOOTLOADER_INFO);
  EXPECT_EQ(RC_BAD_CRC, boot.decoded);
  EXPECT_EQ("tx BOOTLOADER_INFO status=0x00 addr=0x00000000 len=76 fault=corrupt-crc",
            bench.log_lines().back());
}

TEST(Responder, TimingAndDeliveryFaultsShapeTheTransmissions) {
  FaultPlan plan;
  plan.split = true;
  plan.split_gap_ms = 30;
  plan.delay_ms = 5;
  plan.erase_ms = 1000;
  plan.stray_codes.set(0x2F);
  plan.duplicate.per_million = 1000000;
  Bench bench({}, plan);

  const auto out = bench.send(CommandCode::CMD_BOOTLOADER_INFO, 0, 0);
  ASSERT_EQ(5u, out.size());
  EXPECT_TRUE(out[0].stray);
  EXPECT_EQ(5u, out[0].delay_ms);
  const Bytes& whole = out[0].bytes;
  ASSERT_EQ(12u + 76u, whole.size());
  EXPECT_EQ(RC_OK, decode_answer(whole).decoded);
  // Two halves, the second after the gap, then the copy after the first answer.
  const std::uint32_t delays[] = {5, 35, 35, 65};
  Bytes joined;
  for (std::size_t i = 1; i < out.size(); ++i) {
    EXPECT_FALSE(out[i].stray);
    EXPECT_EQ(delays[i - 1], out[i].delay_ms) << i;
    EXPECT_EQ(whole.size() / 2, out[i].bytes.size());
    joined.insert(joined.end(), out[i].bytes.begin(), out[i].bytes.end());
  }
  Bytes twice = whole;
  twice.insert(twice.end(), whole.begin(), whole.end());
  EXPECT_EQ(twice, joined);
  EXPECT_EQ("tx BOOTLOADER_INFO status=0x00 addr=0x00000000 len=76 fault=stray+split+duplicate",
            bench.log_lines().back());

  const auto erase = bench.send(CommandCode::CMD_ERASE_FACTORY, 0, 0);
  ASSERT_FALSE(erase.empty());
  EXPECT_EQ(1005u, erase.front().delay_ms);
}

TEST(Responder, RandomFaultsAreReproducibleFromTheSeed) {
  const auto pattern = [](std::uint64_t seed, bool with_duplicates) {
    FaultPlan plan;
    plan.seed = seed;
    plan.drop_requests.per_million = 300000;  // 30 %
    if (with_duplicates) {
      plan.duplicate.per_million = 500000;
    }
    Bench bench({}, plan);
    std::string answered;
    for (int i = 0; i < 200; ++i) {
      answered += bench.send(CommandCode::CMD_BEGIN_WRITE, 0, 0).empty() ? '.' : 'x';
    }
    return answered;
  };
  const std::string first = pattern(7, false);
  EXPECT_EQ(first, pattern(7, false));
  EXPECT_NE(first, pattern(8, false));
  // Each fault draws from its own stream: turning duplicates on does not move the drops.
  EXPECT_EQ(first, pattern(7, true));
  const auto drops = std::count(first.begin(), first.end(), '.');
  EXPECT_GT(drops, 30);
  EXPECT_LT(drops, 90);
}

}  // namespace
}  // namespace pelmo::sim::test
