// Drives one operation on one or more devices at once with the classic or the fast profile and
// reports, per device and for the whole run, the wall time, the bytes moved and the process's CPU
// time as JSON lines. bench/engine_bench.py starts the simulators and compares the figures.
//
//   pelmo-engine-bench --profile fast|classic --op read|flash [--image FILE] [--size N]
//                      [--attempts N] udp:A.B.C.D|serial:PATH ...
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "pelmo/commands/commands.hpp"
#include "pelmo/formats/number_text.hpp"
#include "pelmo/protocol/result_code.hpp"
#include "pelmo/transport/device_link.hpp"
#include "pelmo/transport/udp_hub.hpp"

namespace {

using Clock = std::chrono::steady_clock;

// Ctrl+C (or SIGTERM, SIGHUP) cancels every device's work; each link then ends with
// RC_CANCELLED at its next send or answer and releases its port.
std::atomic<int> stop_signal{0};
void note_stop(int signal_number) {
  stop_signal = signal_number;
}

struct Options {
  bool fast = true;
  std::string op = "read";
  std::string image_path;
  std::uint32_t size = 1u << 20;  // read buffer
  std::uint16_t attempts = 0;
  std::vector<std::string> targets;
};

struct Outcome {
  pelmo::ResultCode code = pelmo::RC_FAILED;
  double seconds = 0;
  std::uint64_t bytes = 0;
  std::uint32_t done = 0;  // bytes of the last transfer acknowledged (where a cancel left it)
};

[[noreturn]] void usage(const char* why) {
  std::fprintf(stderr, "pelmo-engine-bench: %s\n", why);
  std::exit(2);
}

Options parse(int argc, char** argv) {
  Options options;
  for (int i = 1; i < argc; ++i) {
    const std::string_view arg = argv[i];
    const auto value = [&]() -> std::string_view {
      if (i + 1 >= argc) {
        usage("an option wants a value");
      }
      return argv[++i];
    };
    if (arg == "--profile") {
      const std::string_view profile = value();
      options.fast = profile == "fast";
      if (!options.fast && profile != "classic") {
        usage("--profile is fast or classic");
      }
    } else if (arg == "--op") {
      options.op = value();
    } else if (arg == "--image") {
      options.image_path = value();
    } else if (arg == "--size" || arg == "--attempts") {
      const std::uint64_t max = arg == "--size" ? 0xFFFFFFFFu : 0xFFFFu;
      const pelmo::ParsedNumber number = pelmo::parse_unsigned(value(), 10, max);
      if (number.error != pelmo::NumberError::none) {
        usage("a count is a decimal number");
      }
      if (arg == "--size") {
        options.size = static_cast<std::uint32_t>(number.value);
      } else {
        options.attempts = static_cast<std::uint16_t>(number.value);
      }
    } else {
      options.targets.emplace_back(arg);
    }
  }
  if (options.targets.empty() || (options.op != "read" && options.op != "flash")) {
    usage("usage: --profile fast|classic --op read|flash [--image FILE] TARGET...");
  }
  if (options.op == "flash" && options.image_path.empty()) {
    usage("flash wants --image");
  }
  return options;
}

std::optional<pelmo::DeviceAddress> address_of(std::string_view target) {
  if (target.starts_with("serial:")) {
    return pelmo::SerialPort{std::string(target.substr(7))};
  }
  if (!target.starts_with("udp:")) {
    return std::nullopt;
  }
  const auto address = pelmo::parse_dotted_address(target.substr(4));
  if (!address) {
    return std::nullopt;
  }
  return pelmo::UdpDevice{*address};
}

// UDP devices share one hub (one socket on the protocol port); serial ports have links of their
// own.
Outcome run_one(const Options& options, const pelmo::DeviceAddress& address, pelmo::UdpHub& hub,
                const std::vector<std::uint8_t>& image) {
  Outcome outcome;
  const bool udp = std::holds_alternative<pelmo::UdpDevice>(address);
  pelmo::LinkProfile profile =
      options.fast ? (udp ? pelmo::FAST_UDP_PROFILE : pelmo::FAST_SERIAL_PROFILE)
                   : (udp ? pelmo::CLASSIC_UDP_PROFILE : pelmo::CLASSIC_SERIAL_PROFILE);
  if (options.attempts != 0) {
    profile.max_attempts = options.attempts;
  }
  pelmo::DeviceLink link(pelmo::port::system_port_layer());
  const auto start = Clock::now();
  const pelmo::OpenResult opened =
      udp ? link.open(hub, std::get<pelmo::UdpDevice>(address), profile)
          : link.open(address, profile);
  if (!opened.ok) {
    std::fprintf(stderr, "pelmo-engine-bench: %s\n", opened.message.c_str());
    return outcome;
  }
  link.set_cancel([] { return stop_signal != 0; });
  link.set_transfer_observer(
      [&outcome](const pelmo::TransferProgress& step) { outcome.done = step.done; });
  const pelmo::LinkDriver* driver = link.driver();
  if (options.op == "read") {
    std::vector<std::uint8_t> buffer(options.size);
    std::uint32_t read = 0;
    outcome.code = pelmo::read_firmware(driver, buffer, &read);
    outcome.bytes = read;
  } else {
    link.set_erase_area(image.size());
    outcome.code = pelmo::erase_firmware(driver);
    if (outcome.code == pelmo::RC_OK) {
      outcome.code = pelmo::write_firmware(driver, image, static_cast<std::uint32_t>(image.size()));
    }
    if (outcome.code == pelmo::RC_OK) {
      outcome.code = pelmo::verify_firmware(driver, image);
    }
    outcome.bytes = outcome.code == pelmo::RC_OK ? image.size() : 0;
  }
  outcome.seconds = std::chrono::duration<double>(Clock::now() - start).count();
  return outcome;
}

}  // namespace

