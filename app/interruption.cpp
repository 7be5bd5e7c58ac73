#include "app/interruption.hpp"

#include <atomic>
#include <string>

#include "pelmo/transport/port_layer.hpp"

namespace pelmo {
namespace {

// Written from a signal handler (or a console control thread on Windows): a lock-free atomic is
// the one kind of object both may touch. 0: no stop requested.
std::atomic<int> stop_signal{0};
static_assert(std::atomic<int>::is_always_lock_free);

void on_stop_signal(int signal_number) {
  note_interrupt(signal_number);
}

}  // namespace

void watch_for_interrupts() {
  port::install_interrupt_handler(on_stop_signal);
}

void note_interrupt(int signal_number) {
  stop_signal.store(signal_number, std::memory_order_relaxed);
}

void clear_interrupt() {
  stop_signal.store(0, std::memory_order_relaxed);
}

void stop_if_interrupted() {
  const int signal_number = stop_signal.load(std::memory_order_relaxed);
  if (signal_number != 0) {
    throw RunInterrupted{signal_number};
  }
}

ResultCode changing_firmware(const std::function<ResultCode()>& change) {
  try {
    return change();
  } catch (RunInterrupted& stop) {
    stop.firmware_incomplete = true;
    throw;
  }
}

int run_until_interrupted(Console& console, const std::function<int()>& run) {
  try {
    return run();
  } catch (const RunInterrupted& stop) {
    console.end_line();
    std::string name(port::interrupt_signal_name(stop.signal_number));
    if (name.empty()) {
      name = "unknown";
    }
    console.print("Interrupted: the run was stopped by signal %d (%s)\n", stop.signal_number,
                  name.c_str());
    if (stop.firmware_incomplete) {
      console.write_line("The device's firmware is incomplete: write it again");
    }
    return -1;
  }
}

}  // namespace pelmo
