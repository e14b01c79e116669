// Kernel of linear (two-weight trend) exponential smoothing.
//
// States: level L and trend T. Weights: wlevel, wtrend (in this order
// wherever two values go together). One observation x:
//   xhat   = L + T                         (the one-step prediction)
//   e      = xhat - x                      (prediction minus observation)
//   L'     = xhat * (1 - wlevel) + x * wlevel
//   T'     = (1 - wtrend) * T + wtrend * (L' - L)
// A missing observation moves the level by the trend: L' = L + T, T' = T.
//
// A pass over a series runs backward from the start values (the last usable
// observation and the fitted slope turned against time), turns round
// (L += T, T = -T), then runs forward accumulating the squared errors.
//
// Return codes: 0 success, -2 too few usable observations, -9 numeric
// overflow, -92 guarded division met a zero or overflowing denominator.
#pragma once

#include <algorithm>
#include <cmath>

#include "module/export.h"
#include "smoothing/frame_limits.h"

#ifdef __cplusplus
extern "C" {
#endif

ESF_EXPORT int zes2pnt(double x, double xscale, double wlevel, double wtrend, double* level, double* trend,
                       double* xhat, double* e);
ESF_EXPORT int zes2dpd(double x, double wlevel, double wtrend, double llevel, double clevel, double ltrend,
                       double ctrend, double* derlev, double* dertre, double* dervec);
ESF_EXPORT int zes2smo(double* x, char* misflg, double xscale, long n, double wlevel, double wtrend, double* level,
                       double* trend, double* mse, double* smoothed, double* strptr);
ESF_EXPORT int zes2svi(double* x, char* misflg, long n, int stflg, double* level, double* trend);
ESF_EXPORT int zes2prd(double* x, char* misflg, double xscale, long n, double wlevel, double wtrend, double* level,
                       double* trend, long start, long end, long lead, double se2, double siglev, int startflg,
                       double* mse, double* strptr);
ESF_EXPORT double zes2cla(double wlevel, double wtrend, double se2, long lead, double siglev, double* limit);
ESF_EXPORT int zes2psi(double wlevel, double wtrend, long npsi, double* psi);
ESF_EXPORT int zes2npd(double* x, char* misflg, double xscale, long n, double wlevel, double wtrend, double level,
                       double trend, double* deltas, int wkflag, double* pder);
ESF_EXPORT int zes2std(double* xpxdiag, double mse, long nobs, double* parms, double* stderr, double* tvals);
// Non-zero when 0 < wlevel < 2 and 0 <= wtrend < 4 / wlevel - 2.
ESF_EXPORT int zes2stb(double wlevel, double wtrend);

#ifdef __cplusplus
}
#endif

#ifdef __cplusplus
#include "smoothing/trend_kernel.h"

