// Kernel of seasonal exponential smoothing.  See esssubs.h for the
// recursions.
//
// zesssmo runs once for every grid candidate and twice for every numeric
// derivative, so its loops call the inline body of zesspnt rather than the
// exported routine; both give the same bits.
#include "smoothing/esssubs.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstring>

#include "module/host_api.h"
#include "numeric/numeric.h"
#include "primitives/primitives.h"
#include "regression/regression.h"

using namespace smoothing;

namespace {

// A mean of the factors below this in magnitude is left alone by the
// centring.
constexpr double kCentreThreshold = 1.1368683772161608e-13;
// Margin of the stability region (2^-53).
constexpr double kStableMargin = 1.110223024625157e-16;

int divide(double num, double den, double* quo) { return guarded_divide(num, den, quo); }

bool weights_overflow(double wlevel, double wseason) {
  return std::fabs(wlevel) > kStateLimit || std::fabs(wseason) > kStateLimit;
}

// The backward pass: from observation n-1 down to 0, skipping missing ones,
// with the guards of zesspnt.  No error is accumulated.
int backward(const double* x, const char* misflg, double xscale, long n, double wlevel,
             double wseason, double* level, double* sfactor, const int* scodes) {
  double xhat = 0.0;
  double e = 0.0;
  for (long t = n - 1; t >= 0; --t) {
    if (misflg[t]) continue;
    const int rc = ess::point(x[t], xscale, wlevel, wseason, level, sfactor, scodes[t], &xhat, &e);
    if (rc != kOk) return rc;
  }
  return kOk;
}

// Mean of n doubles, summed in order.
double mean_of(const double* v, int n) {
  double sum = 0.0;
  for (int s = 0; s < n; ++s) sum += v[s];
  return sum / static_cast<double>(n);
}

}  // namespace

