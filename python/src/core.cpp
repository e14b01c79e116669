// esforecast._core: the compiled half of the Python package. The package's
// Python modules shape the arguments (numpy arrays, pandas frames) and call
// in here; everything here works on plain arrays.
#include <pybind11/pybind11.h>

#include "bindings.h"

PYBIND11_MODULE(_core, m) {
  m.doc() = "Compiled routines of esforecast; use the esforecast package instead.";
  esf::python::bind_calendar(m);
  esf::python::bind_forecast(m);
}
