// Kernel of linear exponential smoothing: level and trend with two weights.
//
//   xhat = L + T,  e = xhat - x
//   L'   = xhat * (1 - wlevel) + x * wlevel
//   T'   = (1 - wtrend) * T + wtrend * (L' - L)
//
// A pass runs backward over the series from the start values, turns round
// (L += T, T = -T) so that the state stands one step before observation 0
// with its trend pointing forward in time, and then runs forward.
#include "smoothing/es2subs.h"

#include <algorithm>
#include <cmath>

#include "numeric/numeric.h"
#include "smoothing/pass_kernel.h"
#include "smoothing/trend_kernel.h"

using namespace trend;
using es2::Kernel;
using es2::lead_variance;
using es2::weights_overflow;

extern "C" {

int zes2pnt(double x, double xscale, double wlevel, double wtrend, double* level, double* trend, double* xhat,
            double* e) {
  return es2::point(x, xscale, wlevel, wtrend, level, trend, xhat, e);
}

int zes2dpd(double x, double wlevel, double wtrend, double llevel, double clevel, double ltrend, double /*ctrend*/,
            double* derlev, double* dertre, double* dervec) {
  return es2::point_derivative(x, wlevel, wtrend, llevel, clevel, ltrend, derlev, dertre, dervec);
}

int zes2smo(double* x, char* misflg, double xscale, long n, double wlevel, double wtrend, double* level, double* trend,
            double* mse, double* smoothed, double* strptr) {
  Kernel::State s{*level, *trend};
  const int rc = pass::smooth(Kernel{{}, xscale, wlevel, wtrend}, x, misflg, n, s, mse, smoothed, strptr);
  *level = s.level;
  *trend = s.trend;
  return rc;
}

int zes2svi(double* x, char* misflg, long n, int stflg, double* level, double* trend) {
  return trended_start(x, misflg, n, stflg, level, trend);
}

int zes2prd(double* x, char* misflg, double xscale, long n, double wlevel, double wtrend, double* level, double* trend,
            long start, long end, long lead, double se2, double siglev, int startflg, double* mse, double* strptr) {
  Kernel::State s{*level, *trend};
  const int rc = pass::predict(Kernel{{}, xscale, wlevel, wtrend}, x, misflg, n, s, start, end, lead, se2, siglev,
                               startflg, mse, strptr);
  *level = s.level;
  *trend = s.trend;
  return rc;
}

double zes2cla(double wlevel, double wtrend, double se2, long lead, double siglev, double* limit) {
  return pass::with_limit(lead_variance(wlevel, wtrend, se2, lead), siglev, limit);
}

int zes2psi(double wlevel, double wtrend, long npsi, double* psi) {
  if (npsi >= 1) psi[0] = 1.0;
  for (long j = 1; j < npsi; ++j) {
    psi[j] = wlevel + static_cast<double>(j) * wlevel * wtrend;
  }
  return kOk;
}

int zes2npd(double* x, char* misflg, double xscale, long n, double wlevel, double wtrend, double level, double trend,
            double* deltas, int wkflag, double* pder) {
  const double w[2] = {wlevel, wtrend};
  return pass::central_differences<2>(w, deltas, wkflag, pder, [&](const double* v, double* mse) {
    double l = level;
    double t = trend;
    return zes2smo(x, misflg, xscale, n, v[0], v[1], &l, &t, mse, nullptr, nullptr);
  });
}

int zes2std(double* xpxdiag, double mse, long nobs, double* parms, double* stderr, double* tvals) {
  return pass::standard_errors<2>(xpxdiag, mse, nobs >= 3, parms, stderr, tvals);
}

int zes2stb(double wlevel, double wtrend) {
  return wlevel > 0.0 && wlevel < 2.0 && wtrend >= 0.0 && wtrend < 4.0 / wlevel - 2.0;
}

}  // extern "C"

namespace {

// Linear smoothing in the lanes of trend::smooth_lanes.
struct LaneUpdate : trend::LevelTrendLanes {
  static constexpr int kWeights = 2;
  template <class V>
  struct Weights {
    V a, g, ka, kg;
  };
  template <class V>
  static void weights(const V* w, Weights<V>& out) noexcept {
    const V one = V{} + 1.0;
    out = {w[0], w[1], one - w[0], one - w[1]};
  }
  template <class V>
  static void step(const Weights<V>& w, const V& x, V& l, V& t, V& xhat, V& hi, V& lo) noexcept {
    const V lj = l;
    const V tj = t;
    trend::peaks(hi, lo, lj, tj);
    xhat = lj + tj;
    const V clevel = xhat * w.ka + x * w.a;
    t = w.kg * tj + w.g * (clevel - lj);
    l = clevel;
  }
  static bool unusable(const double* w) noexcept { return es2::weights_overflow(w[0], w[1]); }
};

}  // namespace

void es2::smooth_many(const double* x, const char* misflg, double xscale, long n, const double* w, int count,
                      double level, double trend, int* rc, double* mse, int width) {
  trend::smooth_family<LaneUpdate, Lanes>({x, misflg, xscale, n, w, count, level, trend}, rc, mse, width);
}
