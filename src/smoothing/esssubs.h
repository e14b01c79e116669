// Kernel of seasonal exponential smoothing: a level without trend and one
// additive factor for each season, with two weights, wlevel and wseason.
//
// One observation x of season s, with the level L and the factor S = F[s]
// before it:
//   xhat = L + S                         (the one-step prediction)
//   e    = xhat - x                      (prediction minus observation, always)
//   L'   = (x - S) * wlevel + L * (1 - wlevel)
//   S'   = (x - L') * wseason + S * (1 - wseason)   (against the new level)
// Only the factor of the observation's season changes.  A missing
// observation changes no state.
//
// The season code of observation t is scodes[t], from 0 to nseasons - 1; x,
// misflg and scodes are passed from the same starting index.
//
// A whole-series evaluation runs backward from the end of the range to
// observation 0 and then forward.  Without a trend the state at the end of
// the backward pass is already the state before observation 0.
//
// Return codes: 0 success; -2 not enough usable observations; -9 numeric
// overflow (the failed state is set to the missing value); -92 a guarded
// division met a zero or overflowing denominator; -100 no memory (start
// values and numeric derivatives only, which take work arrays from the
// host's current pool).
#pragma once

#include <algorithm>
#include <cmath>

#include "module/export.h"
#include "smoothing/frame_limits.h"

#ifdef __cplusplus
extern "C" {
#endif

// One observation of season `scode`: *xhat = level + sfactor[scode],
// *e = *xhat - x, then the level and that factor are updated.  0, or -9 when
// |level| or |factor| exceeds the state limit or the prediction exceeds
// 10000 * xscale (the level and that factor are then set missing).
ESF_EXPORT int zesspnt(double x, double xscale, double wlevel, double wseason, double* level, double* sfactor,
                       int scode, double* xhat, double* e);

// Derivatives for one observation.  derlev[0..1]: the level by wlevel and by
// wseason; dersea[0..1]: the factor of this observation's season by the two
// weights.  On entry they hold the values before the observation, on return
// the values after it; dervec[0..1] receives the derivatives of this
// observation's prediction.  llevel, lseason: the state before; clevel the
// level after; cseason has no influence.  0, or -9 with the four entries
// missing when one of them exceeds the error limit.
ESF_EXPORT int zessdpd(double x, double wlevel, double wseason, double llevel, double clevel, double lseason,
                       double cseason, double* derlev, double* dersea, double* dervec);

// Backward then forward pass over n observations from *level and sfactor.
// *mse = sum of squared errors / observations used.  `smoothed` (n doubles,
// the predictions) and `strptr` (5 doubles per observation: x, xhat, e,
// level, factor of the observation's season) may be null.  The factors are
// not centred.  0, -2 or -9.
ESF_EXPORT int zesssmo(double* x, char* misflg, double xscale, long n, int nseasons, double wlevel, double wseason,
                       double* level, double* sfactor, int* scodes, double* mse, double* smoothed, double* strptr);

// Start values of the backward pass: the level is the last non-missing
// observation, the factors 0; with `stflg` the factors of a regression on a
// constant and seasonal dummies (and, for a reduced regression, its constant
// as the level).  `nstart` is the season code of observation 0, which
// receives the regression's first factor.  -2 when the only usable
// observation is the first, -100 without memory, a negative regression
// status, else 0.
ESF_EXPORT int zesssvi(double* x, char* misflg, long n, int nseasons, int nstart, int stflg, double* level,
                       double* sfactor);

// Centres the factors on zero and gives the level what they gave up; the
// derivatives of the factors (dersealev by wlevel, derseasea by wseason)
// and of the level (derlev[0..1]) move the same way.  Nothing changes when
// the mean of the factors is below 1.1368683772161608e-13 in magnitude.
ESF_EXPORT int zessnmd(int nseasons, double* level, double* sfactor, double* derlev, double* dersealev,
                       double* derseasea);

// zessnmd on the factors and the level alone.
ESF_EXPORT int zessnrm(int nseasons, double* level, double* sfactor);

// 1 when the weights lie in the stability region for `nseasons` seasons,
// else 0.
ESF_EXPORT int zessstb(int nseasons, double wlevel, double wseason);

// Prediction pass over observations 0..end followed by `lead` forecasts,
// writing 8 doubles per row (x, xhat, upper, lower, e, std, level, factor
// of the row's season) for rows t >= start, then the forecast rows, whose
// seasons continue from the season of row `end`.  startflg 0 runs the
// backward pass first; non-zero takes *level and sfactor as the state before
// observation 0.  *mse = sse / (nobs - 2) (sse when nobs <= 2).  0, -2 or -9.
ESF_EXPORT int zessprd(double* x, char* misflg, double xscale, long n, int nseasons, double wlevel, double wseason,
                       double* level, double* sfactor, int* scodes, long start, long end, long lead, double se2,
                       double siglev, int startflg, double* mse, double* strptr);

// Moving-average weights: psi[0] = 1; psi[i] = wlevel + (1 - wlevel) *
// wseason when i is a multiple of nseasons, else wlevel.  Returns 0.
ESF_EXPORT int zesspsi(double wlevel, double wseason, int nseasons, long npsi, double* psi);

// Central differences of the mean squared error of zesssmo by the two
// weights, relative (wkflag 1) or absolute steps deltas[0..1]; every run
// starts from `level` and the factors handed in (a working copy is taken
// from the pool).  The result is that of the second weight: 0 or -92; -100
// without memory.
ESF_EXPORT int zessnpd(double* x, char* misflg, double xscale, long n, int nseasons, double wlevel, double wseason,
                       double level, double* sfactor, int* scodes, double* deltas, int wkflag, double* pder);

// Standard errors sqrt(|xpxdiag[j]| * mse) and t values parms[j] / stderr[j]
// of the two weights; all missing when nobs < 3.  Returns 0.
ESF_EXPORT int zessstd(double* xpxdiag, double mse, long nobs, double* parms, double* stderr, double* tvals);

#ifdef __cplusplus
}
#endif

