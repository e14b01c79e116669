// Winters smoothing, additive and multiplicative: the seasonal-dummy start
// model against an independent least-squares solve, forecasts and their
// variance, the side-by-side passes in every lane width, stability, the
// estimation at its edges, and CODE and TYPE (the passes against the
// Holt-Winters recursions and the properties every family shares are in
// family_test.cpp).

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "host/host.h"
#include "module/host_api.h"
#include "numeric/numeric.h"
#include "regression/regression.h"
#include "smoothing/winfit.h"
#include "smoothing/winsubs.h"
#include "support/method_session.h"
#include "support/pass_compare.h"
#include "support/smooth_model.h"
#include "support/trend_session.h"

extern "C" int mwinfit(PSCPLIST*, List, unsigned char*, int);
extern "C" int mwinfor(PSCPLIST*, List, unsigned char*, int);

namespace {

using smooth_test::expect_rel;
using smooth_test::is_miss;
using smooth_test::kMiss;
namespace fs = std::filesystem;
using smooth_test::example_series;
using smooth_test::Model;

// ---- Seasonal-dummy start model ----------------------------------------------------

using Ztsrsdm = smooth_test::ModuleTest;

// The start model computed independently: a least-squares line per season
// (Householder solve), the lines pooled, ratios at t = 1 scaled to mean 1.
struct Pooled {
  double ccoef, tcoef;
  std::vector<double> factors;
};
Pooled pooled_lines(const std::vector<double>& y, const std::vector<char>& mis, int ns) {
  double slopes = 0, intercepts = 0;
  std::vector<double> raw(ns);
  for (int s = 0; s < ns; ++s) {
    std::vector<long double> X, Y;
    int rows = 0;
    for (std::size_t i = s; i < y.size(); i += ns) {
      if (mis[i]) continue;
      X.push_back(1.0L);
      X.push_back(static_cast<long double>(i + 1));
      Y.push_back(y[i]);
      ++rows;
    }
    const std::vector<double> b = trend_test::least_squares(X, Y, rows, 2);
    intercepts += b[0];
    slopes += b[1];
    raw[s] = b[0] + b[1];
  }
  Pooled p{intercepts / ns, slopes / ns, {}};
  double mean = 0;
  for (double r : raw) mean += r / (p.ccoef + p.tcoef) / ns;
  for (double r : raw) p.factors.push_back(r / (p.ccoef + p.tcoef) / mean);
  return p;
}

TEST_F(Ztsrsdm, AgreesWithPooledLeastSquaresLines) {
  struct Case {
    const char* name;
    int ns;
    long n;
    int gap_every;  // 0: no gaps
  };
  const Case cases[] = {{"monthly_gaps", 12, 132, 7}, {"short_cycles", 5, 23, 4}};
  smooth_test::Noise noise(7);
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    std::vector<double> y(c.n);
    std::vector<char> mis(c.n, 0);
    for (long i = 0; i < c.n; ++i) {
      const double season = 1.0 + 0.3 * std::sin(2.0 * M_PI * (i % c.ns) / c.ns);
      y[i] = (50.0 + 0.7 * (i + 1)) * season + 2.0 * noise.next();
      if (c.gap_every && i % c.gap_every == 3) mis[i] = 1;
    }
    double ccoef = 0, tcoef = 0;
    std::vector<double> sd(c.ns);
    std::vector<double> res(c.n);
    ASSERT_EQ(ztsrsdm(y.data(), mis.data(), c.n, c.ns, &ccoef, &tcoef, sd.data(), res.data()), 0);
    const Pooled want = pooled_lines(y, mis, c.ns);
    expect_rel(ccoef, want.ccoef, 1e-10, "ccoef");
    expect_rel(tcoef, want.tcoef, 1e-9, "tcoef");
    for (int s = 0; s < c.ns; ++s) expect_rel(sd[s], want.factors[s], 1e-10, "factor");
    for (long i = 0; i < c.n; ++i) {
      if (mis[i]) {
        EXPECT_TRUE(is_miss(res[i]));
      } else {
        const double sdi = sd[i % c.ns];
        EXPECT_DOUBLE_EQ(res[i], y[i] - sdi * ccoef - (i + 1) * sdi * tcoef);
      }
    }
  }
}

