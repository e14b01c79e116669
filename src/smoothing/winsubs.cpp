// Kernel of Winters smoothing, additive and multiplicative: the whole-series
// passes, start values, normalisation of the factors, stability region,
// prediction pass with its variances, numeric derivatives and standard
// errors.  The one-observation recursions are inline in winsubs.h.
//
// A pass runs backward from the start values at the end of the series to the
// first observation, turns round (one more trend step back, the trend then
// runs forward in time) and runs forward; only the forward pass counts
// errors.  The factors are indexed by the season code of each observation.
#include "smoothing/winsubs.h"

#include <cmath>
#include <cstring>

#include "module/host_api.h"
#include "numeric/numeric.h"
#include "primitives/primitives.h"
#include "regression/regression.h"

namespace {

using namespace smoothing;

constexpr double kStableEps = 1.110223024625157e-16;       // 2^-53
constexpr double kNormThreshold = 1.1368683772161608e-13;  // 2^-43
constexpr int kPoolNumbers = 0x2004;

bool missing(double d) { return esf::is_missing(d); }

int divide(double num, double den, double* quo) { return guarded_divide(num, den, quo); }

bool weights_overflow(double wlevel, double wtrend, double wseason) {
  return std::fabs(wlevel) > kStateLimit || std::fabs(wtrend) > kStateLimit ||
         std::fabs(wseason) > kStateLimit;
}

// Backward pass from the state at the end of the series, then the reversal
// that leaves the state before observation 0 with the trend running forward.
int backcast(const double* x, const char* misflg, double xscale, long n, int additive,
             double wlevel, double wtrend, double wseason, double& level, double& trend,
             double* sfactor, const int* scodes) {
  double xhat = 0.0;
  double e = 0.0;
  for (long t = n - 1; t >= 0; --t) {
    const int s = scodes[t];
    if (misflg[t]) {
      win::missing_step(additive, &level, trend, sfactor[s]);
      continue;
    }
    const int rc = win::point(x[t], xscale, additive, wlevel, wtrend, wseason, &level, &trend,
                              sfactor, s, &xhat, &e);
    if (rc < 0) return rc;
  }
  level = level + trend;
  trend = -trend;
  return kOk;
}

// psi(i), i >= 1: the weight of the shock i steps back in the prediction.
inline double psi_weight(double wlevel, double b, double c, int nseasons, long i) {
  double psi = wlevel + static_cast<double>(i) * b;
  if (nseasons > 0 && i % nseasons == 0) psi = psi + c;
  return psi;
}

// 1 + the sum over i = 1..lead-1 of psi(i)^2.
double additive_factor(double wlevel, double wtrend, double wseason, int nseasons, long lead) {
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
double multiplicative_factor(double wlevel, double wtrend, double wseason, int nseasons,
                             long lead, const double* sfactor, int scode, bool* ok) {
  const double b = wlevel * wtrend;
  const double c = wseason * (1.0 - wlevel);
  const double sfactlead = sfactor[scode];
  double sum = 0.0;
  int lag = scode;
  *ok = true;
  for (long i = 1; i <= lead - 1; ++i) {
    lag = lag == 0 ? nseasons - 1 : lag - 1;
    double ratio = 0.0;
    if (divide(sfactlead, sfactor[lag], &ratio) != kOk) {
      *ok = false;
      return ratio;
    }
    const double psi = psi_weight(wlevel, b, c, nseasons, i);
    sum += ratio * ratio * (psi * psi);
  }
  return 1.0 + sum;
}

}  // namespace

void win::normalise(int nseasons, int additive, double* level, double* trend, double* sfactor,
                    double* derlev, double* dertre, double* dersealev, double* derseatre,
                    double* derseasea) noexcept {
  if (nseasons < 1) return;
  const bool with_derivatives = derlev != nullptr;
  double* der[3] = {dersealev, derseatre, derseasea};
  const double count = static_cast<double>(nseasons);
  double sum = 0.0;
  for (int s = 0; s < nseasons; ++s) sum += sfactor[s];
  const double ibar = sum / count;
  double ibder[3] = {0.0, 0.0, 0.0};
  if (with_derivatives) {
    for (int i = 0; i < 3; ++i) {
      double d = 0.0;
      for (int s = 0; s < nseasons; ++s) d += der[i][s];
      ibder[i] = d / count;
    }
  }

  if (additive) {
    if (std::fabs(ibar) < kNormThreshold) return;
    for (int s = 0; s < nseasons; ++s) {
      sfactor[s] -= ibar;
      if (with_derivatives) {
        for (int i = 0; i < 3; ++i) der[i][s] -= ibder[i];
      }
    }
    if (with_derivatives) {
      for (int i = 0; i < 3; ++i) derlev[i] += ibder[i];
    }
    *level += ibar;
    return;
  }

  if (std::fabs(1.0 - ibar) < kNormThreshold) return;
  for (int s = 0; s < nseasons; ++s) {
    sfactor[s] = sfactor[s] / ibar;
    if (with_derivatives) {
      for (int i = 0; i < 3; ++i) divide(der[i][s] - ibder[i] * sfactor[s], ibar, &der[i][s]);
    }
  }
  if (with_derivatives) {
    for (int i = 0; i < 3; ++i) derlev[i] = ibder[i] * *level + derlev[i] * ibar;
  }
  *level = *level * ibar;
  if (with_derivatives) {
    for (int i = 0; i < 3; ++i) dertre[i] = ibder[i] * *trend + dertre[i] * ibar;
  }
  *trend = ibar * *trend;
}

// The triples side by side: one observation at a time for every triple, so
// that the independent recursions overlap.  Each triple runs exactly the
// arithmetic of zwinsmo, in the same order, through the same inline update.
void win::smooth_many(const double* x, const char* misflg, double xscale, long n, int nseasons,
                      int additive, const double* w, int count, double level, double trend,
                      const double* sfactor, const int* scodes, double* work, int* rc,
                      double* mse) noexcept {
  double l[kManyLanes];
  double tr[kManyLanes];
  double sse[kManyLanes];
  bool live[kManyLanes];
  for (int j = 0; j < count; ++j) {
    mse[j] = kMissing;
    rc[j] = n < 1 ? kTooFew : kOk;
    if (rc[j] == kOk && weights_overflow(w[3 * j], w[3 * j + 1], w[3 * j + 2])) rc[j] = kOverflow;
    live[j] = rc[j] == kOk;
    l[j] = level;
    tr[j] = trend;
    sse[j] = 0.0;
    if (nseasons > 0) {
      std::memcpy(work + static_cast<long>(j) * nseasons, sfactor,
                  static_cast<size_t>(nseasons) * sizeof(double));
    }
  }
  auto update = [&](int j, double xt, int s, double* e) {
    double xhat = 0.0;
    const int r = win::point(xt, xscale, additive, w[3 * j], w[3 * j + 1], w[3 * j + 2], &l[j],
                             &tr[j], work + static_cast<long>(j) * nseasons, s, &xhat, e);
    if (r < 0) {
      rc[j] = r;
      live[j] = false;
    }
    return r;
  };

  // Backward pass, then the reversal.
  for (long t = n - 1; t >= 0; --t) {
    const int s = scodes[t];
    if (misflg[t]) {
      for (int j = 0; j < count; ++j) {
        if (live[j]) l[j] = l[j] + tr[j];
      }
      continue;
    }
    for (int j = 0; j < count; ++j) {
      double e = 0.0;
      if (live[j]) update(j, x[t], s, &e);
    }
  }
  for (int j = 0; j < count; ++j) {
    l[j] = l[j] + tr[j];
    tr[j] = -tr[j];
  }

  // Forward pass.
  long nmiss = 0;
  for (long t = 0; t < n; ++t) {
    const int s = scodes[t];
    if (misflg[t]) {
      ++nmiss;
      for (int j = 0; j < count; ++j) {
        if (live[j]) l[j] = l[j] + tr[j];
      }
      continue;
    }
    for (int j = 0; j < count; ++j) {
      if (!live[j]) continue;
      double e = 0.0;
      if (update(j, x[t], s, &e) < 0) continue;
      if (std::fabs(e) > kErrorLimit || sse[j] > kSseLimit) {
        rc[j] = kOverflow;
        live[j] = false;
        continue;
      }
      sse[j] += e * e;
    }
  }

  const long nobs = n - nmiss;
  for (int j = 0; j < count; ++j) {
    if (!live[j]) continue;
    if (nobs < 1) {
      rc[j] = kTooFew;
      continue;
    }
    mse[j] = missing(sse[j]) ? kMissing : sse[j] / static_cast<double>(nobs);
  }
}

double zwincla(double wlevel, double wtrend, double wseason, int nseasons, double se2, long lead,
               double siglev, double* limit) {
  const double var = se2 * additive_factor(wlevel, wtrend, wseason, nseasons, lead);
  if (limit) *limit = zprobit(1.0 - siglev * 0.5) * std::sqrt(var);
  return var;
}

double zwinclm(double wlevel, double wtrend, double wseason, int nseasons, double se2, long lead,
               double siglev, double* sfactor, int scode, double* limit) {
  bool ok = true;
  const double vm =
      multiplicative_factor(wlevel, wtrend, wseason, nseasons, lead, sfactor, scode, &ok);
  if (!ok) {
    if (limit) *limit = kMissing;
    return vm;
  }
  const double var = se2 * vm;
  if (limit) *limit = zprobit(1.0 - siglev * 0.5) * std::sqrt(var);
  return var;
}

extern "C" {

int zwinpnt(double x, double xscale, int additive, double wlevel, double wtrend, double wseason,
            double* level, double* trend, double* sfactor, int scode, double* xhat, double* e) {
  return win::point(x, xscale, additive, wlevel, wtrend, wseason, level, trend, sfactor, scode,
                    xhat, e);
}

int zwindpd(double x, double wlevel, double wtrend, double wseason, double llevel, double clevel,
            double ltrend, double /*ctrend*/, double lseason, double /*cseason*/, int additive,
            double* derlev, double* dertre, double* dersea, double* dervec) {
  return win::point_derivative(x, wlevel, wtrend, wseason, llevel, clevel, ltrend, lseason,
                               additive, derlev, dertre, dersea, dervec);
}

int zwinsmo(double* x, char* misflg, double xscale, long n, int /*nseasons*/, int additive,
            double wlevel, double wtrend, double wseason, double* level, double* trend,
            double* sfactor, int* scodes, double* mse, double* smoothed, double* strptr) {
  *mse = kMissing;
  if (n < 1) return kTooFew;
  if (weights_overflow(wlevel, wtrend, wseason)) return kOverflow;

  double l = *level;
  double tr = *trend;
  int rc = backcast(x, misflg, xscale, n, additive, wlevel, wtrend, wseason, l, tr, sfactor,
                    scodes);
  if (rc < 0) {
    *level = l;
    *trend = tr;
    return rc;
  }

  double sse = 0.0;
  long nmiss = 0;
  for (long t = 0; t < n; ++t) {
    const int s = scodes[t];
    double xhat = 0.0;
    double e = kMissing;
    if (misflg[t]) {
      xhat = win::missing_step(additive, &l, tr, sfactor[s]);
      ++nmiss;
    } else {
      rc = win::point(x[t], xscale, additive, wlevel, wtrend, wseason, &l, &tr, sfactor, s, &xhat,
                      &e);
      if (rc < 0) {
        *level = l;
        *trend = tr;
        return rc;
      }
      if (std::fabs(e) > kErrorLimit || sse > kSseLimit) {
        *level = l;
        *trend = tr;
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
      strptr[4] = tr;
      strptr[5] = sfactor[s];
      strptr += 6;
    }
  }
  *level = l;
  *trend = tr;

  const long nobs = n - nmiss;
  if (nobs < 1) return kTooFew;
  *mse = missing(sse) ? kMissing : sse / static_cast<double>(nobs);
  return kOk;
}

int zwinsvi(double* x, char* misflg, long n, int nseasons, int nstart, int additive, int stflg,
            double* level, double* trend, double* sfactor) {
  *level = kMissing;
  *trend = kMissing;
  if (n < 1) return kTooFew;
  long t = n - 1;
  while (t > 0 && misflg[t]) --t;
  if (t == 0) return kTooFew;

  const double neutral = additive ? 0.0 : 1.0;
  *level = x[t];
  *trend = 0.0;
  for (int s = 0; s < nseasons; ++s) sfactor[s] = neutral;
  if (!stflg || nseasons < 1) return kOk;

  auto* csfact = static_cast<double*>(
      host_alloc(static_cast<long>(nseasons) * static_cast<long>(sizeof(double)), kPoolNumbers));
  if (!csfact) return kNoMemory;
  double ccoef = kMissing;
  const int rc = additive ? ztsrdmy(x, misflg, n, nseasons, &ccoef, trend, nullptr, csfact, nullptr)
                          : ztsrsdm(x, misflg, n, nseasons, &ccoef, trend, csfact, nullptr);
  *level = x[t];
  if (rc < 0) {
    host_free(csfact);
    return rc;
  }
  // The first pass over the data runs backward.
  if (!missing(*trend)) *trend = -*trend;

  // csfact[0] belongs to season nstart.
  int ss = nstart >= 0 && nstart < nseasons ? nstart : 0;
  if (rc == 0) {
    for (int i = 0; i < nseasons; ++i) {
      sfactor[ss] = missing(csfact[i]) ? neutral : csfact[i];
      if (++ss == nseasons) ss = 0;
    }
  } else if (rc == 1) {
    if (additive) {
      *level = ccoef;
    } else {
      ccoef = ccoef / *level;
    }
    for (int i = 0; i < nseasons; ++i) {
      if (additive) {
        sfactor[ss] = missing(csfact[i]) ? 0.0 : csfact[i];
      } else {
        sfactor[ss] = missing(csfact[i]) ? ccoef : csfact[i] * ccoef;
      }
      if (++ss == nseasons) ss = 0;
    }
  }
  host_free(csfact);
  return kOk;
}

int zwinnmd(int nseasons, int additive, double* level, double* trend, double* sfactor,
            double* derlev, double* dertre, double* dersealev, double* derseatre,
            double* derseasea) {
  win::normalise(nseasons, additive, level, trend, sfactor, derlev, dertre, dersealev, derseatre,
                 derseasea);
  return kOk;
}

int zwinnrm(int nseasons, int additive, double* level, double* trend, double* sfactor) {
  win::normalise(nseasons, additive, level, trend, sfactor, nullptr, nullptr, nullptr, nullptr,
                 nullptr);
  return kOk;
}

int zwinstb(int nseasons, int /*additive*/, double wlevel, double wtrend, double wseason) {
  const double d = wseason * (1.0 - wlevel);
  const double wtreubnd = 2.0 - wlevel - d;
  const double lt = wlevel * wtrend;
  return d > kStableEps && static_cast<double>(nseasons) * wlevel + d > kStableEps &&
         wtreubnd > kStableEps && lt > kStableEps && lt < wtreubnd;
}

int zwinprd(double* x, char* misflg, double xscale, long n, int nseasons, int additive,
            double wlevel, double wtrend, double wseason, double* level, double* trend,
            double* sfactor, int* scodes, long start, long end, long lead, double se2,
            double siglev, int startflg, double* mse, double* strptr) {
  *mse = kMissing;
  if (n < 1) return kTooFew;
  if (weights_overflow(wlevel, wtrend, wseason)) return kOverflow;

  const double std_fit = (missing(se2) || se2 <= kTiny) ? 0.0 : std::sqrt(se2);
  const double z = zprobit(1.0 - siglev * 0.5);
  double delta = z * std::sqrt(se2);

  double l = *level;
  double tr = *trend;
  int rc = kOk;
  if (startflg == 0) {
    rc = backcast(x, misflg, xscale, n, additive, wlevel, wtrend, wseason, l, tr, sfactor, scodes);
    if (rc < 0) {
      *level = l;
      *trend = tr;
      return rc;
    }
  }

  double sse = 0.0;
  long nmiss = 0;
  for (long t = 0; t <= end; ++t) {
    const int s = scodes[t];
    double xhat = 0.0;
    double e = kMissing;
    if (misflg[t]) {
      xhat = win::missing_step(additive, &l, tr, sfactor[s]);
      ++nmiss;
    } else {
      rc = win::point(x[t], xscale, additive, wlevel, wtrend, wseason, &l, &tr, sfactor, s, &xhat,
                      &e);
      if (rc < 0) {
        *level = l;
        *trend = tr;
        return rc;
      }
      sse += e * e;
    }
    if (strptr && t >= start) {
      strptr[0] = x[t];
      strptr[1] = xhat;
      strptr[2] = xhat + delta;
      strptr[3] = xhat - delta;
      strptr[4] = e;
      strptr[5] = std_fit;
      strptr[6] = l;
      strptr[7] = tr;
      strptr[8] = sfactor[s];
      strptr += 9;
    }
  }
  *level = l;
  *trend = tr;

  const long nobs = n - nmiss;
  if (nobs < 1) return kTooFew;
  *mse = nobs > 3 ? sse / static_cast<double>(nobs - 3) : sse;

  const double base = (missing(se2) || se2 <= 0.0) ? *mse : se2;
  double predlev = l;
  int s = end >= 0 ? scodes[end] : 0;
  double running = 0.0;  // the additive sum over i = 1..k-1
  const double b = wlevel * wtrend;
  const double c = wseason * (1.0 - wlevel);
  for (long k = 1; k <= lead; ++k) {
    if (++s >= nseasons) s = 0;
    predlev = predlev + tr;
    double xhat = 0.0;
    double var = 0.0;
    bool ok = true;
    if (additive) {
      if (k > 1) {
        const double psi = psi_weight(wlevel, b, c, nseasons, k - 1);
        running += psi * psi;
      }
      xhat = predlev + sfactor[s];
      var = base * (1.0 + running);
    } else {
      xhat = predlev * sfactor[s];
      const double vm = multiplicative_factor(wlevel, wtrend, wseason, nseasons, k, sfactor, s, &ok);
      var = ok ? base * vm : vm;
    }
    // A failed ratio keeps the half-width of the previous row.
    if (ok) delta = z * std::sqrt(var);
    const double sd = missing(var) ? var : std::sqrt(var);
    if (strptr) {
      strptr[0] = kMissing;
      strptr[1] = xhat;
      strptr[2] = xhat + delta;
      strptr[3] = xhat - delta;
      strptr[4] = kMissing;
      strptr[5] = sd;
      strptr[6] = predlev;
      strptr[7] = tr;
      strptr[8] = sfactor[s];
      strptr += 9;
    }
  }
  return kOk;
}

int zwinpsi(double wlevel, double wtrend, double wseason, int nseasons, long npsi, double* psi) {
  if (npsi >= 1) psi[0] = 1.0;
  const double b = wlevel * wtrend;
  const double c = wseason * (1.0 - wlevel);
  for (long i = 1; i < npsi; ++i) psi[i] = psi_weight(wlevel, b, c, nseasons, i);
  return kOk;
}

int zwinnpd(double* x, char* misflg, double xscale, long n, int nseasons, int additive,
            double wlevel, double wtrend, double wseason, double level, double trend,
            double* sfactor, int* scodes, double* deltas, int wkflag, double* pder) {
  pder[0] = pder[1] = pder[2] = kMissing;
  const long bytes = static_cast<long>(nseasons > 0 ? nseasons : 1) * static_cast<long>(sizeof(double));
  auto* work = static_cast<double*>(host_alloc(bytes, kPoolNumbers));
  if (!work) return kNoMemory;
  const size_t copy = static_cast<size_t>(nseasons > 0 ? nseasons : 0) * sizeof(double);

  // One run of zwinsmo from the state handed in.
  auto run = [&](const double* w, double* mse_out) {
    if (copy) std::memcpy(work, sfactor, copy);
    double l = level;
    double tr = trend;
    return zwinsmo(x, misflg, xscale, n, nseasons, additive, w[0], w[1], w[2], &l, &tr, work,
                   scodes, mse_out, nullptr, nullptr);
  };

  int rc = kOk;
  const double weights[3] = {wlevel, wtrend, wseason};
  for (int i = 0; i < 3; ++i) {
    const double w = weights[i];
    const double delta = deltas[i];
    double w1 = 0.0;
    double w2 = 0.0;
    double divisor = 0.0;
    if (wkflag == 1 && std::fabs(w) > kTiny) {
      w1 = (1.0 + delta) * w;
      w2 = (1.0 - delta) * w;
      divisor = delta * 2.0 * w;
    } else {
      w1 = w + delta;
      w2 = w - delta;
      divisor = delta * 2.0;
    }
    double run1[3] = {wlevel, wtrend, wseason};
    double run2[3] = {wlevel, wtrend, wseason};
    run1[i] = w1;
    run2[i] = w2;
    double mse1 = kMissing;
    double mse2 = kMissing;
    const int rc1 = run(run1, &mse1);
    const int rc2 = run(run2, &mse2);
    if (rc1 + rc2 < 0 || delta < kTiny) {
      rc = kGuardedDivision;
      continue;
    }
    rc = divide(mse1 - mse2, divisor, &pder[i]);
  }
  host_free(work);
  return rc;
}

int zwinstd(double* xpxdiag, double mse, long nobs, double* parms, double* stderr,
            double* tvals) {
  if (nobs < 4) {
    for (int j = 0; j < 3; ++j) {
      stderr[j] = kMissing;
      tvals[j] = kMissing;
    }
    return kOk;
  }
  for (int j = 0; j < 3; ++j) {
    stderr[j] = std::sqrt(std::fabs(xpxdiag[j]) * mse);
    divide(parms[j], stderr[j], &tvals[j]);
  }
  return kOk;
}

}  // extern "C"
