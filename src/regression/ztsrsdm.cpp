// Start model of the multiplicative Winters family:
//
//   y(t) = (ccoef + tcoef*t) * sdcoef[s] + error,   t = 1..n,  s = (t - 1) mod ns
//
// It is not one regression.  Each season gets a straight line of its own
// through its observed points; the lines are pooled into one common line
// (mean slope, mean intercept), and the factor of a season is the ratio of
// its line to the common line at t = 1.  Factors that come out not positive
// are repaired from other ratios of the same fit, and the factors are scaled
// to a mean of 1.
//
// Sums over t alone start from closed forms for a full season and lose the
// terms of each missing point, as in the additive regressions.
#include <cmath>
#include <cstring>

#include "module/host_api.h"
#include "primitives/primitives.h"
#include "regression/regression.h"
#include "regression/regression_work.h"

namespace {

using namespace regression;  // the shared status codes, limits and work arrays

// A factor below this (2^-53) is not usable: the Winters recursions divide by it.
constexpr double kFactorFloor = 1.110223024625157e-16;
// The factors are scaled to mean 1 only when their mean is further from 0 than this (2^-43).
constexpr double kScaleThreshold = 1.1368683772161608e-13;
// A repair candidate that can never be closer to 1 than the present factor.
constexpr double kNeverTaken = 1.3407807929943e+154;
// Smallest mean the short path divides by.
constexpr double kShortPathZero = 2.225073858507202e-308;
constexpr double kMissing = esf::kMissing;

bool missing(double d) { return esf::is_missing(d); }

// The work arrays of getrsdm, ns entries each (B has 2 ns: slopes, then intercepts).
struct Work {
  double* smu = nullptr;      // season means of the observed values
  double* yst = nullptr;      // sum of t*y over the season
  double* st = nullptr;       // sum of t over the observed points of the season
  double* sst = nullptr;      // sum of t^2 likewise
  long* snmss = nullptr;      // observed points of the season
  double* B = nullptr;        // B[s] slope, B[ns + s] intercept of the season's line
  double* factors = nullptr;  // stands in for sdcoef when the caller gave none
};

// n below 2: the level is the one value, the factors are neutral.
int single_point(const double* y, long n, int ns, double* ccoef, double* tcoef, double* sdcoef) {
  const double first = n >= 1 ? y[0] : kMissing;
  if (ccoef) {
    *ccoef = first;
    if (tcoef) *tcoef = 0.0;
    if (sdcoef) {
      for (int s = 0; s < ns; ++s) sdcoef[s] = 1.0;
    }
  } else if (tcoef) {
    *tcoef = first;
  }
  return kOk;
}

// At most one cycle of data: each point is its own season, and its factor is
// its value over the mean of the points (or, without a constant, its value
// per unit of time over the mean of those).
int short_path(const double* y, const char* misflg, long n, int ns, double* ccoef, double* tcoef, double* sdcoef) {
  double sum = 0.0;
  long count = 0;
  for (long i = 0; i < n; ++i) {
    if (misflg[i]) continue;
    sum += ccoef ? y[i] : y[i] / static_cast<double>(i + 1);
    ++count;
  }
  if (count == 0) return kTooFew;
  const double mean = sum / static_cast<double>(count);
  if (ccoef) {
    *ccoef = mean;
  } else if (tcoef) {
    *tcoef = mean;
  }
  if (std::fabs(mean) > kShortPathZero) {
    for (long i = 0; i < n; ++i) {
      const double r = ccoef ? y[i] : y[i] / static_cast<double>(i + 1);
      sdcoef[i] = misflg[i] ? kMissing : r / mean;
    }
  } else {
    for (long i = 0; i < n; ++i) sdcoef[i] = kMissing;
  }
  for (long i = n; i < ns; ++i) sdcoef[i] = kMissing;
  if (ccoef && tcoef) *tcoef = 0.0;
  return kOk;
}

// Fills the per-season sums.  Returns the number of seasons with at least one
// observed point; sets *mflg when a season has none.
int season_sums(const double* y, const char* misflg, long n, int ns, Work& w, int* mflg) {
  const long nb = n / ns;
  const long last = n % ns;
  const double dns = static_cast<double>(ns);
  int nonempty = 0;
  for (int s = 0; s < ns; ++s) {
    const long points = nb + (s < last ? 1 : 0);
    const double m = static_cast<double>(points);
    const double a = static_cast<double>(s + 1);
    // Sums of t and t^2 over t = a, a + ns, ..., a + (m - 1) ns.
    double st = m * a + dns * m * (m - 1.0) / 2.0;
    double sst = m * a * a + a * dns * m * (m - 1.0) + dns * dns * (m - 1.0) * m * (2.0 * m - 1.0) / 6.0;
    long observed = points;
    double sum = 0.0;
    double yst = 0.0;
    for (long i = s; i < n; i += ns) {
      const double t = static_cast<double>(i + 1);
      if (misflg[i]) {
        --observed;
        st -= t;
        sst -= t * t;
      } else {
        sum += y[i];
        yst += t * y[i];
      }
    }
    w.snmss[s] = observed;
    w.st[s] = st;
    w.sst[s] = sst;
    if (observed > 0) {
      w.smu[s] = sum / static_cast<double>(observed);
      w.yst[s] = yst;
      ++nonempty;
    } else {
      w.smu[s] = 0.0;
      w.yst[s] = 0.0;
      *mflg = kReduced;
    }
  }
  return nonempty;
}

// The factor of a season still below the floor after the repairs gets the
// smallest usable factor, at most 1, so that every factor stays positive.
void floor_factors(const Work& w, int ns, double* sdcoef) {
  double common = 1.0;
  for (int s = 0; s < ns; ++s) {
    if (w.snmss[s] > 0 && sdcoef[s] >= kFactorFloor && sdcoef[s] < common) common = sdcoef[s];
  }
  for (int s = 0; s < ns; ++s) {
    if (w.snmss[s] > 0 && !(sdcoef[s] >= kFactorFloor)) sdcoef[s] = common;
  }
}

int getrsdm(const double* y, const char* misflg, long n, int ns, double* ccoef, double* tcoef, double* sdcoef,
            Work& w) {
  int mflg = kOk;
  const int count = season_sums(y, misflg, n, ns, w, &mflg);
  if (count == 0) return kTooFew;

  bool some_line = false;
  for (int s = 0; s < ns; ++s) some_line |= w.snmss[s] > 1;

  // Not one season with two points: no slope anywhere, the factors are the
  // season means over their mean.
  if (!some_line) {
    for (int s = 0; s < ns; ++s) sdcoef[s] = w.snmss[s] > 0 ? w.smu[s] : kMissing;
    if (tcoef) *tcoef = 0.0;
    if (ccoef) {
      double sum = 0.0;
      for (int s = 0; s < ns; ++s) {
        if (w.snmss[s] > 0) sum += w.smu[s];
      }
      *ccoef = sum / static_cast<double>(count);
      for (int s = 0; s < ns; ++s) {
        if (w.snmss[s] > 0) sdcoef[s] = sdcoef[s] / *ccoef;
      }
    }
    return kReduced;
  }

  // The line of each season.
  double* slope = w.B;
  double* intercept = w.B + ns;
  int ntmp = 0;  // seasons with one point: they carry no slope
  for (int s = 0; s < ns; ++s) {
    const long points = w.snmss[s];
    if (points == 0) continue;
    if (points == 1) {
      slope[s] = 0.0;
      intercept[s] = w.smu[s];
      ++ntmp;
      continue;
    }
    const double m = static_cast<double>(points);
    const double D = m * w.sst[s] - w.st[s] * w.st[s];
    slope[s] = m * (w.yst[s] - w.st[s] * w.smu[s]) / D;
    intercept[s] = (m * w.sst[s] * w.smu[s] - w.st[s] * w.yst[s]) / D;
  }

  // Pooling into the common line; the raw factor is the season's line at t = 1.
  double summer1 = 0.0;
  double summer2 = 0.0;
  for (int s = 0; s < ns; ++s) {
    if (w.snmss[s] == 0) continue;
    summer1 += slope[s];
    summer2 += intercept[s];
    sdcoef[s] = slope[s] + intercept[s];
  }
  double trend = 0.0;
  double constnt = 0.0;
  if (tcoef) {
    trend = summer1 / static_cast<double>(count - ntmp);
    *tcoef = trend;
  }
  if (ccoef) {
    if (tcoef) {
      constnt = summer2 / static_cast<double>(count);
    } else {
      double sum = 0.0;
      for (int s = 0; s < ns; ++s) sum += w.smu[s];
      constnt = sum / static_cast<double>(count);
    }
    *ccoef = constnt;
  }

  // Ratios to the common line at t = 1.
  const double b = trend + constnt;
  if (std::fabs(b) <= kTiny) {
    for (int s = 0; s < ns; ++s) sdcoef[s] = 1.0;
  } else {
    for (int s = 0; s < ns; ++s) sdcoef[s] = w.snmss[s] > 0 ? sdcoef[s] / b : kMissing;
  }

  // Repair of factors that are not positive: other ratios of the same fit,
  // each taken only when it lies closer to 1.
  const bool use_constant = std::fabs(constnt) > kTiny;
  const bool use_trend = std::fabs(trend) > kTiny;
  for (int s = 0; s < ns; ++s) {
    if (w.snmss[s] == 0) continue;
    auto try_candidate = [&](double candidate) {
      if (std::fabs(1.0 - candidate) < std::fabs(1.0 - sdcoef[s])) sdcoef[s] = candidate;
    };
    if (sdcoef[s] < kFactorFloor && use_constant) {
      try_candidate(tcoef ? intercept[s] / constnt : w.smu[s] / constnt);
    }
    if (sdcoef[s] < kFactorFloor && use_trend) try_candidate(slope[s] / trend);
    if (sdcoef[s] < kFactorFloor && use_trend && use_constant) {
      // The season mean over the common line's mean in that season.
      const double m = static_cast<double>(w.snmss[s]);
      const double wmean = w.st[s] * trend + m * constnt;
      try_candidate(std::fabs(wmean) <= kTiny ? kNeverTaken : m * w.smu[s] / wmean);
    }
  }
  floor_factors(w, ns, sdcoef);

  // Scale to mean 1.
  double sum = 0.0;
  for (int s = 0; s < ns; ++s) {
    if (w.snmss[s] > 0) sum += sdcoef[s];
  }
  const double mean = sum / static_cast<double>(count);
  if (std::fabs(mean) > kScaleThreshold) {
    for (int s = 0; s < ns; ++s) {
      if (w.snmss[s] > 0) sdcoef[s] = sdcoef[s] / mean;
    }
  }
  return mflg;
}

// Residuals of the fitted model.
void getres(const double* y, const char* misflg, long n, int ns, const double* ccoef, const double* tcoef,
            const double* sdcoef, double* res) {
  if (!ccoef && !tcoef) return;
  for (long i = 0; i < n; ++i) {
    const double sd = sdcoef[i % ns];
    const double t = static_cast<double>(i + 1);
    if (missing(sd)) {
      res[i] = y[i];
    } else if (misflg[i]) {
      res[i] = (ccoef && tcoef) ? kMissing : y[i];
    } else if (ccoef && tcoef) {
      res[i] = y[i] - sd * *ccoef - t * sd * *tcoef;
    } else if (ccoef) {
      res[i] = y[i] - sd * *ccoef;
    } else {
      res[i] = y[i] - t * sd * *tcoef;
    }
  }
}

}  // namespace

