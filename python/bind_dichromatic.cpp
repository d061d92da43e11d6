#include "corv/pipeline/dichromatic.h"
#include "python/convert.h"
#include "python/registry.h"

namespace corv::python {

const binder dichromatic_part(44, [](py::module_& m) {
  // The whole call runs without the interpreter lock, so that another thread can
  // ask the logger to abort; it takes the lock back only to build the results.
  m.def(
      "recover_dichromatic_parameters",
      [](const converted_array& I, const converted_array& illuminant,
         const converted_array& wavelengths, int method, int neighbourhood_size, int gray_threshold,
         int verbosity) {
        const cube image = cube_over(I);
        const vector waves = wavelengths.ndim() == 0 ? vector() : vector_over(wavelengths);
        dichromatic_parameters settings;
        settings.method = method;
        settings.neighbourhood_size = neighbourhood_size;
        settings.gray_threshold = gray_threshold;
        matrix k, g;
        cube s;
        if (illuminant.ndim() == 3) {
          recover_dichromatic_parameters(image, cube_over(illuminant), waves, settings, verbosity,
                                         k, g, s);
        } else {
          recover_dichromatic_parameters(image, vector_over(illuminant), waves, settings, verbosity,
                                         k, g, s);
        }
        py::gil_scoped_acquire acquire;
        return py::object(
            py::make_tuple(to_numpy(std::move(k)), to_numpy(std::move(g)), to_numpy(std::move(s))));
      },
      py::arg("I"), py::arg("illuminant"), py::arg("wavelengths"), py::arg("method") = 0,
      py::arg("neighbourhood_size") = 5, py::arg("gray_threshold") = 2, py::arg("verbosity") = 0,
      py::call_guard<py::gil_scoped_release>(),
      "Splits every pixel of I (rows, columns, bands) under I = (g * s + k) * L. The "
      "illuminant L is one spectrum (bands) or one per pixel (rows, columns, bands). Returns "
      "(k, g, s): specularity and shading (rows, columns) and reflectance (rows, columns, "
      "bands).");
});

}  // namespace corv::python
