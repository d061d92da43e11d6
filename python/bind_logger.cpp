#include <pybind11/stl.h>

#include "corv/io/logger.h"
#include "python/convert.h"
#include "python/registry.h"

namespace corv::python {

const binder logger_part(10, [](py::module_& m) {
  // A long pipeline call runs without the interpreter lock, so another Python
  // thread can watch its stage and progress and request an abort meanwhile:
  // those are lock-free reads and writes. The calls that take the log's own
  // lock let go of the interpreter while they wait, in case a worker holds it.
  using release = py::call_guard<py::gil_scoped_release>;
  py::class_<logger, std::unique_ptr<logger, py::nodelete>> bound(
      m, "logger", "The library's process-wide log.");
  bound.def(py::init([] { return &logger::instance(); }), py::return_value_policy::reference)
      .def_static("instance", &logger::instance, py::return_value_policy::reference)
      .def(
          "append", [](logger& l, const std::string& text) -> logger& { return l << text; },
          py::return_value_policy::reference, release(),
          "Append text; exactly \"EOL\" ends the line.")
      .def("entries", &logger::entries, release(), "List of (time stamp, line) pairs.")
      .def("clear_entries", &logger::clear_entries, release())
      .def_property("echo", &logger::echo, &logger::set_echo)
      .def("request_abort", &logger::request_abort,
           "Ask the running stage to stop; it raises \"Processing was aborted!\".")
      .def("abort_requested", &logger::abort_requested)
      .def("check_abort", &logger::check_abort)
      .def_property("stage", &logger::stage, &logger::set_stage)
      .def_property("progress", &logger::progress, &logger::set_progress)
      .def("clear_progress", &logger::clear_progress);
  // The numbers the stages write into `stage`.
  bound.attr("stage_illuminant") = static_cast<int>(stage_illuminant);
  bound.attr("stage_reflectance") = static_cast<int>(stage_reflectance);
  bound.attr("stage_materials") = static_cast<int>(stage_materials);
  bound.attr("stage_analysis") = static_cast<int>(stage_analysis);
  bound.attr("stage_classification") = static_cast<int>(stage_classification);
  bound.attr("stage_filter") = static_cast<int>(stage_filter);
});

}  // namespace corv::python
