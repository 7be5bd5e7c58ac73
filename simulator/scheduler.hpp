#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <utility>

namespace pelmo::sim {

// Actions due at given times (nanoseconds of a monotonic clock); actions with the same time run
// in the order they were added.
class Scheduler {
 public:
  void add(std::uint64_t due_ns, std::function<void()> action);
  // Runs every action due by `now_ns`.
  void run_due(std::uint64_t now_ns);
  std::optional<std::uint64_t> next_due_ns() const;
  bool empty() const { return actions_.empty(); }

 private:
  std::map<std::pair<std::uint64_t, std::uint64_t>, std::function<void()>> actions_;
  std::uint64_t sequence_ = 0;
};

}  // namespace pelmo::sim
