#include "transport/local_address.hpp"

#include <gtest/gtest.h>

#include <vector>

#include "fake_port_layer.hpp"

namespace pelmo::test {
namespace {

struct ChoiceCase {
  const char* name;
  std::vector<Ipv4Address> host;
  Ipv4Address device;
  std::optional<Ipv4Address> chosen;
};

class LocalAddressChoice : public ::testing::TestWithParam<ChoiceCase> {};

TEST_P(LocalAddressChoice, PicksTheBestPrefixOfAtLeastTwoBytes) {
  EXPECT_EQ(choose_local_address(GetParam().host, GetParam().device), GetParam().chosen);
}

INSTANTIATE_TEST_SUITE_P(
    Scores, LocalAddressChoice,
    ::testing::Values(ChoiceCase{"three_beat_two",
                                 {{192, 168, 0, 3}, {10, 0, 0, 1}, {192, 168, 1, 2}},
                                 {192, 168, 1, 15},
                                 Ipv4Address{192, 168, 1, 2}},
                      ChoiceCase{"two_is_enough",
                                 {{10, 0, 0, 1}, {192, 168, 7, 2}},
                                 {192, 168, 1, 15},
                                 Ipv4Address{192, 168, 7, 2}},
                      ChoiceCase{"one_never", {{192, 1, 1, 15}}, {192, 168, 1, 15}, std::nullopt},
                      ChoiceCase{"later_bytes_need_the_earlier",
                                 {{192, 0, 1, 15}, {10, 168, 1, 15}},
                                 {192, 168, 1, 15},
                                 std::nullopt},
                      ChoiceCase{"ties_go_to_the_first",
                                 {{192, 168, 5, 1}, {192, 168, 6, 1}},
                                 {192, 168, 1, 15},
                                 Ipv4Address{192, 168, 5, 1}},
                      ChoiceCase{"fourth_byte_ignored",
                                 {{192, 168, 1, 99}, {192, 168, 1, 15}},
                                 {192, 168, 1, 15},
                                 Ipv4Address{192, 168, 1, 99}},
                      ChoiceCase{
                          "loopback", {{127, 0, 0, 1}}, {127, 0, 0, 2}, Ipv4Address{127, 0, 0, 1}},
                      ChoiceCase{"no_addresses", {}, {192, 168, 1, 15}, std::nullopt}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(LocalAddressScore, CountsLeadingMatchesUpToThree) {
  const Ipv4Address device{192, 168, 1, 15};
  EXPECT_EQ(address_match_score({10, 168, 1, 15}, device), 0);
  EXPECT_EQ(address_match_score({192, 0, 1, 15}, device), 1);
  EXPECT_EQ(address_match_score({192, 168, 0, 15}, device), 2);
  EXPECT_EQ(address_match_score({192, 168, 1, 0}, device), 3);
  EXPECT_EQ(address_match_score(device, device), 3);
}

TEST(ListLocalAddresses, CopiesInLookupOrderUpToTheSpace) {
  FakePortLayer ports;
  for (std::uint8_t i = 0; i < 30; ++i) {
    ports.host.push_back({10, 0, 0, i});
  }
  std::array<Ipv4Address, 24> out{};
  EXPECT_EQ(list_local_addresses(ports, out), 24u);
  EXPECT_EQ(out[0], (Ipv4Address{10, 0, 0, 0}));
  EXPECT_EQ(out[23], (Ipv4Address{10, 0, 0, 23}));
  EXPECT_EQ(ports.starts, (std::vector<std::pair<int, int>>{{1, 1}}));
  EXPECT_EQ(ports.stops, 0) << "the library stays started";
}

TEST(ListLocalAddresses, ReturnsZeroWithoutSpaceOrSocketLibrary) {
  FakePortLayer ports;
  ports.host = {{10, 0, 0, 1}};
  EXPECT_EQ(list_local_addresses(ports, {}), 0u);
  EXPECT_TRUE(ports.starts.empty());
  ports.start_result = false;
  std::array<Ipv4Address, 4> out{};
  EXPECT_EQ(list_local_addresses(ports, out), 0u);
}

}  // namespace
}  // namespace pelmo::test
