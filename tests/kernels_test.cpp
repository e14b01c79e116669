// The kernels of the smoothing families, one by one: passes worked by hand,
// prediction rows, guards, stability regions, standard errors, numeric
// derivatives, centring and start values (the passes against the textbook
// recursions, the forecast variance and the properties every family shares
// are in family_test.cpp).
#include <cmath>
#include <cstring>
#include <vector>

#include <gtest/gtest.h>

#include "host/host.h"
#include "regression/regression.h"
#include "smoothing/es1subs.h"
#include "smoothing/es2subs.h"
#include "smoothing/es3subs.h"
#include "smoothing/esdsubs.h"
#include "smoothing/essfit.h"
#include "smoothing/esssubs.h"
#include "support/smooth_model.h"

namespace {

using smooth_test::example_series;
using smooth_test::is_miss;
using smooth_test::kMiss;
using smooth_test::Model;
const double kNaN = std::nan("");
constexpr double kStateLimit = 1.3407807929942597e+152;
constexpr double kErrorLimit = 1.3407807929943e+154;

using Kernel = smooth_test::ModuleTest;

// ---- One observation ---------------------------------------------------------

TEST_F(Kernel, SimpleGuardsTheLevel) {
  struct Case {
    double level, xscale;
    int rc;
  };
  const Case cases[] = {
      {2e152, 1e160, -9},       // above the state limit
      {-2e152, 1e160, -9},      // its absolute value counts
      {1000.5, 0.1, -9},        // above 10000 * xscale
      {1000.0, 0.1, 0},         // exactly at the relative limit passes
      {-1e100, 1.0, 0},         // a strongly negative level is not relative overflow
      {kStateLimit, 1e160, 0},  // at the state limit passes
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << "level " << c.level << " xscale " << c.xscale);
    double level = c.level, xhat = 0.0, e = 0.0;
    EXPECT_EQ(zes1pnt(1.0, c.xscale, 0.5, &level, &xhat, &e), c.rc);
    EXPECT_EQ(is_miss(level), c.rc != 0);
  }
}

TEST_F(Kernel, SimpleOverflowLosesTheDerivative) {
  double huge = 2 * kErrorLimit;
  double dervec[1] = {0.0};
  EXPECT_EQ(zes1dpd(1.0, 0.5, 0.0, 0.0, &huge, dervec), -9);
  EXPECT_TRUE(is_miss(huge));
}

// ---- Whole series ------------------------------------------------------------

// x = 1, 2, 3, 4 with w = 0.5 from the last observation, by hand:
// backward 4 -> 4 -> 3.5 -> 2.75 -> 1.875; forward predictions 1.875,
// 1.4375, 1.71875, 2.359375 and end level 3.1796875.
TEST_F(Kernel, SimpleMatchesHandWorkedPasses) {
  Model s({1, 2, 3, 4});
  double level = 4.0, mse = 0.0;
  double smoothed[4];
  double rows[16];
  ASSERT_EQ(zes1smo(s->ts.x, s->ts.misflg, 4.0, 4, 0.5, &level, &mse, smoothed, rows), 0);
  const double xhat[4] = {1.875, 1.4375, 1.71875, 2.359375};
  const double after[4] = {1.4375, 1.71875, 2.359375, 3.1796875};
  double sse = 0.0;
  for (int t = 0; t < 4; ++t) {
    SCOPED_TRACE(t);
    const double e = xhat[t] - (t + 1);
    sse += e * e;
    EXPECT_EQ(smoothed[t], xhat[t]);
    EXPECT_EQ(rows[4 * t + 0], t + 1);
    EXPECT_EQ(rows[4 * t + 1], xhat[t]);
    EXPECT_EQ(rows[4 * t + 2], e);
    EXPECT_EQ(rows[4 * t + 3], after[t]);
  }
  EXPECT_EQ(level, 3.1796875);
  EXPECT_EQ(mse, sse / 4);
}

