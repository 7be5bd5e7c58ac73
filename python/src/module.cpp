#include <pybind11/pybind11.h>

#include "pelmo/version.hpp"
#include "python/src/input_files.hpp"
#include "python/src/python_device.hpp"
#include "python/src/python_text.hpp"

PYBIND11_MODULE(_pelmo, module) {
  module.doc() =
      "The PelMo library for Python: device sessions, firmware files and factory table texts. "
      "Use it through the pelmo package.";
  module.attr("VERSION") = pelmo::python::host_text(pelmo::VERSION);
  pelmo::python::bind_failure(module);
  pelmo::python::bind_input_files(module);
  pelmo::python::bind_device(module);
}
