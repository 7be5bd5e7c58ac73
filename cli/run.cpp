#include "cli/run.hpp"

#include <chrono>
#include <thread>

#include "cli/target_commands.hpp"
#include "pelmo/transport/udp_hub.hpp"

namespace pelmo::cli {
namespace {

using Clock = std::chrono::steady_clock;

TargetReport link_failure(const Target& target, const std::string& message) {
  TargetReport report;
  report.target = target.name;
  report.outcome.code = RC_FAILED;
  report.outcome.kind = FailureKind::link;
  report.outcome.message = message;
  return report;
}

void run_command(DeviceSession& session, Job& job, OutputFile* output, TargetReport& report) {
  switch (job.command) {
    case Command::flash:
    case Command::write:
    case Command::verify:
    case Command::erase:
    case Command::read:
      run_firmware_command(session, job, output, report);
      break;
    case Command::info:
    case Command::control_read:
    case Command::control_clear:
    case Command::restart:
      run_device_command(session, job, report);
      break;
    case Command::ports:
      break;
    default:
      run_table_command(session, job, output, report);
      break;
  }
}

TargetReport run_target(Job& job, const Target& target, std::size_t index, UdpHub* hub,
                        const RunSettings& settings) {
  TargetReport report;
  report.target = target.name;
  const auto start = Clock::now();
  DeviceSession session(port::system_port_layer());
  if (settings.progress != nullptr) {
    session.set_observer([progress = settings.progress, index](const StepProgress& step) {
      progress->update(index, step);
    });
  }
  if (settings.stop != nullptr) {
    session.set_cancel([stop = settings.stop] { return stop->load() != 0; });
  }
  const bool udp = std::holds_alternative<UdpDevice>(target.address);
  report.outcome = session.open(target.address, settings.session, udp ? hub : nullptr);
  if (report.outcome.ok()) {
    OutputFile* output = index < job.outputs.size() ? job.outputs[index].get() : nullptr;
    run_command(session, job, output, report);
    session.close();
  }
  report.seconds = std::chrono::duration<double>(Clock::now() - start).count();
  if (settings.progress != nullptr) {
    settings.progress->finish(index, report.ok());
  }
  return report;
}

}  // namespace

RunReport run_job(Job& job, const std::vector<Target>& targets, const RunSettings& settings) {
  RunReport run{job.command, std::vector<TargetReport>(targets.size())};
  // Devices answer to one port number, so every UDP target goes through one socket.
  UdpHub hub(port::system_port_layer());
  std::string hub_failure;
  for (const Target& target : targets) {
    if (const auto* udp = std::get_if<UdpDevice>(&target.address)) {
      if (const OpenResult opened = hub.open_for(udp->address); !opened.ok) {
        hub_failure = opened.message;
      }
      break;
    }
  }
  {
    std::vector<std::jthread> workers;
    for (std::size_t i = 0; i < targets.size(); ++i) {
      if (!hub_failure.empty() && std::holds_alternative<UdpDevice>(targets[i].address)) {
        run.targets[i] = link_failure(targets[i], hub_failure);
        if (settings.progress != nullptr) {
          settings.progress->finish(i, false);
        }
        continue;
      }
      workers.emplace_back(
          [&, i] { run.targets[i] = run_target(job, targets[i], i, &hub, settings); });
    }
  }
  hub.close();
  return run;
}

}  // namespace pelmo::cli
