// Guards and helpers shared by the kernels of the trended families (linear,
// double and damped trend).
//
// The guards are plain comparisons with fixed constants, the same in every
// smoothing family, so that a series behaves alike whichever family runs it.
#pragma once

#include <cmath>

#include "module/host_api.h"
#include "primitives/primitives.h"
#include "regression/regression.h"

namespace trend {

// |level| or |trend| above this is an overflow of the state.
inline constexpr double kStateLimit = 1.3407807929942597e+152;
// A prediction above kRelativeLimit * xscale is an overflow; only the upper
// side is tested, so a strongly negative state passes.
inline constexpr double kRelativeLimit = 10000.0;
// |e| or |derivative| above this is an overflow.
inline constexpr double kErrorLimit = 1.3407807929943e+154;
// A running sum of squared errors above this is an overflow.
inline constexpr double kSseLimit = 8.988465674311578e+307;
// Below this a weight, a denominator or a step counts as zero.
inline constexpr double kTiny = 1.491668147e-154;
// Quotients whose magnitude would pass this are overflowing.
inline constexpr double kBig = 1.3407807929943e+154;

inline constexpr double kMissing = esf::kMissing;

inline bool missing(double d) noexcept { return esf::is_missing(d); }

// Internal codes of the kernels.
inline constexpr int kOk = 0;
inline constexpr int kTooFew = -2;
inline constexpr int kOverflow = -9;
inline constexpr int kGuardedDivision = -92;

// The host's overflow values, kept in its global control block.
inline double overflow_value(bool positive) noexcept {
  const GCB* gcb = host_gcb();
  if (gcb == nullptr) return positive ? HUGE_VAL : -HUGE_VAL;
  return positive ? gcb->posovfl : gcb->negovfl;
}

// Guarded division of the kernels. Plain division when it cannot overflow
// (|den| >= 1, or |num| < |den| * kBig); result 0. Otherwise -92, and `*quo`
// holds the host's overflow value of the quotient's sign, 0 for a zero
// numerator over a non-zero denominator, and the missing value for 0 / 0.
inline int divide(double num, double den, double* quo) noexcept {
  if (std::fabs(den) >= 1.0 || std::fabs(num) < std::fabs(den) * kBig) {
    *quo = num / den;
    return kOk;
  }
  if (den == 0.0) {
    if (num > 0.0) {
      *quo = overflow_value(true);
    } else if (num < 0.0) {
      *quo = overflow_value(false);
    } else {
      *quo = kMissing;
    }
  } else if (num == 0.0) {
    *quo = 0.0;
  } else {
    *quo = num * den > 0.0 ? overflow_value(true) : overflow_value(false);
  }
  return kGuardedDivision;
}

// Walks back from the end of the series to the last usable observation.
// Returns its index, or 0 when none lies beyond index 0: a series whose only
// usable observation is the first has no start value.
inline long last_usable(const char* misflg, long n) noexcept {
  long t = n - 1;
  while (t > 0 && misflg[t]) --t;
  return t < 0 ? 0 : t;
}

// Start values of the trended families for the backward pass: the level is
// the last usable observation and the trend 0; with `stflg` the trend is the
// slope of a straight line fitted to the series, negated because the first
// pass over the data runs backward in time. The intercept of the line is not
// kept. A series whose only usable observation is the first has no start.
inline int trended_start(double* x, char* misflg, long n, int stflg,
                         double* level, double* trend) noexcept {
  *level = kMissing;
  *trend = kMissing;
  if (n < 1) return kTooFew;
  const long t = last_usable(misflg, n);
  if (t == 0) return kTooFew;
  *level = x[t];
  *trend = 0.0;
  if (!stflg) return kOk;
  const int rc = ztsrdmy(x, misflg, n, 0, level, trend, nullptr, nullptr, nullptr);
  *level = x[t];
  if (!missing(*trend)) *trend = -*trend;
  return rc;
}

}  // namespace trend
