#include "python/src/python_device.hpp"

#include <pybind11/stl.h>

#include <utility>
#include <variant>
#include <vector>

#include "pelmo/formats/factory_table_text.hpp"
#include "pelmo/session/target.hpp"
#include "pelmo/transport/port_layer.hpp"
#include "python/src/hub_share.hpp"
#include "python/src/python_text.hpp"

namespace pelmo::python {
namespace {

py::dict firmware_fields(const FirmwareInfo& info) {
  py::dict fields;
  fields["name"] = device_text(field_text(info.name));
  fields["version_major"] = info.version_major;
  fields["version_minor"] = info.version_minor;
  fields["version_patch"] = info.version_patch;
  fields["compile_date"] = device_text(field_text(info.compile_date));
  fields["compile_time"] = device_text(field_text(info.compile_time));
  fields["size"] = info.size;
  fields["crc32"] = info.crc32;
  fields["debug"] = is_debug_build(info);
  return fields;
}

py::dict bootloader_fields(const BootloaderInfo& info) {
  py::dict fields;
  fields["name"] = device_text(field_text(info.name));
  fields["version_major"] = info.version_major;
  fields["version_minor"] = info.version_minor;
  fields["compile_date"] = device_text(field_text(info.compile_date));
  fields["compile_time"] = device_text(field_text(info.compile_time));
  fields["fw_address"] = info.fw_address;
  fields["fw_max_size"] = info.fw_max_size;
  return fields;
}

py::dict control_fields(const ControlRecord& record) {
  py::dict fields;
  fields["struct_version"] = record.struct_version;
  fields["reset_count"] = record.reset_count;
  return fields;
}

// What an operation that moves data reports: (message, bytes, skipped).
py::tuple summary(const Outcome& outcome) {
  require_success(outcome);
  return py::make_tuple(host_text(outcome.message), outcome.bytes, outcome.skipped);
}

py::bytes as_bytes(const std::vector<std::uint8_t>& data) {
  return {reinterpret_cast<const char*>(data.data()), data.size()};
}

// The bytes of a Python bytes object, copied while the interpreter lock is held.
std::vector<std::uint8_t> byte_copy(const py::bytes& data) {
  const std::string_view view = data;
  return {view.begin(), view.end()};
}

// A factory table text checked strictly, as the device will hold it.
FactoryTable factory_table_of(const py::bytes& text) {
  FactoryTable table{};
  const FactoryTextCheck check = check_factory_table_text(std::string_view(text), table);
  if (!check.ok) {
    fail_input(check.message());
  }
  return table;
}

CalibrationTableKind calibration_kind(bool backup) {
  return backup ? CalibrationTableKind::backup : CalibrationTableKind::main;
}

SessionOptions session_options(std::uint16_t attempts, std::uint32_t fixed_wait_ms) {
  return SessionOptions{.attempts = attempts, .fixed_wait_ms = fixed_wait_ms};
}

}  // namespace

// How often a long operation on the main thread lets Python's signal handlers run.
constexpr std::chrono::milliseconds SIGNAL_CHECK_INTERVAL{50};

bool is_main_thread() {
  // Kept for the life of the process: a static object would be released after the interpreter.
  static const py::handle threading = py::module_::import("threading").release();
  return threading.attr("current_thread")().is(threading.attr("main_thread")());
}

PythonDevice::PythonDevice() : session_(port::system_port_layer()) {
  session_.set_cancel([this] { return cancel_ || signal_raised(); });
}

bool PythonDevice::signal_raised() {
  const auto now = std::chrono::steady_clock::now();
  if (!watch_signals_ || now - signals_checked_ < SIGNAL_CHECK_INTERVAL) {
    return false;
  }
  signals_checked_ = now;
  const py::gil_scoped_acquire acquired;
  if (PyErr_CheckSignals() == 0) {
    return false;
  }
  signal_error_ = py::error_already_set().value();
  cancel_ = true;
  return true;
}

void PythonDevice::raise_pending_signal() {
  if (!signal_error_) {
    return;
  }
  const py::object error = std::move(signal_error_);
  PyErr_SetObject(reinterpret_cast<PyObject*>(Py_TYPE(error.ptr())), error.ptr());
  throw py::error_already_set();
}

PythonDevice::~PythonDevice() {
  session_.close();
}

void PythonDevice::open(const DeviceAddress& device, const SessionOptions& options) {
  const py::gil_scoped_release released;
  const std::lock_guard lock(mutex_);
  session_.close();
  hub_.reset();
  if (const UdpDevice* udp = std::get_if<UdpDevice>(&device)) {
    SharedHub shared = share_udp_hub(port::system_port_layer(), *udp);
    if (!shared.hub) {
      throw OperationFailure{Outcome{.code = RC_FAILED,
                                     .kind = FailureKind::link,
                                     .message = "cannot open the UDP hub: " + shared.result.message,
                                     .bytes = 0,
                                     .skipped = false}};
    }
    hub_ = std::move(shared.hub);
  }
  const Outcome opened = session_.open(device, options, hub_.get());
  if (!opened.ok()) {
    hub_.reset();
  }
  name_ = session_.name();
  require_success(opened);
}

void PythonDevice::close() {
  const py::gil_scoped_release released;
  const std::lock_guard lock(mutex_);
  session_.close();
  hub_.reset();
}

bool PythonDevice::is_open() {
  const py::gil_scoped_release released;
  const std::lock_guard lock(mutex_);
  return session_.is_open();
}

StepObserver PythonDevice::observer(PyObject* callback) {
  return [this, callback](const StepProgress& progress) {
    if (cancel_) {
      return;
    }
    const py::gil_scoped_acquire acquired;
    try {
      const py::object keep_going =
          py::handle(callback)(host_text(progress.device), host_text(step_name(progress.step)),
                               progress.done, progress.total);
      if (keep_going.ptr() == Py_False) {
        cancel_ = true;
      }
    } catch (py::error_already_set& error) {
      // The package's wrapper keeps the caller's exception itself; this one is reported, and
      // the operation stops cleanly between two exchanges.
      cancel_ = true;
      error.discard_as_unraisable("pelmo progress callback");
    }
  };
}

void bind_device(py::module_& module) {
  using Device = PythonDevice;
  const auto progress = py::arg("progress") = py::none();
  py::class_<Device>(module, "Session",
                     "One device's session; the package's Device wraps it. Every call releases "
                     "the interpreter lock while it talks to the device.")
      .def(py::init<>())
      .def(
          "open_udp",
          [](Device& device, const std::string& address, std::uint16_t port, std::uint16_t attempts,
             std::uint32_t fixed_wait_ms) {
            std::optional<UdpDevice> target = parse_udp_target(address);
            if (!target) {
              throw py::value_error("not an IPv4 address (four numbers of 0 to 255): " + address);
            }
            target->port = port;
            device.open(*target, session_options(attempts, fixed_wait_ms));
          },
          "Opens the UDP device at `address` through the process's shared hub.", py::arg("address"),
          py::arg("port"), py::arg("attempts"), py::arg("fixed_wait_ms"))
      .def(
          "open_serial",
          [](Device& device, const std::string& port, std::uint16_t attempts,
             std::uint32_t fixed_wait_ms) {
            std::optional<SerialPort> target = parse_serial_target(port);
            if (!target) {
              throw py::value_error("no serial port named");
            }
            device.open(*target, session_options(attempts, fixed_wait_ms));
          },
          "Opens the serial device at `port` (COMn or a device path), 115200 8N1.", py::arg("port"),
          py::arg("attempts"), py::arg("fixed_wait_ms"))
      .def("close", &Device::close, "Closes the link; the session may be opened again.")
      .def_property_readonly("is_open", &Device::is_open, "True while the link is open.")
      .def_property_readonly(
          "name", [](const Device& device) { return host_text(device.name()); },
          "The device's name: udp:ADDRESS or serial:PORT.")
      .def("cancel", &Device::cancel, "Ends the operation under way; any thread may call it.")
      .def(
          "firmware_info",
          [](Device& device, const py::object& callback) {
            FirmwareInfo info{};
            require_success(
                device.run(callback, [&](DeviceSession& s) { return s.firmware_info(info); }));
            return firmware_fields(info);
          },
          "The firmware information header as a dict.", progress)
      .def(
          "bootloader_info",
          [](Device& device, const py::object& callback) {
            BootloaderInfo info{};
            require_success(
                device.run(callback, [&](DeviceSession& s) { return s.bootloader_info(info); }));
            return bootloader_fields(info);
          },
          "The bootloader information as a dict.", progress)
      .def(
          "flash",
          [](Device& device, const FirmwareFile& file, bool verify, bool skip_identical,
             const py::object& callback) {
            const FlashOptions options{.verify = verify, .skip_identical = skip_identical};
            return summary(
                device.run(callback, [&](DeviceSession& s) { return s.flash(file, options); }));
          },
          "Erases, writes and verifies; returns (message, bytes, skipped).", py::arg("file"),
          py::arg("verify"), py::arg("skip_identical"), progress)
      .def(
          "write",
          [](Device& device, const FirmwareFile& file, const py::object& callback) {
            return summary(device.run(callback, [&](DeviceSession& s) { return s.write(file); }));
          },
          "Writes without erasing first; returns (message, bytes, skipped).", py::arg("file"),
          progress)
      .def(
          "verify",
          [](Device& device, const FirmwareFile& file, const py::object& callback) {
            return summary(device.run(callback, [&](DeviceSession& s) { return s.verify(file); }));
          },
          "Has the device compare its firmware; returns (message, bytes, skipped).",
          py::arg("file"), progress)
      .def(
          "erase",
          [](Device& device, const py::object& callback) {
            return summary(device.run(callback, [&](DeviceSession& s) { return s.erase(); }));
          },
          "Erases the firmware area; returns (message, bytes, skipped).", progress)
      .def(
          "read",
          [](Device& device, const py::object& callback) {
            std::vector<std::uint8_t> firmware;
            require_success(
                device.run(callback, [&](DeviceSession& s) { return s.read(firmware); }));
            return as_bytes(firmware);
          },
          "The firmware as the device holds it.", progress)
      .def(
          "read_factory",
          [](Device& device, const py::object& callback) {
            FactoryTable table{};
            require_success(
                device.run(callback, [&](DeviceSession& s) { return s.read_factory(table); }));
            return device_text(factory_table_text(table));
          },
          "The factory table in its text form.", progress)
      .def(
          "write_factory",
          [](Device& device, const py::bytes& text, const py::object& callback) {
            const FactoryTable table = factory_table_of(text);
            return summary(
                device.run(callback, [&](DeviceSession& s) { return s.write_factory(table); }));
          },
          "Erases, writes and verifies the factory table given as strict text.", py::arg("text"),
          progress)
      .def(
          "verify_factory",
          [](Device& device, const py::bytes& text, const py::object& callback) {
            const FactoryTable table = factory_table_of(text);
            return summary(
                device.run(callback, [&](DeviceSession& s) { return s.verify_factory(table); }));
          },
          "Has the device compare its factory table with the strict text.", py::arg("text"),
          progress)
      .def(
          "erase_factory",
          [](Device& device, const py::object& callback) {
            return summary(
                device.run(callback, [&](DeviceSession& s) { return s.erase_factory(); }));
          },
          "Erases the factory table.", progress)
      .def(
          "read_calibration",
          [](Device& device, bool backup, const py::object& callback) {
            std::vector<std::uint8_t> data;
            require_success(device.run(callback, [&](DeviceSession& s) {
              return s.read_calibration(calibration_kind(backup), data);
            }));
            return as_bytes(data);
          },
          "A calibration table's bytes.", py::arg("backup"), progress)
      .def(
          "write_calibration",
          [](Device& device, const py::bytes& data, bool backup, const py::object& callback) {
            const std::vector<std::uint8_t> bytes = byte_copy(data);
            return summary(device.run(callback, [&](DeviceSession& s) {
              return s.write_calibration(calibration_kind(backup), bytes);
            }));
          },
          "Erases, writes and verifies a calibration table.", py::arg("data"), py::arg("backup"),
          progress)
      .def(
          "verify_calibration",
          [](Device& device, const py::bytes& data, bool backup, const py::object& callback) {
            const std::vector<std::uint8_t> bytes = byte_copy(data);
            return summary(device.run(callback, [&](DeviceSession& s) {
              return s.verify_calibration(calibration_kind(backup), bytes);
            }));
          },
          "Has the device compare a calibration table.", py::arg("data"), py::arg("backup"),
          progress)
      .def(
          "erase_calibration",
          [](Device& device, bool backup, const py::object& callback) {
            return summary(device.run(callback, [&](DeviceSession& s) {
              return s.erase_calibration(calibration_kind(backup));
            }));
          },
          "Erases a calibration table.", py::arg("backup"), progress)
      .def(
          "read_control",
          [](Device& device, const py::object& callback) {
            ControlRecord record{};
            require_success(
                device.run(callback, [&](DeviceSession& s) { return s.read_control(record); }));
            return control_fields(record);
          },
          "The bootloader's control record as a dict.", progress)
      .def(
          "clear_control",
          [](Device& device, const py::object& callback) {
            return summary(
                device.run(callback, [&](DeviceSession& s) { return s.clear_control(); }));
          },
          "Clears the control record.", progress)
      .def(
          "restart",
          [](Device& device, const py::object& callback) {
            return summary(device.run(callback, [&](DeviceSession& s) { return s.restart(); }));
          },
          "Restarts the device out of its bootloader; the link closes.", progress);
}

}  // namespace pelmo::python
