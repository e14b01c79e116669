// Kernel of damped-trend exponential smoothing.
//
// States: level L and trend T. Weights: wlevel, wtrend, wdamp (in this order
// wherever three values go together). One observation x, with D = wdamp*T:
//   xhat = L + D                          (the one-step prediction)
//   e    = xhat - x
//   L'   = xhat * (1 - wlevel) + x * wlevel
//   T'   = wtrend * (L' - L) + D * (1 - wtrend)
// A missing observation damps the trend and moves the level by it:
// T' = wdamp * T, L' = L + T'.
//
// Return codes: 0, -2, -9, -92 as in the other kernels.
#pragma once

#include <algorithm>
#include <cmath>

#include "module/export.h"
#include "smoothing/frame_limits.h"

#ifdef __cplusplus
extern "C" {
#endif

ESF_EXPORT int zes3pnt(double x, double xscale, double wlevel, double wtrend, double wdamp, double* level,
                       double* trend, double* xhat, double* e);
ESF_EXPORT int zes3dpd(double x, double wlevel, double wtrend, double wdamp, double llevel, double clevel,
                       double ltrend, double ctrend, double* derlev, double* dertre, double* dervec);
ESF_EXPORT int zes3smo(double* x, char* misflg, double xscale, long n, double wlevel, double wtrend, double wdamp,
                       double* level, double* trend, double* mse, double* smoothed, double* strptr);
ESF_EXPORT int zes3svi(double* x, char* misflg, long n, int stflg, double* level, double* trend);
// 1 when the roots of z^2 + b z + c lie inside the unit circle, else 0.
ESF_EXPORT int zes3stb(double wlevel, double wtrend, double wdamp);
ESF_EXPORT int zes3prd(double* x, char* misflg, double xscale, long n, double wlevel, double wtrend, double wdamp,
                       double* level, double* trend, long start, long end, long lead, double se2, double siglev,
                       int startflg, double* mse, double* strptr);
ESF_EXPORT int zes3psi(double wlevel, double wtrend, double wdamp, long npsi, double* psi);
ESF_EXPORT int zes3npd(double* x, char* misflg, double xscale, long n, double wlevel, double wtrend, double wdamp,
                       double level, double trend, double* deltas, int wkflag, double* pder);
ESF_EXPORT int zes3std(double* xpxdiag, double mse, long nobs, double* parms, double* stderr, double* tvals);

#ifdef __cplusplus
}

// Variance of the prediction `lead` steps ahead and, when `limit` is given,
// the half-width of its limits. Private to the damped family in the module
// image; declared here so that its tests can reach it.
double zes3cla(double wlevel, double wtrend, double wdamp, double se2, long lead, double siglev, double* limit);
#endif

#ifdef __cplusplus
#include "smoothing/trend_kernel.h"

namespace es3 {

// The bodies of zes3pnt and zes3dpd, inline for the estimation frame's
// passes; the exported routines call these.
template <class Guards = smoothing::CheckedGuards>
inline int point(double x, double xscale, double wlevel, double wtrend, double wdamp, double* level, double* trend,
                 double* xhat, double* e, Guards&& guards = Guards{}) noexcept {
  using namespace smoothing;
  const double llevel = *level;
  const double dtrend = wdamp * *trend;
  if (guards.trips(beyond(kStateLimit, llevel, dtrend))) return overflowed(level, trend);
  *xhat = llevel + dtrend;
  if (guards.trips(*xhat > xscale * kRelativeLimit)) return overflowed(level, trend);
  *e = *xhat - x;
  const double clevel = *xhat * (1.0 - wlevel) + x * wlevel;
  // The new trend is smoothed against the damped trend, not the stored one.
  const double ctrend = wtrend * (clevel - llevel) + dtrend * (1.0 - wtrend);
  *level = clevel;
  *trend = ctrend;
  return kOk;
}

// derlev and dertre hold the derivatives of level and trend by the three
// weights before the observation; dervec gets those of its prediction.
template <class Guards = smoothing::CheckedGuards>
inline int point_derivative(double x, double wlevel, double wtrend, double wdamp, double llevel, double clevel,
                            double ltrend, double* derlev, double* dertre, double* dervec,
                            Guards&& guards = Guards{}) noexcept {
  using namespace smoothing;
  double lderlev[3];
  double ddertre[3];
  for (int i = 0; i < 3; ++i) {
    lderlev[i] = derlev[i];
    ddertre[i] = dertre[i] * wdamp;
  }
  bool over = false;
  for (int i = 0; i < 3; ++i) over |= (std::fabs(lderlev[i]) > kErrorLimit) | (std::fabs(ddertre[i]) > kErrorLimit);
  if (guards.trips(over)) {
    for (int j = 0; j < 3; ++j) {
      derlev[j] = kMissing;
      dertre[j] = kMissing;
    }
    return kOverflow;
  }
  const double u = 1.0 - wlevel;
  const double v = 1.0 - wtrend;
  derlev[0] = x - wdamp * ltrend + u * (lderlev[0] + ddertre[0]) - llevel;
  derlev[1] = u * (lderlev[1] + ddertre[1]);
  derlev[2] = u * (lderlev[2] + ddertre[2] + ltrend);
  dertre[0] = v * ddertre[0] + wtrend * (derlev[0] - lderlev[0]);
  dertre[1] = v * ddertre[1] + wtrend * (derlev[1] - lderlev[1]) + clevel - llevel - wdamp * ltrend;
  dertre[2] = v * (ltrend + ddertre[2]) + wtrend * (derlev[2] - lderlev[2]);
  dervec[0] = lderlev[0] + ddertre[0];
  dervec[1] = lderlev[1] + ddertre[1];
  dervec[2] = lderlev[2] + ddertre[2] + ltrend;
  return kOk;
}

// The step over a missing observation: the trend is damped, then added.
inline void missing_step(double wdamp, double& level, double& trend) {
  trend = wdamp * trend;
  level = level + trend;
}

inline bool weights_overflow(double wlevel, double wtrend, double wdamp) {
  return std::fabs(wlevel) > smoothing::kStateLimit || std::fabs(wtrend) > smoothing::kStateLimit ||
         std::fabs(wdamp) > smoothing::kStateLimit;
}

// Moving-average weight psi(i), i >= 1, of the damped model.
//   wdamp == 1: psi(i) = wlevel + i * wtrend * wlevel
//   otherwise:  psi(i) = wlevel + (wdamp^i - 1) * (wdamp / (wdamp - 1)) * wtrend * wlevel
// `damp_power` is wdamp^i, built by the caller as a running product.
inline double psi_weight(double wlevel, double wtrend, double wdamp, long i, double damp_power) {
  if (std::fabs(wdamp - 1.0) < smoothing::kTiny) {
    return wlevel + static_cast<double>(i) * wtrend * wlevel;
  }
  return wlevel + (damp_power - 1.0) * (wdamp / (wdamp - 1.0)) * wtrend * wlevel;
}

// 1 + sum over i = 1..lead-1 of psi(i)^2.
inline double variance_factor(double wlevel, double wtrend, double wdamp, long lead) {
  double sum = 0.0;
  double damp_power = 1.0;
  for (long i = 1; i <= lead - 1; ++i) {
    damp_power *= wdamp;
    const double psi = psi_weight(wlevel, wtrend, wdamp, i, damp_power);
    sum += psi * psi;
  }
  return 1.0 + sum;
}

// Damped-trend smoothing for the passes of pass_kernel.h.
struct Kernel : trend::TrendedKernel {
  static constexpr long kParms = 3;

