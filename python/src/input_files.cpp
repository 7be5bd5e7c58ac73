#include "python/src/input_files.hpp"

#include <array>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "pelmo/formats/factory_table_text.hpp"
#include "pelmo/formats/firmware_file.hpp"
#include "python/src/python_text.hpp"

namespace pelmo::python {
namespace {

constexpr std::array<FirmwareFormat, 4> FORMATS{FirmwareFormat::raw, FirmwareFormat::intel_hex,
                                                FirmwareFormat::srecord, FirmwareFormat::elf};

// A format by its name ("intel-hex") or by a file extension that names it ("hex", ".s19").
std::optional<FirmwareFormat> format_named(const std::string& name) {
  for (const FirmwareFormat format : FORMATS) {
    if (firmware_format_name(format) == name) {
      return format;
    }
  }
  return firmware_format_of("image." + (name.starts_with('.') ? name.substr(1) : name));
}

std::shared_ptr<FirmwareFile> loaded(FirmwareFileLoad load) {
  if (!load.file) {
    fail_input(std::move(load.error));
  }
  return std::make_shared<FirmwareFile>(std::move(*load.file));
}

}  // namespace

void bind_input_files(py::module_& module) {
  py::class_<FirmwareFile, std::shared_ptr<FirmwareFile>>(
      module, "FirmwareFile", "A firmware file as read, not yet placed into a device's area.")
      .def_property_readonly(
          "format",
          [](const FirmwareFile& file) { return host_text(firmware_format_name(file.format)); },
          "raw, intel-hex, s-record or elf.")
      .def_property_readonly("data_bytes", &FirmwareFile::data_bytes,
                             "The data bytes of all segments.")
      .def_property_readonly("addressed", &FirmwareFile::addressed,
                             "False for raw images, which count from the area's start.")
      .def_property_readonly(
          "segments",
          [](const FirmwareFile& file) {
            py::list segments;
            for (const ImageSegment& segment : file.segments) {
              segments.append(py::make_tuple(
                  segment.address, py::bytes(reinterpret_cast<const char*>(segment.bytes.data()),
                                             segment.bytes.size())));
            }
            return segments;
          },
          "(address, bytes) of each segment in the file's order.");

  module.def(
      "load_firmware_file",
      [](const std::string& path) {
        FirmwareFileLoad load;
        {
          const py::gil_scoped_release released;
          load = load_firmware_file(path);
        }
        return loaded(std::move(load));
      },
      "Reads a firmware file in the format its extension names.", py::arg("path"));

  module.def(
      "parse_firmware_file",
      [](const std::string& format, const py::bytes& content, const std::string& name) {
        const std::optional<FirmwareFormat> parsed = format_named(format);
        if (!parsed) {
          throw py::value_error("unknown firmware format: " + format);
        }
        const std::string_view bytes = content;
        return loaded(parse_firmware_file(
            *parsed, std::span(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()),
            name));
      },
      "Reads firmware file contents already in memory; `name` is used in errors.",
      py::arg("format"), py::arg("content"), py::arg("name"));

  module.def(
      "canonical_factory_text",
      [](const py::bytes& text) {
        FactoryTable table{};
        const FactoryTextCheck check = check_factory_table_text(std::string_view(text), table);
        if (!check.ok) {
          fail_input(check.message());
        }
        return device_text(factory_table_text(table));
      },
      "Checks a factory table text strictly and returns it as the device's table prints.",
      py::arg("text"));
}

}  // namespace pelmo::python
