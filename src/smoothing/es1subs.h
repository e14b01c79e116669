// Kernel of simple exponential smoothing: one weight w, one state, the level.
//
// One observation x with the level L before it:
//   xhat = L                       (the one-step prediction)
//   e    = xhat - x                (prediction minus observation, always)
//   L'   = x * w + L * (1 - w)
// A missing observation leaves the level alone.
//
// A whole-series evaluation runs backward from the end of the range to
// observation 0 (the backcast, which yields the start level) and then forward,
// accumulating the squared one-step errors.
//
// Return codes: 0 success; -2 not enough usable observations; -9 numeric
// overflow (the failed state is set to the missing value); -92 a guarded
// division met a zero or overflowing denominator.  No routine allocates
// memory or speaks to the host, apart from reading the host's overflow
// constants in a guarded division.
#pragma once

#include <cmath>

#include "module/export.h"
#include "smoothing/frame_limits.h"

#ifdef __cplusplus
extern "C" {
#endif

// One observation: *xhat = *level, *e = *xhat - x, then the level update.
// Returns 0, or -9 when |level| exceeds the state limit or the level exceeds
// 10000 * xscale (the level is then set missing).
ESF_EXPORT int zes1pnt(double x, double xscale, double wlevel, double* level, double* xhat, double* e);

// Derivative by the weight for one observation.  On entry *derlev is the
// derivative of the level before the observation; dervec[0] receives it (the
// derivative of this observation's prediction) and *derlev becomes
// x - llevel + (1 - w) * derlev.  `clevel` has no influence.  0 or -9.
ESF_EXPORT int zes1dpd(double x, double wlevel, double llevel, double clevel, double* derlev, double* dervec);

// Backward then forward pass over n observations starting from *level.
// *mse = sum of squared errors / observations used.  `smoothed` (n doubles:
// the predictions) and `strptr` (4 doubles per observation: x, xhat, e,
// level) may be null.  0, -2 or -9.
ESF_EXPORT int zes1smo(double* x, char* misflg, double xscale, long n, double wlevel, double* level, double* mse,
                       double* smoothed, double* strptr);

// Start value of the backward pass: the last non-missing observation.
// -2 when the only usable observation is the first.  `stflg` is not used.
ESF_EXPORT int zes1svi(double* x, char* misflg, long n, int stflg, double* level);

// Prediction pass over observations 0..end followed by `lead` forecasts,
// writing 7 doubles per row (x, xhat, upper, lower, e, std, level) for rows
// t >= start, then the forecast rows.  startflg 0 runs the backward pass
// first; non-zero takes *level as the state before observation 0.
// *mse = sse / (nobs - 1) (sse when nobs is 1).  0, -2 or -9.
ESF_EXPORT int zes1prd(double* x, char* misflg, double xscale, long n, double wlevel, double* level, long start,
                       long end, long lead, double se2, double siglev, int startflg, double* mse, double* strptr);

// Variance of the forecast `lead` steps ahead, se2 * (1 + (lead-1) * w^2);
// *limit (when given) the half-width of the limits at level siglev.
ESF_EXPORT double zes1cla(double wlevel, double se2, long lead, double siglev, double* limit);

// Moving-average weights: psi[0] = 1, psi[1..npsi-1] = w.  Returns 0.
ESF_EXPORT int zes1psi(double wlevel, long npsi, double* psi);

// Central difference of the mean squared error of zes1smo by the weight,
// relative (wkflag 1) or absolute step `deltas`.  Each evaluation starts from
// `level`.  0, or -92.
ESF_EXPORT int zes1npd(double* x, char* misflg, double xscale, long n, double wlevel, double level, double deltas,
                       int wkflag, double* pder);

// Standard error sqrt(|xpxdiag[0]| * mse) and t value parms[0] / stderr;
// both missing unless nobs > 1.  Returns 0.
ESF_EXPORT int zes1std(double* xpxdiag, double mse, long nobs, double* parms, double* stderr, double* tvals);

#ifdef __cplusplus
}
#endif

#ifdef __cplusplus
#include "smoothing/pass_kernel.h"
#include "smoothing/trend_kernel.h"

