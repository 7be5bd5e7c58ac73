#pragma once

#include <pybind11/pybind11.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "pelmo/session/device_session.hpp"
#include "pelmo/transport/udp_hub.hpp"

namespace pelmo::python {

namespace py = pybind11;

// True on the interpreter's main thread, the one that runs signal handlers. Needs the lock.
bool is_main_thread();

// One device as the module's Session class: its own DeviceSession, driven with the interpreter
// lock released. Any thread may call; one operation runs at a time, the others wait their turn
// without holding the lock. UDP devices share their hub with the process's other UDP devices.
class PythonDevice {
 public:
  PythonDevice();
  PythonDevice(const PythonDevice&) = delete;
  PythonDevice& operator=(const PythonDevice&) = delete;
  ~PythonDevice();

  void open(const DeviceAddress& device, const SessionOptions& options);
  void close();
  bool is_open();
  const std::string& name() const { return name_; }
  // Ends the operation under way (if any) with a cancelled outcome; callable from any thread.
  void cancel() { cancel_ = true; }

  // Runs `operation(session)` without the interpreter lock. A progress callable (or None) is
  // called with (device, step, done, total) under the lock; returning False, or raising, cancels.
  // On the main thread a signal (Ctrl+C) cancels too, and its exception is raised afterwards.
  template <typename Operation>
  Outcome run(const py::object& progress, Operation&& operation);

 private:
  StepObserver observer(PyObject* callback);
  // Called between exchanges: runs Python's signal handlers now and then when the operation runs
  // on the main thread; true when one raised (its exception is kept for the caller).
  bool signal_raised();
  // Raises the exception a signal handler raised during the last operation, if any.
  void raise_pending_signal();

  std::mutex mutex_;  // one operation at a time; never taken while holding the interpreter lock
  std::atomic<bool> cancel_{false};
  bool watch_signals_ = false;  // the operation under way runs on the interpreter's main thread
  std::chrono::steady_clock::time_point signals_checked_{};
  py::object signal_error_;  // the exception a signal handler raised, kept under the lock
  std::string name_;
  std::shared_ptr<UdpHub> hub_;  // declared before the session: the link closes first
  DeviceSession session_;
};

template <typename Operation>
Outcome PythonDevice::run(const py::object& progress, Operation&& operation) {
  // The caller's argument keeps the callable alive for the whole call.
  PyObject* callback = progress.is_none() ? nullptr : progress.ptr();
  const bool main_thread = is_main_thread();
  Outcome outcome;
  {
    const py::gil_scoped_release released;
    const std::lock_guard lock(mutex_);
    cancel_ = false;
    watch_signals_ = main_thread;
    session_.set_observer(callback == nullptr ? StepObserver{} : observer(callback));
    outcome = operation(session_);
    session_.set_observer({});
    watch_signals_ = false;
  }
  raise_pending_signal();
  return outcome;
}

// Registers _pelmo.Session.
void bind_device(py::module_& module);

}  // namespace pelmo::python
