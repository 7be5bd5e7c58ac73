#pragma once

#include <pybind11/pybind11.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "pelmo/session/device_session.hpp"
#include "pelmo/transport/udp_hub.hpp"

namespace pelmo::python {

namespace py = pybind11;

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
  template <typename Operation>
  Outcome run(const py::object& progress, Operation&& operation);

 private:
  StepObserver observer(PyObject* callback);

  std::mutex mutex_;  // one operation at a time; never taken while holding the interpreter lock
  std::atomic<bool> cancel_{false};
  std::string name_;
  std::shared_ptr<UdpHub> hub_;  // declared before the session: the link closes first
  DeviceSession session_;
};

template <typename Operation>
Outcome PythonDevice::run(const py::object& progress, Operation&& operation) {
  // The caller's argument keeps the callable alive for the whole call.
  PyObject* callback = progress.is_none() ? nullptr : progress.ptr();
  const py::gil_scoped_release released;
  const std::lock_guard lock(mutex_);
  cancel_ = false;
  session_.set_observer(callback == nullptr ? StepObserver{} : observer(callback));
  Outcome outcome = operation(session_);
  session_.set_observer({});
  return outcome;
}

// Registers _pelmo.Session.
void bind_device(py::module_& module);

}  // namespace pelmo::python
