#pragma once

#include <atomic>
#include <vector>

#include "cli/job.hpp"
#include "cli/progress_display.hpp"
#include "cli/report.hpp"
#include "cli/targets.hpp"

namespace pelmo::cli {

struct RunSettings {
  SessionOptions session;
  ProgressDisplay* progress = nullptr;     // null: no progress
  const std::atomic<int>* stop = nullptr;  // non-zero cancels every target's work
};

// Runs the job on every target at once, one thread and one session each; UDP targets share one
// hub. Reports come back in the targets' order.
RunReport run_job(Job& job, const std::vector<Target>& targets, const RunSettings& settings);

}  // namespace pelmo::cli
