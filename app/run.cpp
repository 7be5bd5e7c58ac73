#include "app/run.hpp"

#include <memory>
#include <new>

#include "app/interruption.hpp"
#include "app/link_binding.hpp"
#include "app/operation_handlers.hpp"
#include "app/usage.hpp"
#include "pelmo/transport/device_link.hpp"

namespace pelmo {
namespace {

constexpr int EXIT_OK = 0;
constexpr int EXIT_FAILED = -1;

DeviceAddress device_address(const CommandLine& command_line) {
  if (command_line.uses_udp()) {
    return UdpDevice{command_line.ip_address, DEVICE_UDP_PORT};
  }
  return ComPort{static_cast<int>(*command_line.connection)};
}

}  // namespace

LinkProfile link_profile(const CommandLine& command_line) {
  return with_extra_timeout(command_line.uses_udp() ? CLASSIC_UDP_PROFILE : CLASSIC_SERIAL_PROFILE,
                            command_line.extra_timeout);
}

int run_program(std::span<const char* const> arguments, Console& console, port::PortLayer& ports) {
  const std::uint32_t run_start = console.now();
  print_banner(console.stream());

  const std::unique_ptr<std::uint8_t[]> image(new (std::nothrow) std::uint8_t[IMAGE_BUFFER_SIZE]);
  if (!image) {
    console.write_line("Error allocating memory !!!\n");
    return EXIT_FAILED;
  }

  const auto command_line = parse_command_line(arguments);
  if (!command_line) {
    console.write_line("Bad params !!!\n");
    print_usage(console.stream());
    return EXIT_FAILED;
  }

  // Every wait and every acknowledged step passes here: a stop signal ends the run from here.
  DeviceLink link(ports, [&console] {
    console.show_progress();
    stop_if_interrupted();
  });
  if (const OpenResult opened =
          link.open(device_address(*command_line), link_profile(*command_line));
      !opened.ok) {
    if (command_line->uses_udp()) {
      console.write_line("Can not open UDP port");
    } else {
      console.write_line(opened.message);
      console.write_line("Can not open comport");
    }
    return EXIT_FAILED;
  }
  stop_if_interrupted();
  const LinkBinding binding(link.driver());
  if (binding.result() < RC_OK) {
    console.write_line("Can not init PelMo library");
    return EXIT_FAILED;
  }

  console.begin_status("", false);
  RunRecords records;
  RunContext run{console, bound_link_driver(), std::span(image.get(), IMAGE_BUFFER_SIZE),
                 *command_line, records};
  const ResultCode result = run_operation(run);

  if (result < RC_OK) {
    console.print("Last operation error code: %d\n", result);
  }
  console.print("\nOperations last %d s\n",
                static_cast<int>(elapsed_seconds(run_start, console.now())));
  link.close();
  return result < RC_OK ? EXIT_FAILED : EXIT_OK;
}

}  // namespace pelmo