TEST_F(Ztsrsdm, ExactShortAndDegenerateSeries) {
  const double N = std::nan("");  // a missing point
  const double M = -1e300;        // an expected missing factor
  struct Case {
    const char* name;
    std::vector<double> y;
    int ns;
    bool with_constant;
    int rc;
    double ccoef, tcoef;
    std::vector<double> factors;
  };
  const Case cases[] = {
      {"one point", {7}, 3, true, 0, 7, 0, {1, 1, 1}},
      {"one cycle", {2, 4, 6}, 3, true, 0, 4, 0, {0.5, 1, 1.5}},
      {"one cycle through the origin", {2, 4, 6}, 3, false, 0, M, 2, {1, 1, 1}},
      {"zeros, shorter than the cycle", {0, 0, 0}, 4, true, 0, 0, 0, {M, M, M, M}},
      {"no observed point", {N, N, N, N, N, N}, 3, true, -2, M, M, {M, M, M}},
      {"one season with a line", {10, 20, 30, 16}, 3, true, 0, 58.0 / 3.0, 2, {}},
      {"an empty season", {10, N, 30, 12, N, 33}, 3, true, 1, M, M, {}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const long n = static_cast<long>(c.y.size());
    std::vector<double> y(c.y);
    std::vector<char> mis(n);
    for (long i = 0; i < n; ++i) mis[i] = std::isnan(y[i]);
    double cc = 0, tc = 0;
    std::vector<double> sd(c.ns);
    ASSERT_EQ(ztsrsdm(y.data(), mis.data(), n, c.ns, c.with_constant ? &cc : nullptr, &tc, sd.data(), nullptr), c.rc);
    if (c.ccoef != M) {
      EXPECT_NEAR(cc, c.ccoef, 1e-12);
    }
    if (c.tcoef != M) {
      EXPECT_NEAR(tc, c.tcoef, 1e-12);
    }
    for (std::size_t s = 0; s < c.factors.size(); ++s) {
      if (c.factors[s] == M) {
        EXPECT_TRUE(is_miss(sd[s])) << s;
      } else {
        EXPECT_NEAR(sd[s], c.factors[s], 1e-13) << s;
      }
    }
    if (c.rc == 1) {  // the empty season stays missing, the others have mean 1
      EXPECT_TRUE(is_miss(sd[1]));
      EXPECT_NEAR((sd[0] + sd[2]) / 2.0, 1.0, 1e-15);
    }
  }
}

TEST_F(Ztsrsdm, FactorsThatAreNotPositiveAreRepaired) {
  // Season 0 starts low and rises steeply: its line is below zero at t = 1,
  // and the ratio of its mean to the common line's mean replaces it.
  std::vector<double> y = {1, 50, 52, 1, 51, 53, 60, 52, 54, 90, 53, 55};
  std::vector<char> mis(y.size(), 0);
  double c = 0, t = 0, sd[3];
  ASSERT_GE(ztsrsdm(y.data(), mis.data(), 12, 3, &c, &t, sd, nullptr), 0);
  for (int s = 0; s < 3; ++s) EXPECT_GT(sd[s], 0.0) << s;
  EXPECT_NEAR((sd[0] + sd[1] + sd[2]) / 3.0, 1.0, 1e-15);
  // A season of zeros cannot be repaired and still gets a positive factor.
  std::vector<double> z = {0, 5, 6, 0, 5, 6, 0, 5, 6};
  std::vector<char> zm(z.size(), 0);
  ASSERT_GE(ztsrsdm(z.data(), zm.data(), 9, 3, &c, &t, sd, nullptr), 0);
  for (int s = 0; s < 3; ++s) EXPECT_GT(sd[s], 0.0) << s;
}

// ---- Kernel against an independent Holt-Winters loop -----------------------------

// A Winters model of a series, with its season codes and factor arrays, and
// start values from zwinsvi where it finds them.
struct WinModel : Model {
  WinModel(const std::vector<double>& x, int ns, int additive) : Model(x, 3) {
    seasons(ns);
    get()->additive = additive;
    start_rc = zwinsvi(get()->ts.x, get()->ts.misflg, get()->ts.nobs, ns, 0, additive, 1, &get()->svi.level,
                       &get()->svi.trend, get()->svi.sfactor);
  }
  int start_rc;
};

struct W {
  double a, g, c;
};

// The multiplicative forecast variance: psi(i) = a + i a g, plus c (1 - a)
// at multiples of ns, each term scaled by the ratio of the factors (the
// forecasts and the additive variance: family_test.cpp); with neutral
// factors it is the additive one.
TEST(WinForecast, MultiplicativeVarianceScalesByTheFactorRatios) {
  const int ns = 4;
  Model x(example_series("UKgas.csv"));
  x.seasons(ns);
  const long n = x->ts.nobs;
  double level = x->ts.x[n - 1], trend = 0, mse = 0;
  std::vector<double> sf(ns, 1.0), rows(9 * (n + 9));
  const W w{0.2, 0.1, 0.3};
  ASSERT_EQ(zwinprd(x->ts.x, x->ts.misflg, 1300, n, ns, 0, w.a, w.g, w.c, &level, &trend, sf.data(), x->ts.scodes, 0,
                    n - 1, 9, kMiss, 0.05, 0, &mse, rows.data()),
            0);
  for (long k = 1; k <= 9; ++k) {
    const int s = static_cast<int>((n - 1 + k) % ns);
    double vm = 1.0;
    for (long i = 1; i < k; ++i) {
      const double psi = w.a + i * w.a * w.g + (i % ns == 0 ? w.c * (1 - w.a) : 0.0);
      const double ratio = sf[s] / sf[((s - i) % ns + ns) % ns];
      vm += ratio * ratio * psi * psi;
    }
    expect_rel(rows[9 * (n - 1 + k) + 5], std::sqrt(mse * vm), 1e-12, "std");
  }
  std::vector<double> ones(ns, 1.0);
  EXPECT_EQ(zwinclm(w.a, w.g, w.c, ns, 2.0, ns + 1, 0.05, ones.data(), 1, nullptr),
            zwincla(w.a, w.g, w.c, ns, 2.0, ns + 1, 0.05, nullptr));
}

// The side-by-side passes in every lane width (the widest the processor has,
// one triple at a time, SSE2 lanes) give every triple the return code and
// the bits of its own pass, also where guards trip; the family suite runs
// the grid only in the widest (and the derivative passes' lanes on every
// instruction set).
TEST(WinKernel, SideBySidePassesInEveryLaneWidth) {
  std::vector<double> w;
  for (double a : {0.05, 0.3, 0.9, 1.6}) {
    for (double g : {0.01, 0.5, 0.99}) {
      for (double c : {0.1, 0.6, 2.5}) w.insert(w.end(), {a, g, c});
    }
  }
  w.insert(w.end(), {1e200, 0.1, 0.1});  // beyond the state limit
  const int count = static_cast<int>(w.size()) / 3;
  std::vector<double> alternating = example_series("UKgas.csv");
  for (std::size_t t = 0; t < alternating.size(); t += 2) alternating[t] = -alternating[t];
  std::vector<double> gaps = example_series("AirPassengers.csv");
  gaps[5] = gaps[40] = gaps[143] = std::nan("");
  int outcomes[2] = {};  // failed, ended well
  for (int form = 0; form < 4; ++form) {
    const int additive = form / 2, ns = form % 2 ? 12 : 4;
    WinModel m(form % 2 ? gaps : alternating, ns, additive);
    std::vector<double> work(win::kManyLanes * ns), mse(count);
    std::vector<int> rc(count);
    for (const int width : {0, 1, 2}) {
      for (int from = 0; from < count; from += win::kManyLanes) {
        win::smooth_many(m->ts.x, m->ts.misflg, m->ts.descstats.norm, m->ts.nobs, ns, additive, &w[3 * from],
                         std::min(win::kManyLanes, count - from), m->svi.level, m->svi.trend, m->svi.sfactor,
                         m->ts.scodes, work.data(), &rc[from], &mse[from], width);
      }
      for (int j = 0; j < count; ++j) {
        SCOPED_TRACE(testing::Message() << "width " << width << " triple " << j);
        std::vector<double> sf(m->svi.sfactor, m->svi.sfactor + ns);
        double l = m->svi.level, b = m->svi.trend, one = 0;
        const int want = zwinsmo(m->ts.x, m->ts.misflg, m->ts.descstats.norm, m->ts.nobs, ns, additive, w[3 * j],
                                 w[3 * j + 1], w[3 * j + 2], &l, &b, sf.data(), m->ts.scodes, &one, nullptr, nullptr);
        pass_test::expect_same_outcome(rc[j], mse[j], want, one, outcomes);
      }
    }
  }
  EXPECT_GT(outcomes[0], 0);
  EXPECT_GT(outcomes[1], 0);
}

// A multiplicative forecast whose factor ratio fails the guarded division
// keeps the half-width of the row before it, and its standard error is what
// the failed division left: missing for 0 / 0, the root of the overflow value
// for 1 / 0.
TEST(WinForecast, FailedFactorRatioKeepsThePreviousHalfWidth) {
  Model x({5, 6, 7, 8, 5, 6, 7, 8});
  x.seasons(4);
  std::vector<double> sf{1.0, 0.0, 0.0, 1.0};
  double level = 10.0, trend = 1.0, mse = 0.0;
  const double se2 = 4.0;
  std::vector<double> rows(9 * 3);
  // No observation rows (end -1): the forecasts start from the season after
  // season 0 with the state handed in.
  ASSERT_EQ(zwinprd(x->ts.x, x->ts.misflg, 10.0, x->ts.nobs, 4, 0, 0.2, 0.1, 0.3, &level, &trend, sf.data(),
                    x->ts.scodes, 0, -1, 3, se2, 0.05, 1, &mse, rows.data()),
            0);
  const double hw = zprobit(0.975) * std::sqrt(se2);
  for (int k = 0; k < 3; ++k) {
    const double* r = &rows[9 * k];
    SCOPED_TRACE(k + 1);
    EXPECT_EQ(r[6], 10.0 + (k + 1) * 1.0);
    EXPECT_EQ(r[8], sf[k + 1]);
    EXPECT_EQ(r[1], r[6] * r[8]);
    EXPECT_EQ(r[2], r[1] + hw);
    EXPECT_EQ(r[3], r[1] - hw);
  }
  EXPECT_EQ(rows[5], std::sqrt(se2));
  EXPECT_TRUE(is_miss(rows[9 + 5]));
  EXPECT_EQ(rows[18 + 5], std::sqrt(smoothing::overflow_positive()));
}

using WinEdges = smooth_test::ModuleTest;

TEST_F(WinEdges, MultiplicativeFloorAndGuards) {
  struct Case {
    const char* name;
    int additive;
    double level, trend, factor, x;
    int rc;
    bool state_lost;
  };
  const Case cases[] = {
      {"zero prediction", 0, 5, -5, 1.0, 3, -7, true},
      {"negative prediction", 0, -5, 1, 1.0, 3, -7, true},
      {"additive has no floor", 1, -5, 1, 1.0, 3, 0, false},
      {"level falls below the floor", 0, 1, 0, 1.0, -50, -7, false},
      {"above 10000 xscale", 1, 2e6, 0, 0.0, 3, -9, true},
      {"state limit", 1, 1e153, 0, 0.0, 3, -9, true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    double l = c.level, b = c.trend, s[1] = {c.factor}, xhat = 0, e = 0;
    EXPECT_EQ(zwinpnt(c.x, 100, c.additive, 0.5, 0.5, 0.5, &l, &b, s, 0, &xhat, &e), c.rc);
    EXPECT_EQ(is_miss(l) && is_miss(b) && is_miss(s[0]), c.state_lost);
  }
}

TEST_F(WinEdges, StabilityRegion) {
  struct Case {
    int ns;
    double a, g, c;
    int stable;
  };
  const Case cases[] = {{12, 0.3, 0.1, 0.2, 1}, {12, 1.0, 0.1, 0.2, 0}, {12, 0.3, 0.0, 0.2, 0}, {4, 0.9, 0.9, 0.6, 1},
                        {4, 0.3, 0.1, 0.0, 0},  {4, 1.5, 0.9, 0.5, 0},  {4, 0.5, 3.0, 0.5, 0}};
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.a << " " << c.g << " " << c.c);
    EXPECT_EQ(zwinstb(c.ns, 0, c.a, c.g, c.c), c.stable);
    EXPECT_EQ(zwinstb(c.ns, 1, c.a, c.g, c.c), c.stable);
  }
}

