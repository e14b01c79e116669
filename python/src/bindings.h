// The parts of the extension module esforecast._core, each bound by its own
// unit.
#pragma once

#include <pybind11/pybind11.h>

#include "runner/loader.h"

namespace esf::python {

// The module image the extension is linked with, started as the host starts
// it (once): custom intervals and options need it before any routine runs.
runner::Loader& module_loader();

// Calendar arithmetic on arrays: count, advance, season, describe, default_format.
void bind_calendar(pybind11::module_& m);
// Many series through the runner: run, families.
void bind_forecast(pybind11::module_& m);

}  // namespace esf::python
