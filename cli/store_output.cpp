#include "cli/target_commands.hpp"

namespace pelmo::cli {

void store_output(OutputFile& output, std::span<const std::uint8_t> data, TargetReport& report) {
  output.write(data);
  const std::string failure = output.commit();
  if (!failure.empty()) {
    report.output_failed = true;
    report.outcome.message = failure;
    return;
  }
  report.file = output.path();
  report.outcome.message += " into " + output.path();
}

}  // namespace pelmo::cli
