// Kernel of Winters smoothing: a level L, a trend T that goes on unchanged
// from step to step, and one factor S[s] for each season, with the weights
// wlevel, wtrend and wseason (in this order wherever three values go
// together).  Two forms, chosen by `additive`:
//
//   additive (non-zero)                 multiplicative (0)
//   xhat = S + L + T                    xhat = (T + L) * S
//   L'   = (L + T)(1 - a) + (x - S) a   L'   = (x / S) a + (1 - a)(T + L)
//   T'   = T (1 - b) + b (L' - L)       T'   = (L' - L) b + (1 - b) T
//   S'   = (x - L') c + S (1 - c)       S'   = (x / L') c + (1 - c) S
//
// with e = xhat - x.  The multiplicative form refuses predictions, levels
// and factors below minval = xscale * 1e-12 with the code -7.  A missing
// observation moves the level by the trend and leaves trend and factors.
//
// Return codes: 0, -2, -7, -9, -92 and -100 (no pool memory).
#pragma once

#include <cmath>

#include "module/export.h"
#include "smoothing/frame_limits.h"

#ifdef __cplusplus
extern "C" {
#endif

ESF_EXPORT int zwinpnt(double x, double xscale, int additive, double wlevel, double wtrend, double wseason,
                       double* level, double* trend, double* sfactor, int scode, double* xhat, double* e);
ESF_EXPORT int zwindpd(double x, double wlevel, double wtrend, double wseason, double llevel, double clevel,
                       double ltrend, double ctrend, double lseason, double cseason, int additive, double* derlev,
                       double* dertre, double* dersea, double* dervec);
ESF_EXPORT int zwinsmo(double* x, char* misflg, double xscale, long n, int nseasons, int additive, double wlevel,
                       double wtrend, double wseason, double* level, double* trend, double* sfactor, int* scodes,
                       double* mse, double* smoothed, double* strptr);
ESF_EXPORT int zwinsvi(double* x, char* misflg, long n, int nseasons, int nstart, int additive, int stflg,
                       double* level, double* trend, double* sfactor);
ESF_EXPORT int zwinnmd(int nseasons, int additive, double* level, double* trend, double* sfactor, double* derlev,
                       double* dertre, double* dersealev, double* derseatre, double* derseasea);
ESF_EXPORT int zwinnrm(int nseasons, int additive, double* level, double* trend, double* sfactor);
// 1 when the weights lie in the stability region, else 0.
ESF_EXPORT int zwinstb(int nseasons, int additive, double wlevel, double wtrend, double wseason);
ESF_EXPORT int zwinprd(double* x, char* misflg, double xscale, long n, int nseasons, int additive, double wlevel,
                       double wtrend, double wseason, double* level, double* trend, double* sfactor, int* scodes,
                       long start, long end, long lead, double se2, double siglev, int startflg, double* mse,
                       double* strptr);
ESF_EXPORT int zwinpsi(double wlevel, double wtrend, double wseason, int nseasons, long npsi, double* psi);
ESF_EXPORT int zwinnpd(double* x, char* misflg, double xscale, long n, int nseasons, int additive, double wlevel,
                       double wtrend, double wseason, double level, double trend, double* sfactor, int* scodes,
                       double* deltas, int wkflag, double* pder);
ESF_EXPORT int zwinstd(double* xpxdiag, double mse, long nobs, double* parms, double* stderr, double* tvals);

#ifdef __cplusplus
}

#include "smoothing/pass_kernel.h"

// Variance of the prediction `lead` steps ahead and, when `limit` is given,
// the half-width of its limits: the additive form, and the multiplicative
// form for a lead whose season is `scode`.  Private to the Winters family in
// the module image; declared here so that its tests can reach them.
double zwincla(double wlevel, double wtrend, double wseason, int nseasons, double se2, long lead, double siglev,
               double* limit);
double zwinclm(double wlevel, double wtrend, double wseason, int nseasons, double se2, long lead, double siglev,
               double* sfactor, int scode, double* limit);

