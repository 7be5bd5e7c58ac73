#include "python/src/python_text.hpp"

#include <utility>

#include "pelmo/protocol/result_code.hpp"

namespace pelmo::python {

void require_success(const Outcome& outcome) {
  if (!outcome.ok()) {
    throw OperationFailure{outcome};
  }
}

void fail_input(std::string message) {
  throw OperationFailure{Outcome{.code = RC_FAILED,
                                 .kind = FailureKind::input,
                                 .message = std::move(message),
                                 .bytes = 0,
                                 .skipped = false}};
}

py::str device_text(std::string_view bytes) {
  return py::reinterpret_steal<py::str>(
      PyUnicode_DecodeLatin1(bytes.data(), static_cast<Py_ssize_t>(bytes.size()), nullptr));
}

py::str host_text(std::string_view text) {
  return py::reinterpret_steal<py::str>(
      PyUnicode_DecodeUTF8(text.data(), static_cast<Py_ssize_t>(text.size()), "replace"));
}

void bind_failure(py::module_& module) {
  // Created once with the module and kept by it; the handle outlives every translation.
  static const py::handle failure_type = py::exception<OperationFailure>(module, "Failure");
  module.attr("Failure").doc() =
      "A failed operation: args are (kind, code, message); the package raises its own classes.";
  py::register_exception_translator([](std::exception_ptr pending) {
    try {
      if (pending) {
        std::rethrow_exception(pending);
      }
    } catch (const OperationFailure& failure) {
      const Outcome& outcome = failure.outcome;
      const py::tuple args = py::make_tuple(host_text(failure_kind_name(outcome.kind)),
                                            outcome.code, host_text(outcome.message));
      PyErr_SetObject(failure_type.ptr(), args.ptr());
    }
  });
}

}  // namespace pelmo::python
