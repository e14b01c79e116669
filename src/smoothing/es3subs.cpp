// Kernel of damped-trend exponential smoothing: level and trend with three
// weights, wlevel, wtrend and wdamp.
//
//   D    = wdamp * T
//   xhat = L + D,  e = xhat - x
//   L'   = xhat * (1 - wlevel) + x * wlevel
//   T'   = wtrend * (L' - L) + D * (1 - wtrend)     (smoothed against D)
//
// A missing observation damps the trend and moves the level by it. A pass
// runs backward from the start values, reverses (one more damped step back,
// trend turned forward in time), then runs forward.
#include "smoothing/es3subs.h"

#include <algorithm>
#include <cmath>

#include "numeric/numeric.h"
#include "smoothing/pass_kernel.h"
#include "smoothing/trend_kernel.h"

using namespace trend;
using es3::Kernel;
using es3::missing_step;
using es3::psi_weight;
using es3::variance_factor;
using es3::weights_overflow;

double zes3cla(double wlevel, double wtrend, double wdamp, double se2, long lead, double siglev, double* limit) {
  return pass::with_limit(se2 * variance_factor(wlevel, wtrend, wdamp, lead), siglev, limit);
}

extern "C" {

int zes3pnt(double x, double xscale, double wlevel, double wtrend, double wdamp, double* level, double* trend,
            double* xhat, double* e) {
  return es3::point(x, xscale, wlevel, wtrend, wdamp, level, trend, xhat, e);
}

int zes3dpd(double x, double wlevel, double wtrend, double wdamp, double llevel, double clevel, double ltrend,
            double /*ctrend*/, double* derlev, double* dertre, double* dervec) {
  return es3::point_derivative(x, wlevel, wtrend, wdamp, llevel, clevel, ltrend, derlev, dertre, dervec);
}

int zes3smo(double* x, char* misflg, double xscale, long n, double wlevel, double wtrend, double wdamp, double* level,
            double* trend, double* mse, double* smoothed, double* strptr) {
  Kernel::State st{*level, *trend};
  const int rc = pass::smooth(Kernel{{}, xscale, wlevel, wtrend, wdamp}, x, misflg, n, st, mse, smoothed, strptr);
  *level = st.level;
  *trend = st.trend;
  return rc;
}

int zes3svi(double* x, char* misflg, long n, int stflg, double* level, double* trend) {
  return trended_start(x, misflg, n, stflg, level, trend);
}

int zes3stb(double wlevel, double wtrend, double wdamp) {
  // Roots of z^2 + b z + c, the characteristic polynomial of the errors.
  const double b = wlevel - wdamp + wtrend * wdamp * wlevel - 1.0;
  const double c = wdamp - wdamp * wlevel;
  const double descrim = b * b - 4.0 * c;
  if (descrim < 0.0) {
    // Complex pair: squared modulus (b^2 - descrim) / 4 = c.
    return (b * b - descrim) * 0.25 < 1.0;
  }
  const double root = std::sqrt(descrim);
  return std::fabs((root - b) * 0.5) < 1.0 && std::fabs((-b - root) * 0.5) < 1.0;
}

int zes3prd(double* x, char* misflg, double xscale, long n, double wlevel, double wtrend, double wdamp, double* level,
            double* trend, long start, long end, long lead, double se2, double siglev, int startflg, double* mse,
            double* strptr) {
  Kernel::State st{*level, *trend};
  const int rc = pass::predict(Kernel{{}, xscale, wlevel, wtrend, wdamp}, x, misflg, n, st, start, end, lead, se2,
                               siglev, startflg, mse, strptr);
  *level = st.level;
  *trend = st.trend;
  return rc;
}

int zes3psi(double wlevel, double wtrend, double wdamp, long npsi, double* psi) {
  if (npsi >= 1) psi[0] = 1.0;
  double damp_power = 1.0;
  for (long i = 1; i < npsi; ++i) {
    damp_power *= wdamp;
    psi[i] = psi_weight(wlevel, wtrend, wdamp, i, damp_power);
  }
  return kOk;
}

int zes3npd(double* x, char* misflg, double xscale, long n, double wlevel, double wtrend, double wdamp, double level,
            double trend, double* deltas, int wkflag, double* pder) {
  const double w[3] = {wlevel, wtrend, wdamp};
  return pass::central_differences<3>(w, deltas, wkflag, pder, [&](const double* v, double* mse) {
    double l = level;
    double t = trend;
    return zes3smo(x, misflg, xscale, n, v[0], v[1], v[2], &l, &t, mse, nullptr, nullptr);
  });
}

int zes3std(double* xpxdiag, double mse, long nobs, double* parms, double* stderr, double* tvals) {
  return pass::standard_errors<3>(xpxdiag, mse, nobs >= 4, parms, stderr, tvals);
}

}  // extern "C"

namespace {

// Damped-trend smoothing in the lanes of trend::smooth_lanes.
struct LaneUpdate {
  static constexpr int kWeights = 3;
  static constexpr bool kPredictionIsLevel = false;
  template <class V>
  struct Weights {
    V a, g, phi, ka, kg;
  };
  template <class V>
  static void weights(const V* w, Weights<V>& out) noexcept {
    const V one = V{} + 1.0;
    out = {w[0], w[1], w[2], one - w[0], one - w[1]};
  }
  template <class V>
  static void step(const Weights<V>& w, const V& x, V& l, V& t, V& xhat, V& hi, V& lo) noexcept {
    const V lj = l;
    const V dtrend = w.phi * t;
    trend::peaks(hi, lo, lj, dtrend);
    xhat = lj + dtrend;
    const V clevel = xhat * w.ka + x * w.a;
    t = w.g * (clevel - lj) + dtrend * w.kg;
    l = clevel;
  }
  template <class V>
  static void skip(const Weights<V>& w, V& l, V& t) noexcept {
    t = w.phi * t;
    l = l + t;
  }
  template <class V>
  static void turn(const Weights<V>& w, V& l, V& t) noexcept {
    t = -(t * w.phi);
    l = l - t;
  }
  static bool unusable(const double* w) noexcept { return es3::weights_overflow(w[0], w[1], w[2]); }
};

}  // namespace

void es3::smooth_many(const double* x, const char* misflg, double xscale, long n, const double* w, int count,
                      double level, double trend, int* rc, double* mse, int width) {
  trend::smooth_family<LaneUpdate, Lanes>({x, misflg, xscale, n, w, count, level, trend}, rc, mse, width);
}
