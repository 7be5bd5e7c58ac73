#include "cli/program.hpp"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <optional>
#include <stop_token>
#include <thread>

#include "cli/json_report.hpp"
#include "cli/ports_command.hpp"
#include "cli/run.hpp"
#include "cli/text_report.hpp"
#include "pelmo/transport/port_layer.hpp"
#include "pelmo/transport/terminal.hpp"

namespace pelmo::cli {
namespace {

constexpr int EXIT_OK = 0;
constexpr int EXIT_FAILED = 1;
constexpr int EXIT_REFUSED = 2;
constexpr int STDERR_NUMBER = 2;

// Ctrl+C, SIGTERM and SIGHUP cancel every target's work; each ends at its next exchange.
std::atomic<int> stop_signal{0};
void note_stop(int signal_number) {
  stop_signal = signal_number;
}

void print(std::FILE* stream, const std::string& text) {
  std::fwrite(text.data(), 1, text.size(), stream);
  std::fflush(stream);
}

int refuse(bool json, std::string_view command, const std::string& error) {
  print(stderr, "pelmo: " + error + "\n");
  if (json) {
    print(stdout, json_refusal(command, error));
  }
  return EXIT_REFUSED;
}

std::uint64_t now_ms() {
  return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                        std::chrono::steady_clock::now().time_since_epoch())
                                        .count());
}

std::optional<ProgressDisplay> make_progress(const CommandLine& line,
                                             const std::vector<Target>& targets) {
  if (line.no_progress) {
    return std::nullopt;
  }
  const bool bars =
      port::stream_is_terminal(STDERR_NUMBER) && port::enable_terminal_sequences(STDERR_NUMBER);
  std::vector<std::string> names;
  for (const Target& target : targets) {
    names.push_back(target.name);
  }
  return std::optional<ProgressDisplay>(
      std::in_place, bars ? ProgressStyle::bars : ProgressStyle::lines, std::move(names),
      [](std::string_view text) {
        std::fwrite(text.data(), 1, text.size(), stderr);
        std::fflush(stderr);
      },
      now_ms, port::terminal_columns(STDERR_NUMBER));
}

int run_on_targets(const CommandLine& line) {
  const std::string_view command = traits_of(line.command).name;
  const ResolvedTargets resolved = resolve_targets(line.targets);
  if (!resolved.error.empty()) {
    return refuse(line.json, command, resolved.error);
  }
  if (resolved.targets.empty()) {
    return refuse(line.json, command, "no target: name devices with --udp ADDR or --serial PORT");
  }
  PreparedJob prepared = prepare_job(line, resolved.targets);
  if (!prepared.job) {
    return refuse(line.json, command, prepared.error);
  }

  port::install_interrupt_handler(note_stop);
  std::optional<ProgressDisplay> progress = make_progress(line, resolved.targets);
  RunReport run;
  {
    // Moves the bars' rates and ETAs between the sessions' reports.
    std::jthread timer;
    if (progress) {
      timer = std::jthread([&progress](std::stop_token stop) {
        while (!stop.stop_requested()) {
          std::this_thread::sleep_for(
              std::chrono::milliseconds(ProgressDisplay::REDRAW_INTERVAL_MS));
          progress->tick();
        }
      });
    }
    const RunSettings settings{
        .session = {.attempts = line.attempts, .fixed_wait_ms = line.timeout_ms},
        .progress = progress ? &*progress : nullptr,
        .stop = &stop_signal};
    run = run_job(*prepared.job, resolved.targets, settings);
  }
  if (progress) {
    progress->close();
  }
  print(stdout, line.json ? json_report(run) : text_report(run));
  if (const int signal_number = stop_signal.load(); signal_number != 0) {
    const auto cancelled = std::count_if(run.targets.begin(), run.targets.end(), [](const auto& t) {
      return t.outcome.kind == FailureKind::cancelled;
    });
    print(stderr, "pelmo: stopped by " + std::string(port::interrupt_signal_name(signal_number)) +
                      "; " + std::to_string(cancelled) + " target(s) cancelled\n");
    return EXIT_FAILED;
  }
  return run.ok() ? EXIT_OK : EXIT_FAILED;
}

}  // namespace

int run_program(const std::vector<std::string>& arguments) {
  const ParsedCommandLine parsed = parse_command_line(arguments);
  if (!parsed.line) {
    if (parsed.exit_status == 0) {
      print(stdout, parsed.help);
      return EXIT_OK;
    }
    const bool json = std::find(arguments.begin(), arguments.end(), "--json") != arguments.end();
    print(stderr, "pelmo: " + parsed.error + "\nRun with --help for more information.\n");
    if (json) {
      print(stdout, json_refusal("", parsed.error));
    }
    return EXIT_REFUSED;
  }
  const CommandLine& line = *parsed.line;
  if (line.command == Command::ports) {
    if (!line.targets.empty()) {
      return refuse(line.json, "ports",
                    "ports lists this host's serial ports and takes no targets");
    }
    print(stdout, ports_listing(line.json));
    return EXIT_OK;
  }
  return run_on_targets(line);
}

}  // namespace pelmo::cli