extern "C" {

int zesspnt(double x, double xscale, double wlevel, double wseason, double* level,
            double* sfactor, int scode, double* xhat, double* e) {
  return ess::point(x, xscale, wlevel, wseason, level, sfactor, scode, xhat, e);
}

int zessdpd(double x, double wlevel, double wseason, double llevel, double clevel,
            double lseason, double /*cseason*/, double* derlev, double* dersea,
            double* dervec) {
  return ess::point_derivative(x, wlevel, wseason, llevel, clevel, lseason, derlev, dersea,
                               dervec);
}

int zesssmo(double* x, char* misflg, double xscale, long n, int /*nseasons*/, double wlevel,
            double wseason, double* level, double* sfactor, int* scodes, double* mse,
            double* smoothed, double* strptr) {
  *mse = kMissing;
  if (n < 1) return kTooFew;
  if (weights_overflow(wlevel, wseason)) return kOverflow;

  int rc = backward(x, misflg, xscale, n, wlevel, wseason, level, sfactor, scodes);
  if (rc != kOk) return rc;

  double sse = 0.0;
  long nmiss = 0;
  for (long t = 0; t < n; ++t) {
    const int s = scodes[t];
    double xhat;
    double e;
    if (misflg[t]) {
      ++nmiss;
      xhat = *level + sfactor[s];
      e = kMissing;
    } else {
      rc = ess::point(x[t], xscale, wlevel, wseason, level, sfactor, s, &xhat, &e);
      if (rc != kOk) return rc;
      if (std::fabs(e) > kErrorLimit || sse > kSseLimit) return kOverflow;
      sse += e * e;
    }
    if (smoothed) smoothed[t] = xhat;
    if (strptr) {
      strptr[0] = x[t];
      strptr[1] = xhat;
      strptr[2] = e;
      strptr[3] = *level;
      strptr[4] = sfactor[s];
      strptr += 5;
    }
  }

  const long nobs = n - nmiss;
  if (nobs < 1) return kTooFew;
  *mse = esf::is_missing(sse) ? kMissing : sse / static_cast<double>(nobs);
  return kOk;
}

int zesssvi(double* x, char* misflg, long n, int nseasons, int nstart, int stflg,
            double* level, double* sfactor) {
  if (n < 1) return kTooFew;
  long t = n - 1;
  while (t > 0 && misflg[t]) --t;
  // Ending at 0 fails even when observation 0 is present: the backward pass
  // needs something to run over.
  if (t == 0) return kTooFew;
  *level = x[t];
  for (int s = 0; s < nseasons; ++s) sfactor[s] = 0.0;
  if (stflg == 0) return kOk;

  double* csfact =
      static_cast<double*>(host_alloc(static_cast<long>(nseasons) * 8, VM_NUMBERS));
  if (csfact == nullptr) return kNoMemory;
  double ccoef = kMissing;
  const int rc = ztsrdmy(x, misflg, n, nseasons, &ccoef, nullptr, nullptr, csfact, nullptr);
  *level = x[t];
  if (rc == 1) *level = ccoef;  // a reduced fit: the level is its constant
  if (rc == 0 || rc == 1) {
    // The regression's season 0 is the season of observation 0, code nstart.
    int ss = nseasons > 0 ? ((nstart % nseasons) + nseasons) % nseasons : 0;
    for (int i = 0; i < nseasons; ++i) {
      sfactor[ss] = esf::is_missing(csfact[i]) ? 0.0 : csfact[i];
      if (++ss >= nseasons) ss = 0;
    }
  }
  host_free(csfact);
  return rc < 0 ? rc : kOk;
}

int zessnmd(int nseasons, double* level, double* sfactor, double* derlev, double* dersealev,
            double* derseasea) {
  ess::centre(nseasons, level, sfactor, derlev, dersealev, derseasea);
  return kOk;
}

int zessnrm(int nseasons, double* level, double* sfactor) {
  const double ibar = mean_of(sfactor, nseasons);
  if (std::fabs(ibar) < kCentreThreshold) return kOk;
  for (int s = 0; s < nseasons; ++s) sfactor[s] -= ibar;
  *level += ibar;
  return kOk;
}

int zessstb(int nseasons, double wlevel, double wseason) {
  const double d = (1.0 - wlevel) * wseason;
  return d > kStableMargin && static_cast<double>(nseasons) * wlevel + d > kStableMargin &&
                 2.0 - wlevel - d > kStableMargin
             ? 1
             : 0;
}

int zessprd(double* x, char* misflg, double xscale, long n, int nseasons, double wlevel,
            double wseason, double* level, double* sfactor, int* scodes, long start, long end,
            long lead, double se2, double siglev, int startflg, double* mse, double* strptr) {
  *mse = kMissing;
  if (n < 1) return kTooFew;
  if (weights_overflow(wlevel, wseason)) return kOverflow;

  const double std_fit = (esf::is_missing(se2) || se2 <= kTiny) ? 0.0 : std::sqrt(se2);
  const double z = zprobit(1.0 - siglev * 0.5);
  // One half-width for every observation row, whatever se2 holds.
  const double delta = z * std::sqrt(se2);

  int rc;
  if (startflg == 0) {
    rc = backward(x, misflg, xscale, n, wlevel, wseason, level, sfactor, scodes);
    if (rc != kOk) return rc;
  }

  double sse = 0.0;
  long nmiss = 0;
  for (long t = 0; t <= end; ++t) {
    const int s = scodes[t];
    double xhat;
    double e;
    if (misflg[t]) {
      ++nmiss;
      xhat = *level + sfactor[s];
      e = kMissing;
    } else {
      rc = ess::point(x[t], xscale, wlevel, wseason, level, sfactor, s, &xhat, &e);
      if (rc != kOk) return rc;
      sse += e * e;
    }
    if (strptr && t >= start) {
      strptr[0] = x[t];
      strptr[1] = xhat;
      strptr[2] = xhat + delta;
      strptr[3] = xhat - delta;
      strptr[4] = e;
      strptr[5] = std_fit;
      strptr[6] = *level;
      strptr[7] = sfactor[s];
      strptr += 8;
    }
  }

  // n is the argument and nmiss counts over 0..end, which may run past n.
  const long nobs = n - nmiss;
  if (nobs < 1) return kTooFew;
  *mse = nobs > 2 ? sse / static_cast<double>(nobs - 2) : sse;

  // Only the forecast rows fall back on the pass's own error variance.
  const double base = (esf::is_missing(se2) || se2 <= 0.0) ? *mse : se2;
  int s = end >= 0 ? scodes[end] : -1;
  for (long k = 1; k <= lead; ++k) {
    if (++s >= nseasons) s = 0;
    const double xhat = *level + sfactor[s];
    const double var = base * ess::variance_multiplier(wlevel, wseason, nseasons, k);
    const double sd = std::sqrt(var);
    const double hw = z * sd;
    if (strptr) {
      strptr[0] = kMissing;
      strptr[1] = xhat;
      strptr[2] = xhat + hw;
      strptr[3] = xhat - hw;
      strptr[4] = kMissing;
      strptr[5] = sd;
      strptr[6] = *level;
      strptr[7] = sfactor[s];
      strptr += 8;
    }
  }
  return kOk;
}

int zesspsi(double wlevel, double wseason, int nseasons, long npsi, double* psi) {
  psi[0] = 1.0;
  const double at_cycle = wlevel + (1.0 - wlevel) * wseason;
  for (long i = 1; i < npsi; ++i) {
    psi[i] = (nseasons > 0 && i % nseasons == 0) ? at_cycle : wlevel;
  }
  return kOk;
}

int zessnpd(double* x, char* misflg, double xscale, long n, int nseasons, double wlevel,
            double wseason, double level, double* sfactor, int* scodes, double* deltas,
            int wkflag, double* pder) {
  pder[0] = pder[1] = kMissing;
  const long bytes = static_cast<long>(nseasons) * 8;
  double* work = static_cast<double*>(host_alloc(bytes, VM_NUMBERS));
  if (work == nullptr) return kNoMemory;
  int rc = kOk;
  for (int i = 0; i < 2; ++i) {
    const double w = i == 0 ? wlevel : wseason;
    const double delta = deltas[i];
    double w1;
    double w2;
    double divisor;
    if (wkflag == 1 && std::fabs(w) > kTiny) {
      w1 = (1.0 + delta) * w;
      w2 = (1.0 - delta) * w;
      divisor = delta * 2.0 * w;
    } else {
      w1 = w + delta;
      w2 = w - delta;
      divisor = delta * 2.0;
    }
    double run1[2] = {wlevel, wseason};
    double run2[2] = {wlevel, wseason};
    run1[i] = w1;
    run2[i] = w2;
    double mse1 = kMissing;
    double mse2 = kMissing;
    double l1 = level;
    double l2 = level;
    std::memcpy(work, sfactor, static_cast<size_t>(bytes));
    const int rc1 = zesssmo(x, misflg, xscale, n, nseasons, run1[0], run1[1], &l1, work, scodes,
                            &mse1, nullptr, nullptr);
    std::memcpy(work, sfactor, static_cast<size_t>(bytes));
    const int rc2 = zesssmo(x, misflg, xscale, n, nseasons, run2[0], run2[1], &l2, work, scodes,
                            &mse2, nullptr, nullptr);
    if (rc1 + rc2 < 0 || delta < kTiny) {
      rc = kGuardedDivision;
      continue;
    }
    rc = divide(mse1 - mse2, divisor, &pder[i]);
  }
  host_free(work);
  return rc;
}

int zessstd(double* xpxdiag, double mse, long nobs, double* parms, double* stderr,
            double* tvals) {
  for (int j = 0; j < 2; ++j) {
    if (nobs < 3) {
      stderr[j] = kMissing;
      tvals[j] = kMissing;
    } else {
      stderr[j] = std::sqrt(std::fabs(xpxdiag[j]) * mse);
      divide(parms[j], stderr[j], &tvals[j]);
    }
  }
  return kOk;
}

}  // extern "C"