namespace win {

inline constexpr double kMinValFactor = 1e-12;  // minval = xscale * this
inline constexpr int kBelowFloor = -7;          // a multiplicative state fell below minval

// The body of zwinpnt, inline for the estimation frame's passes.
inline int point(double x, double xscale, int additive, double wlevel, double wtrend, double wseason, double* level,
                 double* trend, double* sfactor, int scode, double* xhat, double* e) noexcept {
  using namespace smoothing;
  const double llevel = *level;
  const double ltrend = *trend;
  const double lseason = sfactor[scode];
  auto fail = [&](int rc) {
    *level = kMissing;
    *trend = kMissing;
    sfactor[scode] = kMissing;
    return rc;
  };
  if (std::fabs(llevel) > kStateLimit || std::fabs(ltrend) > kStateLimit || std::fabs(lseason) > kStateLimit) {
    return fail(kOverflow);
  }
  if (additive) {
    *xhat = lseason + llevel + ltrend;
    if (*xhat > xscale * kRelativeLimit) return fail(kOverflow);
    *e = *xhat - x;
    const double clevel = (llevel + ltrend) * (1.0 - wlevel) + (x - lseason) * wlevel;
    const double ctrend = ltrend * (1.0 - wtrend) + wtrend * (clevel - llevel);
    const double cseason = (x - clevel) * wseason + lseason * (1.0 - wseason);
    *level = clevel;
    *trend = ctrend;
    sfactor[scode] = cseason;
    return kOk;
  }
  const double minval = xscale * kMinValFactor;
  *xhat = (ltrend + llevel) * lseason;
  if (*xhat < minval) return fail(kBelowFloor);
  if (*xhat > xscale * kRelativeLimit) return fail(kOverflow);
  *e = *xhat - x;
  double tmp = 0.0;
  if (guarded_divide(x, lseason, &tmp) != kOk) return fail(kOverflow);
  const double clevel = tmp * wlevel + (1.0 - wlevel) * (ltrend + llevel);
  if (guarded_divide(x, clevel, &tmp) != kOk) {
    // Only the factor is lost: the level and trend keep their values.
    sfactor[scode] = kMissing;
    return kOverflow;
  }
  const double ctrend = (clevel - llevel) * wtrend + (1.0 - wtrend) * ltrend;
  const double cseason = tmp * wseason + (1.0 - wseason) * lseason;
  *level = clevel;
  *trend = ctrend;
  sfactor[scode] = cseason;
  if (clevel < minval || cseason < minval) return kBelowFloor;
  return kOk;
}

// The step over a missing observation: the level moves by the trend; the
// prediction is made with the new level.
inline double missing_step(int additive, double* level, double trend, double season) noexcept {
  *level = *level + trend;
  return additive ? *level + season : *level * season;
}

// The body of zwindpd.  derlev, dertre and dersea hold the derivatives of
// level, trend and the observation's factor by the three weights before the
// observation and receive them after it; dervec gets the derivatives of the
// one-step prediction.  Always inlined: left to itself the compiler calls it
// once per observation of the estimation's passes, which then cannot keep
// the derivatives in registers nor share the quotients with win::point.
[[gnu::always_inline]] inline int point_derivative(double x, double wlevel, double wtrend, double wseason,
                                                   double llevel, double clevel, double ltrend, double lseason,
                                                   int additive, double* derlev, double* dertre, double* dersea,
                                                   double* dervec) noexcept {
  using namespace smoothing;
  double lderlev[3];
  double ldertre[3];
  double ldersea[3];
  bool big = false;
  for (int i = 0; i < 3; ++i) {
    lderlev[i] = derlev[i];
    ldertre[i] = dertre[i];
    ldersea[i] = dersea[i];
    big |= std::fabs(lderlev[i]) > kErrorLimit || std::fabs(ldertre[i]) > kErrorLimit ||
           std::fabs(ldersea[i]) > kErrorLimit;
  }
  auto lose_all = [&] {
    for (int i = 0; i < 3; ++i) {
      derlev[i] = kMissing;
      dertre[i] = kMissing;
      dersea[i] = kMissing;
    }
    return kOverflow;
  };
  if (big) return lose_all();

  const double u = 1.0 - wlevel;
  const double v = 1.0 - wtrend;
  const double w = 1.0 - wseason;
  const double b = llevel + ltrend;
  double p[3];
  for (int i = 0; i < 3; ++i) p[i] = lderlev[i] + ldertre[i];

  auto trend_derivatives = [&] {
    dertre[0] = v * ldertre[0] + wtrend * (derlev[0] - lderlev[0]);
    dertre[1] = v * ldertre[1] + wtrend * (derlev[1] - lderlev[1]) + clevel - llevel - ltrend;
    dertre[2] = v * ldertre[2] + wtrend * (derlev[2] - lderlev[2]);
  };

  if (additive) {
    derlev[0] = u * p[0] - wlevel * ldersea[0] + x - lseason - b;
    derlev[1] = u * p[1] - wlevel * ldersea[1];
    derlev[2] = u * p[2] - wlevel * ldersea[2];
    trend_derivatives();
    dersea[0] = w * ldersea[0] - wseason * derlev[0];
    dersea[1] = w * ldersea[1] - wseason * derlev[1];
    dersea[2] = w * ldersea[2] + x - clevel - lseason - wseason * derlev[2];
    for (int i = 0; i < 3; ++i) dervec[i] = p[i] + ldersea[i];
    return kOk;
  }

  double xa = 0.0;
  double f = 0.0;
  if (guarded_divide(x, lseason, &xa) != kOk || guarded_divide(wlevel * xa, lseason, &f) != kOk) {
    return lose_all();
  }
  derlev[0] = u * p[0] + xa - b - f * ldersea[0];
  derlev[1] = u * p[1] - f * ldersea[1];
  derlev[2] = u * p[2] - f * ldersea[2];
  trend_derivatives();
  for (int i = 0; i < 3; ++i) dervec[i] = p[i] * lseason + ldersea[i] * b;
  double xc = 0.0;
  double g = 0.0;
  if (guarded_divide(x, clevel, &xc) != kOk || guarded_divide(wseason * xc, clevel, &g) != kOk) {
    for (int i = 0; i < 3; ++i) dersea[i] = kMissing;
    return kOverflow;
  }
  dersea[0] = w * ldersea[0] - g * derlev[0];
  dersea[1] = w * ldersea[1] - g * derlev[1];
  dersea[2] = w * ldersea[2] + xc - lseason - g * derlev[2];
  return kOk;
}

inline bool weights_overflow(double wlevel, double wtrend, double wseason) {
  return std::fabs(wlevel) > smoothing::kStateLimit || std::fabs(wtrend) > smoothing::kStateLimit ||
         std::fabs(wseason) > smoothing::kStateLimit;
}

// psi(i), i >= 1: the weight of the shock i steps back in the prediction.
inline double psi_weight(double wlevel, double b, double c, int nseasons, long i) {
  double psi = wlevel + static_cast<double>(i) * b;
  if (nseasons > 0 && i % nseasons == 0) psi = psi + c;
  return psi;
}

// 1 + the sum over i = 1..lead-1 of psi(i)^2.
inline double additive_factor(double wlevel, double wtrend, double wseason, int nseasons, long lead) {
  const double b = wlevel * wtrend;
  const double c = wseason * (1.0 - wlevel);
  double sum = 0.0;
  for (long i = 1; i <= lead - 1; ++i) {
    const double psi = psi_weight(wlevel, b, c, nseasons, i);
    sum += psi * psi;
  }
  return 1.0 + sum;
}

// 1 + the sum over i = 1..lead-1 of (S[s] / S[s - i])^2 psi(i)^2, the
// factor of the lead over the factor i seasons before it.  A ratio that
// fails the guarded division stops the sum: *ok is false and the result is
// what the division stored.
inline double multiplicative_factor(double wlevel, double wtrend, double wseason, int nseasons, long lead,
                                    const double* sfactor, int scode, bool* ok) {
  const double b = wlevel * wtrend;
  const double c = wseason * (1.0 - wlevel);
  const double sfactlead = sfactor[scode];
  double sum = 0.0;
  int lag = scode;
  *ok = true;
  for (long i = 1; i <= lead - 1; ++i) {
    lag = lag == 0 ? nseasons - 1 : lag - 1;
    double ratio = 0.0;
    if (smoothing::guarded_divide(sfactlead, sfactor[lag], &ratio) != smoothing::kOk) {
      *ok = false;
      return ratio;
    }
    const double psi = psi_weight(wlevel, b, c, nseasons, i);
    sum += ratio * ratio * (psi * psi);
  }
  return 1.0 + sum;
}

// Winters smoothing for the passes of pass_kernel.h. The state is the level,
// the trend and the factors, turned to the season of the step; the
// forecasts run on from the season of the last observation (from season 1
// when there is none). The variance of a multiplicative forecast fails with
// a ratio of factors that fails the guarded division.
struct Kernel {
  struct State {
    double level;
    double trend;
    double* sfactor;
    int code;
  };
  static constexpr pass::Column kColumns[] = {pass::Column::level, pass::Column::trend, pass::Column::season};
  static constexpr long kParms = 3;
  static constexpr bool kMissingRepeatsPrediction = false;

