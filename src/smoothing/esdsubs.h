// Kernel of double (one-weight level/trend) exponential smoothing.
//
// States: level L and trend T; one weight w serves both. One observation x:
//   xhat = L + T / w                     (the one-step prediction)
//   e    = xhat - x
//   L'   = x * w + (1 - w) * L
//   T'   = T * (1 - w) + w * (L' - L)
// A missing observation moves the level by the trend, not by T / w:
// L' = L + T, T' = T.
//
// A weight below 1.491668147e-154 in absolute value is an overflow (-9),
// because of the division. Return codes as in the other kernels: 0, -2,
// -9, -92.
#pragma once

#include <algorithm>
#include <cmath>

#include "module/export.h"
#include "smoothing/frame_limits.h"

#ifdef __cplusplus
extern "C" {
#endif

ESF_EXPORT int zesdpnt(double x, double xscale, double wlevel, double* level, double* trend, double* xhat, double* e);
ESF_EXPORT int zesddpd(double x, double wlevel, double llevel, double clevel, double ltrend, double ctrend,
                       double* derlev, double* dertre, double* dervec);
ESF_EXPORT int zesdsmo(double* x, char* misflg, double xscale, long n, double wlevel, double* level, double* trend,
                       double* mse, double* smoothed, double* strptr);
ESF_EXPORT int zesdsvi(double* x, char* misflg, long n, int stflg, double* level, double* trend);
ESF_EXPORT int zesdprd(double* x, char* misflg, double xscale, long n, double wlevel, double* level, double* trend,
                       long start, long end, long lead, double se2, double siglev, int startflg, double* mse,
                       double* strptr);
ESF_EXPORT double zesdcla(double wlevel, double se2, long lead, double siglev, double* limit);
ESF_EXPORT int zesdpsi(double wlevel, long npsi, double* psi);
ESF_EXPORT int zesdnpd(double* x, char* misflg, double xscale, long n, double wlevel, double level, double trend,
                       double deltas, int wkflag, double* pder);
ESF_EXPORT int zesdstd(double* xpxdiag, double mse, long nobs, double* parms, double* stderr, double* tvals);

#ifdef __cplusplus
}
#endif

#ifdef __cplusplus
#include "smoothing/trend_kernel.h"

namespace esd {

// The bodies of zesdpnt and zesddpd, inline for the estimation frame's
// passes; the exported routines call these.
template <class Guards = smoothing::CheckedGuards>
inline int point(double x, double xscale, double w, double* level, double* trend, double* xhat, double* e,
                 Guards&& guards = Guards{}) noexcept {
  using namespace smoothing;
  const double l = *level;
  const double t = *trend;
  // A guard that trips leaves only the level missing.
  if (guards.trips(beyond(kStateLimit, l, t))) return overflowed(level);
  *xhat = l + t / w;
  if (guards.trips(*xhat > xscale * kRelativeLimit)) return overflowed(level);
  *e = *xhat - x;
  const double clevel = x * w + (1.0 - w) * l;
  const double ctrend = t * (1.0 - w) + w * (clevel - l);
  *level = clevel;
  *trend = ctrend;
  return kOk;
}

// derlev and dertre hold d(level)/dw and d(trend)/dw before the observation;
// dervec[0] gets the derivative of its prediction L + T / w.
template <class Guards = smoothing::CheckedGuards>
inline int point_derivative(double x, double w, double llevel, double clevel, double ltrend, double* derlev,
                            double* dertre, double* dervec, Guards&& guards = Guards{}) noexcept {
  using namespace smoothing;
  const double d = *derlev;
  const double g = *dertre;
  if (guards.trips(beyond(kErrorLimit, d, g))) return overflowed(derlev, dertre);
  *derlev = x - llevel + (1.0 - w) * d;
  *dertre = clevel - llevel + g * (1.0 - w) + (*derlev - d) * w - ltrend;
  dervec[0] = (g - ltrend / w) / w + d;
  return kOk;
}

inline bool weight_unusable(double w) {
  return std::fabs(w) > smoothing::kStateLimit || std::fabs(w) < smoothing::kTiny;
}

// s(1) = 1; s(k) = 1 + (2w)^2 + sum over j = 1..k-2 of (2w + j w^2)^2.
inline double variance_factor(double w, long k) {
  if (k < 2) return 1.0;
  const double w2 = w * w;
  double sum = 0.0;
  for (long j = 1; j <= k - 2; ++j) {
    const double psi = 2.0 * w + static_cast<double>(j) * w2;
    sum += psi * psi;
  }
  return 1.0 + (2.0 * w) * (2.0 * w) + sum;
}

// Double smoothing for the passes of pass_kernel.h. A failed guard of the
// update makes only the level missing.
struct Kernel : trend::TrendedKernel {
  static constexpr long kParms = 1;

  double xscale;
  double w;

  bool unusable() const noexcept { return weight_unusable(w); }
  int update(double x, State& s, double& xhat, double& e) const noexcept {
    return esd::point(x, xscale, w, &s.level, &s.trend, &xhat, &e);
  }
  // A missing observation is predicted by L + T / w and moves the level by
  // T, not T / w.
  void skip(State& s, double& xhat) const noexcept {
    xhat = s.level + s.trend / w;
    s.level = s.level + s.trend;
  }
  double variance(double base, long k) const noexcept { return base * variance_factor(w, k); }
  // Forecast k is L + T / w + (k - 1) * T; the level column is L + k * T.
  double forecast(const State& s, long k, double* cols) const noexcept {
    cols[0] = s.level + static_cast<double>(k) * s.trend;
    cols[1] = s.trend;
    return s.level + s.trend / w + static_cast<double>(k - 1) * s.trend;
  }
};

// Double smoothing for the side-by-side pass: one weight per lane.
struct Lanes : trend::TrendedLanes, trend::OneWeightLaneArrays {
  double step(int j, double xt, double& peak) noexcept {
    const double lj = l[j];
    const double tj = tr[j];
    peak = std::max(std::fabs(lj), std::fabs(tj));
    const double xhat = lj + tj / w[j];
    const double clevel = xt * w[j] + keep[j] * lj;
    tr[j] = tj * keep[j] + w[j] * (clevel - lj);
    l[j] = clevel;
    return xhat;
  }
  bool unusable(int j) const noexcept { return weight_unusable(w[j]); }
};

// zesdsmo for `count` weights at once (count <= 32), all from the same start
// state, without the smoothed and row outputs: rc[j] and mse[j] are what
// zesdsmo gives for w[j].
void smooth_many(const double* x, const char* misflg, double xscale, long n, const double* w, int count, double level,
                 double trend, int* rc, double* mse, int width = 0);

}  // namespace esd
#endif
