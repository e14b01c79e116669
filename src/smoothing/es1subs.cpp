// Kernel of simple exponential smoothing.  See es1subs.h for the recursions.
//
// The loops of zes1smo and zes1prd are written without calls: zes1smo runs
// once for every grid candidate and twice for every numeric derivative.  Loop
// invariants such as (1 - w) and the relative limit are computed once; that
// changes no bit of any result, since each is the same expression evaluated
// on the same operands.
#include "smoothing/es1subs.h"

#include <algorithm>
#include <cfloat>
#include <cmath>

#include "numeric/numeric.h"
#include "primitives/primitives.h"
#include "smoothing/frame_limits.h"

using namespace smoothing;

namespace {

// True when a level before an update fails one of the two state guards:
// |L| above the state limit, or L above the relative limit (upper side only).
inline bool level_overflows(double level, double upper) noexcept {
  return std::fabs(level) > kStateLimit || level > upper;
}

// The backcast: from observation n-1 down to 0, skipping missing ones.
// Leaves the start level for time 0 in `level`; -9 with `level` missing when
// a guard fails.
inline int backcast(const double* x, const char* misflg, double xscale, long n,
                    double wlevel, double& level) noexcept {
  const double upper = xscale * kRelativeLimit;
  const double keep = 1.0 - wlevel;
  double l = level;
  for (long t = n - 1; t >= 0; --t) {
    if (misflg[t]) continue;
    if (level_overflows(l, upper)) {
      level = kMissing;
      return kOverflow;
    }
    l = x[t] * wlevel + l * keep;
  }
  level = l;
  return kOk;
}

}  // namespace