TEST_F(WinEdges, NormalisationWithinItsThresholdChangesNothing) {
  double l = 10, b = 1, sf[2] = {1.0 + 1e-14, 1.0 - 0.5e-14};
  double dl[3] = {1, 2, 3}, db[3] = {4, 5, 6}, d0[2] = {1, 1}, d1[2] = {2, 2}, d2[2] = {3, 3};
  zwinnmd(2, 0, &l, &b, sf, dl, db, d0, d1, d2);
  EXPECT_EQ(l, 10.0);
  EXPECT_EQ(sf[0], 1.0 + 1e-14);
  EXPECT_EQ(dl[2], 3.0);
  EXPECT_EQ(d2[1], 3.0);
}

// ---- Estimation ----------------------------------------------------------------------

// On a series of alternating signs the additive form fits, with standard
// errors and a state at time 0 whose factors have mean 0; season codes
// outside the cycle fit nothing.
TEST_F(WinEdges, FitOutcomes) {
  std::vector<double> alternating = example_series("UKgas.csv");
  for (std::size_t t = 0; t < alternating.size(); t += 2) alternating[t] = -alternating[t];
  WinModel m(alternating, 4, 1);
  const int rc = nwinfit(m.get());
  ASSERT_TRUE(rc == 0 || rc == 90) << rc;
  EXPECT_FALSE(is_miss(m->pest.mse));
  for (int i = 0; i < 3; ++i) EXPECT_FALSE(is_miss(m->pest.stderr[i])) << i;
  double mean = 0;
  for (int k = 0; k < 4; ++k) mean += m->startvals.sfactor[k] / 4;
  EXPECT_NEAR(mean, 0.0, 1e-12);
  WinModel outside(alternating, 4, 1);
  outside->ts.nseasons = 3;  // codes 0..3
  EXPECT_EQ(nwinfit(outside.get()), -2);
}