  double xscale;
  double wlevel;
  double wtrend;
  double wdamp;

  bool unusable() const noexcept { return weights_overflow(wlevel, wtrend, wdamp); }
  int update(double x, State& s, double& xhat, double& e) const noexcept {
    return es3::point(x, xscale, wlevel, wtrend, wdamp, &s.level, &s.trend, &xhat, &e);
  }
  // The new level is the prediction of a missing observation.
  void skip(State& s, double& xhat) const noexcept {
    missing_step(wdamp, s.level, s.trend);
    xhat = s.level;
  }
  // The reversal: one more damped step back, the trend turned forward.
  void turn(State& s) const noexcept {
    s.trend = -(s.trend * wdamp);
    s.level = s.level - s.trend;
  }
  double variance(double base, long k) const noexcept { return base * variance_factor(wlevel, wtrend, wdamp, k); }
  // Each forecast row takes one more damped step from the end states.
  double forecast(State& s, long, double* cols) const noexcept {
    s.trend = wdamp * s.trend;
    s.level = s.level + s.trend;
    cols[0] = s.level;
    cols[1] = s.trend;
    return s.level;
  }
};

// Damped-trend smoothing for the side-by-side pass: a weight triple per lane.
struct Lanes : trend::TrendedLanes {
  double a[pass::kManyWeights], g[pass::kManyWeights], phi[pass::kManyWeights];
  double ka[pass::kManyWeights], kg[pass::kManyWeights];

  void load(int j, const double* wj) noexcept {
    a[j] = wj[0];
    g[j] = wj[1];
    phi[j] = wj[2];
    ka[j] = 1.0 - a[j];
    kg[j] = 1.0 - g[j];
  }
  void skip(int j) noexcept {
    tr[j] = phi[j] * tr[j];
    l[j] = l[j] + tr[j];
  }
  double step(int j, double xt, double& peak) noexcept {
    const double lj = l[j];
    const double dtrend = phi[j] * tr[j];
    peak = std::max(std::fabs(lj), std::fabs(dtrend));
    const double xhat = lj + dtrend;
    const double clevel = xhat * ka[j] + xt * a[j];
    tr[j] = g[j] * (clevel - lj) + dtrend * kg[j];
    l[j] = clevel;
    return xhat;
  }
  void turn(int j) noexcept {
    tr[j] = -(tr[j] * phi[j]);
    l[j] = l[j] - tr[j];
  }
  bool unusable(int j) const noexcept { return weights_overflow(a[j], g[j], phi[j]); }
};

// zes3smo for `count` weight triples at once (count <= 32, w holding wlevel,
// wtrend, wdamp for each), all from the same start state, without the
// smoothed and row outputs: rc[j] and mse[j] are what zes3smo gives.
void smooth_many(const double* x, const char* misflg, double xscale, long n, const double* w, int count, double level,
                 double trend, int* rc, double* mse, int width = 0);

}  // namespace es3
#endif