TEST_F(Kernel, SimpleEdgeResults) {
  struct Case {
    const char* what;
    std::vector<double> x;
    double w, start;
    int rc;
    double mse;  // NaN: not checked
  };
  const Case cases[] = {
      {"every observation missing", {NAN, NAN, NAN}, 0.4, 1.0, -2, NAN},
      {"weight beyond the state limit", {1, 2}, 2e152, 2.0, -9, NAN},
      {"squares past the limit of their sum", {-1e154, -1e154}, 0.001, 0.0, -9, NAN},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    Model s(c.x);
    double level = c.start, mse = 0.0;
    EXPECT_EQ(zes1smo(s->ts.x, s->ts.misflg, 3.0, s->ts.nobs, c.w, &level, &mse, nullptr, nullptr), c.rc);
    if (!std::isnan(c.mse)) {
      EXPECT_EQ(mse, c.mse);
    }
  }
  double level = 1.0, mse = 0.0;
  EXPECT_EQ(zes1smo(nullptr, nullptr, 1.0, 0, 0.5, &level, &mse, nullptr, nullptr), -2);
}

// ---- Prediction pass ---------------------------------------------------------

// The rows begin at observation `start`; a single observation keeps the
// plain sum of squares (the rows and the variance of every family:
// family_test.cpp).
TEST_F(Kernel, SimpleRowsFromStartAndTheSumOfOneObservation) {
  Model s({3, 8, 5, 6, 9});
  std::vector<double> all(7 * 6), tail(7 * 6);
  double level = 9.0, mse = 0.0;
  ASSERT_EQ(zes1prd(s->ts.x, s->ts.misflg, 9.0, 5, 0.3, &level, 0, 4, 1, 1.0, 0.05, 0, &mse, all.data()), 0);
  level = 9.0;
  ASSERT_EQ(zes1prd(s->ts.x, s->ts.misflg, 9.0, 5, 0.3, &level, 2, 4, 1, 1.0, 0.05, 0, &mse, tail.data()), 0);
  EXPECT_EQ(tail[0], 5.0);  // observation 2
  EXPECT_EQ(std::memcmp(tail.data(), all.data() + 7 * 2, 7 * 4 * sizeof(double)), 0);
  Model one({NAN, 4});
  level = 6.0;
  ASSERT_EQ(zes1prd(one->ts.x, one->ts.misflg, 6.0, 2, 0.5, &level, 0, 1, 0, 1.0, 0.05, 1, &mse, nullptr), 0);
  EXPECT_EQ(mse, 4.0);  // one observation, error 2: no division
  Model none({NAN, NAN});
  EXPECT_EQ(zes1prd(none->ts.x, none->ts.misflg, 1.0, 2, 0.5, &level, 0, 1, 0, 1.0, 0.05, 1, &mse, nullptr), -2);
}

// ---- Standard errors ----------------------------------------------------------

// A zero standard error: the guarded division gives the host's overflow
// (the standard error from the swept diagonal against numeric derivatives:
// frame_test.cpp).
TEST_F(Kernel, SimpleZeroStdErrGivesTheOverflowTValue) {
  double parms[1] = {0.3};
  double se = 0.0, t = 0.0;
  double zero[1] = {0.0};
  ASSERT_EQ(zes1std(zero, 8.0, 10, parms, &se, &t), 0);
  EXPECT_EQ(se, 0.0);
  EXPECT_EQ(t, esf::host::gcb()->posovfl);
  double negative[1] = {-0.3};
  ASSERT_EQ(zes1std(zero, 8.0, 10, negative, &se, &t), 0);
  EXPECT_EQ(t, esf::host::gcb()->negovfl);
}

TEST_F(Kernel, LinearStabilityRegion) {
  struct Case {
    double a, g;
    int stable;
  } const cases[] = {
      {0.5, 0.5, 1},   {2.0, 0.0, 0},   {2.0, -1.0, 0},  {1.0, 2.0, 0},  // 4 / 1 - 2 = 2, excluded
      {1.0, 1.999, 1}, {0.0, 0.1, 0},   {0.5, -0.01, 0}, {0.5, 5.99, 1},
      {0.5, 6.0, 0},   {1.9, 0.105, 1}, {1.9, 0.106, 0}, {0.001, 0.0, 1},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(zes2stb(c.a, c.g) != 0, c.stable != 0) << c.a << " " << c.g;
  }
}

