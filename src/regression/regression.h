// Start-value regressions.
//
// Ordinary least squares of a series on a constant, time, time squared and
// seasonal dummies, in whatever combination the caller asks for by passing
// output pointers, and the multiplicative seasonal start model of the
// Winters family. The smoothing engines take their start values from here.
//
// Conventions shared by the routines below:
//  - `y` holds `n` values, `misflg[i]` is non-zero where y[i] is missing;
//    a value at a missing point takes part in no sum.
//  - Time runs t = 1..n, so the constant is the level one step before the
//    first point. The season of point t is (t - 1) mod ns.
//  - Outputs are set to the ordinary missing value at entry.
//
// Status of ztsrdmy: 1 reduced fit (still a success), 0 fit made,
// -1 no memory for the work arrays, -2 too few data, -3 nothing asked for,
// -99 model out of range.
#pragma once

#include "module/export.h"

#ifdef __cplusplus
extern "C" {
#endif

// y(t) = ccoef + tcoef*t + qcoef*t^2 + sdcoef[s]; every output may be null.
// `sdcoef` has room for `ns` values, `res` for `n`.
ESF_EXPORT int ztsrdmy(double* y, char* misflg, long n, int ns, double* ccoef, double* tcoef, double* qcoef,
                       double* sdcoef, double* res);

// y(t) = (ccoef + tcoef*t) * sdcoef[s], the start model of the
// multiplicative Winters family (implemented with that family).
ESF_EXPORT int ztsrsdm(double* y, char* misflg, long n, int ns, double* ccoef, double* tcoef, double* sdcoef,
                       double* res);

#ifdef __cplusplus
}

namespace regression {

// Sums of t, t^2, t^3 and t^4 for t = 1..n in closed form; each pointer may
// be null.
void gettime(long n, double* ts1, double* ts2, double* ts3, double* ts4);

}  // namespace regression
#endif
