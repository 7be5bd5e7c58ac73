#pragma once

#include <functional>

#include "app/console.hpp"
#include "pelmo/protocol/result_code.hpp"

namespace pelmo {

// Thrown once a stop signal has arrived, from the progress callback and before each step: the stack
// unwinds, so the link is released the normal way (line settings restored, exclusive access
// dropped, port closed) and open files are closed.
struct RunInterrupted {
  int signal_number;
  // The interrupt stopped a firmware erase or write: the device holds no complete firmware.
  bool firmware_incomplete = false;
};

// Sends SIGINT, SIGTERM and SIGHUP (Ctrl+C and its kin on Windows) to the run's stop flag, and
// lets console writes to a closed pipe fail quietly. Called once by the program before it runs.
void watch_for_interrupts();

// Records that `signal_number` asked the run to stop; what the signal handler does.
void note_interrupt(int signal_number);
// Forgets a recorded stop request.
void clear_interrupt();
// Throws RunInterrupted when a stop request has been recorded.
void stop_if_interrupted();

// Runs `change`, a step that erases or writes the firmware: an interrupt that stops it leaves the
// device without complete firmware, and says so.
ResultCode changing_firmware(const std::function<ResultCode()>& change);

// Runs `run` (one run of the program, giving its exit status). When it is interrupted, closes the
// status line, writes "Interrupted: the run was stopped by signal N (NAME)" and, if the firmware
// was being changed, "The device's firmware is incomplete: write it again", and gives -1.
int run_until_interrupted(Console& console, const std::function<int()>& run);

}  // namespace pelmo
