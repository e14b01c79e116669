// The whole-series routines of the smoothing kernels without seasons, written
// once for the simple, linear, double and damped families: the backcast, the
// forward pass of z..smo, the prediction pass of z..prd, the side-by-side
// pass of the grid, and the numeric derivatives (z..npd) and standard errors
// (z..std) built on them.
//
// A family comes in as a small kernel record K, built from its weights and
// the scale of the series, which holds:
//
//   struct State;                      the states, by value (level[, trend]
//                                      [, the factors and the season])
//   static constexpr Column kColumns[];
//                                      the states written after the first
//                                      six doubles of a row, in order: a
//                                      row of z..prd has kRowDoubles<K>
//                                      doubles, one of z..smo 3 + kStates<K>
//   static constexpr long kParms;      weights: the prediction pass divides
//                                      its sum of squares by nobs - kParms
//   static constexpr bool kMissingRepeatsPrediction;
//                                      in z..smo a missing observation's xhat
//                                      slot repeats the previous prediction
//                                      (simple family) instead of the
//                                      prediction of the missing step
//   bool unusable() const;             a weight fails the guard at the start
//                                      of a pass
//   int update(double x, State&, double& xhat, double& e) const;
//                                      one observation (the family's z..pnt)
//   void skip(State&, double& xhat) const;
//                                      the step over a missing observation,
//                                      with its prediction
//   void turn(State&) const;           between the backward and the forward
//                                      pass
//   void put(const State&, double* cols) const;
//                                      the state columns of a row
//   double variance(double base, long k) const;
//                                      variance of the forecast k steps ahead
//   double forecast(State&, long k, double* cols) const;
//                                      forecast row k (called for k = 1, 2,
//                                      ... on a copy of the end state): the
//                                      forecast, and its state columns
//
// A seasonal kernel, whose state holds the factors and the season of the
// step, also has
//
//   void at(State&, long t) const;     the state turns to the season of
//                                      observation t before each step, and
//                                      of observation `end` (t < 0: before
//                                      the first) before the forecasts
//
// and a kernel whose forecast variance can fail (a ratio of factors) has
//
//   bool variance(const State&, double base, long k, double& var) const;
//                                      false: var holds what the failed step
//                                      left, and the row keeps the previous
//                                      row's half-width
//
// in place of variance(base, k); its standard error is var itself when var
// is missing.
//
// The arithmetic of every step is the family's own; these templates fix only
// the order of the steps, the guards around them and the rows they write.
//
// The side-by-side pass `smooth_many` (z..smo for up to kManyWeights weight
// sets at once, for the grid of the estimation frame) takes a lanes record L
// instead, a LanePeaks with its weights and states in arrays indexed by lane:
//
//   void skip(int j);                  the missing step of lane j
//   double step(int j, double x, double& peak);
//                                      the update of lane j; returns the
//                                      prediction and sets `peak` to the
//                                      largest absolute value of the states
//                                      the update guards (before it)
//   void turn(int j);
//   bool unusable(int j) const;        the weight guard of lane j
//   void at(long t);                   seasonal lanes only: turn every lane
//                                      to the season of observation t
//   static constexpr bool kMissingSseIsMissing;
//                                      a missing sum of squares gives the
//                                      ordinary missing value as mse (simple
//                                      family); else mse is sse / nobs
//                                      whatever sse holds
#pragma once

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <concepts>
#include <cstring>
#include <type_traits>

#include "numeric/numeric.h"
#include "primitives/primitives.h"
#include "smoothing/frame_limits.h"

