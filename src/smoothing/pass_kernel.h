// The whole-series passes of the smoothing kernels without seasons, written
// once for the simple, linear, double and damped families: the backcast, the
// forward pass of z..smo and the prediction pass of z..prd.
//
// A family comes in as a small kernel record K, built from its weights and
// the scale of the series, which holds:
//
//   struct State;                      the states, by value (level[, trend])
//   static constexpr int kStates;      doubles of State written in a row
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
// The arithmetic of every step is the family's own; these templates fix only
// the order of the steps, the guards around them and the rows they write.
#pragma once

#include <cmath>

#include "numeric/numeric.h"
#include "primitives/primitives.h"
#include "smoothing/frame_limits.h"

namespace pass {

using smoothing::kErrorLimit;
using smoothing::kMissing;
using smoothing::kOk;
using smoothing::kOverflow;
using smoothing::kSseLimit;
using smoothing::kTiny;
using smoothing::kTooFew;

// The backcast: from observation n-1 down to 0, the update or the missing
// step, then the turn. A failed guard returns at once with the state the
// update left (its failed parts missing). No error is accumulated.
template <class K>
inline int backcast(const K& k, const double* x, const char* misflg, long n,
                    typename K::State& s) noexcept {
  double xhat = 0.0;
  double e = 0.0;
  for (long t = n - 1; t >= 0; --t) {
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
// when given. *mse = sse / nobs.
template <class K>
inline int forward(const K& k, const double* x, const char* misflg, long n,
                   typename K::State& s, double* mse, double* smoothed,
                   double* strptr) noexcept {
  double sse = 0.0;
  long nmiss = 0;
  double xhat = kMissing;
  for (long t = 0; t < n; ++t) {
    double e = kMissing;
    if (misflg[t]) {
      if constexpr (!K::kMissingRepeatsPrediction) k.skip(s, xhat);
      ++nmiss;
    } else {
      const int rc = k.update(x[t], s, xhat, e);
      if (rc != kOk || std::fabs(e) > kErrorLimit || sse > kSseLimit) return kOverflow;
      sse += e * e;
    }
    if (smoothed) smoothed[t] = xhat;
    if (strptr) {
      strptr[0] = x[t];
      strptr[1] = xhat;
      strptr[2] = e;
      k.put(s, strptr + 3);
      strptr += 3 + K::kStates;
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
inline int smooth(const K& k, const double* x, const char* misflg, long n,
                  typename K::State& s, double* mse, double* smoothed,
                  double* strptr) noexcept {
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
template <class K>
inline int predict(const K& k, const double* x, const char* misflg, long n,
                   typename K::State& s, long start, long end, long lead, double se2,
                   double siglev, int startflg, double* mse, double* strptr) noexcept {
  *mse = kMissing;
  if (n < 1) return kTooFew;
  if (k.unusable()) return kOverflow;

  const double std_fit = (esf::is_missing(se2) || se2 <= kTiny) ? 0.0 : std::sqrt(se2);
  const double z = zprobit(1.0 - siglev * 0.5);
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
    if (misflg[t]) {
      k.skip(s, xhat);
      ++nmiss;
    } else {
      const int rc = k.update(x[t], s, xhat, e);
      if (rc != kOk) return rc;
      sse += e * e;
    }
    if (strptr && t >= start) {
      strptr[0] = x[t];
      strptr[1] = xhat;
      strptr[2] = xhat + limit;
      strptr[3] = xhat - limit;
      strptr[4] = e;
      strptr[5] = std_fit;
      k.put(s, strptr + 6);
      strptr += 6 + K::kStates;
    }
  }

  const long nobs = n - nmiss;
  if (nobs < 1) return kTooFew;
  *mse = nobs > K::kParms ? sse / static_cast<double>(nobs - K::kParms) : sse;

  if (!strptr) return kOk;
  const double base = (esf::is_missing(se2) || se2 <= 0.0) ? *mse : se2;
  typename K::State f = s;
  for (long j = 1; j <= lead; ++j) {
    const double fc = k.forecast(f, j, strptr + 6);
    const double sd = std::sqrt(k.variance(base, j));
    const double hw = z * sd;
    strptr[0] = kMissing;
    strptr[1] = fc;
    strptr[2] = fc + hw;
    strptr[3] = fc - hw;
    strptr[4] = kMissing;
    strptr[5] = sd;
    strptr += 6 + K::kStates;
  }
  return kOk;
}

}  // namespace pass