int main(int argc, char** argv) {
  const Options options = parse(argc, argv);
  pelmo::port::install_interrupt_handler(note_stop);
  std::vector<std::uint8_t> image;
  if (!options.image_path.empty()) {
    std::ifstream file(options.image_path, std::ios::binary);
    image.assign(std::istreambuf_iterator<char>(file), {});
    if (image.empty()) {
      usage("the image cannot be read or is empty");
    }
  }
  std::vector<pelmo::DeviceAddress> addresses;
  for (const std::string& target : options.targets) {
    const auto address = address_of(target);
    if (!address) {
      usage("a target is udp:A.B.C.D or serial:PATH");
    }
    addresses.push_back(*address);
  }

  pelmo::UdpHub hub(pelmo::port::system_port_layer());
  for (const pelmo::DeviceAddress& address : addresses) {
    if (const auto* udp = std::get_if<pelmo::UdpDevice>(&address); udp && !hub.is_open()) {
      if (const pelmo::OpenResult opened = hub.open_for(udp->address); !opened.ok) {
        usage(opened.message.c_str());
      }
    }
  }
  std::vector<Outcome> outcomes(addresses.size());
  const std::clock_t cpu_start = std::clock();
  const auto start = Clock::now();
  {
    std::vector<std::jthread> workers;
    for (std::size_t i = 0; i < addresses.size(); ++i) {
      workers.emplace_back([&, i] { outcomes[i] = run_one(options, addresses[i], hub, image); });
    }
  }
  const double wall = std::chrono::duration<double>(Clock::now() - start).count();
  const double cpu = static_cast<double>(std::clock() - cpu_start) / CLOCKS_PER_SEC;

  bool all_ok = true;
  for (std::size_t i = 0; i < outcomes.size(); ++i) {
    const Outcome& o = outcomes[i];
    all_ok = all_ok && o.code == pelmo::RC_OK;
    std::printf(
        "{\"target\": \"%s\", \"code\": %d, \"message\": \"%.*s\", \"seconds\": %.4f, "
        "\"bytes\": %llu, \"done\": %u}\n",
        options.targets[i].c_str(), o.code, static_cast<int>(pelmo::result_text(o.code).size()),
        pelmo::result_text(o.code).data(), o.seconds, static_cast<unsigned long long>(o.bytes),
        o.done);
  }
  std::printf("{\"wall\": %.4f, \"cpu\": %.4f, \"ok\": %s}\n", wall, cpu,
              all_ok ? "true" : "false");
  return all_ok ? 0 : 1;
}
