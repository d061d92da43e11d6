#include <pybind11/stl.h>

#include "corv/io/logger.h"
#include "python/convert.h"
#include "python/registry.h"

namespace corv::python {

const binder logger_part(10, [](py::module_& m) {
  py::class_<logger, std::unique_ptr<logger, py::nodelete>>(m, "logger",
                                                            "The library's process-wide log.")
      .def(py::init([] { return &logger::instance(); }), py::return_value_policy::reference)
      .def_static("instance", &logger::instance, py::return_value_policy::reference)
      .def(
          "append", [](logger& l, const std::string& text) -> logger& { return l << text; },
          py::return_value_policy::reference, "Append text; exactly \"EOL\" ends the line.")
      .def("entries", &logger::entries, "List of (time stamp, line) pairs.")
      .def("clear_entries", &logger::clear_entries)
      .def_property("echo", &logger::echo, &logger::set_echo)
      .def("request_abort", &logger::request_abort)
      .def("abort_requested", &logger::abort_requested)
      .def("check_abort", &logger::check_abort)
      .def_property("stage", &logger::stage, &logger::set_stage)
      .def_property("progress", &logger::progress, &logger::set_progress)
      .def("clear_progress", &logger::clear_progress);
});

}  // namespace corv::python
