// Accuracy measures, information criteria and conformal half-widths against
// values worked out by hand (and, for the logarithms, by a separate
// calculator).
#include "runner/accuracy.h"

#include <cmath>
#include <limits>
#include <vector>

#include <gtest/gtest.h>

namespace {

using namespace esf::runner;
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
using V = std::vector<double>;

TEST(Accuracy, MeasuresOfAHandWorkedExample) {
  // Errors f - a: 1, 0, -2; the NaN rows drop out.
  const Accuracy a = accuracy(V{1.0, 2.0, kNaN, 4.0, 5.0}, V{2.0, 2.0, 3.0, 2.0, kNaN}, 0.5);
  EXPECT_EQ(a.n, 3);
  EXPECT_DOUBLE_EQ(a.me, -1.0 / 3.0);
  EXPECT_DOUBLE_EQ(a.rmse, std::sqrt(5.0 / 3.0));
  EXPECT_DOUBLE_EQ(a.mae, 1.0);
  EXPECT_DOUBLE_EQ(a.mape, 50.0);                        // (1/1 + 0 + 2/4) / 3
  EXPECT_DOUBLE_EQ(a.smape, 200.0 * (2.0 / 3.0) / 3.0);  // (1/3 + 0 + 2/6) / 3
  EXPECT_DOUBLE_EQ(a.mase, 2.0);

  // A zero actual leaves MAPE to the other rows; no scale, no MASE.
  const Accuracy z = accuracy(V{0.0, 2.0}, V{1.0, 3.0}, kNaN);
  EXPECT_DOUBLE_EQ(z.mape, 50.0);
  EXPECT_DOUBLE_EQ(z.smape, 100.0 * (1.0 + 0.2));  // 200 * (1/1 + 1/5) / 2
  EXPECT_TRUE(std::isnan(z.mase));
  EXPECT_TRUE(std::isnan(accuracy(V{kNaN}, V{1.0}, 1.0).rmse));
}

TEST(Accuracy, SeasonalNaiveScaleAndCoverage) {
  EXPECT_DOUBLE_EQ(seasonal_naive_mae(V{1.0, 5.0, 2.0, 7.0, kNaN, 8.0}, 2), (1.0 + 2.0 + 1.0) / 3.0);
  EXPECT_DOUBLE_EQ(seasonal_naive_mae(V{1.0, 3.0, 2.0}, 1), 1.5);
  EXPECT_TRUE(std::isnan(seasonal_naive_mae(V{1.0, 2.0}, 4)));
  // Limits are inclusive; a row with a missing limit does not count.
  EXPECT_DOUBLE_EQ(coverage({1.0, 2.0, 3.0, 4.0, 5.0}, {0.0, 2.0, 3.5, kNaN, 0.0}, {1.0, 3.0, 4.0, 5.0, 4.0}),
                   2.0 / 4.0);
}

TEST(Accuracy, InformationCriteria) {
  struct Case {
    std::vector<double> errors;
    int k;
    long n;
    double loglik, aic, aicc, bic;  // from a separate calculator
  };
  const Case cases[] = {
      {{1.0, -1.0, 2.0, -2.0, 0.5, -0.5},
       3,
       6,
       -10.192478563034303,
       26.384957126068606,
       38.384957126068606,
       25.76023553375277},
      // n - k - 1 = 0: no AICc.
      {{1.0, -1.0, kNaN, 2.0, -2.0}, 3, 4, -7.508335596567001, 21.016671193134002, kNaN, 19.175554276493674},
  };
  for (const Case& c : cases) {
    const Criteria r = information_criteria(c.errors, c.k);
    EXPECT_EQ(r.n, c.n);
    EXPECT_NEAR(r.loglik, c.loglik, 1e-12);
    EXPECT_NEAR(r.aic, c.aic, 1e-12);
    EXPECT_NEAR(r.bic, c.bic, 1e-12);
    if (std::isnan(c.aicc)) {
      EXPECT_TRUE(std::isnan(r.aicc));
    } else {
      EXPECT_NEAR(r.aicc, c.aicc, 1e-12);
    }
  }
  EXPECT_TRUE(std::isnan(information_criteria(V{0.0, 0.0}, 1).aic));
  // Weights, level, trend, 11 free factors of 12, and the variance.
  EXPECT_EQ(parameter_count(3, true, 12), 3 + 1 + 1 + 11 + 1);
  EXPECT_EQ(parameter_count(1, false, 0), 3);
}

TEST(Accuracy, ConformalHalfWidths) {
  // Nine errors at lead 1: rank ceil(10 * 0.8) = 8 of |e| sorted 1..9 is 8.
  // Lead 2 has 3 errors: rank ceil(4 * 0.8) = 4 > 3, too few.  Lead 3's
  // quantile, 2, is raised to lead 1's 8.
  const std::vector<std::vector<double>> errors = {
      {-1.0, 2.0, -3.0, 4.0, -5.0, 6.0, -7.0, 8.0, -9.0}, {1.0, 2.0, 3.0}, {1, 1, 1, 1, 1, 1, 2, 2, 2}};
  const std::vector<double> w = conformal_half_widths(errors, 0.8);
  ASSERT_EQ(w.size(), 3u);
  EXPECT_EQ(w[0], 8.0);
  EXPECT_TRUE(std::isnan(w[1]));
  EXPECT_EQ(w[2], 8.0);
}

}  // namespace