extern "C" int ztsrsdm(double* y, char* misflg, long n, int ns, double* ccoef, double* tcoef, double* sdcoef,
                       double* res) {
  if (ccoef) *ccoef = kMissing;
  if (tcoef) *tcoef = kMissing;
  if (sdcoef) {
    for (int s = 0; s < ns; ++s) sdcoef[s] = kMissing;
  }
  if (n < 2) return single_point(y, n, ns, ccoef, tcoef, sdcoef);
  if (ns < 1) return kTooFew;
  if (n <= ns && sdcoef) return short_path(y, misflg, n, ns, ccoef, tcoef, sdcoef);

  WorkArrays work;
  Work w;
  w.smu = work.get<double>(ns, kNumberFlags);
  w.yst = work.get<double>(ns, kNumberFlags);
  w.st = work.get<double>(ns, kNumberFlags);
  w.sst = work.get<double>(ns, kNumberFlags);
  w.snmss = work.get<long>(ns, kNumberFlags);
  w.B = work.get<double>(2L * ns, kNumberFlags);
  if (!sdcoef) w.factors = work.get<double>(ns, kNumberFlags);
  if (!work.ok() || !w.smu || !w.yst || !w.st || !w.sst || !w.snmss || !w.B || (!sdcoef && !w.factors)) {
    return kNoMemory;
  }
  double* factors = sdcoef ? sdcoef : w.factors;
  const int rc = getrsdm(y, misflg, n, ns, ccoef, tcoef, factors, w);
  if (res && rc >= 0) getres(y, misflg, n, ns, ccoef, tcoef, factors, res);
  return rc;
}