namespace pass {

using namespace smoothing::limits;

// A state column of a row: what put() writes there.
enum class Column { level, trend, season };

template <class K>
inline constexpr int kStates = static_cast<int>(sizeof K::kColumns / sizeof K::kColumns[0]);

// Doubles in a row of z..prd: the observation, the prediction, its two
// limits, the error, the standard error and the states.
template <class K>
inline constexpr int kRowDoubles = 6 + kStates<K>;

// A seasonal kernel: its state holds the factors (`sfactor`) and the season
// of the step.
template <class K>
concept Seasonal = requires(const K& k, typename K::State& s, long t) {
  k.at(s, t);
  s.sfactor;
};

// A kernel whose state holds a trend.
template <class K>
concept Trended = requires(typename K::State& s) {
  s.trend;
};

template <class K>
concept FallibleVariance = requires(const K& k, const typename K::State& s, double base, long j, double& var) {
  { k.variance(s, base, j, var) } -> std::same_as<bool>;
};

// Turns the state of a seasonal kernel to the season of observation t.
template <class K>
inline void at(const K& k, typename K::State& s, long t) noexcept {
  if constexpr (Seasonal<K>) k.at(s, t);
}

// The first six doubles of a row of z..prd: the observation, the prediction,
// its limits at half-width hw, the error and the standard error.
inline void put_row(double* row, double x, double xhat, double hw, double e, double sd) noexcept {
  row[0] = x;
  row[1] = xhat;
  row[2] = xhat + hw;
  row[3] = xhat - hw;
  row[4] = e;
  row[5] = sd;
}

// The backcast: from observation n-1 down to 0, the update or the missing
// step, then the turn. A failed guard returns at once with the state the
// update left (its failed parts missing). No error is accumulated.
template <class K>
inline int backcast(const K& k, const double* x, const char* misflg, long n, typename K::State& s) noexcept {
  double xhat = 0.0;
  double e = 0.0;
  for (long t = n - 1; t >= 0; --t) {
    at(k, s, t);
    if (misflg[t]) {
      k.skip(s, xhat);
      continue;
    }
    const int rc = k.update(x[t], s, xhat, e);
    if (rc != kOk) return rc;
  }
  k.turn(s);
  return kOk;
}

// The forward pass of z..smo, run after the backcast: one-step predictions
// and errors, the running sum of squares with its two limits, `smoothed`
// (the predictions) and the rows x, xhat, e and the states after the step,
// when given. *mse = sse / nobs. A failed update returns its own code; an
// error or sum of squares past its limit returns -9.
template <class K>
inline int forward(const K& k, const double* x, const char* misflg, long n, typename K::State& s, double* mse,
                   double* smoothed, double* strptr) noexcept {
  double sse = 0.0;
  long nmiss = 0;
  double xhat = kMissing;
  for (long t = 0; t < n; ++t) {
    double e = kMissing;
    at(k, s, t);
    if (misflg[t]) {
      if constexpr (!K::kMissingRepeatsPrediction) k.skip(s, xhat);
      ++nmiss;
    } else {
      const int rc = k.update(x[t], s, xhat, e);
      if (rc != kOk) return rc;
      if (std::fabs(e) > kErrorLimit || sse > kSseLimit) return kOverflow;
      sse += e * e;
    }
    if (smoothed) smoothed[t] = xhat;
    if (strptr) {
      strptr[0] = x[t];
      strptr[1] = xhat;
      strptr[2] = e;
      k.put(s, strptr + 3);
      strptr += 3 + kStates<K>;
    }
  }

  const long nobs = n - nmiss;
  if (nobs < 1) return kTooFew;
  *mse = esf::is_missing(sse) ? kMissing : sse / static_cast<double>(nobs);
  return kOk;
}

// z..smo: the backcast and the forward pass from the state in `s`, which
// leaves holding the state where the pass stopped.
template <class K>
inline int smooth(const K& k, const double* x, const char* misflg, long n, typename K::State& s, double* mse,
                  double* smoothed, double* strptr) noexcept {
  *mse = kMissing;
  if (n < 1) return kTooFew;
  if (k.unusable()) return kOverflow;
  const int rc = backcast(k, x, misflg, n, s);
  if (rc != kOk) return rc;
  return forward(k, x, misflg, n, s, mse, smoothed, strptr);
}

// z..prd: the prediction pass over observations 0..end from the state in `s`
// (after the backcast when startflg is 0), rows for t >= start, then `lead`
// forecast rows. `s` leaves holding the state at the end of the range, or
// where a guard stopped the pass.
//
// The error and sum-of-squares limits of z..smo are not tested here. One
// half-width, z * sqrt(se2), serves every observation row whatever se2 holds
// (the variance of every family at lead 1 is se2 itself); only the forecast
// rows fall back on the pass's own error variance. nobs counts the missing
// observations over 0..end against the argument n.
// The multiple of the standard deviation that limits at level siglev (both
// sides together) lie from the prediction.
inline double limit_z(double siglev) noexcept { return zprobit(1.0 - siglev * 0.5); }

// What z..cla gives: the variance var of a forecast and, in *limit when
// given, the half-width of its limits at level siglev, as predict writes it.
inline double with_limit(double var, double siglev, double* limit) noexcept {
  if (limit) *limit = limit_z(siglev) * std::sqrt(var);
  return var;
}

template <class K>
inline int predict(const K& k, const double* x, const char* misflg, long n, typename K::State& s, long start, long end,
                   long lead, double se2, double siglev, int startflg, double* mse, double* strptr) noexcept {
  *mse = kMissing;
  if (n < 1) return kTooFew;
  if (k.unusable()) return kOverflow;

  const double std_fit = (esf::is_missing(se2) || se2 <= kTiny) ? 0.0 : std::sqrt(se2);
  const double z = limit_z(siglev);
  const double limit = z * std::sqrt(se2);

  if (startflg == 0) {
    const int rc = backcast(k, x, misflg, n, s);
    if (rc != kOk) return rc;
  }

  double sse = 0.0;
  long nmiss = 0;
  for (long t = 0; t <= end; ++t) {
    double xhat = 0.0;
    double e = kMissing;
    at(k, s, t);
    if (misflg[t]) {
      k.skip(s, xhat);
      ++nmiss;
    } else {
      const int rc = k.update(x[t], s, xhat, e);
      if (rc != kOk) return rc;
      sse += e * e;
    }
    if (strptr && t >= start) {
      put_row(strptr, x[t], xhat, limit, e, std_fit);
      k.put(s, strptr + 6);
      strptr += kRowDoubles<K>;
    }
  }

  const long nobs = n - nmiss;
  if (nobs < 1) return kTooFew;
  *mse = nobs > K::kParms ? sse / static_cast<double>(nobs - K::kParms) : sse;

  if (!strptr) return kOk;
  const double base = (esf::is_missing(se2) || se2 <= 0.0) ? *mse : se2;
  typename K::State f = s;
  at(k, f, end);
  double hw = limit;
  for (long j = 1; j <= lead; ++j) {
    const double fc = k.forecast(f, j, strptr + 6);
    double sd = 0.0;
    if constexpr (FallibleVariance<K>) {
      double var = 0.0;
      if (k.variance(f, base, j, var)) hw = z * std::sqrt(var);
      sd = esf::is_missing(var) ? var : std::sqrt(var);
    } else {
      sd = std::sqrt(k.variance(base, j));
      hw = z * sd;
    }
    put_row(strptr, kMissing, fc, hw, kMissing, sd);
    strptr += kRowDoubles<K>;
  }
  return kOk;
}

// z..npd: the central difference of the mean squared error of z..smo by each
// of P weights in turn. smooth(run, &mse) evaluates z..smo at the weights
// `run` from fresh copies of the start state. With wkflag 1 and a weight
// above kTiny in absolute value the step is relative, (1 +- delta) * w over
// 2 * delta * w; else w +- delta over 2 * delta. A failed run or a step
// below kTiny leaves the weight's entry missing; the result is that of the
// last weight: 0, or -92 from the runs or the guarded division.
template <int P, class Smooth>
inline int central_differences(const double* w, const double* deltas, int wkflag, double* pder,
                               Smooth smooth) noexcept {
  for (int i = 0; i < P; ++i) pder[i] = kMissing;
  int rc = kOk;
  for (int i = 0; i < P; ++i) {
    const double delta = deltas[i];
    double run1[P];
    double run2[P];
    for (int j = 0; j < P; ++j) run1[j] = run2[j] = w[j];
    double divisor = 0.0;
    if (wkflag == 1 && std::fabs(w[i]) > kTiny) {
      run1[i] = w[i] * (1.0 + delta);
      run2[i] = w[i] * (1.0 - delta);
      divisor = 2.0 * delta * w[i];
    } else {
      run1[i] = w[i] + delta;
      run2[i] = w[i] - delta;
      divisor = 2.0 * delta;
    }
    double mse1 = kMissing;
    double mse2 = kMissing;
    const int rc1 = smooth(run1, &mse1);
    const int rc2 = smooth(run2, &mse2);
    if (rc1 + rc2 < 0 || delta < kTiny) {
      rc = smoothing::kGuardedDivision;
      continue;
    }
    rc = smoothing::guarded_divide(mse1 - mse2, divisor, &pder[i]);
  }
  return rc;
}

// z..std: for each of P weights the standard error sqrt(|xpxdiag| * mse) and
// the t value by the guarded division; all missing unless `enough`
// observations stand behind the fit.
template <int P>
inline int standard_errors(const double* xpxdiag, double mse, bool enough, const double* parms, double* stderr,
                           double* tvals) noexcept {
  if (!enough) {
    for (int j = 0; j < P; ++j) {
      stderr[j] = kMissing;
      tvals[j] = kMissing;
    }
    return kOk;
  }
  for (int j = 0; j < P; ++j) {
    stderr[j] = std::sqrt(std::fabs(xpxdiag[j]) * mse);
    smoothing::guarded_divide(parms[j], stderr[j], &tvals[j]);
  }
  return kOk;
}

// Largest number of weight sets the side-by-side pass takes at once.
inline constexpr int kManyWeights = 32;

// The running sums of squares and the largest guarded values of every lane.
// A lanes record derives from it, so that its weights, its states and these
// stand in one record that one index walks, as whole vectors.
struct alignas(64) LanePeaks {
  double sse[kManyWeights];
  double peak_state[kManyWeights];  // largest guarded |state| before an update
  double peak_pred[kManyWeights];   // largest prediction
  double peak_e[kManyWeights];      // largest |e|
  double peak_sse[kManyWeights];    // largest sse before an addition
};

// rc[j] and mse[j] of the side-by-side pass from the sums and the extremes
// the loops left in `lanes`, over nobs observations.
template <class L>
inline void many_results(const L& lanes, double xscale, long nobs, int count, int* rc, double* mse) noexcept {
  const double upper = xscale * kRelativeLimit;
  for (int j = 0; j < count; ++j) {
    rc[j] = kOk;
    mse[j] = kMissing;
    if (lanes.unusable(j) || lanes.peak_state[j] > kStateLimit || lanes.peak_pred[j] > upper ||
        lanes.peak_e[j] > kErrorLimit || lanes.peak_sse[j] > kSseLimit) {
      rc[j] = kOverflow;
    } else if (nobs < 1) {
      rc[j] = kTooFew;
    } else {
      const bool missing_sse = L::kMissingSseIsMissing && esf::is_missing(lanes.sse[j]);
      mse[j] = missing_sse ? kMissing : lanes.sse[j] / static_cast<double>(nobs);
    }
  }
}

// z..smo for `count` lanes (count <= kManyWeights) loaded with their weights
// and one start state, without the smoothed and row outputs: rc[j] and
// mse[j] are what z..smo gives for lane j.
//
// The guards are not tested one observation at a time. The largest value each
// guarded quantity takes is kept instead and compared with its limit at the
// end: a state or prediction guard trips at some observation exactly when the
// largest value over the checked observations passes its limit, and the
// running sse, which never falls, passes its limit before some addition
// exactly when its largest value before an addition does. Until a guard trips
// every value is finite, so the maxima see no NaN; after it the lane has
// failed whatever follows. The loops then carry no branch and run across the
// lanes as vectors.
template <class L>
inline void smooth_many(L& lanes, const double* x, const char* misflg, double xscale, long n, int count, int* rc,
                        double* mse) noexcept {
  if (n < 1) {
    for (int j = 0; j < count; ++j) {
      rc[j] = kTooFew;
      mse[j] = kMissing;
    }
    return;
  }
  double* sse = lanes.sse;
  double* peak_state = lanes.peak_state;
  double* peak_pred = lanes.peak_pred;
  double* peak_e = lanes.peak_e;
  double* peak_sse = lanes.peak_sse;
  for (int j = 0; j < count; ++j) {
    sse[j] = 0.0;
    peak_state[j] = 0.0;
    peak_pred[j] = -DBL_MAX;
    peak_e[j] = 0.0;
    peak_sse[j] = 0.0;
  }

  // The update of lane j on observation xt with the largest state and
  // prediction it has met; returns the prediction.
  auto observe = [&](int j, double xt) {
    double peak = 0.0;
    const double xhat = lanes.step(j, xt, peak);
    peak_state[j] = std::max(peak_state[j], peak);
    peak_pred[j] = std::max(peak_pred[j], xhat);
    return xhat;
  };

  // Seasonal lanes turn to the season of observation t before its updates.
  auto at_observation = [&](long t) {
    if constexpr (requires { lanes.at(t); }) lanes.at(t);
  };

  // The backcast.
  for (long t = n - 1; t >= 0; --t) {
    if (misflg[t]) {
      for (int j = 0; j < count; ++j) lanes.skip(j);
      continue;
    }
    const double xt = x[t];
    at_observation(t);
    for (int j = 0; j < count; ++j) observe(j, xt);
  }
  for (int j = 0; j < count; ++j) lanes.turn(j);

  // The forward pass.
  long nmiss = 0;
  for (long t = 0; t < n; ++t) {
    if (misflg[t]) {
      ++nmiss;
      for (int j = 0; j < count; ++j) lanes.skip(j);
      continue;
    }
    const double xt = x[t];
    at_observation(t);
    for (int j = 0; j < count; ++j) {
      const double e = observe(j, xt) - xt;
      peak_e[j] = std::max(peak_e[j], std::fabs(e));
      peak_sse[j] = std::max(peak_sse[j], sse[j]);
      sse[j] += e * e;
    }
  }

  many_results(lanes, xscale, n - nmiss, count, rc, mse);
}

// ---------------------------------------------------------------------------
// The derivative passes of the estimation frame
// ---------------------------------------------------------------------------
//
// The backward and forward passes that evaluate a point of the estimation:
// the family's one-observation update and derivative update on every
// observation, a missing one having the prediction in its place; the forward
// pass also sums the cross products of (prediction derivatives, e).  A
// family comes in as a step record S, whose state is held by value in the
// loop (so that it stays in registers):
//
//   static constexpr int kWeights;     p
//   struct State;                      the states, their derivatives and the
//                                      last prediction
//   double missing_value(const State&, long t) const;
//                                      the prediction that stands in for a
//                                      missing observation t
//   int step(State&, long t, double value, double* wder) const;
//                                      the update and the derivative update
//                                      on `value` (the family's z..pnt and
//                                      z..dpd); wder gets the p prediction
//                                      derivatives and e; 0 or a negative
//                                      code, the state then as they left it
//   long saved() const;                doubles of the arrays a pass writes
//   void save(double*) const;          (the factors and their derivatives)
//   void restore(const double*) const;

// Adds the outer product of d (nv values) to the packed lower triangle sscp,
// exactly as zscp does with weight 1: nothing when a value is missing, rows of
// zero values skipped, each element summed as s + (d[i] * 1) * d[j].
template <int NV>
inline void add_cross_products(const double* d, double* sscp) noexcept {
  for (int i = 0; i < NV; ++i) {
    if (esf::is_missing(d[i])) return;
  }
  double* row = sscp;
  for (int i = 0; i < NV; ++i) {
    const double a = d[i] * 1.0;
    if (d[i] != 0.0) {
      for (int j = 0; j <= i; ++j) row[j] = row[j] + a * d[j];
    }
    row += i + 1;
  }
}

// The series of the passes.
struct DerivativeSeries {
  const double* x;
  const char* misflg;
  long n;
  double min_nmiss;  // the forward pass stops with -2 past this many missing
};

// The value of observation t in a derivative pass: x[t], or for a missing
// one the prediction that stands in for it, missing().  A forward pass
// counts the missing observations in nmiss: false past min_nmiss.
template <bool kForward, bool kAnyMissing, class Missing>
[[gnu::always_inline]] inline bool observation(const DerivativeSeries& in, long t, long& nmiss, double& value,
                                               Missing missing) noexcept {
  value = in.x[t];
  if constexpr (kAnyMissing) {
    if (in.misflg[t]) {
      if constexpr (kForward) {
        ++nmiss;
        if (static_cast<double>(nmiss) > in.min_nmiss) return false;
      }
      value = missing();
    }
  }
  return true;
}

// A step record whose step can meet its guards deferred:
//   int step(State&, long t, double value, double* wder,
//            DeferredGuards& guards) const;
template <class S>
concept DefersGuards = requires(const S& step, typename S::State& st, double* wder, smoothing::DeferredGuards& g) {
  step.step(st, 0L, 0.0, wder, g);
};

// A step record that runs its unchecked passes in a loop of its own (the
// seasonal families, with the derivatives of their weights side by side in
// SIMD lanes):
//   int unchecked(bool forward, const DerivativeSeries&, State&,
//                 double* sums, long* nmiss, bool* tripped) const;
// It meets its guards deferred, and where no guard tripped it leaves what
// derivative_loop<S, forward, *, false> would leave, to the bit.
template <class S>
concept OwnUncheckedLoop = requires(const S& step, const DerivativeSeries& in, typename S::State& st, double* sums,
                                    long* nmiss, bool* tripped) {
  { step.unchecked(true, in, st, sums, nmiss, tripped) } -> std::same_as<int>;
};

// One pass, with its direction, the presence of missing observations and
// its checks fixed at compile time.
//
// kChecked: every step meets its guards as they come, and (forward pass) the
// cross products are added as add_cross_products adds them and tested
// against kBig after every step, as the frame does.  Unchecked: the steps
// meet their guards deferred (when the step record can) and the cross
// products are plain sums; *tripped tells whether a guard tripped, and the
// caller proves afterwards that the checks could not have made a difference
// or runs the pass again checked.
//
// Never inlined: each loop gets the registers to itself (inlined together,
// the loops spill their state to the stack).
template <class S, bool kForward, bool kAnyMissing, bool kChecked>
[[gnu::noinline]] int derivative_loop(const S& step_record, const DerivativeSeries& in, typename S::State& st,
                                      double* sums, long* nmiss_out, bool* tripped) noexcept {
  constexpr int nv = S::kWeights + 1;
  constexpr int nx = nv * (nv + 1) / 2;
  const long n = in.n;
  // Local copies: no store to the series' arrays can reach them, so the
  // series, the weights and the state may stay in registers across the loop.
  const DerivativeSeries series = in;
  const S step = step_record;
  typename S::State s = st;
  double acc[nx];
  if constexpr (kForward) {
    for (int k = 0; k < nx; ++k) acc[k] = sums[k];
  }
  smoothing::DeferredGuards deferred;
  long nmiss = 0;
  int rc = kOk;
  for (long k = 0; k < n; ++k) {
    const long t = kForward ? k : n - 1 - k;
    double value = 0.0;
    if (!observation<kForward, kAnyMissing>(series, t, nmiss, value, [&] { return step.missing_value(s, t); })) {
      rc = kTooFew;
      break;
    }
    double wder[nv];
    if constexpr (!kChecked && DefersGuards<S>) {
      rc = step.step(s, t, value, wder, deferred);
    } else {
      rc = step.step(s, t, value, wder);
    }
    if (rc < 0) break;
    if constexpr (kForward && kChecked) {
      add_cross_products<nv>(wder, acc);
      bool big = false;
      for (int j = 0; j < nx; ++j) big |= std::fabs(acc[j]) > smoothing::kBig;
      if (big) {
        rc = kOverflow;
        break;
      }
    } else if constexpr (kForward) {
      double* row = acc;
      for (int i = 0; i < nv; ++i) {
        for (int j = 0; j <= i; ++j) row[j] = row[j] + wder[i] * wder[j];
        row += i + 1;
      }
    }
  }
  st = s;
  if constexpr (kForward) {
    for (int k = 0; k < nx; ++k) sums[k] = acc[k];
    *nmiss_out = nmiss;
  }
  *tripped = deferred.tripped;
  return rc < 0 ? rc : kOk;
}

// derivative_loop for a series with or without missing observations.
template <class S, bool kForward, bool kChecked>
int derivative_run(const S& step, const DerivativeSeries& in, typename S::State& st, double* sums, long* nmiss,
                   bool* tripped) noexcept {
  if constexpr (!kChecked && OwnUncheckedLoop<S>) {
    return step.unchecked(kForward, in, st, sums, nmiss, tripped);
  } else {
    // The flags or-ed together as bytes: a loop the compiler runs as vectors.
    unsigned char flags = 0;
    for (long t = 0; t < in.n; ++t) flags |= static_cast<unsigned char>(in.misflg[t]);
    return flags != 0 ? derivative_loop<S, kForward, true, kChecked>(step, in, st, sums, nmiss, tripped)
                      : derivative_loop<S, kForward, false, kChecked>(step, in, st, sums, nmiss, tripped);
  }
}

// Arrays of up to this many doubles are saved on the stack so that a pass
// can run unchecked first.
inline constexpr long kSavedDoubles = 256;

// The backward pass, from observation n-1 down to 0: the recursions run,
// nothing accumulates. 0 or the step's negative code.
//
// With a step record that defers its guards, the pass runs unchecked first,
// from a saved copy of the state; when a guard tripped, the state goes back
// and the checked pass runs.
template <class S>
int derivative_backward(const S& step, const DerivativeSeries& in, typename S::State& st) noexcept {
  bool tripped = false;
  if constexpr (DefersGuards<S> || OwnUncheckedLoop<S>) {
    if (step.saved() <= kSavedDoubles) {
      const typename S::State start = st;
      double saved[kSavedDoubles];
      step.save(saved);
      const int rc = derivative_run<S, false, false>(step, in, st, nullptr, nullptr, &tripped);
      if (!tripped) return rc;
      st = start;
      step.restore(saved);
    }
  }
  return derivative_run<S, false, true>(step, in, st, nullptr, nullptr, &tripped);
}

// After an unchecked forward pass (however it stopped): true when the
// checked pass gives the same results to the bit, because none of its checks
// could have acted.  It is enough that every sum is at most kBig / 2:
// - no value was ever NaN: a NaN derivative or error (a missing one among
//   them) stays NaN in its diagonal sum, which is never skipped;
// - so a zero value only added zeros, which leave a sum unchanged (a sum
//   starts at +0 and never becomes -0);
// - a diagonal sum never falls, so none passed its final value; and an
//   off-diagonal sum, by the Cauchy-Schwarz inequality with the rounding of
//   fewer than 2^50 additions, never passed 1.3 times the larger of its two
//   diagonal sums: nothing came near kBig.
template <int NX>
inline bool unchecked_sums_are_exact(const double* sums) noexcept {
  bool small = true;
  for (int k = 0; k < NX; ++k) small &= std::fabs(sums[k]) <= smoothing::kBig * 0.5;
  return small;
}

// The step record of a seasonal family with P weights (the seasonal family
// 2, the Winters forms 3): its states held by value in U::State, the factors
// and their P derivative arrays in memory, indexed by the season code of
// each observation.  U, the family's update in one form, gives
//
//   struct State;                      the level[, the trend], `xhat` (the
//                                      last prediction of a step that
//                                      succeeded) and their derivatives
//   static double prediction(const State&, double factor);
//                                      the prediction of an observation whose
//                                      season has this factor: what stands
//                                      in for a missing one
//   static int point(const double* w, double xscale, State&, double* sfactor,
//                    int code, double value, double& xhat, double& e);
//                                      the family's z..pnt on the state and
//                                      the factor of season `code`
//   static int derive(const double* w, const State& before, State& after,
//                     double lseason, double value, double* ds, double* wder);
//                                      the family's z..dpd: `before` the state
//                                      before point, lseason the factor
//                                      before it, ds the factor's P
//                                      derivatives (in and out), wder the P
//                                      prediction derivatives
//
// A failed point leaves the derivatives alone; a failed derive still stores
// what it left in the factor's derivatives.  An update may also run the
// unchecked passes in a loop of its own (see OwnUncheckedLoop):
//
//   static int unchecked(const FactorStep<P, U>&, bool forward,
//                        const DerivativeSeries&, State&, double* sums,
//                        long* nmiss, bool* tripped);
template <class U, class Step>
concept UpdateOwnsLoop = requires(const Step& step, const DerivativeSeries& in, typename U::State& s, double* sums,
                                  long* nmiss, bool* tripped) {
  { U::unchecked(step, true, in, s, sums, nmiss, tripped) } -> std::same_as<int>;
};

// An update whose point and derive can meet their guards deferred (a last
// argument, the guards).
template <class U>
concept UpdateDefersGuards = requires(const double* w, typename U::State& s, double* f, double& d,
                                      smoothing::DeferredGuards& g) {
  U::point(w, 0.0, s, f, 0, 0.0, d, d, g);
};

template <int P, class U>
struct FactorStep {
  static constexpr int kWeights = P;
  using State = typename U::State;

