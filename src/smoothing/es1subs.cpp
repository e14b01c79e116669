// Kernel of simple exponential smoothing.  See es1subs.h for the recursions.
//
// The whole-series passes of zes1smo and zes1prd are those of
// smoothing/pass_kernel.h, run with the kernel record of es1subs.h; the update is
// es1::point, inline, so that the loops run without calls: zes1smo runs twice
// for every numeric derivative.  Loop invariants such as (1 - w) and the
// relative limit are the same expressions on the same operands wherever they
// are evaluated, so hoisting them changes no bit.
#include "smoothing/es1subs.h"

#include <cmath>

#include "numeric/numeric.h"
#include "primitives/primitives.h"
#include "smoothing/frame_limits.h"
#include "smoothing/pass_kernel.h"
#include "smoothing/trend_kernel.h"

using namespace smoothing;

using es1::Kernel;

extern "C" {

int zes1pnt(double x, double xscale, double wlevel, double* level, double* xhat, double* e) {
  return es1::point(x, xscale, wlevel, level, xhat, e);
}

int zes1dpd(double x, double wlevel, double llevel, double /*clevel*/, double* derlev, double* dervec) {
  return es1::point_derivative(x, wlevel, llevel, derlev, dervec);
}

int zes1smo(double* x, char* misflg, double xscale, long n, double wlevel, double* level, double* mse, double* smoothed,
            double* strptr) {
  Kernel::State s{*level};
  const int rc = pass::smooth(Kernel{xscale, wlevel}, x, misflg, n, s, mse, smoothed, strptr);
  *level = s.level;
  return rc;
}

int zes1svi(double* x, char* misflg, long n, int /*stflg*/, double* level) {
  if (n < 1) return kTooFew;
  // Ending at 0 fails even when observation 0 is present: the backward pass
  // needs something to run over.
  const long t = trend::last_usable(misflg, n);
  if (t == 0) return kTooFew;
  *level = x[t];
  return kOk;
}

int zes1prd(double* x, char* misflg, double xscale, long n, double wlevel, double* level, long start, long end,
            long lead, double se2, double siglev, int startflg, double* mse, double* strptr) {
  Kernel::State s{*level};
  const int rc =
      pass::predict(Kernel{xscale, wlevel}, x, misflg, n, s, start, end, lead, se2, siglev, startflg, mse, strptr);
  *level = s.level;
  return rc;
}

double zes1cla(double wlevel, double se2, long lead, double siglev, double* limit) {
  return pass::with_limit(se2 * es1::variance_factor(wlevel, lead), siglev, limit);
}

int zes1psi(double wlevel, long npsi, double* psi) {
  psi[0] = 1.0;
  if (npsi >= 2) vzfdl(wlevel, psi + 1, npsi - 1);
  return kOk;
}

int zes1npd(double* x, char* misflg, double xscale, long n, double wlevel, double level, double deltas, int wkflag,
            double* pder) {
  return pass::central_differences<1>(&wlevel, &deltas, wkflag, pder, [&](const double* w, double* mse) {
    double l = level;
    return zes1smo(x, misflg, xscale, n, w[0], &l, mse, nullptr, nullptr);
  });
}

int zes1std(double* xpxdiag, double mse, long nobs, double* parms, double* stderr, double* tvals) {
  return pass::standard_errors<1>(xpxdiag, mse, nobs > 1, parms, stderr, tvals);
}

}  // extern "C"

namespace {

// Simple smoothing in the lanes of trend::smooth_lanes.
struct LaneUpdate : trend::OneWeightLanes {
  static constexpr bool kPredictionIsLevel = true;
  template <class V>
  static void step(const Weights<V>& w, const V& x, V& l, V&, V& xhat, V& hi, V& lo) noexcept {
    const V lj = l;
    trend::keep_max(hi, lj);
    trend::keep_min(lo, lj);
    l = x * w.w + lj * w.keep;
    xhat = lj;
  }
  template <class V>
  static void skip(const Weights<V>&, V&, V&) noexcept {}
  template <class V>
  static void turn(const Weights<V>&, V&, V&) noexcept {}
  static bool unusable(const double* w) noexcept { return std::fabs(w[0]) > kStateLimit; }
};

}  // namespace

void es1::smooth_many(const double* x, const char* misflg, double xscale, long n, const double* w, int count,
                      double level, int* rc, double* mse, int width) {
  trend::smooth_family<LaneUpdate, Lanes>({x, misflg, xscale, n, w, count, level, 0.0}, rc, mse, width);
}