#ifdef __cplusplus
#include "smoothing/pass_kernel.h"

namespace ess {

// The bodies of zesspnt and zessdpd, inline so that the estimation frame's
// passes run without a call per observation.  The exported routines call
// these, so both give the same bits.
template <class Guards = smoothing::CheckedGuards>
inline int point(double x, double xscale, double wlevel, double wseason, double* level, double* sfactor, int scode,
                 double* xhat, double* e, Guards&& guards = Guards{}) noexcept {
  using namespace smoothing;
  const double llevel = *level;
  const double lseason = sfactor[scode];
  if (guards.trips(beyond(kStateLimit, llevel, lseason))) return overflowed(level, &sfactor[scode]);
  *xhat = llevel + lseason;
  if (guards.trips(*xhat > xscale * kRelativeLimit)) return overflowed(level, &sfactor[scode]);
  *e = *xhat - x;
  const double clevel = (x - lseason) * wlevel + llevel * (1.0 - wlevel);
  const double cseason = (x - clevel) * wseason + lseason * (1.0 - wseason);
  *level = clevel;
  sfactor[scode] = cseason;
  return kOk;
}

template <class Guards = smoothing::CheckedGuards>
inline int point_derivative(double x, double wlevel, double wseason, double llevel, double clevel, double lseason,
                            double* derlev, double* dersea, double* dervec, Guards&& guards = Guards{}) noexcept {
  using namespace smoothing;
  const double a = derlev[0];
  const double b = derlev[1];
  const double c = dersea[0];
  const double d = dersea[1];
  if (guards.trips(beyond(kErrorLimit, a, b, c, d))) {
    return overflowed(&derlev[0], &derlev[1], &dersea[0], &dersea[1]);
  }
  const double u = 1.0 - wlevel;
  const double v = 1.0 - wseason;
  // Level L' = (x - S) wl + L (1 - wl); factor S' = (x - L') ws + S (1 - ws).
  derlev[0] = u * a + x - wlevel * c - llevel - lseason;
  derlev[1] = u * b - wlevel * d;
  dersea[0] = v * c - wseason * derlev[0];
  dersea[1] = v * d + x - clevel - lseason - wseason * derlev[1];
  // The prediction L + S uses the state before the update.
  dervec[0] = c + a;
  dervec[1] = d + b;
  return kOk;
}

// The update of the estimation's derivative passes: point and
// point_derivative on the level and its derivatives held by value; a missing
// observation has the prediction, level plus its season's factor, in its
// place.  The unchecked passes run the derivatives by the two weights side
// by side in the two lanes of an SSE2 vector, in the AVX encoding where the
// processor has it (smoothing/factor_lanes.h).
struct FactorUpdate {
  struct State {
    double level;
    double xhat;       // the last prediction of a step that succeeded
    double derlev[2];  // d level / d wlevel, d wseason
  };
  static double prediction(const State& s, double factor) noexcept { return s.level + factor; }
  template <class Guards>
  [[gnu::always_inline]] static int point(const double* w, double xscale, State& s, double* sfactor, int code,
                                          double value, double& xhat, double& e, Guards& guards) noexcept {
    return ess::point(value, xscale, w[0], w[1], &s.level, sfactor, code, &xhat, &e, guards);
  }
  template <class Guards>
  [[gnu::always_inline]] static int derive(const double* w, const State& before, State& s, double lseason, double value,
                                           double* ds, double* wder, Guards& guards) noexcept {
    return point_derivative(value, w[0], w[1], before.level, s.level, lseason, s.derlev, ds, wder, guards);
  }
  // isa picks the lanes' instruction set, for the tests that hold them to
  // the checked pass: 1 SSE2, 2 AVX (where the processor has it); 0 the
  // widest the processor has.
  static int unchecked(const pass::FactorStep<2, FactorUpdate>& step, bool forward, const pass::DerivativeSeries& in,
                       State& s, double* sums, long* nmiss, bool* tripped, int isa = 0) noexcept;
};

// One observation of the estimation's derivative passes (the step record of
// pass::derivative_backward and pass::derivative_forward).
using DerivativeStep = pass::FactorStep<2, FactorUpdate>;

// The body of zessnmd, inline so that the estimation frame's passes keep
// their state in registers rather than hand its address to a call.
inline void centre(int nseasons, double* level, double* sfactor, double* derlev, double* dersealev,
                   double* derseasea) noexcept {
  double sum = 0.0;
  double sum_lev = 0.0;
  double sum_sea = 0.0;
  for (int s = 0; s < nseasons; ++s) sum += sfactor[s];
  for (int s = 0; s < nseasons; ++s) sum_lev += dersealev[s];
  for (int s = 0; s < nseasons; ++s) sum_sea += derseasea[s];
  const double ibar = sum / static_cast<double>(nseasons);
  const double ibder0 = sum_lev / static_cast<double>(nseasons);
  const double ibder1 = sum_sea / static_cast<double>(nseasons);
  // A mean below this in magnitude is left alone.
  if (std::fabs(ibar) < 1.1368683772161608e-13) return;
  for (int s = 0; s < nseasons; ++s) {
    sfactor[s] -= ibar;
    dersealev[s] -= ibder0;
    derseasea[s] -= ibder1;
  }
  derlev[0] += ibder0;
  derlev[1] += ibder1;
  *level += ibar;
}

// The variance multiplier of a forecast k steps ahead:
//   1 + wlevel^2 (k - 1), and for k > nseasons also
//   ((k - 1) / nseasons) * d * (2 wlevel + d),  d = wseason (1 - wlevel),
// the quotient taken in doubles, fraction included.
inline double variance_multiplier(double wlevel, double wseason, int nseasons, long k) noexcept {
  double vm = 1.0 + wlevel * wlevel * static_cast<double>(k - 1);
  if (k > nseasons) {
    const double d = wseason * (1.0 - wlevel);
    vm = vm + (static_cast<double>(k - 1) / static_cast<double>(nseasons)) * d * (2.0 * wlevel + d);
  }
  return vm;
}

inline bool weights_overflow(double wlevel, double wseason) {
  return std::fabs(wlevel) > smoothing::kStateLimit || std::fabs(wseason) > smoothing::kStateLimit;
}

// Seasonal smoothing for the passes of pass_kernel.h. The state is the level
// and the factors, turned to the season of the step. The backcast steps over
// a missing observation and does not turn round; the forecasts run on from
// the season of the last observation (from season 0 when there is none).
struct Kernel {
  struct State {
    double level;
    double* sfactor;
    int code;
  };
  static constexpr pass::Column kColumns[] = {pass::Column::level, pass::Column::season};
  static constexpr long kParms = 2;
  static constexpr bool kMissingRepeatsPrediction = false;

