// Kernel of double exponential smoothing: level and trend with one weight w.
//
//   xhat = L + T / w,  e = xhat - x
//   L'   = x * w + (1 - w) * L
//   T'   = T * (1 - w) + w * (L' - L)
//
// A missing observation moves the level by T (not T / w) and keeps T. The
// prediction divides by the weight, so a weight below kTiny in absolute value
// is an overflow.
#include "smoothing/esdsubs.h"

#include <algorithm>
#include <cmath>

#include "numeric/numeric.h"
#include "smoothing/pass_kernel.h"
#include "smoothing/trend_kernel.h"

using namespace trend;
using esd::Kernel;
using esd::variance_factor;
using esd::weight_unusable;

extern "C" {

int zesdpnt(double x, double xscale, double wlevel, double* level, double* trend, double* xhat, double* e) {
  return esd::point(x, xscale, wlevel, level, trend, xhat, e);
}

int zesddpd(double x, double wlevel, double llevel, double clevel, double ltrend, double /*ctrend*/, double* derlev,
            double* dertre, double* dervec) {
  return esd::point_derivative(x, wlevel, llevel, clevel, ltrend, derlev, dertre, dervec);
}

int zesdsmo(double* x, char* misflg, double xscale, long n, double wlevel, double* level, double* trend, double* mse,
            double* smoothed, double* strptr) {
  Kernel::State s{*level, *trend};
  const int rc = pass::smooth(Kernel{{}, xscale, wlevel}, x, misflg, n, s, mse, smoothed, strptr);
  *level = s.level;
  *trend = s.trend;
  return rc;
}

int zesdsvi(double* x, char* misflg, long n, int stflg, double* level, double* trend) {
  return trended_start(x, misflg, n, stflg, level, trend);
}

int zesdprd(double* x, char* misflg, double xscale, long n, double wlevel, double* level, double* trend, long start,
            long end, long lead, double se2, double siglev, int startflg, double* mse, double* strptr) {
  Kernel::State s{*level, *trend};
  const int rc =
      pass::predict(Kernel{{}, xscale, wlevel}, x, misflg, n, s, start, end, lead, se2, siglev, startflg, mse, strptr);
  *level = s.level;
  *trend = s.trend;
  return rc;
}

double zesdcla(double wlevel, double se2, long lead, double siglev, double* limit) {
  return pass::with_limit(se2 * variance_factor(wlevel, lead), siglev, limit);
}

int zesdpsi(double wlevel, long npsi, double* psi) {
  if (npsi >= 1) psi[0] = 1.0;
  for (long j = 1; j < npsi; ++j) {
    psi[j] = 2.0 * wlevel + static_cast<double>(j - 1) * (wlevel * wlevel);
  }
  return kOk;
}

int zesdnpd(double* x, char* misflg, double xscale, long n, double wlevel, double level, double trend, double deltas,
            int wkflag, double* pder) {
  return pass::central_differences<1>(&wlevel, &deltas, wkflag, pder, [&](const double* w, double* mse) {
    double l = level;
    double t = trend;
    return zesdsmo(x, misflg, xscale, n, w[0], &l, &t, mse, nullptr, nullptr);
  });
}

int zesdstd(double* xpxdiag, double mse, long /*nobs*/, double* parms, double* stderr, double* tvals) {
  // The driver decides whether there are enough observations.
  return pass::standard_errors<1>(xpxdiag, mse, true, parms, stderr, tvals);
}

}  // extern "C"

namespace {

// Double smoothing in the lanes of trend::smooth_lanes.
struct LaneUpdate : trend::OneWeightLanes, trend::LevelTrendLanes {
  template <class V>
  static void step(const Weights<V>& w, const V& x, V& l, V& t, V& xhat, V& hi, V& lo) noexcept {
    const V lj = l;
    const V tj = t;
    trend::peaks(hi, lo, lj, tj);
    xhat = lj + tj / w.w;
    const V clevel = x * w.w + w.keep * lj;
    t = tj * w.keep + w.w * (clevel - lj);
    l = clevel;
  }
  static bool unusable(const double* w) noexcept { return weight_unusable(w[0]); }
};

}  // namespace

void esd::smooth_many(const double* x, const char* misflg, double xscale, long n, const double* w, int count,
                      double level, double trend, int* rc, double* mse, int width) {
  trend::smooth_family<LaneUpdate, Lanes>({x, misflg, xscale, n, w, count, level, trend}, rc, mse, width);
}
