// pelmo-device: a simulated bootloader device that PelmoWin can talk to over UDP and over a
// pseudo-terminal, for end-to-end tests and for trying the program without hardware.

#include <fstream>
#include <iostream>
#include <optional>
#include <string_view>
#include <vector>

#include "simulator/device.hpp"
#include "simulator/options.hpp"
#include "simulator/request_log.hpp"
#include "simulator/responder.hpp"
#include "simulator/server.hpp"
#include "simulator/state_store.hpp"

namespace {

using namespace pelmo::sim;

constexpr int EXIT_BAD_ARGUMENTS = 2;

void preload(Device& device, const std::string& path, Area area) {
  if (path.empty()) {
    return;
  }
  if (!device.load_area(area, read_file_bytes(path))) {
    throw StateError(path + " is larger than the " + std::string(area_name(area)) + " area");
  }
}

int run(const SimulatorOptions& options) {
  Device device(options.device);
  std::optional<StateStore> store;
  if (!options.state_dir.empty()) {
    store.emplace(options.state_dir);
    store->restore(device);
    device.attach_storage(&*store);
  }
  preload(device, options.load_firmware, Area::firmware);
  preload(device, options.load_factory, Area::factory);
  preload(device, options.load_calib, Area::calib);
  preload(device, options.load_calib_backup, Area::calib_backup);

  std::ofstream log_file;
  if (!options.log_path.empty()) {
    log_file.open(options.log_path, std::ios::out | std::ios::trunc);
    if (!log_file) {
      throw StateError("cannot write log file " + options.log_path);
    }
  }
  RequestLog log(options.log_path.empty() ? std::cout : log_file);
  Responder responder(device, options.faults, log);
  Server server(options, responder, std::cout);
  server.open();
  server.serve();
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string_view> arguments(argv + 1, argv + argc);
  SimulatorOptions options;
  try {
    options = parse_options(arguments);
  } catch (const UsageError& error) {
    std::cerr << "pelmo-device: " << error.what() << '\n' << usage_text();
    return EXIT_BAD_ARGUMENTS;
  }
  if (options.help) {
    std::cout << usage_text();
    return 0;
  }
  try {
    return run(options);
  } catch (const std::exception& error) {
    std::cerr << "pelmo-device: " << error.what() << std::endl;
    return 1;
  }
}
