// Damped-trend exponential smoothing: the flattening forecasts, their
// variance against the impulse response of the recursion, and the stability
// test (the passes against the damped-trend method and the properties every
// family shares are in family_test.cpp).
#include <cmath>
#include <vector>

#include <gtest/gtest.h>

#include "numeric/numeric.h"
#include "smoothing/es2subs.h"
#include "smoothing/es3subs.h"
#include "support/smooth_model.h"

namespace {

using smooth_test::example_series;
using smooth_test::expect_rel;
using smooth_test::is_miss;
using smooth_test::kMiss;

struct Weights {
  double a, g, phi;
};

class Es3Kernel : public ::testing::Test {
 protected:
  void SetUp() override { smooth_test::connect_module(); }
};

TEST_F(Es3Kernel, DampedForecastsFlattenAsTheLeadGrows) {
  std::vector<double> x = example_series("AirPassengers.csv");
  const long n = static_cast<long>(x.size());
  std::vector<char> mis(n, 0);
  const double phi = 0.9;
  const long lead = 200;
  double level = 0, trend = 0, mse = 0;
  ASSERT_EQ(zes3svi(x.data(), mis.data(), n, 1, &level, &trend), 0);
  std::vector<double> rows(8 * (n + lead));
  ASSERT_EQ(zes3prd(x.data(), mis.data(), 1e9, n, 0.5, 0.3, phi, &level, &trend, 0, n - 1, lead, kMiss, 0.05, 0, &mse,
                    rows.data()),
            0);
  const double limit = level + trend * phi / (1.0 - phi);
  double prev_step = std::fabs(trend);
  for (long k = 1; k <= lead; ++k) {
    const double* r = &rows[8 * (n + k - 1)];
    const double before = k == 1 ? level : rows[8 * (n + k - 2) + 1];
    const double step = std::fabs(r[1] - before);
    // Shrinks by phi every row, up to the rounding of a difference of
    // forecasts near the level.
    EXPECT_LE(step, prev_step * phi + 1e-13 * std::fabs(level)) << k;
    prev_step = step;
    EXPECT_EQ(r[6], r[1]);
    EXPECT_NEAR(r[7], trend * std::pow(phi, static_cast<double>(k)), 1e-9 * std::fabs(trend));
  }
  EXPECT_NEAR(rows[8 * (n + lead - 1) + 1], limit, 1e-6 * std::fabs(limit));
  EXPECT_FALSE(is_miss(rows[8 * n + 5]));   // missing se2: the pass's mse is the base
  EXPECT_EQ(level, rows[8 * (n - 1) + 6]);  // the state stays at the end of the range
}

TEST_F(Es3Kernel, PsiWeightsAreTheImpulseResponseOfTheForecasts) {
  std::vector<double> x = example_series("USAccDeaths.csv");
  const long n = static_cast<long>(x.size());
  std::vector<char> mis(n, 0);
  const long lead = 12;
  for (const Weights& w : {Weights{0.4, 0.3, 0.9}, Weights{0.4, 0.3, 1.0}}) {
    auto forecasts = [&](const std::vector<double>& series) {
      double level = 9000, trend = 10, mse = 0;
      std::vector<double> rows(8 * (n + lead));
      EXPECT_EQ(zes3prd(const_cast<double*>(series.data()), mis.data(), 1e9, n, w.a, w.g, w.phi, &level, &trend, 0,
                        n - 1, lead, 1.0, 0.05, 1, &mse, rows.data()),
                0);
      return rows;
    };
    const std::vector<double> base = forecasts(x);
    std::vector<double> bumped = x;
    bumped.back() += 1.0;
    const std::vector<double> moved = forecasts(bumped);
    std::vector<double> psi(lead + 1);
    zes3psi(w.a, w.g, w.phi, lead + 1, psi.data());
    // The variance of the forecasts (se2 1) sums the squared weights.
    double sum = 0;
    for (long k = 1; k <= lead; ++k) {
      EXPECT_NEAR(moved[8 * (n + k - 1) + 1] - base[8 * (n + k - 1) + 1], psi[k], 1e-8) << k;
      sum += psi[k - 1] * psi[k - 1];
      expect_rel(base[8 * (n + k - 1) + 5] * base[8 * (n + k - 1) + 5], sum, 1e-12, "variance");
    }
  }
}

TEST_F(Es3Kernel, NumericDerivativeResultIsThatOfTheThirdWeight) {
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

TEST_F(Es3Kernel, StabilityTest) {
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

// The exported standard errors need four observations.
TEST_F(Es3Kernel, StandardErrorsNeedFourObservations) {
  double diag[3] = {1, 1, 1}, parms[3] = {0.1, 0.2, 0.9}, se[3], tv[3];
  zes3std(diag, 1.0, 3, parms, se, tv);
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(is_miss(se[i]) && is_miss(tv[i]));
  zes3std(diag, 4.0, 4, parms, se, tv);
  EXPECT_EQ(se[2], 2.0);
  EXPECT_EQ(tv[2], 0.45);
}

TEST_F(Es3Kernel, ZeroDampingIgnoresTheTrend) {
  double l = 5, b = 100, xhat, e;
  ASSERT_EQ(zes3pnt(6, 100, 0.5, 0.5, 0.0, &l, &b, &xhat, &e), 0);
  EXPECT_EQ(xhat, 5.0);
  EXPECT_EQ(e, -1.0);
}

}  // namespace
