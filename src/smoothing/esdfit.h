// Estimation and forecast drivers of double exponential smoothing.
#pragma once

#include "intervals/interval.h"
#include "module/win_model.h"

#ifdef __cplusplus
extern "C" {
#endif

// Estimates the weights over model->fitrange, starting the backward pass
// from model->svi. Fills model->pest (parms, stderr, tvals, mse) and leaves
// the last evaluated state in model->smooth and its time-0 state in
// model->startvals. Returns 0 (converged), 90 (usable weights, convergence
// test not met) or -8 (no usable grid start).
int nesdfit(struct WINMODEL* model);

// Runs the prediction pass over the fit range to the end of the evaluation
// range, continues with model->lead forecasts and writes the output table
// model->out.dsname. startflg non-zero: model->startvals is the state at
// time 0; otherwise the backward pass runs from model->svi. Returns 0, -100,
// -101, -999 or the kernel's negative code; stats.mse holds the pass's
// error variance.
int nesdfor(struct WINMODEL* model, int startflg);

// Writes `nobs` rows of eight doubles from out->strptr as the table
// out->dsname: time ID, ACTUAL, FORECAST, the two limits, RESIDUAL, STD,
// LEVEL, TREND. Returns 0 or -101.
int esdout(struct DATASET* out, struct INTERVAL* intv, u_sname* varname, u_slabel* label,
           u_sname* timeid, double stdate, char* align, long nobs, double cl);

#ifdef __cplusplus
}
#endif