extern "C" {

int zes1pnt(double x, double xscale, double wlevel, double* level, double* xhat, double* e) {
  return es1::point(x, xscale, wlevel, level, xhat, e);
}

int zes1dpd(double x, double wlevel, double llevel, double /*clevel*/, double* derlev,
            double* dervec) {
  return es1::point_derivative(x, wlevel, llevel, derlev, dervec);
}

int zes1smo(double* x, char* misflg, double xscale, long n, double wlevel, double* level,
            double* mse, double* smoothed, double* strptr) {
  *mse = kMissing;
  if (n < 1) return kTooFew;
  if (std::fabs(wlevel) > kStateLimit) return kOverflow;

  int rc = backcast(x, misflg, xscale, n, wlevel, *level);
  if (rc != kOk) return rc;

  const double upper = xscale * kRelativeLimit;
  const double keep = 1.0 - wlevel;
  double l = *level;
  double sse = 0.0;
  long nmiss = 0;
  double xhat = kMissing;  // a missing observation repeats the previous prediction
  for (long t = 0; t < n; ++t) {
    double e;
    if (misflg[t]) {
      ++nmiss;
      e = kMissing;
    } else {
      if (level_overflows(l, upper)) {
        *level = kMissing;
        return kOverflow;
      }
      xhat = l;
      e = l - x[t];
      l = x[t] * wlevel + l * keep;
      if (std::fabs(e) > kErrorLimit || sse > kSseLimit) {
        *level = l;
        return kOverflow;
      }
      sse += e * e;
    }
    if (smoothed) smoothed[t] = xhat;
    if (strptr) {
      strptr[0] = x[t];
      strptr[1] = xhat;
      strptr[2] = e;
      strptr[3] = l;
      strptr += 4;
    }
  }
  *level = l;

  const long nobs = n - nmiss;
  if (nobs < 1) return kTooFew;
  *mse = esf::is_missing(sse) ? kMissing : sse / static_cast<double>(nobs);
  return kOk;
}

int zes1svi(double* x, char* misflg, long n, int /*stflg*/, double* level) {
  if (n < 1) return kTooFew;
  long t = n - 1;
  while (t > 0 && misflg[t]) --t;
  // Ending at 0 fails even when observation 0 is present: the backward pass
  // needs something to run over.
  if (t == 0) return kTooFew;
  *level = x[t];
  return kOk;
}

int zes1prd(double* x, char* misflg, double xscale, long n, double wlevel, double* level,
            long start, long end, long lead, double se2, double siglev, int startflg,
            double* mse, double* strptr) {
  *mse = kMissing;
  if (n < 1) return kTooFew;
  if (std::fabs(wlevel) > kStateLimit) return kOverflow;

  const double std_fit = (esf::is_missing(se2) || se2 <= kTiny) ? 0.0 : std::sqrt(se2);
  const double z = zprobit(1.0 - siglev * 0.5);
  // One half-width for every observed row, whatever se2 holds: a missing se2
  // gives limits that are the square root of a missing value.
  const double limit = z * std::sqrt(se2);

  if (startflg == 0) {
    const int rc = backcast(x, misflg, xscale, n, wlevel, *level);
    if (rc != kOk) return rc;
  }

  const double upper = xscale * kRelativeLimit;
  const double keep = 1.0 - wlevel;
  double l = *level;
  double sse = 0.0;
  long nmiss = 0;
  for (long t = 0; t <= end; ++t) {
    const double xhat = l;
    double e;
    if (misflg[t]) {
      e = kMissing;
      ++nmiss;
    } else {
      if (level_overflows(l, upper)) {
        *level = kMissing;
        return kOverflow;
      }
      e = xhat - x[t];
      l = x[t] * wlevel + l * keep;
      sse += e * e;
    }
    if (strptr && t >= start) {
      strptr[0] = x[t];
      strptr[1] = xhat;
      strptr[2] = xhat + limit;
      strptr[3] = xhat - limit;
      strptr[4] = e;
      strptr[5] = std_fit;
      strptr[6] = l;
      strptr += 7;
    }
  }
  *level = l;

  // n is the argument and nmiss counts over 0..end, which may run past n.
  const long nobs = n - nmiss;
  if (nobs < 1) return kTooFew;
  *mse = nobs > 1 ? sse / static_cast<double>(nobs - 1) : sse;

  // Only the forecast rows fall back on the pass's own error variance.
  const double base = (esf::is_missing(se2) || se2 <= 0.0) ? *mse : se2;
  if (lead > 0) {
    const double f = l;  // the forecast is flat at the last level
    for (long k = 1; k <= lead; ++k) {
      const double var = (static_cast<double>(k - 1) * wlevel * wlevel + 1.0) * base;
      const double sd = std::sqrt(var);
      const double hw = z * sd;
      if (strptr) {
        strptr[0] = kMissing;
        strptr[1] = f;
        strptr[2] = f + hw;
        strptr[3] = f - hw;
        strptr[4] = kMissing;
        strptr[5] = sd;
        strptr[6] = f;
        strptr += 7;
      }
    }
  }
  return kOk;
}

double zes1cla(double wlevel, double se2, long lead, double siglev, double* limit) {
  const double var = se2 * (static_cast<double>(lead - 1) * wlevel * wlevel + 1.0);
  if (limit) *limit = zprobit(1.0 - siglev * 0.5) * std::sqrt(var);
  return var;
}

int zes1psi(double wlevel, long npsi, double* psi) {
  psi[0] = 1.0;
  if (npsi >= 2) vzfdl(wlevel, psi + 1, npsi - 1);
  return kOk;
}

int zes1npd(double* x, char* misflg, double xscale, long n, double wlevel, double level,
            double deltas, int wkflag, double* pder) {
  *pder = kMissing;
  double w1, w2, divisor;
  if (wkflag == 1 && std::fabs(wlevel) > kTiny) {
    w1 = wlevel * (1.0 + deltas);
    w2 = wlevel * (1.0 - deltas);
    divisor = 2.0 * deltas * wlevel;
  } else {
    w1 = wlevel + deltas;
    w2 = wlevel - deltas;
    divisor = 2.0 * deltas;
  }
  double level1 = level;
  double level2 = level;
  double mse1 = kMissing;
  double mse2 = kMissing;
  const int rc1 = zes1smo(x, misflg, xscale, n, w1, &level1, &mse1, nullptr, nullptr);
  const int rc2 = zes1smo(x, misflg, xscale, n, w2, &level2, &mse2, nullptr, nullptr);
  if (rc1 + rc2 < 0 || deltas < kTiny) return kGuardedDivision;
  return guarded_divide(mse1 - mse2, divisor, pder);
}

int zes1std(double* xpxdiag, double mse, long nobs, double* parms, double* stderr,
            double* tvals) {
  if (nobs > 1) {
    *stderr = std::sqrt(std::fabs(xpxdiag[0]) * mse);
    guarded_divide(parms[0], *stderr, tvals);
  } else {
    *stderr = kMissing;
    *tvals = kMissing;
  }
  return kOk;
}

}  // extern "C"