  double xscale;
  double wlevel;
  double wseason;
  int nseasons;
  const int* scodes;

  bool unusable() const noexcept { return weights_overflow(wlevel, wseason); }
  void at(State& s, long t) const noexcept { s.code = t >= 0 ? scodes[t] : -1; }
  int update(double x, State& s, double& xhat, double& e) const noexcept {
    return point(x, xscale, wlevel, wseason, &s.level, s.sfactor, s.code, &xhat, &e);
  }
  // A missing observation leaves the state alone; its prediction is the
  // level and the factor of its season.
  static void skip(const State& s, double& xhat) noexcept { xhat = s.level + s.sfactor[s.code]; }
  static void turn(State&) noexcept {}
  static void put(const State& s, double* cols) noexcept {
    cols[0] = s.level;
    cols[1] = s.sfactor[s.code];
  }
  double variance(double base, long k) const noexcept {
    return base * variance_multiplier(wlevel, wseason, nseasons, k);
  }
  double forecast(State& s, long /*k*/, double* cols) const noexcept {
    if (++s.code >= nseasons) s.code = 0;
    put(s, cols);
    return s.level + s.sfactor[s.code];
  }
};

// Seasonal smoothing for the side-by-side pass: a weight pair per lane, the
// factors of every lane side by side (factor s of lane j at
// work[s * count + j]).
struct Lanes : pass::LanePeaks {
  static constexpr bool kMissingSseIsMissing = true;

