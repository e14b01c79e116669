// Estimation and forecast drivers of Winters smoothing (additive and
// multiplicative, as model->additive says).
#pragma once

#include "intervals/interval.h"
#include "module/win_model.h"

#ifdef __cplusplus
extern "C" {
#endif

// Estimates wlevel, wtrend and wseason over model->fitrange, starting the
// backward pass from model->svi (level, trend and factors). Fills
// model->pest (parms, stderr, tvals, mse) and leaves the last evaluated
// state in model->smooth and its time-0 state, factors normalised, in
// model->startvals. Returns 0 (converged), 90 (usable weights, convergence
// test not met), -8 (no usable grid start), -100 (no memory) or -2 (season
// codes outside the cycle).
int nwinfit(struct WINMODEL* model);

// Returns the three arrays of factor derivatives to the pool; a null is
// passed over.
void nwinfitfree(double* dwlevel, double* dwtrend, double* dwseason);

// Runs the prediction pass over the fit range to the end of the evaluation
// range, continues with model->lead forecasts and writes the output table
// model->out.dsname. startflg non-zero: model->startvals is the state at
// time 0; otherwise the backward pass runs from model->svi. Returns 0, -100,
// -101, -999 or the kernel's negative code; stats.mse holds the pass's error
// variance.
int nwinfor(struct WINMODEL* model, int startflg);

// Writes `nobs` rows of nine doubles from out->strptr as the table
// out->dsname: time ID, ACTUAL, FORECAST, the two limits, RESIDUAL, STD,
// LEVEL, TREND, SEASON. Returns 0 or -101.
int winout(struct DATASET* out, struct INTERVAL* intv, u_sname* varname, u_slabel* label,
           u_sname* timeid, double stdate, char* align, long nobs, double cl);

#ifdef __cplusplus
}
#endif
