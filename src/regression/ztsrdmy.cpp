// Least-squares regression of a series on a constant, time, time squared and
// seasonal dummies, for the start values of the smoothing engines.
//
// What is fitted follows from which outputs the caller passes:
//
//   model bit 1: ccoef    bit 2: tcoef    bit 4: qcoef
//   bit 8: sdcoef, and only when there are at least 3 seasons
//
//   model  terms                                     routine
//     1    constant                                  getmu
//     2    trend through the origin                  getrend
//     3    constant, trend                           getrend
//     6    trend, quadratic (through the origin)     getquad
//     7    constant, trend, quadratic                getquad
//     8    seasonal means                            getsmu
//     9    constant, seasonal deviations             getsmu
//    10    trend, seasonal constants                 getrdmy
//    11    constant, trend, seasonal deviations      getrdmy
//    14    trend, quadratic, seasonal constants      getrqda
//    15    constant, trend, quadratic, seasonal dev. getrqda
//
// Only what depends on y is summed point by point. Sums over t alone come
// from closed forms and lose the terms of each missing point, and the points
// of a season are visited with a stride of ns, one season after another.
// Seasonal models with a constant centre the dummies: the constant is the
// mean of the dummy coefficients and is subtracted from them.
#include <cmath>
#include <cstddef>

#include "module/host_api.h"
#include "numeric/numeric.h"
#include "primitives/primitives.h"
#include "regression/regression.h"
#include "regression/regression_work.h"

namespace regression {

void gettime(long n, double* ts1, double* ts2, double* ts3, double* ts4) {
  const double d = static_cast<double>(n);
  if (ts1) *ts1 = d * (d + 1.0) / 2.0;
  if (ts2) *ts2 = d * (d + 1.0) * (2.0 * d + 1.0) / 6.0;
  if (ts3) *ts3 = (d * d + d) * (d * d + d) / 4.0;
  if (ts4) {
    *ts4 = d * (6.0 * d * d * d * d + 15.0 * d * d * d + 10.0 * d * d - 1.0) / 30.0;
  }
}

}  // namespace regression