void ess::smooth_many(const double* x, const char* misflg, double xscale, long n, int nseasons,
                      const double* w, int count, double level, const double* sfactor,
                      const int* scodes, double* work, int* rc, double* mse) {
  for (int j = 0; j < count; ++j) {
    rc[j] = kOk;
    mse[j] = kMissing;
  }
  if (n < 1) {
    for (int j = 0; j < count; ++j) rc[j] = kTooFew;
    return;
  }
  // The guards are not tested one observation at a time.  The largest value
  // of each guarded quantity is kept and compared with its limit at the end:
  // a guard trips at some observation exactly when the largest value over
  // the observations checked passes the limit, and the running sse, which
  // never falls, passes its limit before some addition exactly when its
  // largest value before an addition does.  Until a guard trips every value
  // is finite; after it the pair has failed whatever follows.
  const double upper = xscale * kRelativeLimit;
  double wl[kManyPairs], ws[kManyPairs], keep_l[kManyPairs], keep_s[kManyPairs];
  double l[kManyPairs], sse[kManyPairs];
  double peak_state[kManyPairs];  // largest |level| or |factor| before an update
  double peak_xhat[kManyPairs];   // largest prediction
  double peak_e[kManyPairs];      // largest |e|
  double peak_sse[kManyPairs];    // largest sse before an addition
  for (int j = 0; j < count; ++j) {
    wl[j] = w[2 * j];
    ws[j] = w[2 * j + 1];
    keep_l[j] = 1.0 - wl[j];
    keep_s[j] = 1.0 - ws[j];
    l[j] = level;
    sse[j] = 0.0;
    peak_state[j] = 0.0;
    peak_xhat[j] = -DBL_MAX;
    peak_e[j] = 0.0;
    peak_sse[j] = 0.0;
  }
  // Factor s of pair j is work[s * count + j].
  for (int s = 0; s < nseasons; ++s) {
    for (int j = 0; j < count; ++j) work[s * count + j] = sfactor[s];
  }

  auto update = [&](long t, bool forward) {
    const double xt = x[t];
    double* f = work + static_cast<long>(scodes[t]) * count;
    for (int j = 0; j < count; ++j) {
      const double lj = l[j];
      const double fj = f[j];
      peak_state[j] = std::max(peak_state[j], std::max(std::fabs(lj), std::fabs(fj)));
      const double xhat = lj + fj;
      peak_xhat[j] = std::max(peak_xhat[j], xhat);
      const double cl = (xt - fj) * wl[j] + lj * keep_l[j];
      f[j] = (xt - cl) * ws[j] + fj * keep_s[j];
      l[j] = cl;
      if (forward) {
        const double e = xhat - xt;
        peak_e[j] = std::max(peak_e[j], std::fabs(e));
        peak_sse[j] = std::max(peak_sse[j], sse[j]);
        sse[j] += e * e;
      }
    }
  };
  for (long t = n - 1; t >= 0; --t) {
    if (!misflg[t]) update(t, false);
  }
  long nmiss = 0;
  for (long t = 0; t < n; ++t) {
    if (misflg[t]) {
      ++nmiss;
    } else {
      update(t, true);
    }
  }

  const long nobs = n - nmiss;
  for (int j = 0; j < count; ++j) {
    const bool failed = std::fabs(wl[j]) > kStateLimit || std::fabs(ws[j]) > kStateLimit ||
                        peak_state[j] > kStateLimit || peak_xhat[j] > upper ||
                        peak_e[j] > kErrorLimit || peak_sse[j] > kSseLimit;
    if (failed) {
      rc[j] = kOverflow;
    } else if (nobs < 1) {
      rc[j] = kTooFew;
    } else {
      mse[j] = esf::is_missing(sse[j]) ? kMissing : sse[j] / static_cast<double>(nobs);
    }
  }
}