TEST_F(Kernel, LinearGuards) {
  double l = 1e153, b = 0, xhat, e;
  EXPECT_EQ(zes2pnt(1, 1e200, 0.5, 0.5, &l, &b, &xhat, &e), -9);
  EXPECT_TRUE(is_miss(l));
  EXPECT_TRUE(is_miss(b));
  l = 10001;
  b = 0;
  EXPECT_EQ(zes2pnt(1, 1.0, 0.5, 0.5, &l, &b, &xhat, &e), -9);  // above 10000 * xscale
  l = -1e6;
  b = 0;
  EXPECT_EQ(zes2pnt(1, 1.0, 0.5, 0.5, &l, &b, &xhat, &e), 0);  // only the upper side
  double dl[2] = {1e155, 0}, dt[2] = {0, 0}, dv[2];
  EXPECT_EQ(zes2dpd(1, 0.5, 0.5, 0, 0, 0, 0, dl, dt, dv), -9);
  EXPECT_TRUE(is_miss(dt[1]));
  std::vector<double> x = {1, 2};
  std::vector<char> mis = {0, 0};
  double mse;
  l = 2;
  b = 0;
  EXPECT_EQ(zes2smo(x.data(), mis.data(), 10, 2, 1e153, 0.5, &l, &b, &mse, nullptr, nullptr), -9);
}

// ---- Estimation -------------------------------------------------------------

TEST_F(Kernel, DampedNumericDerivativeResultIsThatOfTheThirdWeight) {
  std::vector<double> x = {3, 4, 6, 7, 9, 10};
  std::vector<char> mis(6, 0);
  double pder[3];
  double first_bad[3] = {0.0, 1e-6, 1e-6};
  EXPECT_EQ(zes3npd(x.data(), mis.data(), 100, 6, 0.3, 0.2, 0.9, 10, -1, first_bad, 0, pder), 0);
  EXPECT_TRUE(is_miss(pder[0]));
  EXPECT_FALSE(is_miss(pder[2]));
  double last_bad[3] = {1e-6, 1e-6, 0.0};
  EXPECT_EQ(zes3npd(x.data(), mis.data(), 100, 6, 0.3, 0.2, 0.9, 10, -1, last_bad, 0, pder), -92);
  EXPECT_FALSE(is_miss(pder[1]));
  EXPECT_TRUE(is_miss(pder[2]));
}

TEST_F(Kernel, DampedStabilityTest) {
  EXPECT_EQ(zes3stb(0.5, 0.5, 0.9), 1);  // complex pair, squared modulus 0.45
  EXPECT_EQ(zes3stb(0.0, 0.5, 1.5), 0);  // real roots 1.5 and 1
  EXPECT_EQ(zes3stb(0.3, 0.1, 0.98), 1);
  EXPECT_EQ(zes3stb(2.5, 0.1, 0.9), 0);
  // Without damping the region is that of linear smoothing, away from its
  // edges (a trend weight of 0 leaves a unit root, which linear smoothing
  // counts as stable).
  for (double a = 0.05; a < 2.0; a += 0.1) {
    for (double g = 0.03; g < 6.0; g += 0.1) {
      const double edge = 4.0 / a - 2.0;
      if (std::fabs(g - edge) < 1e-9) continue;
      EXPECT_EQ(zes3stb(a, g, 1.0) != 0, zes2stb(a, g) != 0) << a << " " << g;
    }
  }
}

TEST_F(Kernel, DoubleAWeightOfZeroCannotBeEvaluated) {
  std::vector<double> x = {1, 2, 3};
  std::vector<char> mis(3, 0);
  double l = 3, b = -1, mse = 0;
  EXPECT_EQ(zesdsmo(x.data(), mis.data(), 10, 3, 0.0, &l, &b, &mse, nullptr, nullptr), -9);
  EXPECT_EQ(zesdsmo(x.data(), mis.data(), 10, 3, 1e-160, &l, &b, &mse, nullptr, nullptr), -9);
  EXPECT_EQ(zesdprd(x.data(), mis.data(), 10, 3, 0.0, &l, &b, 0, 2, 1, 1.0, 0.05, 0, &mse, nullptr), -9);
}

