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

namespace {

using namespace trend;

// The step over a missing observation: the trend is damped, then added.
inline void missing_step(double wdamp, double& level, double& trend) {
  trend = wdamp * trend;
  level = level + trend;
}

inline bool weights_overflow(double wlevel, double wtrend, double wdamp) {
  return std::fabs(wlevel) > kStateLimit || std::fabs(wtrend) > kStateLimit || std::fabs(wdamp) > kStateLimit;
}

// Moving-average weight psi(i), i >= 1, of the damped model.
//   wdamp == 1: psi(i) = wlevel + i * wtrend * wlevel
//   otherwise:  psi(i) = wlevel + (wdamp^i - 1) * (wdamp / (wdamp - 1)) * wtrend * wlevel
// `damp_power` is wdamp^i, built by the caller as a running product.
inline double psi_weight(double wlevel, double wtrend, double wdamp, long i, double damp_power) {
  if (std::fabs(wdamp - 1.0) < kTiny) {
    return wlevel + static_cast<double>(i) * wtrend * wlevel;
  }
  return wlevel + (damp_power - 1.0) * (wdamp / (wdamp - 1.0)) * wtrend * wlevel;
}

// 1 + sum over i = 1..lead-1 of psi(i)^2.
double variance_factor(double wlevel, double wtrend, double wdamp, long lead) {
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
struct Kernel : TrendedKernel {
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
struct Lanes : TrendedLanes {
  double a[kManyWeights], g[kManyWeights], phi[kManyWeights];
  double ka[kManyWeights], kg[kManyWeights];

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

}  // namespace

double zes3cla(double wlevel, double wtrend, double wdamp, double se2, long lead, double siglev, double* limit) {
  const double var = se2 * variance_factor(wlevel, wtrend, wdamp, lead);
  if (limit) *limit = zprobit(1.0 - siglev * 0.5) * std::sqrt(var);
  return var;
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

void es3::smooth_many(const double* x, const char* misflg, double xscale, long n, const double* w, int count,
                      double level, double trend, int* rc, double* mse) {
  Lanes lanes;
  for (int j = 0; j < count; ++j) {
    lanes.a[j] = w[3 * j];
    lanes.g[j] = w[3 * j + 1];
    lanes.phi[j] = w[3 * j + 2];
    lanes.ka[j] = 1.0 - lanes.a[j];
    lanes.kg[j] = 1.0 - lanes.g[j];
  }
  lanes.start(count, level, trend);
  pass::smooth_many(lanes, x, misflg, xscale, n, count, rc, mse);
}
