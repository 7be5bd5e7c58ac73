#include "cli/report.hpp"

#include <algorithm>

namespace pelmo::cli {

std::string TargetReport::result() const {
  if (output_failed) {
    return "output";
  }
  if (outcome.ok()) {
    return outcome.skipped ? "skipped" : "ok";
  }
  return std::string(failure_kind_name(outcome.kind));
}

bool RunReport::ok() const {
  return std::all_of(targets.begin(), targets.end(),
                     [](const TargetReport& target) { return target.ok(); });
}

}  // namespace pelmo::cli