TEST_F(Kernel, DoubleAFailedGuardMissesOnlyTheLevel) {
  double l = 1e153, b = 1, xhat, e;
  EXPECT_EQ(zesdpnt(1, 1e300, 0.5, &l, &b, &xhat, &e), -9);
  EXPECT_TRUE(is_miss(l));
  EXPECT_EQ(b, 1.0);
  l = 1;
  b = 10;
  EXPECT_EQ(zesdpnt(1, 1.0, 0.001, &l, &b, &xhat, &e), -9);  // 1 + 10 / 0.001 > 10000
  EXPECT_TRUE(is_miss(l));
}

TEST_F(Kernel, SeasonalGuardsOfTheKernel) {
  double f[3] = {1.0, -2.0, 4.0}, level = 10.0, xhat = 0.0, e = 0.0;
  // Only the upper side of the prediction is limited; the level and the one
  // factor in question become missing.
  level = 996.0;
  f[1] = 5.0;  // xhat 1001 against the limit 1000
  EXPECT_EQ(zesspnt(0.0, 0.1, 0.3, 0.3, &level, f, 1, &xhat, &e), -9);
  EXPECT_TRUE(is_miss(level) && is_miss(f[1]));
  EXPECT_EQ(f[2], 4.0);
  level = -1e100;
  EXPECT_EQ(zesspnt(0.0, 0.1, 0.3, 0.3, &level, f, 0, &xhat, &e), 0);
  f[0] = 2e152;
  EXPECT_EQ(zesspnt(0.0, 1e300, 0.3, 0.3, &level, f, 0, &xhat, &e), -9);
  double derlev[2] = {0.0, 0.0}, dersea[2] = {0.0, -1e155}, dervec[2];
  EXPECT_EQ(zessdpd(1.0, 0.3, 0.3, 1.0, 1.0, 0.0, 0.0, derlev, dersea, dervec), -9);
  EXPECT_TRUE(is_miss(derlev[0]) && is_miss(derlev[1]) && is_miss(dersea[0]));

  Model ser({1.0, 2.0, kNaN});
  ser.seasons(2);
  double g[2] = {0.0, 0.0}, mse = 0.0;
  EXPECT_EQ(zesssmo(ser->ts.x, ser->ts.misflg, 3, 3, 2, 0.3, 2e152, &level, g, ser->ts.scodes, &mse, 0, 0), -9);
}

// With no observation rows (end -1) the forecasts run from season 0 on the
// state handed in, and nothing before them counts towards the mse.
TEST_F(Kernel, SeasonalForecastsWithoutObservationRowsStartAtSeasonZero) {
  Model ser({1.0, 2.0, 3.0, 4.0});
  ser.seasons(3);
  double level = 10.0, mse = 0.0;
  double f[3] = {1.0, 2.0, 3.0};
  std::vector<double> rows(8 * 4);
  ASSERT_EQ(zessprd(ser->ts.x, ser->ts.misflg, 12.0, 4, 3, 0.5, 0.5, &level, f, ser->ts.scodes, 0, -1, 4, 1.0, 0.05, 1,
                    &mse, rows.data()),
            0);
  EXPECT_EQ(mse, 0.0);
  for (int k = 0; k < 4; ++k) {
    SCOPED_TRACE(k + 1);
    EXPECT_EQ(rows[8 * k + 7], f[k % 3]);
    EXPECT_EQ(rows[8 * k + 1], 10.0 + f[k % 3]);
    EXPECT_EQ(rows[8 * k + 6], 10.0);
  }
}

TEST_F(Kernel, SeasonalStabilityRegion) {
  struct Case {
    int ns;
    double a, g;
    int stable;
  } const cases[] = {{12, 0.3, 0.2, 1},   {12, 0.3, 0.0, 0},  {12, 1.0, 0.5, 0},
                     {4, 2.0, 0.5, 0},                                                // d, wlevel 1 and 2
                     {12, -0.05, 0.5, 0}, {4, -0.05, 0.5, 1},                         // ns * wlevel + d
                     {4, 1.5, -1.0, 0},   {4, 1.4, -1.0, 1},  {4, 0.999, 0.999, 1}};  // 2 - wlevel - d
  for (const Case& c : cases) EXPECT_EQ(zessstb(c.ns, c.a, c.g), c.stable) << c.ns << " " << c.a << " " << c.g;
}

