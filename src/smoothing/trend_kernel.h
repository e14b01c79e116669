// Helpers shared by the kernels of the trended families (linear, double and
// damped trend): the guards of every smoothing kernel and the start values of
// the backward pass.
#pragma once

#include "primitives/primitives.h"
#include "regression/regression.h"
#include "smoothing/frame_limits.h"

namespace trend {

using smoothing::kBig;
using smoothing::kErrorLimit;
using smoothing::kGuardedDivision;
using smoothing::kMissing;
using smoothing::kOk;
using smoothing::kOverflow;
using smoothing::kRelativeLimit;
using smoothing::kSseLimit;
using smoothing::kStateLimit;
using smoothing::kTiny;
using smoothing::kTooFew;

inline bool missing(double d) noexcept { return esf::is_missing(d); }

// The guarded division of the kernels (0, or -92 with an overflow value).
inline int divide(double num, double den, double* quo) noexcept {
  return smoothing::guarded_divide(num, den, quo);
}

// Walks back from the end of the series to the last usable observation.
// Returns its index, or 0 when none lies beyond index 0.
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
