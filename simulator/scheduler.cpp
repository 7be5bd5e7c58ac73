#include "simulator/scheduler.hpp"

namespace pelmo::sim {

void Scheduler::add(std::uint64_t due_ns, std::function<void()> action) {
  actions_.emplace(std::make_pair(due_ns, sequence_++), std::move(action));
}

void Scheduler::run_due(std::uint64_t now_ns) {
  while (!actions_.empty() && actions_.begin()->first.first <= now_ns) {
    auto action = std::move(actions_.begin()->second);
    actions_.erase(actions_.begin());
    action();
  }
}

std::optional<std::uint64_t> Scheduler::next_due_ns() const {
  if (actions_.empty()) {
    return std::nullopt;
  }
  return actions_.begin()->first.first;
}

}  // namespace pelmo::sim
