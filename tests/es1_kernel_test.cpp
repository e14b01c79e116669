// The simple smoothing kernel against a pass worked by hand, its prediction
// rows and variance, and its guards (the passes against the textbook
// recursion and the derivatives are checked for every family in
// family_test.cpp).
#include <cmath>
#include <vector>

#include <gtest/gtest.h>

#include "numeric/numeric.h"
#include "smoothing/es1subs.h"
#include "support/smooth_model.h"

namespace {

using smooth_test::is_miss;
using smooth_test::kMiss;

constexpr double kStateLimit = 1.3407807929942597e+152;
constexpr double kErrorLimit = 1.3407807929943e+154;

// Flags for a series where NaN marks a missing value; the value itself
// becomes the ordinary missing value.
struct Series {
  std::vector<double> x;
  std::vector<char> flags;
  explicit Series(std::vector<double> v) : x(std::move(v)), flags(x.size(), 0) {
    for (std::size_t t = 0; t < x.size(); ++t) {
      if (std::isnan(x[t])) {
        x[t] = kMiss;
        flags[t] = 1;
      }
    }
  }
  long n() const { return static_cast<long>(x.size()); }
  double* data() { return x.data(); }
  char* mis() { return flags.data(); }
};

// ---- One observation ---------------------------------------------------------

TEST(Es1Point, GuardsTheLevel) {
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

TEST(Es1Derivative, OverflowLosesTheDerivative) {
  double huge = 2 * kErrorLimit;
  double dervec[1] = {0.0};
  EXPECT_EQ(zes1dpd(1.0, 0.5, 0.0, 0.0, &huge, dervec), -9);
  EXPECT_TRUE(is_miss(huge));
}

// ---- Whole series ------------------------------------------------------------

// x = 1, 2, 3, 4 with w = 0.5 from the last observation, by hand:
// backward 4 -> 4 -> 3.5 -> 2.75 -> 1.875; forward predictions 1.875,
// 1.4375, 1.71875, 2.359375 and end level 3.1796875.
TEST(Es1Smooth, MatchesHandWorkedPasses) {
  Series s({1, 2, 3, 4});
  double level = 4.0, mse = 0.0;
  double smoothed[4];
  double rows[16];
  ASSERT_EQ(zes1smo(s.data(), s.mis(), 4.0, 4, 0.5, &level, &mse, smoothed, rows), 0);
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

TEST(Es1Smooth, EdgeResults) {
  struct Case {
    const char* what;
    std::vector<double> x;
    double w, start;
    int rc;
    double mse;  // NaN: not checked
  };
  const Case cases[] = {
      {"constant series from its own value", {3, 3, 3, 3}, 0.4, 3.0, 0, 0.0},
      {"every observation missing", {NAN, NAN, NAN}, 0.4, 1.0, -2, NAN},
      {"weight beyond the state limit", {1, 2}, 2e152, 2.0, -9, NAN},
      {"squares past the limit of their sum", {-1e154, -1e154}, 0.001, 0.0, -9, NAN},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    Series s(c.x);
    double level = c.start, mse = 0.0;
    EXPECT_EQ(zes1smo(s.data(), s.mis(), 3.0, s.n(), c.w, &level, &mse, nullptr, nullptr), c.rc);
    if (!std::isnan(c.mse)) {
      EXPECT_EQ(mse, c.mse);
    }
  }
  double level = 1.0, mse = 0.0;
  EXPECT_EQ(zes1smo(nullptr, nullptr, 1.0, 0, 0.5, &level, &mse, nullptr, nullptr), -2);
}

// ---- Prediction pass ---------------------------------------------------------

TEST(Es1Predict, RowsLimitsAndForecasts) {
  const std::vector<double> v = {10, 12, NAN, 11, 15, 14};
  Series s(v);
  const double w = 0.25, se2 = 4.0, start_level = 11.0;
  const long lead = 3;
  std::vector<double> rows(7 * (6 + lead), 0.0);
  double level = start_level, mse = 0.0;
  ASSERT_EQ(zes1prd(s.data(), s.mis(), 15.0, 6, w, &level, 0, 5, lead, se2, 0.05, 1, &mse, rows.data()), 0);
  const double z = zprobit(0.975);
  double l = start_level, sse = 0.0;
  long used = 0;
  for (int t = 0; t < 6; ++t) {
    SCOPED_TRACE(t);
    const double* r = &rows[7 * t];
    EXPECT_EQ(r[1], l);
    EXPECT_EQ(r[2], l + z * 2.0);
    EXPECT_EQ(r[3], l - z * 2.0);
    EXPECT_EQ(r[5], 2.0);
    if (std::isnan(v[t])) {
      EXPECT_TRUE(is_miss(r[0]));
      EXPECT_TRUE(is_miss(r[4]));
    } else {
      EXPECT_EQ(r[0], v[t]);
      EXPECT_EQ(r[4], l - v[t]);
      sse += (l - v[t]) * (l - v[t]);
      ++used;
      l = v[t] * w + l * (1.0 - w);
    }
    EXPECT_EQ(r[6], l);
  }
  EXPECT_EQ(level, l);
  EXPECT_EQ(mse, sse / (used - 1));
  for (long k = 1; k <= lead; ++k) {
    SCOPED_TRACE(k);
    const double* r = &rows[7 * (5 + k)];
    const double sd = std::sqrt(1.0 + (k - 1) * w * w) * 2.0;
    EXPECT_TRUE(is_miss(r[0]));
    EXPECT_EQ(r[1], l);  // flat at the last level
    EXPECT_NEAR(r[5], sd, 1e-15 * sd);
    EXPECT_NEAR(r[2] - r[1], z * sd, 1e-13);
    EXPECT_NEAR(r[1] - r[3], z * sd, 1e-13);
    double limit = 0.0;  // the exported variance routine agrees with the rows
    EXPECT_NEAR(zes1cla(w, se2, k, 0.05, &limit), sd * sd, 1e-13);
    EXPECT_NEAR(limit, z * sd, 1e-13);
    EXPECT_TRUE(is_miss(r[4]));
    EXPECT_EQ(r[6], l);
  }
}

TEST(Es1Predict, MissingVarianceUsesThePassForForecastsOnly) {
  Series s({3, 5, 4, 6});
  std::vector<double> rows(7 * 6);
  double level = 6.0, mse = 0.0;
  ASSERT_EQ(zes1prd(s.data(), s.mis(), 6.0, 4, 0.5, &level, 0, 3, 2, kMiss, 0.05, 0, &mse, rows.data()), 0);
  for (int t = 0; t < 4; ++t) {
    EXPECT_EQ(rows[7 * t + 5], 0.0);           // std of the observed rows
    EXPECT_TRUE(std::isnan(rows[7 * t + 2]));  // the limits carry the missing value
  }
  EXPECT_NEAR(rows[7 * 4 + 5], std::sqrt(mse), 1e-15);
  EXPECT_NEAR(rows[7 * 5 + 5], std::sqrt(1.25 * mse), 1e-15);
}

TEST(Es1Predict, BackcastRunsOnlyWithoutGivenStart) {
  const std::vector<double> v = {3, 8, 5, 6, 9};
  Series s(v);
  double from_svi = 9.0, given = 9.0, mse = 0.0;
  std::vector<double> rows(7 * 5);
  ASSERT_EQ(zes1prd(s.data(), s.mis(), 9.0, 5, 0.3, &from_svi, 0, 4, 0, 1.0, 0.05, 0, &mse, rows.data()), 0);
  double time0 = 0.0;
  smooth_test::ses_backcast_mse(v, 0.3, 9.0, &time0);
  EXPECT_NEAR(rows[1], time0, 1e-13);
  ASSERT_EQ(zes1prd(s.data(), s.mis(), 9.0, 5, 0.3, &given, 0, 4, 0, 1.0, 0.05, 1, &mse, rows.data()), 0);
  EXPECT_EQ(rows[1], 9.0);
}

TEST(Es1Predict, SingleObservationKeepsThePlainSum) {
  Series s({NAN, 4});
  double level = 6.0, mse = 0.0;
  ASSERT_EQ(zes1prd(s.data(), s.mis(), 6.0, 2, 0.5, &level, 0, 1, 0, 1.0, 0.05, 1, &mse, nullptr), 0);
  EXPECT_EQ(mse, 4.0);  // one observation, error 2: no division
  Series none({NAN, NAN});
  EXPECT_EQ(zes1prd(none.data(), none.mis(), 1.0, 2, 0.5, &level, 0, 1, 0, 1.0, 0.05, 1, &mse, nullptr), -2);
}

// ---- Standard errors ----------------------------------------------------------

TEST(Es1StdErr, FromTheSweptDiagonal) {
  double xpxdiag[1] = {-0.02};
  double parms[1] = {0.3};
  double se = 0.0, t = 0.0;
  ASSERT_EQ(zes1std(xpxdiag, 8.0, 10, parms, &se, &t), 0);
  EXPECT_EQ(se, std::sqrt(0.02 * 8.0));
  EXPECT_EQ(t, 0.3 / se);
  ASSERT_EQ(zes1std(xpxdiag, 8.0, 1, parms, &se, &t), 0);
  EXPECT_TRUE(is_miss(se));
  EXPECT_TRUE(is_miss(t));

  // A zero standard error: the guarded division gives the host's overflow.
  smooth_test::connect_module();
  double zero[1] = {0.0};
  ASSERT_EQ(zes1std(zero, 8.0, 10, parms, &se, &t), 0);
  EXPECT_EQ(se, 0.0);
  EXPECT_EQ(t, esf::host::gcb()->posovfl);
  double negative[1] = {-0.3};
  ASSERT_EQ(zes1std(zero, 8.0, 10, negative, &se, &t), 0);
  EXPECT_EQ(t, esf::host::gcb()->negovfl);
}

}  // namespace