  const int* scodes;
  int nseasons;
  double xscale;
  double w[P];
  double* sfactor;
  double* dersea[P];  // d factor[s] / d weight i

  double missing_value(const State& s, long t) const noexcept { return U::prediction(s, sfactor[scodes[t]]); }
  template <class Guards = smoothing::CheckedGuards>
  requires(UpdateDefersGuards<U> || std::same_as<std::remove_cvref_t<Guards>, smoothing::CheckedGuards>)
      [[gnu::always_inline]] int step(State& s, long t, double value, double* wder,
                                      Guards&& guards = Guards{}) const noexcept {
    const int code = scodes[t];
    const State before = s;
    const double lseason = sfactor[code];
    double xhat = 0.0;
    double e = 0.0;
    int rc = kOk;
    if constexpr (UpdateDefersGuards<U>) {
      rc = U::point(w, xscale, s, sfactor, code, value, xhat, e, guards);
    } else {
      rc = U::point(w, xscale, s, sfactor, code, value, xhat, e);
    }
    if (rc < 0) return rc;
    double ds[P];
    for (int i = 0; i < P; ++i) ds[i] = dersea[i][code];
    if constexpr (UpdateDefersGuards<U>) {
      rc = U::derive(w, before, s, lseason, value, ds, wder, guards);
    } else {
      rc = U::derive(w, before, s, lseason, value, ds, wder);
    }
    for (int i = 0; i < P; ++i) dersea[i][code] = ds[i];
    if (rc < 0) return rc;
    s.xhat = xhat;
    wder[P] = e;
    return kOk;
  }
  int unchecked(bool forward, const DerivativeSeries& in, State& s, double* sums, long* nmiss,
                bool* tripped) const noexcept requires UpdateOwnsLoop<U, FactorStep> {
    return U::unchecked(*this, forward, in, s, sums, nmiss, tripped);
  }
  // The factors, then their derivatives by each weight.
  long saved() const noexcept { return (P + 1L) * nseasons; }
  void save(double* to) const noexcept {
    const size_t bytes = static_cast<size_t>(nseasons) * sizeof(double);
    std::memcpy(to, sfactor, bytes);
    for (int i = 0; i < P; ++i) std::memcpy(to + (i + 1L) * nseasons, dersea[i], bytes);
  }
  void restore(const double* from) const noexcept {
    const size_t bytes = static_cast<size_t>(nseasons) * sizeof(double);
    std::memcpy(sfactor, from, bytes);
    for (int i = 0; i < P; ++i) std::memcpy(dersea[i], from + (i + 1L) * nseasons, bytes);
  }
};

// The forward pass from observation 0: adds to `acc` (the packed lower
// triangle of the cross products, (p+1)(p+2)/2 doubles) and counts the
// missing observations in *nmiss.  0, the step's negative code, -2 past
// min_nmiss, or -9 when a cross product passes kBig; `acc` then holds the
// sums up to the step that stopped the pass.
//
// The unchecked pass runs first, from a saved copy of the state; when a
// guard tripped or its sums cannot be shown exact (a sum near kBig, a NaN:
// rare), the state goes back and the checked pass runs.
template <class S>
int derivative_forward(const S& step, const DerivativeSeries& in, typename S::State& st, double* acc,
                       long* nmiss) noexcept {
  constexpr int nv = S::kWeights + 1;
  constexpr int nx = nv * (nv + 1) / 2;
  bool tripped = false;
  if (step.saved() > kSavedDoubles) return derivative_run<S, true, true>(step, in, st, acc, nmiss, &tripped);
  const typename S::State start = st;
  double saved[kSavedDoubles];
  step.save(saved);
  double sums[nx];
  for (int k = 0; k < nx; ++k) sums[k] = acc[k];
  const int rc = derivative_run<S, true, false>(step, in, st, sums, nmiss, &tripped);
  if (!tripped && unchecked_sums_are_exact<nx>(sums)) {
    for (int k = 0; k < nx; ++k) acc[k] = sums[k];
    return rc;
  }
  st = start;
  step.restore(saved);
  return derivative_run<S, true, true>(step, in, st, acc, nmiss, &tripped);
}

// The backward_pass and forward_pass of an estimation frame's family trait
// (a base of the trait F) from its
//   template <class Run> static int derivative_pass(P& pass, const double* w, Run run);
// which builds the step record, the series and the state from the frame's
// pass record, calls run(step, series, state) and stores the state back.
template <class F>
struct OwnDerivativeLoops {
  template <class P>
  static int backward_pass(P& p, const double* w) {
    return F::derivative_pass(
        p, w, [](const auto& step, const auto& series, auto& st) { return derivative_backward(step, series, st); });
  }
  template <class P>
  static int forward_pass(P& p, const double* w, double* acc, long* nmiss) {
    return F::derivative_pass(p, w, [&](const auto& step, const auto& series, auto& st) {
      return derivative_forward(step, series, st, acc, nmiss);
    });
  }
};

}  // namespace pass