  double wl[pass::kManyWeights], ws[pass::kManyWeights], keep_l[pass::kManyWeights], keep_s[pass::kManyWeights];
  double l[pass::kManyWeights];
  double* work;
  double* f;  // the factors of the season of the observation
  const int* scodes;
  int count;

  void at(long t) noexcept { f = work + static_cast<long>(scodes[t]) * count; }
  static void skip(int) noexcept {}
  static void turn(int) noexcept {}
  double step(int j, double xt, double& peak) noexcept {
    const double lj = l[j];
    const double fj = f[j];
    peak = std::max(std::fabs(lj), std::fabs(fj));
    const double xhat = lj + fj;
    const double cl = (xt - fj) * wl[j] + lj * keep_l[j];
    f[j] = (xt - cl) * ws[j] + fj * keep_s[j];
    l[j] = cl;
    return xhat;
  }
  bool unusable(int j) const noexcept { return weights_overflow(wl[j], ws[j]); }
};

// zesssmo for `count` weight pairs at once (w holds wlevel, wseason of each
// pair), each from the same start level and factors: rc[j] and mse[j] are
// what zesssmo gives the pair j on copies of `level` and `sfactor`.  The
// pairs run side by side through one loop over the series, so that the grid
// of the estimation costs one pass instead of twenty: in SIMD lanes of the
// given width (0 the widest the processor has, 2 or 4), or one pair after
// another (width 1).  `work` holds the factors of every pair, count rounded
// up to a multiple of four times nseasons doubles.
inline constexpr int kManyPairs = 32;
void smooth_many(const double* x, const char* misflg, double xscale, long n, int nseasons, const double* w, int count,
                 double level, const double* sfactor, const int* scodes, double* work, int* rc, double* mse,
                 int width = 0);

}  // namespace ess
#endif