// ---- Methods and the command line --------------------------------------------------

// TYPE is compared over the item's own length in the fit and over all of
// "WINT" in the forecast, so a prefix passes only the fit and a longer text
// only the forecast (CODE's default: family_test.cpp).
TEST(WinMethodSpecification, TypeComparisons) {
  using namespace esf::host;
  method_test::connect_module();
  const smooth_test::ScratchLibrary lib("WINM", "win_methods");
  struct Case {
    const char* fit_type;
    const char* forecast_type;
    double fit_rc, forecast_rc;
  };
  const Case cases[] = {
      {"", "WINT", 0, 0},      {"WIN", "WINT", 0, 0},   {"WINTX", "WINT", 999, 999},
      {"WINT", "WIN", 0, 999}, {"WINT", "WINTX", 0, 0}, {"WINT", "EXPO", 0, 999},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.fit_type) + " / " + c.forecast_type);
    method_test::CallLists l(example_series("UKgas.csv"), "QTR", method_test::date(1960, 1, 1));
    set_integer(l.interval_info(), "NSEASONS", 4);
    set_text(l.spec, "TYPE", c.fit_type);
    EXPECT_EQ(method_test::call_fit(mwinfit, l), c.fit_rc);
    set_text(l.spec, "TYPE", c.forecast_type);
    EXPECT_EQ(method_test::call_forecast(mwinfor, l, "WINM.FC", 0.05, 4), c.forecast_rc);
  }
}

}  // namespace
