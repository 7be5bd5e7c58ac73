#include "simulator/state_store.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "sim_test_support.hpp"

namespace pelmo::sim::test {
namespace {

namespace fs = std::filesystem;

class StateStoreTest : public ::testing::Test {
 protected:
  void SetUp() override {
    directory_ =
        fs::temp_directory_path() /
        ("pelmo-sim-state-" + std::to_string(::testing::UnitTest::GetInstance()->random_seed()) +
         "-" + ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::remove_all(directory_);
  }
  void TearDown() override { fs::remove_all(directory_); }
  fs::path directory_;
};

TEST_F(StateStoreTest, SuccessiveRunsSeeTheSameDevice) {
  {
    Bench bench;
    StateStore store(directory_);
    store.restore(bench.device);
    bench.device.attach_storage(&store);
    bench.ask(CommandCode::CMD_WRITE_CALIB, 0, 4, Bytes{1, 2, 3, 4});
    bench.ask(CommandCode::CMD_WRITE_CALIB, 8, 2, Bytes{9, 9});  // leaves a hole of erased bytes
    bench.ask(CommandCode::CMD_WRITE_CALIB, 2, 1, Bytes{7});     // rewrites inside
    bench.ask(CommandCode::CMD_WRITE_FW, 0, 96, firmware_image(96));
    bench.ask(CommandCode::CMD_END_FW);
    bench.ask(CommandCode::CMD_RESTART);
    bench.ask(CommandCode::CMD_RESTART);
    bench.ask(CommandCode::CMD_WRITE_FACTORY, 0, 8, Bytes(8, 5));
    bench.ask(CommandCode::CMD_ERASE_FACTORY);
  }
  EXPECT_EQ(10u, fs::file_size(directory_ / "calib.bin"));
  EXPECT_EQ(0u, fs::file_size(directory_ / "factory.bin"));

  Bench next;
  StateStore(directory_).restore(next.device);
  const auto calib = next.device.area(Area::calib).content();
  EXPECT_EQ(Bytes({1, 2, 7, 4, 0xFF, 0xFF, 0xFF, 0xFF, 9, 9}), Bytes(calib.begin(), calib.end()));
  EXPECT_EQ(0u, next.device.area(Area::factory).length());
  EXPECT_EQ(2, next.device.control()[4]);
  const Answer info = next.ask(CommandCode::CMD_FW_INFO);
  EXPECT_EQ(0, info.status);
  EXPECT_EQ(96u, info.payload.size());
}

TEST_F(StateStoreTest, AFileLargerThanItsAreaIsRefused) {
  fs::create_directories(directory_);
  std::ofstream(directory_ / "factory.bin", std::ios::binary) << std::string(121, '\0');
  Bench bench;
  EXPECT_THROW(StateStore(directory_).restore(bench.device), StateError);
}

}  // namespace
}  // namespace pelmo::sim::test
