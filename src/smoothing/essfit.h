// Estimation and forecast drivers of seasonal exponential smoothing.
#pragma once

#include "intervals/interval.h"
#include "module/win_model.h"

#ifdef __cplusplus
extern "C" {
#endif

// Estimates wlevel and wseason over model->fitrange, starting the backward
// pass from model->svi (level and the ts.nseasons factors).  Fills
// model->pest (parms, stderr, tvals, mse) and leaves the last evaluated
// state in model->smooth and its centred time-0 state in model->startvals.
// Returns 0 (converged), 90 (usable weights, convergence test not met), -8
// (no usable grid start) or -100 (no memory for the derivative arrays).
int nessfit(struct WINMODEL* model);

// Returns the two arrays of factor derivatives to the current pool; a null
// is passed over.
void nessfitfree(double* dwlevel, double* dwseason);

// Runs the prediction pass over the fit range to the end of the evaluation
// range, continues with model->lead forecasts and writes the output table
// model->out.dsname: time ID, ACTUAL, FORECAST, the two limits, RESIDUAL,
// STD, LEVEL, SEASON.  startflg non-zero: model->startvals is the state at
// time 0; otherwise the backward pass runs from model->svi.  Returns 0,
// -100, -101, -999 or the kernel's negative code; stats.mse holds the
// pass's error variance.
int nessfor(struct WINMODEL* model, int startflg);

#ifdef __cplusplus
}
#endif
