#include "simulator/fault_plan.hpp"

namespace pelmo::sim {

FaultDice::FaultDice(std::uint64_t seed) {
  for (std::size_t i = 0; i < engines_.size(); ++i) {
    std::seed_seq sequence{static_cast<std::uint32_t>(seed), static_cast<std::uint32_t>(seed >> 32),
                           static_cast<std::uint32_t>(i)};
    engines_[i].seed(sequence);
  }
}

bool FaultDice::roll(RandomFault fault, Chance chance) {
  if (chance.never()) {
    return false;
  }
  return engines_[static_cast<std::size_t>(fault)]() % 1000000u < chance.per_million;
}

}  // namespace pelmo::sim