namespace {

using namespace regression;  // the shared status codes, limits and work arrays

constexpr double kMissing = esf::kMissing;

constexpr int kNothingAsked = -3;
constexpr int kBadModel = -99;

// Pool flag word of the packed matrix of getrqda.
constexpr int kMatrixFlags = 0x2006;

enum ModelBits : int {
  kConstant = 1,
  kTrend = 2,
  kQuadratic = 4,
  kSeasonal = 8,
};

bool missing(double d) { return esf::is_missing(d); }

// The arguments of one call, passed to the routine of its model.
struct Request {
  const double* y;
  const char* misflg;
  long n;
  int ns;
  int model;
  double* ccoef;
  double* tcoef;
  double* qcoef;
  double* sdcoef;
};

// Number of points of season s (0-based) in a series of n points with a
// cycle of ns: seasons below n mod ns hold one point more.
long season_points(long n, int ns, int s) {
  const long nb = n / ns;
  const long last = n % ns;
  return s < last ? nb + 1 : nb;
}

// Sum of t over season s when all its m points are present:
// t = a, a + ns, ..., a + (m - 1) ns with a = s + 1.
double season_tsum(long m, int ns, int s) {
  const long a = s + 1;
  return static_cast<double>(m * a + static_cast<long>(ns) * (m * (m - 1) / 2));
}

// Sum of t^2 over the same points.
double season_t2sum(long m, int ns, int s) {
  const double a = static_cast<double>(s + 1);
  const double d = static_cast<double>(ns);
  const double md = static_cast<double>(m);
  return md * a * a + 2.0 * a * d * (md * (md - 1.0) / 2.0) + d * d * ((md - 1.0) * md * (2.0 * md - 1.0) / 6.0);
}

// Model 1: the mean of the observed values.
int getmu(const Request& r) {
  double sum = 0.0;
  long nnmss = 0;
  for (long i = 0; i < r.n; ++i) {
    if (r.misflg[i]) continue;
    sum += r.y[i];
    ++nnmss;
  }
  if (nnmss < 1) return kTooFew;
  *r.ccoef = sum / static_cast<double>(nnmss);
  return kOk;
}

// Models 2 and 3: a straight line in t, with or without a constant.
int getrend(const Request& r, bool with_constant) {
  double tsum = 0.0;
  double tssq = 0.0;
  gettime(r.n, &tsum, &tssq, nullptr, nullptr);
  long nnmss = r.n;
  double ysum = 0.0;
  double ytt = 0.0;
  double one_value = 0.0;
  for (long i = 0; i < r.n; ++i) {
    const double t = static_cast<double>(i + 1);
    if (r.misflg[i]) {
      --nnmss;
      tsum -= t;
      tssq -= t * t;
      continue;
    }
    ysum += r.y[i];
    ytt += t * r.y[i];
    one_value = r.y[i];
  }

  if (!with_constant) {
    if (tssq < kTiny) return kTooFew;
    *r.tcoef = ytt / tssq;
    return kOk;
  }

  if (nnmss < 1) return kTooFew;
  if (nnmss == 1) {
    *r.tcoef = 0.0;
    *r.ccoef = one_value;
    return kOk;
  }
  const double nn = static_cast<double>(nnmss);
  const double tbar = tsum / nn;
  const double ybar = ysum / nn;
  const double w = tssq / nn - tbar * tbar;
  if (std::fabs(w) >= kTiny) {
    *r.tcoef = (ytt / nn - tbar * ybar) / w;
    *r.ccoef = (ybar * tssq / nn - tbar * ytt / nn) / w;
  } else {
    *r.tcoef = 0.0;
    *r.ccoef = ybar;
  }
  return kOk;
}

// Models 8 and 9: season means, or a constant and the deviations from it.
int getsmu(const Request& r) {
  WorkArrays work;
  double* smu = work.get<double>(r.ns, kNumberFlags);
  long* snmss = work.get<long>(r.ns, kNumberFlags);
  if (!work.ok() || smu == nullptr || snmss == nullptr) return kNoMemory;

  double sum = 0.0;
  long nnmss = 0;
  bool some_season_repeats = false;
  for (int s = 0; s < r.ns; ++s) {
    double ssum = 0.0;
    long count = 0;
    for (long i = s; i < r.n; i += r.ns) {
      if (r.misflg[i]) continue;
      ssum += r.y[i];
      ++count;
    }
    snmss[s] = count;
    smu[s] = count > 0 ? ssum / static_cast<double>(count) : 0.0;
    sum += ssum;
    nnmss += count;
    if (count > 1) some_season_repeats = true;
  }
  if (nnmss < 1) return kTooFew;

  // The constant is the mean of all observations, not the mean of the
  // season means.
  const double mu = r.ccoef ? sum / static_cast<double>(nnmss) : 0.0;
  if (r.ccoef) *r.ccoef = mu;
  for (int s = 0; s < r.ns; ++s) {
    if (snmss[s] == 0) {
      r.sdcoef[s] = kMissing;
    } else {
      r.sdcoef[s] = r.ccoef ? smu[s] - mu : smu[s];
    }
  }
  return some_season_repeats ? kOk : kReduced;
}

// Season sums shared by the dummy-and-trend regressions: per season the
// count of observed points, the sum of t and of t^2 over them, the mean of
// y, and over all points the sums of t*y and t^2*y and the corrected sums
// of powers of t.
struct SeasonSums {
  double* smu;
  double* st;
  double* sq;  // null when t^2 isn't needed
  long* snmss;
  long nnmss;
  double ytt;   // sum of t * y
  double ytt2;  // sum of t^2 * y (only with sq)
  double sst;   // sum of t^2
  double ts3;   // sum of t^3 (only with sq)
  double ts4;   // sum of t^4 (only with sq)
  bool empty_season;
  bool some_season_repeats;
};

void gather_season_sums(const Request& r, SeasonSums& ss) {
  const bool quadratic = ss.sq != nullptr;
  gettime(r.n, nullptr, &ss.sst, quadratic ? &ss.ts3 : nullptr, quadratic ? &ss.ts4 : nullptr);
  ss.nnmss = r.n;
  ss.ytt = 0.0;
  ss.ytt2 = 0.0;
  ss.empty_season = false;
  ss.some_season_repeats = false;
  for (int s = 0; s < r.ns; ++s) {
    const long m = season_points(r.n, r.ns, s);
    ss.st[s] = season_tsum(m, r.ns, s);
    if (quadratic) ss.sq[s] = season_t2sum(m, r.ns, s);
    ss.snmss[s] = m;
  }
  for (int s = 0; s < r.ns; ++s) {
    double ysum = 0.0;
    for (long i = s; i < r.n; i += r.ns) {
      const double t = static_cast<double>(i + 1);
      const double t2 = t * t;
      if (r.misflg[i]) {
        --ss.nnmss;
        --ss.snmss[s];
        ss.st[s] -= t;
        ss.sst -= t2;
        if (quadratic) {
          ss.sq[s] -= t2;
          ss.ts3 -= t2 * t;
          ss.ts4 -= t2 * t2;
        }
        continue;
      }
      ysum += r.y[i];
      ss.ytt += t * r.y[i];
      if (quadratic) ss.ytt2 += t2 * r.y[i];
    }
    if (ss.snmss[s] > 0) {
      ss.smu[s] = ysum / static_cast<double>(ss.snmss[s]);
    } else {
      ss.smu[s] = 0.0;
      ss.empty_season = true;
    }
    if (ss.snmss[s] > 1) ss.some_season_repeats = true;
  }
}

// No season holds two points, so no trend can be estimated: the dummies
// take the season means, centred on their mean when a constant is asked.
int seasons_only(const Request& r, const SeasonSums& ss) {
  *r.tcoef = 0.0;
  if (r.qcoef) *r.qcoef = 0.0;
  double sum = 0.0;
  long used = 0;
  for (int s = 0; s < r.ns; ++s) {
    if (ss.snmss[s] == 0) {
      r.sdcoef[s] = kMissing;
      continue;
    }
    r.sdcoef[s] = ss.smu[s];
    sum += ss.smu[s];
    ++used;
  }
  if (r.ccoef) {
    const double mean = sum / static_cast<double>(used);
    *r.ccoef = mean;
    for (int s = 0; s < r.ns; ++s) {
      if (ss.snmss[s] > 0) r.sdcoef[s] -= mean;
    }
  }
  return kReduced;
}

// Centres the dummy coefficients when a constant is asked: the constant is
// their sum over all ns seasons (empty ones too) divided by ns.
int centre_dummies(const Request& r, const SeasonSums& ss) {
  if (r.ccoef) {
    double sum = 0.0;
    for (int s = 0; s < r.ns; ++s) {
      if (ss.snmss[s] > 0) sum += r.sdcoef[s];
    }
    const double c = sum / static_cast<double>(r.ns);
    *r.ccoef = c;
    for (int s = 0; s < r.ns; ++s) {
      if (ss.snmss[s] > 0) r.sdcoef[s] -= c;
    }
  }
  return ss.empty_season ? kReduced : kOk;
}

// Dummies of the seasons that have a point are 0, the others missing.
void zero_dummies(const Request& r, const SeasonSums& ss) {
  for (int s = 0; s < r.ns; ++s) {
    r.sdcoef[s] = ss.snmss[s] > 0 ? 0.0 : kMissing;
  }
}

// Models 10 and 11: seasonal dummies and a common slope, by sweeping out
// the season means.
int getrdmy(const Request& r) {
  WorkArrays work;
  SeasonSums ss{};
  ss.smu = work.get<double>(r.ns, kNumberFlags);
  ss.st = work.get<double>(r.ns, kNumberFlags);
  ss.snmss = work.get<long>(r.ns, kNumberFlags);
  if (!work.ok() || !ss.smu || !ss.st || !ss.snmss) return kNoMemory;

  gather_season_sums(r, ss);
  if (ss.nnmss < 1) return kTooFew;
  if (!ss.some_season_repeats) return seasons_only(r, ss);

  // Within-season sums.
  double ytt = ss.ytt;
  double sst = ss.sst;
  for (int s = 0; s < r.ns; ++s) {
    if (ss.snmss[s] == 0) continue;
    ytt -= ss.smu[s] * ss.st[s];
    sst -= ss.st[s] * ss.st[s] / static_cast<double>(ss.snmss[s]);
  }

  if (std::fabs(sst) >= kTiny) {
    const double tcoef = ytt / sst;
    *r.tcoef = tcoef;
    for (int s = 0; s < r.ns; ++s) {
      if (ss.snmss[s] == 0) {
        r.sdcoef[s] = kMissing;
        continue;
      }
      r.sdcoef[s] = ss.smu[s] - tcoef * ss.st[s] / static_cast<double>(ss.snmss[s]);
    }
    return centre_dummies(r, ss);
  }

  // Time is explained by the seasons alone.
  zero_dummies(r, ss);
  getrend(r, r.ccoef != nullptr);
  return kOk;
}

// Models 6 and 7: a quadratic in t, through the normal equations swept by
// the host.
int getquad(const Request& r) {
  double ts2 = 0.0, ts3 = 0.0, ts4 = 0.0, ts1 = 0.0;
  gettime(r.n, &ts1, &ts2, &ts3, &ts4);
  long nnmss = 0;
  double ysum = 0.0, yssq = 0.0, ytt = 0.0, ytt2 = 0.0;
  double one_value = 0.0;
  for (long i = 0; i < r.n; ++i) {
    const double t = static_cast<double>(i + 1);
    const double t2 = t * t;
    if (r.misflg[i]) {
      ts1 -= t;
      ts2 -= t2;
      ts3 -= t2 * t;
      ts4 -= t2 * t2;
      continue;
    }
    const double y = r.y[i];
    ++nnmss;
    ysum += y;
    yssq += y * y;
    ytt += t * y;
    ytt2 += t2 * y;
    one_value = y;
  }
  if (nnmss < 1) return kTooFew;
  if (nnmss == 1) {
    *r.qcoef = 0.0;
    if (r.ccoef) {
      *r.ccoef = one_value;
      *r.tcoef = 0.0;
    } else {
      *r.tcoef = one_value;
    }
    return kOk;
  }

  const double tol = static_cast<double>(r.n) * 1e-12;
  double work[4];
  char df[4] = {'0', '0', '0', '0'};
  // Variables t^2, t, then 1 when a constant is asked, and y.
  const int nv = r.ccoef ? 4 : 3;
  const int iy = nv - 1;
  double a[10];
  a[esf::packed_index(0, 0)] = ts4;
  a[esf::packed_index(0, 1)] = ts3;
  a[esf::packed_index(1, 1)] = ts2;
  if (r.ccoef) {
    a[esf::packed_index(0, 2)] = ts2;
    a[esf::packed_index(1, 2)] = ts1;
    a[esf::packed_index(2, 2)] = static_cast<double>(nnmss);
    a[esf::packed_index(2, iy)] = ysum;
  }
  a[esf::packed_index(0, iy)] = ytt2;
  a[esf::packed_index(1, iy)] = ytt;
  a[esf::packed_index(iy, iy)] = yssq;
  for (int k = 0; k < iy; ++k) zsweep(a, k, nv, df, work, tol);
  *r.qcoef = a[esf::packed_index(0, iy)];
  *r.tcoef = a[esf::packed_index(1, iy)];
  if (r.ccoef) *r.ccoef = a[esf::packed_index(2, iy)];
  return kOk;
}

// Models 14 and 15: seasonal dummies, a common slope and a common quadratic
// term. The two within-season normal equations are solved through the
// inverse of their 2x2 matrix multiplied by its determinant W, kept in the
// last two variables of the packed matrix A of ns + 2 variables.
int getrqda(const Request& r) {
  WorkArrays work;
  SeasonSums ss{};
  ss.smu = work.get<double>(r.ns, kNumberFlags);
  ss.st = work.get<double>(r.ns, kNumberFlags);
  ss.sq = work.get<double>(r.ns, kNumberFlags);
  ss.snmss = work.get<long>(r.ns, kNumberFlags);
  const int nv = r.ns + 2;
  double* a = work.get<double>(static_cast<long>(nv) * (nv + 1) / 2, kMatrixFlags);
  if (!work.ok() || !ss.smu || !ss.st || !ss.sq || !ss.snmss || !a) return kNoMemory;

  gather_season_sums(r, ss);
  if (ss.nnmss < 1) return kTooFew;
  if (!ss.some_season_repeats) return seasons_only(r, ss);

  // Within-season sums of squares and cross products.
  double w1 = ss.sst;
  double w2 = ss.ts3;
  double w3 = ss.ts4;
  double y1 = ss.ytt;
  double y2 = ss.ytt2;
  for (int s = 0; s < r.ns; ++s) {
    if (ss.snmss[s] == 0) continue;
    const double m = static_cast<double>(ss.snmss[s]);
    w1 -= ss.st[s] * ss.st[s] / m;
    w2 -= ss.st[s] * ss.sq[s] / m;
    w3 -= ss.sq[s] * ss.sq[s] / m;
    y1 -= ss.smu[s] * ss.st[s];
    y2 -= ss.smu[s] * ss.sq[s];
  }
  const double w = w3 * w1 - w2 * w2;

  if (std::fabs(w) < static_cast<double>(r.n) * kTiny) {
    zero_dummies(r, ss);
    getquad(r);
    return kOk;
  }

  const int it = r.ns;      // variable of t
  const int iq = r.ns + 1;  // variable of t^2
  a[esf::packed_index(it, it)] = w3;
  a[esf::packed_index(it, iq)] = -w2;
  a[esf::packed_index(iq, iq)] = w1;
  const double tcoef = (a[esf::packed_index(it, it)] * y1 + a[esf::packed_index(it, iq)] * y2) / w;
  const double qcoef = (a[esf::packed_index(it, iq)] * y1 + a[esf::packed_index(iq, iq)] * y2) / w;
  *r.tcoef = tcoef;
  *r.qcoef = qcoef;
  for (int s = 0; s < r.ns; ++s) {
    if (ss.snmss[s] == 0) {
      r.sdcoef[s] = kMissing;
      continue;
    }
    const double m = static_cast<double>(ss.snmss[s]);
    r.sdcoef[s] = ss.smu[s] - tcoef * (ss.st[s] / m) - qcoef * (ss.sq[s] / m);
  }
  return centre_dummies(r, ss);
}

// Residuals y - fitted. At a missing point, at a point of a season whose
// dummy is missing, and wherever a coefficient of the model is missing, the
// residual is a copy of y.
void getres(const Request& r, double* res) {
  const bool c = r.model & kConstant;
  const bool b = r.model & kTrend;
  const bool q = r.model & kQuadratic;
  const bool sd = r.model & kSeasonal;
  const bool unusable = (c && missing(*r.ccoef)) || (b && missing(*r.tcoef)) || (q && missing(*r.qcoef));
  for (long i = 0; i < r.n; ++i) {
    const double s_coef = sd ? r.sdcoef[i % r.ns] : 0.0;
    if (r.misflg[i] || unusable || missing(s_coef)) {
      res[i] = r.y[i];
      continue;
    }
    const double t = static_cast<double>(i + 1);
    double fit = 0.0;
    if (c) fit += *r.ccoef;
    if (b) fit += *r.tcoef * t;
    if (q) fit += *r.qcoef * (t * t);
    fit += s_coef;
    res[i] = r.y[i] - fit;
  }
}

// Series no longer than the cycle: each point is its own season.
int short_series(const Request& r, double* res) {
  double sum = 0.0;
  long nnmss = 0;
  for (long i = 0; i < r.n; ++i) {
    if (r.misflg[i]) {
      r.sdcoef[i] = kMissing;
      continue;
    }
    r.sdcoef[i] = r.y[i];
    sum += r.y[i];
    ++nnmss;
  }
  if (nnmss == 0) return kTooFew;
  if (r.tcoef) *r.tcoef = 0.0;
  if (r.qcoef) *r.qcoef = 0.0;
  if (r.ccoef) {
    const double mean = sum / static_cast<double>(nnmss);
    *r.ccoef = mean;
    for (long i = 0; i < r.n; ++i) {
      if (!r.misflg[i]) r.sdcoef[i] -= mean;
    }
  }
  if (res) getres(r, res);
  return kReduced;
}

int run_model(const Request& r) {
  switch (r.model) {
    case 1:
      return getmu(r);
    case 2:
      return getrend(r, false);
    case 3:
      return getrend(r, true);
    case 6:
    case 7:
      return getquad(r);
    case 8:
    case 9:
      return getsmu(r);
    case 10:
    case 11:
      return getrdmy(r);
    case 14:
    case 15:
      return getrqda(r);
    default:
      // A quadratic term without a linear one has no routine.
      return kBadModel;
  }
}

}  // namespace

extern "C" int ztsrdmy(double* y, char* misflg, long n, int ns, double* ccoef, double* tcoef, double* qcoef,
                       double* sdcoef, double* res) {
  if (ccoef) *ccoef = kMissing;
  if (tcoef) *tcoef = kMissing;
  if (qcoef) *qcoef = kMissing;
  if (sdcoef && ns >= 1) {
    for (int s = 0; s < ns; ++s) sdcoef[s] = kMissing;
  }

  int model = 0;
  if (ccoef) model |= kConstant;
  if (tcoef) model |= kTrend;
  if (qcoef) model |= kQuadratic;
  if (sdcoef && ns >= 3) model |= kSeasonal;
  if (model == 0) return kNothingAsked;
  if (n < 2) return kTooFew;

  const Request r{y, misflg, n, ns, model, ccoef, tcoef, qcoef, sdcoef};
  if (sdcoef && n <= ns && ns > 1) return short_series(r, res);

  const int status = run_model(r);
  if (res && status >= 0) getres(r, res);
  return status;
}