void es1::smooth_many(const double* x, const char* misflg, double xscale, long n, const double* w,
                      int count, double level, int* rc, double* mse) {
  for (int j = 0; j < count; ++j) {
    rc[j] = kOk;
    mse[j] = kMissing;
  }
  if (n < 1) {
    for (int j = 0; j < count; ++j) rc[j] = kTooFew;
    return;
  }
  // The guards are not tested one observation at a time.  The largest value
  // each guarded quantity takes is kept instead, and compared with its limit
  // at the end: a level guard trips at some observation exactly when the
  // largest level (or |level|) over the checked observations passes its limit,
  // and the running sse, which never falls, passes its limit before some
  // addition exactly when its largest value before an addition does.  Until a
  // guard trips every value is finite, so the maxima see no NaN; after it the
  // weight has failed whatever follows.  The loops then carry no branch and
  // run across the weights as vectors.
  const double upper = xscale * kRelativeLimit;
  double keep[kManyWeights];
  double l[kManyWeights];
  double sse[kManyWeights];
  double peak_abs[kManyWeights];   // largest |level| before an update
  double peak[kManyWeights];       // largest level before an update
  double peak_e[kManyWeights];     // largest |e|
  double peak_sse[kManyWeights];   // largest sse before an addition
  for (int j = 0; j < count; ++j) {
    keep[j] = 1.0 - w[j];
    l[j] = level;
    sse[j] = 0.0;
    peak_abs[j] = 0.0;
    peak[j] = -DBL_MAX;
    peak_e[j] = 0.0;
    peak_sse[j] = 0.0;
  }

  // The backcast.
  for (long t = n - 1; t >= 0; --t) {
    if (misflg[t]) continue;
    const double xt = x[t];
    for (int j = 0; j < count; ++j) {
      const double lj = l[j];
      peak_abs[j] = std::max(peak_abs[j], std::fabs(lj));
      peak[j] = std::max(peak[j], lj);
      l[j] = xt * w[j] + lj * keep[j];
    }
  }

  // The forward pass.
  long nmiss = 0;
  for (long t = 0; t < n; ++t) {
    if (misflg[t]) {
      ++nmiss;
      continue;
    }
    const double xt = x[t];
    for (int j = 0; j < count; ++j) {
      const double lj = l[j];
      peak_abs[j] = std::max(peak_abs[j], std::fabs(lj));
      peak[j] = std::max(peak[j], lj);
      const double e = lj - xt;
      l[j] = xt * w[j] + lj * keep[j];
      peak_e[j] = std::max(peak_e[j], std::fabs(e));
      peak_sse[j] = std::max(peak_sse[j], sse[j]);
      sse[j] += e * e;
    }
  }

  const long nobs = n - nmiss;
  for (int j = 0; j < count; ++j) {
    const bool failed = std::fabs(w[j]) > kStateLimit || peak_abs[j] > kStateLimit ||
                        peak[j] > upper || peak_e[j] > kErrorLimit || peak_sse[j] > kSseLimit;
    if (failed) {
      rc[j] = kOverflow;
    } else if (nobs < 1) {
      rc[j] = kTooFew;
    } else {
      mse[j] = esf::is_missing(sse[j]) ? kMissing : sse[j] / static_cast<double>(nobs);
    }
  }
}