namespace es1 {

// The bodies of zes1pnt and zes1dpd, inline so that the estimation frame's
// passes run without a call per observation.  The exported routines call
// these, so both give the same bits.
template <class Guards = smoothing::CheckedGuards>
inline int point(double x, double xscale, double wlevel, double* level, double* xhat, double* e,
                 Guards&& guards = Guards{}) noexcept {
  using namespace smoothing;
  const double l = *level;
  if (guards.trips(beyond(kStateLimit, l))) return overflowed(level);
  *xhat = l;
  if (guards.trips(l > xscale * kRelativeLimit)) return overflowed(level);
  *e = l - x;
  *level = x * wlevel + l * (1.0 - wlevel);
  return kOk;
}

template <class Guards = smoothing::CheckedGuards>
inline int point_derivative(double x, double wlevel, double llevel, double* derlev, double* dervec,
                            Guards&& guards = Guards{}) noexcept {
  using namespace smoothing;
  const double d = *derlev;
  if (guards.trips(beyond(kErrorLimit, d))) return overflowed(derlev);
  // d(L')/dw = x - L + (1 - w) * dL/dw.  The prediction's derivative is dL/dw
  // before the update: the state recursion runs one step ahead of it.
  *derlev = x - llevel + (1.0 - wlevel) * d;
  dervec[0] = d;
  return kOk;
}

// The variance of the forecast k steps ahead over that of one step ahead:
// 1 + (k - 1) w^2.
inline double variance_factor(double w, long k) noexcept { return static_cast<double>(k - 1) * w * w + 1.0; }

// Simple smoothing for the passes of pass_kernel.h: one state, the level.
struct Kernel {
  struct State {
    double level;
  };
  static constexpr pass::Column kColumns[] = {pass::Column::level};
  static constexpr long kParms = 1;
  // In zes1smo the xhat slot of a missing observation repeats the previous
  // prediction; zes1prd shows the level there.
  static constexpr bool kMissingRepeatsPrediction = true;

  double xscale;
  double wlevel;

  bool unusable() const noexcept { return std::fabs(wlevel) > smoothing::kStateLimit; }
  int update(double x, State& s, double& xhat, double& e) const noexcept {
    return point(x, xscale, wlevel, &s.level, &xhat, &e);
  }
  // A missing observation leaves the level alone.
  static void skip(const State& s, double& xhat) noexcept { xhat = s.level; }
  static void turn(State&) noexcept {}
  static void put(const State& s, double* cols) noexcept { cols[0] = s.level; }
  double variance(double base, long k) const noexcept { return base * variance_factor(wlevel, k); }
  // The forecast is flat at the last level.
  static double forecast(const State& s, long, double* cols) noexcept {
    cols[0] = s.level;
    return s.level;
  }
};

// Simple smoothing for the side-by-side pass: one weight per lane.
struct Lanes : pass::LanePeaks, trend::OneWeightLaneArrays {
  static constexpr bool kMissingSseIsMissing = true;

  double l[pass::kManyWeights];

  void start(int count, double level, double /*trend*/) noexcept {
    for (int j = 0; j < count; ++j) l[j] = level;
  }

  static void skip(int) noexcept {}
  double step(int j, double xt, double& peak) noexcept {
    const double lj = l[j];
    peak = std::fabs(lj);
    l[j] = xt * w[j] + lj * keep[j];
    return lj;
  }
  static void turn(int) noexcept {}
  bool unusable(int j) const noexcept { return std::fabs(w[j]) > smoothing::kStateLimit; }
};

// zes1smo for `count` weights at once (count <= kManyWeights), each from the
// same start level, without the smoothed and row outputs: rc[j] and mse[j]
// are what zes1smo(..., w[j], &copy_of_level, &mse[j], 0, 0) gives.  The
// weights run side by side through one loop over the series, so that the
// grid of the estimation frame costs one pass instead of twenty.  Each
// weight meets exactly the arithmetic of zes1smo; a guard that trips marks
// the weight failed (-9), whatever follows.  width: the lanes of a vector,
// 0 the widest the processor has, 2 or 4; 1 the weights in arrays, one at a
// time (the way a lane whose sum of squares ends missing is decided).
inline constexpr int kManyWeights = pass::kManyWeights;
void smooth_many(const double* x, const char* misflg, double xscale, long n, const double* w, int count, double level,
                 int* rc, double* mse, int width = 0);

}  // namespace es1
#endif
