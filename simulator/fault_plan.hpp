#pragma once

#include <array>
#include <bitset>
#include <cstdint>
#include <optional>
#include <random>
#include <vector>

namespace pelmo::sim {

// A probability in millionths (0 to 1000000), parsed from a percentage such as "12.5".
struct Chance {
  std::uint32_t per_million = 0;
  bool never() const { return per_million == 0; }
};

// A set of command codes, indexed by the code byte.
using CodeSet = std::bitset<256>;

// Answer `status` to `code`: to every such request, or only to the `nth` one (counted from 1).
struct StatusOverride {
  std::uint8_t code = 0;
  std::uint8_t status = 0;
  std::uint32_t nth = 0;
};

// The misbehaviours the simulated device can show, for tests and demonstrations. All random
// decisions come from one generator seeded with `seed`, so a run is reproducible.
struct FaultPlan {
  std::uint64_t seed = 1;
  std::uint64_t silent_first = 0;             // ignore the first N requests
  std::optional<std::uint64_t> silent_after;  // ignore every request after the first N
  CodeSet silent_codes;                       // never answer these codes
  Chance drop_requests;                       // lost before the device sees them
  Chance drop_responses;                      // executed, but the answer is lost
  Chance corrupt_crc;                         // answer with a broken CRC
  CodeSet corrupt_crc_codes;
  std::vector<StatusOverride> status_overrides;  // answer a status instead of executing
  CodeSet wrong_address_codes;                   // echo the address plus one
  CodeSet extra_payload_codes;                   // append one byte to the payload
  bool split = false;                            // send each answer in two pieces
  std::uint32_t split_gap_ms = 20;
  CodeSet stray_codes;  // a copy of the answer from another port first
  Chance stray;
  Chance duplicate;            // send the answer twice
  std::uint32_t delay_ms = 0;  // every answer
  std::uint32_t erase_ms = 0;  // erase answers, on top of delay_ms
};

// The random faults, each drawn from a generator of its own.
enum class RandomFault : std::uint8_t {
  drop_request,
  drop_response,
  corrupt_crc,
  stray,
  duplicate
};

// Draws the plan's random decisions from its seed. Each fault has its own stream, so turning one
// on does not change when the others strike.
class FaultDice {
 public:
  explicit FaultDice(std::uint64_t seed);
  // A chance of 0 draws nothing.
  bool roll(RandomFault fault, Chance chance);

 private:
  std::array<std::mt19937_64, 5> engines_;
};

}  // namespace pelmo::sim
