#pragma once

#include <pybind11/pybind11.h>

namespace pelmo::python {

namespace py = pybind11;

// Registers _pelmo.FirmwareFile, load_firmware_file, parse_firmware_file and
// canonical_factory_text: the host's inputs, read and checked before any device is asked.
void bind_input_files(py::module_& module);

}  // namespace pelmo::python