namespace es2 {

// The bodies of zes2pnt and zes2dpd, inline so that the estimation frame's
// passes run without a call per observation. The exported routines call
// these, so both give the same bits.
template <class Guards = smoothing::CheckedGuards>
inline int point(double x, double xscale, double wlevel, double wtrend, double* level, double* trend, double* xhat,
                 double* e, Guards&& guards = Guards{}) noexcept {
  using namespace smoothing;
  const double l = *level;
  const double t = *trend;
  if (guards.trips(beyond(kStateLimit, l, t))) return overflowed(level, trend);
  *xhat = l + t;
  if (guards.trips(*xhat > xscale * kRelativeLimit)) return overflowed(level, trend);
  *e = *xhat - x;
  const double clevel = *xhat * (1.0 - wlevel) + x * wlevel;
  const double ctrend = (1.0 - wtrend) * t + wtrend * (clevel - l);
  *level = clevel;
  *trend = ctrend;
  return kOk;
}

// derlev and dertre hold d(level)/d(wlevel, wtrend) and d(trend)/d(...)
// before the observation; dervec gets the derivatives of its prediction.
template <class Guards = smoothing::CheckedGuards>
inline int point_derivative(double x, double wlevel, double wtrend, double llevel, double clevel, double ltrend,
                            double* derlev, double* dertre, double* dervec, Guards&& guards = Guards{}) noexcept {
  using namespace smoothing;
  const double dl0 = derlev[0];
  const double dl1 = derlev[1];
  const double dt0 = dertre[0];
  const double dt1 = dertre[1];
  if (guards.trips(beyond(kErrorLimit, dl0, dl1, dt0, dt1))) {
    return overflowed(&derlev[0], &derlev[1], &dertre[0], &dertre[1]);
  }
  // Derivatives of the prediction L + T of this observation.
  const double p0 = dl0 + dt0;
  const double p1 = dl1 + dt1;
  dervec[0] = p0;
  dervec[1] = p1;
  derlev[0] = x - llevel - ltrend + (1.0 - wlevel) * p0;
  derlev[1] = (1.0 - wlevel) * p1;
  dertre[0] = dt0 * (1.0 - wtrend) + (derlev[0] - dl0) * wtrend;
  dertre[1] = clevel - llevel - ltrend + (1.0 - wtrend) * dt1 + wtrend * (derlev[1] - dl1);
  return kOk;
}

inline bool weights_overflow(double wlevel, double wtrend) {
  return std::fabs(wlevel) > smoothing::kStateLimit || std::fabs(wtrend) > smoothing::kStateLimit;
}

// var = base * (1 + sum over j = 1..lead-1 of (wlevel + j * wlevel * wtrend)^2)
inline double lead_variance(double wlevel, double wtrend, double base, long lead) {
  const double b = wlevel * wtrend;
  double sum = 0.0;
  for (long j = 1; j <= lead - 1; ++j) {
    const double psi = wlevel + static_cast<double>(j) * b;
    sum += psi * psi;
  }
  return base * (1.0 + sum);
}

// Linear smoothing for the passes of pass_kernel.h.
struct Kernel : trend::TrendedKernel {
  static constexpr long kParms = 2;

  double xscale;
  double wlevel;
  double wtrend;

  bool unusable() const noexcept { return weights_overflow(wlevel, wtrend); }
  int update(double x, State& s, double& xhat, double& e) const noexcept {
    return es2::point(x, xscale, wlevel, wtrend, &s.level, &s.trend, &xhat, &e);
  }
  // A missing observation moves the level by the trend; the new level is its
  // prediction.
  static void skip(State& s, double& xhat) noexcept {
    s.level = s.level + s.trend;
    xhat = s.level;
  }
  double variance(double base, long k) const noexcept { return lead_variance(wlevel, wtrend, base, k); }
  // Forecast k is L + k * T from the end states.
  static double forecast(const State& s, long k, double* cols) noexcept {
    const double f = s.level + static_cast<double>(k) * s.trend;
    cols[0] = f;
    cols[1] = s.trend;
    return f;
  }
};

// Linear smoothing for the side-by-side pass: a weight pair per lane.
struct Lanes : trend::TrendedLanes {
  double a[pass::kManyWeights], g[pass::kManyWeights], ka[pass::kManyWeights], kg[pass::kManyWeights];

  void load(int j, const double* wj) noexcept {
    a[j] = wj[0];
    g[j] = wj[1];
    ka[j] = 1.0 - a[j];
    kg[j] = 1.0 - g[j];
  }
  double step(int j, double xt, double& peak) noexcept {
    const double lj = l[j];
    const double tj = tr[j];
    peak = std::max(std::fabs(lj), std::fabs(tj));
    const double xhat = lj + tj;
    const double clevel = xhat * ka[j] + xt * a[j];
    tr[j] = kg[j] * tj + g[j] * (clevel - lj);
    l[j] = clevel;
    return xhat;
  }
  bool unusable(int j) const noexcept { return weights_overflow(a[j], g[j]); }
};

// zes2smo for `count` weight pairs at once (count <= 32, w holding wlevel,
// wtrend for each), all from the same start state, without the smoothed and
// row outputs: rc[j] and mse[j] are what zes2smo gives for pair j. The pairs
// run side by side through one loop over the series, so that the grid of the
// estimation frame costs one pass instead of twenty.
void smooth_many(const double* x, const char* misflg, double xscale, long n, const double* w, int count, double level,
                 double trend, int* rc, double* mse, int width = 0);

}  // namespace es2
#endif
