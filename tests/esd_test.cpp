// Double exponential smoothing: the forecast variance against the
// moving-average weights and the impulse response of the recursion, and the
// guards (the passes against Brown's two smoothed series and the properties
// every family shares are in family_test.cpp).
#include <cmath>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "numeric/numeric.h"
#include "smoothing/esdsubs.h"
#include "support/smooth_model.h"

namespace {

using smooth_test::example_series;
using smooth_test::expect_rel;
using smooth_test::is_miss;

class EsdKernel : public ::testing::Test {
 protected:
  void SetUp() override { smooth_test::connect_module(); }
};

TEST_F(EsdKernel, ForecastRowsAndTheirVariance) {
  std::vector<double> x = example_series("USAccDeaths.csv");
  const long n = static_cast<long>(x.size());
  std::vector<char> mis(n, 0);
  const double w = 0.3, se2 = 2.0;
  const long lead = 15;
  double level = x[0], trend = 0, mse = 0;
  std::vector<double> rows(8 * (n + lead));
  ASSERT_EQ(zesdprd(x.data(), mis.data(), 1e9, n, w, &level, &trend, 0, n - 1, lead, se2, 0.1, 1, &mse, rows.data()),
            0);
  std::vector<double> psi(lead);
  ASSERT_EQ(zesdpsi(w, lead, psi.data()), 0);
  double sum = 0;
  for (long k = 1; k <= lead; ++k) {
    sum += psi[k - 1] * psi[k - 1];
    const double* r = &rows[8 * (n + k - 1)];
    expect_rel(r[1], level + trend / w + (k - 1) * trend, 1e-14, "forecast");
    expect_rel(r[6], level + k * trend, 1e-14, "level column");
    EXPECT_EQ(r[7], trend);
    expect_rel(r[5] * r[5], se2 * sum, 1e-13, "variance from psi");
    double limit = 0;
    expect_rel(zesdcla(w, se2, k, 0.1, &limit), se2 * sum, 1e-13, "zesdcla");
    expect_rel(r[2] - r[1], limit, 1e-12, "half-width");
  }
}

TEST_F(EsdKernel, PsiWeightsAreTheImpulseResponseOfTheForecasts) {
  // Raising the last observation by d moves the forecast k steps ahead by
  // psi[k] * d: these are the weights the variance sums.
  std::vector<double> x = example_series("AirPassengers.csv");
  const long n = static_cast<long>(x.size());
  std::vector<char> mis(n, 0);
  const double w = 0.35, d = 1.0;
  const long lead = 10;
  auto forecasts = [&](const std::vector<double>& series) {
    double level = 100, trend = 1, mse = 0;
    std::vector<double> rows(8 * (n + lead));
    EXPECT_EQ(zesdprd(const_cast<double*>(series.data()), mis.data(), 1e9, n, w, &level, &trend, 0, n - 1, lead, 1.0,
                      0.05, 1, &mse, rows.data()),
              0);
    return rows;
  };
  const std::vector<double> base = forecasts(x);
  std::vector<double> bumped = x;
  bumped.back() += d;
  const std::vector<double> moved = forecasts(bumped);
  std::vector<double> psi(lead + 1);
  zesdpsi(w, lead + 1, psi.data());
  for (long k = 1; k <= lead; ++k) {
    EXPECT_NEAR(moved[8 * (n + k - 1) + 1] - base[8 * (n + k - 1) + 1], psi[k] * d, 1e-9) << k;
  }
}

TEST_F(EsdKernel, AWeightOfZeroCannotBeEvaluated) {
  std::vector<double> x = {1, 2, 3};
  std::vector<char> mis(3, 0);
  double l = 3, b = -1, mse = 0;
  EXPECT_EQ(zesdsmo(x.data(), mis.data(), 10, 3, 0.0, &l, &b, &mse, nullptr, nullptr), -9);
  EXPECT_EQ(zesdsmo(x.data(), mis.data(), 10, 3, 1e-160, &l, &b, &mse, nullptr, nullptr), -9);
  EXPECT_EQ(zesdprd(x.data(), mis.data(), 10, 3, 0.0, &l, &b, 0, 2, 1, 1.0, 0.05, 0, &mse, nullptr), -9);
}

TEST_F(EsdKernel, AFailedGuardMissesOnlyTheLevel) {
  double l = 1e153, b = 1, xhat, e;
  EXPECT_EQ(zesdpnt(1, 1e300, 0.5, &l, &b, &xhat, &e), -9);
  EXPECT_TRUE(is_miss(l));
  EXPECT_EQ(b, 1.0);
  l = 1;
  b = 10;
  EXPECT_EQ(zesdpnt(1, 1.0, 0.001, &l, &b, &xhat, &e), -9);  // 1 + 10 / 0.001 > 10000
  EXPECT_TRUE(is_miss(l));
}

}  // namespace
