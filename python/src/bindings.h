// The parts of the extension module esforecast._core, each bound by its own
// unit.
#pragma once

#include <pybind11/pybind11.h>

namespace esf::python {

// Calendar arithmetic on arrays: count, advance, season, describe, default_format.
void bind_calendar(pybind11::module_& m);
// Many series through the runner: run, families.
void bind_forecast(pybind11::module_& m);

}  // namespace esf::python
