// The exported drivers of a family, written once.  A family's header declares
// them with ESF_DECLARE_DRIVERS (and ESF_DECLARE_TABLE_WRITER), its .cpp
// defines them with ESF_DEFINE_DRIVERS (and ESF_DEFINE_TABLE_WRITER): the
// estimation frame, the forecast driver and the table writer instantiated
// for the family's trait F.
//
//   int n<f>fit(WINMODEL* model)                     frame::fit<F>
//       Estimates the weights over model->fitrange, the backward pass starting
//       from model->svi.  Fills model->pest (parms, stderr, tvals, mse) and
//       model->fitend, and leaves the last evaluated state in model->smooth and
//       its time-0 state in model->startvals.  Returns 0 (converged), 90
//       (usable weights, convergence test not met), -8 (no usable grid start)
//       or the code of the family's setup: -100 (no memory for the factors'
//       derivative arrays) or -2 (season codes outside the cycle).
//
//   int n<f>for(WINMODEL* model, int startflg)       frame::forecast<F>
//       Runs the prediction pass over the fit range to the end of the
//       evaluation range, continues with model->lead forecasts and writes the
//       table model->out.dsname.  startflg non-zero: model->startvals is the
//       state at time 0; else the backward pass runs from model->svi.  Returns
//       0, -100, -101, -999 or the kernel's negative code; stats.mse holds the
//       pass's error variance.
//
//   int <f>out(DATASET* out, INTERVAL* intv, u_sname* varname,
//              u_slabel* label, u_sname* timeid, double stdate, char* align,
//              long nobs, double cl)               frame::write_family_table<F>
//       Writes `nobs` rows of pass::kRowDoubles<F::Kernel> doubles from out->strptr as the
//       table out->dsname: time ID, ACTUAL, FORECAST, the two limits,
//       RESIDUAL, STD and the family's states.  Returns 0 or -101.
#pragma once

#include "intervals/interval.h"
#include "module/export.h"
#include "module/win_model.h"

#define ESF_DECLARE_DRIVERS(fit_name, forecast_name)          \
  extern "C" ESF_EXPORT int fit_name(struct WINMODEL* model); \
  extern "C" ESF_EXPORT int forecast_name(struct WINMODEL* model, int startflg);

#define ESF_DECLARE_TABLE_WRITER(name)                                                                          \
  extern "C" ESF_EXPORT int name(struct DATASET* out, struct INTERVAL* intv, u_sname* varname, u_slabel* label, \
                                 u_sname* timeid, double stdate, char* align, long nobs, double cl);

#define ESF_DEFINE_DRIVERS(F, fit_name, forecast_name)                                 \
  extern "C" int fit_name(WINMODEL* model) { return smoothing::frame::fit<F>(model); } \
  extern "C" int forecast_name(WINMODEL* model, int startflg) { return smoothing::frame::forecast<F>(model, startflg); }

#define ESF_DEFINE_TABLE_WRITER(F, name)                                                                               \
  extern "C" int name(DATASET* out, INTERVAL* intv, u_sname* varname, u_slabel* label, u_sname* timeid, double stdate, \
                      char* align, long nobs, double cl) {                                                             \
    return smoothing::frame::write_family_table<F>(out, intv, varname, label, timeid, stdate, align, nobs, cl);        \
  }