TEST_F(Kernel, SeasonalCentringMovesTheMeanOfTheFactorsIntoTheLevel) {
  double level = 10.0, f[4] = {1.0, 2.0, 3.0, 6.0}, derlev[2] = {0.5, -0.5};
  double dl[4] = {1.0, 1.0, 1.0, 5.0}, ds[4] = {0.0, 0.0, 4.0, 0.0};
  zessnmd(4, &level, f, derlev, dl, ds);
  EXPECT_EQ(level, 13.0);
  EXPECT_EQ(f[0] + f[1] + f[2] + f[3], 0.0);
  EXPECT_EQ(derlev[0], 2.5);
  EXPECT_EQ(derlev[1], 0.5);
  EXPECT_EQ(dl[3], 3.0);
  EXPECT_EQ(ds[2], 3.0);
  // A mean of 1e-14 changes nothing, derivatives included.
  double tl = 7.0, tf[2] = {1e-14 + 0.5, 1e-14 - 0.5}, td[2] = {1.0, 1.0}, a[2] = {2.0, 0.0}, b[2] = {0.0, 2.0};
  zessnmd(2, &tl, tf, td, a, b);
  EXPECT_TRUE(tl == 7.0 && td[0] == 1.0 && a[0] == 2.0 && tf[0] == 1e-14 + 0.5);
  double nl = 0.0, nf[3] = {3.0, 3.0, 6.0};
  zessnrm(3, &nl, nf);
  EXPECT_TRUE(nl == 4.0 && nf[2] == 2.0);
}

// A reduced start regression (no season with two points): its constant is
// the level and a season without a factor starts at 0 (the start values
// from a full regression, for every family: family_test.cpp).
TEST_F(Kernel, SeasonalStartFromAReducedRegression) {
  double ccoef = 0.0, level = 0.0;
  std::vector<double> csfact(12), f(12);
  Model few({10.0, 20.0, 30.0, 40.0, 50.0});
  ASSERT_EQ(ztsrdmy(few->ts.x, few->ts.misflg, 5, 12, &ccoef, nullptr, nullptr, csfact.data(), nullptr), 1);
  ASSERT_EQ(zesssvi(few->ts.x, few->ts.misflg, 5, 12, 0, 1, &level, f.data()), 0);
  EXPECT_EQ(level, ccoef);
  for (int i = 0; i < 12; ++i) EXPECT_EQ(f[i], is_miss(csfact[i]) ? 0.0 : csfact[i]);
}

// Without memory the numeric derivative, the start values and the fit give
// -100.
TEST_F(Kernel, SeasonalWithoutMemory) {
  const std::vector<double> air = example_series("AirPassengers.csv");
  Model ser(air);
  ser.seasons(12);
  Model m(std::vector<double>(air.begin(), air.begin() + 13), 2);
  m.seasons(12);
  ASSERT_EQ(zesssvi(m->ts.x, m->ts.misflg, 13, 12, 0, 1, &m->svi.level, m->svi.sfactor), 0);
  std::vector<double> f(12, 0.0);
  double deltas[2] = {1e-6, 1e-6}, pder[2], level = 0.0;
  esf::host::pool_fail_after(0);
  EXPECT_EQ(zessnpd(ser->ts.x, ser->ts.misflg, ser->ts.descstats.norm, ser->ts.nobs, 12, 0.3, 0.3, 400.0, f.data(),
                    ser->ts.scodes, deltas, 0, pder),
            -100);
  EXPECT_EQ(zesssvi(ser->ts.x, ser->ts.misflg, ser->ts.nobs, 12, 0, 1, &level, f.data()), -100);
  esf::host::pool_fail_after(1);
  EXPECT_EQ(nessfit(m.get()), -100);
  esf::host::pool_fail_after(-1);
  xmemdef();
}

}  // namespace
