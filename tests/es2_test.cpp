// Linear exponential smoothing: the closed form of its forecast variance,
// the stability region, the guards, and stable estimates beyond the usual
// box (the passes against Holt's method and the properties every family
// shares are in family_test.cpp).
#include <cmath>
#include <vector>

#include <gtest/gtest.h>

#include "numeric/numeric.h"
#include "smoothing/es2fit.h"
#include "smoothing/es2subs.h"
#include "support/smooth_model.h"

namespace {

using smooth_test::example_series;
using smooth_test::expect_rel;
using smooth_test::is_miss;
using smooth_test::Model;

// The standard closed form of the h-step variance factor of Holt's method:
// 1 + sum_{j=1}^{h-1} (a + j a g)^2.
double holt_variance_factor(double a, double g, long h) {
  const double m = static_cast<double>(h - 1);
  return 1.0 + m * a * a + a * a * g * m * (m + 1.0) + a * a * g * g * m * (m + 1.0) * (2.0 * m + 1.0) / 6.0;
}

class Es2Kernel : public ::testing::Test {
 protected:
  void SetUp() override { smooth_test::connect_module(); }
};

TEST_F(Es2Kernel, ForecastVarianceHasHoltsClosedForm) {
  std::vector<double> x = example_series("UKgas.csv");
  const long n = static_cast<long>(x.size());
  std::vector<char> mis(n, 0);
  const long lead = 24;
  for (double a : {0.05, 0.5, 0.95}) {
    for (double g : {0.0, 0.3, 0.9}) {
      SCOPED_TRACE(testing::Message() << a << " " << g);
      double level = x[0], trend = 0, mse = 0;
      std::vector<double> rows(8 * (n + lead));
      const double se2 = 2.5;
      ASSERT_EQ(
          zes2prd(x.data(), mis.data(), 1e6, n, a, g, &level, &trend, 0, n - 1, lead, se2, 0.05, 1, &mse, rows.data()),
          0);
      const double z = zprobit(0.975);
      for (long k = 1; k <= lead; ++k) {
        const double* r = &rows[8 * (n + k - 1)];
        const double var = se2 * holt_variance_factor(a, g, k);
        EXPECT_TRUE(is_miss(r[0]));
        expect_rel(r[1], level + k * trend, 1e-13, "forecast grows by the trend");
        expect_rel(r[5] * r[5], var, 1e-12, "variance");
        expect_rel(r[2] - r[1], z * std::sqrt(var), 1e-12, "half-width");
        EXPECT_TRUE(is_miss(r[4]));
        EXPECT_EQ(r[6], r[1]);
        EXPECT_EQ(r[7], trend);
      }
      expect_rel(rows[8 * n + 5], std::sqrt(se2), 1e-15, "one step ahead is the base");
    }
  }
}

TEST_F(Es2Kernel, StabilityRegion) {
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

TEST_F(Es2Kernel, Guards) {
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

class Es2Fit : public ::testing::Test {
 protected:
  void SetUp() override { smooth_test::connect_module(); }
  static void start(WINMODEL* m) {
    ASSERT_EQ(zes2svi(m->ts.x, m->ts.misflg, m->ts.nobs, 1, &m->svi.level, &m->svi.trend), 0);
  }
};

TEST_F(Es2Fit, WeightsStayStableBeyondTheUsualBox) {
  Model m(example_series("UKgas.csv"), 2);
  start(m.get());
  m->wbnds.wlevel[1] = 1.999;
  m->wbnds.wtrend[1] = 3.5;
  const int rc = nes2fit(m.get());
  ASSERT_GE(rc, 0);
  EXPECT_NE(zes2stb(m->pest.parms[0], m->pest.parms[1]), 0);
}

}  // namespace
