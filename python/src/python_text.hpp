#pragma once

#include <pybind11/pybind11.h>

#include <string>
#include <string_view>

#include "pelmo/session/outcome.hpp"

namespace pelmo::python {

namespace py = pybind11;

// A failed library call on its way to Python: the module turns it into
// _pelmo.Failure(kind, code, message), which the package maps onto its exception classes.
struct OperationFailure {
  Outcome outcome;
};

// Throws OperationFailure for a failed outcome.
void require_success(const Outcome& outcome);
// A failure of the host's input (a file, a table text), which has no result code of its own.
[[noreturn]] void fail_input(std::string message);

// Texts of the device's records and tables are bytes in no particular encoding: each byte is one
// character, so every text reads and writes back unchanged.
py::str device_text(std::string_view bytes);
// The library's own texts (messages, device names) are UTF-8; a stray byte shows as U+FFFD.
py::str host_text(std::string_view text);

// Registers _pelmo.Failure and its translation.
void bind_failure(py::module_& module);

}  // namespace pelmo::python