  double xscale;
  int additive;
  double wlevel;
  double wtrend;
  double wseason;
  int nseasons;
  const int* scodes;

  bool unusable() const noexcept { return weights_overflow(wlevel, wtrend, wseason); }
  void at(State& s, long t) const noexcept { s.code = t >= 0 ? scodes[t] : 0; }
  int update(double x, State& s, double& xhat, double& e) const noexcept {
    return point(x, xscale, additive, wlevel, wtrend, wseason, &s.level, &s.trend, s.sfactor, s.code, &xhat, &e);
  }
  void skip(State& s, double& xhat) const noexcept {
    xhat = missing_step(additive, &s.level, s.trend, s.sfactor[s.code]);
  }
  // The level steps forward by the trend, the trend points forward in time.
  static void turn(State& s) noexcept {
    s.level = s.level + s.trend;
    s.trend = -s.trend;
  }
  static void put(const State& s, double* cols) noexcept {
    cols[0] = s.level;
    cols[1] = s.trend;
    cols[2] = s.sfactor[s.code];
  }
  bool variance(const State& s, double base, long k, double& var) const noexcept {
    if (additive) {
      var = base * additive_factor(wlevel, wtrend, wseason, nseasons, k);
      return true;
    }
    bool ok = true;
    const double vm = multiplicative_factor(wlevel, wtrend, wseason, nseasons, k, s.sfactor, s.code, &ok);
    var = ok ? base * vm : vm;
    return ok;
  }
  // Forecast k: the level moved on by k trends with the factor of its season.
  double forecast(State& s, long /*k*/, double* cols) const noexcept {
    if (++s.code >= nseasons) s.code = 0;
    s.level = s.level + s.trend;
    put(s, cols);
    return additive ? s.level + s.sfactor[s.code] : s.level * s.sfactor[s.code];
  }
};

// The update of the estimation's derivative passes in the form kAdditive:
// point and point_derivative on the state held by value; a missing
// observation has the prediction (level + trend with its season's factor)
// in its place.  The unchecked passes run the derivatives by the three
// weights side by side in SIMD lanes (smoothing/factor_lanes.h): four to a
// vector on a processor with AVX (AVX-512 where it has that), two and two
// on others.
template <bool kAdditive>
struct FactorUpdate {
  struct State {
    double level;
    double trend;
    double xhat;       // the last prediction of a step that succeeded
    double derlev[3];  // d level / d weight i
    double dertre[3];  // d trend / d weight i
  };
  static double prediction(const State& s, double factor) noexcept {
    return kAdditive ? s.level + s.trend + factor : (s.level + s.trend) * factor;
  }
  [[gnu::always_inline]] static int point(const double* w, double xscale, State& s, double* sfactor, int code,
                                          double value, double& xhat, double& e) noexcept {
    return win::point(value, xscale, kAdditive, w[0], w[1], w[2], &s.level, &s.trend, sfactor, code, &xhat, &e);
  }
  [[gnu::always_inline]] static int derive(const double* w, const State& before, State& s, double lseason, double value,
                                           double* ds, double* wder) noexcept {
    return point_derivative(value, w[0], w[1], w[2], before.level, s.level, before.trend, lseason, kAdditive, s.derlev,
                            s.dertre, ds, wder);
  }
  // isa picks the lanes' instruction set, for the tests that hold them to
  // one another: 1 SSE2, 2 AVX, 3 AVX-512 (where the processor has it); 0
  // the widest the processor has.
  static int unchecked(const pass::FactorStep<3, FactorUpdate>& step, bool forward, const pass::DerivativeSeries& in,
                       State& s, double* sums, long* nmiss, bool* tripped, int isa = 0) noexcept;
};

// One observation of the estimation's derivative passes (the step record of
// pass::derivative_backward and pass::derivative_forward) in the form
// kAdditive.
template <bool kAdditive>
using DerivativeStep = pass::FactorStep<3, FactorUpdate<kAdditive>>;

// zwinsmo for `count` weight triples at once (w holding wlevel, wtrend,
// wseason for each, count <= kManyLanes), all from the same start state,
// without the smoothed and row outputs: rc[j] and mse[j] are what zwinsmo
// gives for triple j, to the bit.  Each triple runs on its own copy of the
// factors in `work` (kManyLanes * nseasons doubles).
//
// The triples run in SIMD lanes, four to a vector on a processor with AVX
// and two (SSE2) on others; `width` 1, 2 or 4 asks for one triple at a time
// or for that many lanes (4 only where the processor has AVX), so that each
// way can be checked against the others.
inline constexpr int kManyLanes = 20;
void smooth_many(const double* x, const char* misflg, double xscale, long n, int nseasons, int additive,
                 const double* w, int count, double level, double trend, const double* sfactor, const int* scodes,
                 double* work, int* rc, double* mse, int width = 0) noexcept;

// The body of zwinnmd: the factors centred on 0 (additive) or scaled to mean
// 1 (multiplicative), level and trend absorbing the difference, with the
// derivatives of all of them.  The derivative pointers may all be null
// (zwinnrm).
void normalise(int nseasons, int additive, double* level, double* trend, double* sfactor, double* derlev,
               double* dertre, double* dersealev, double* derseatre, double* derseasea) noexcept;

}  // namespace win
#endif
