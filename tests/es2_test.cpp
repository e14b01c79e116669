// Linear exponential smoothing: the kernel against an independent Holt loop
// and the closed form of its forecast variance, analytic against numeric
// derivatives, the stability region, the estimation, the forecast table and
// the two methods through the host's lists.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include <unistd.h>

#include "module/host_api.h"
#include "numeric/numeric.h"
#include "smoothing/es2fit.h"
#include "smoothing/es2subs.h"
#include "support/method_session.h"
#include "support/smooth_model.h"
#include "support/trend_session.h"

namespace {

namespace fs = std::filesystem;
using smooth_test::example_series;
using smooth_test::Model;

const double kMiss = esf::kMissing;
bool is_miss(double d) { return wzmis(d) != 0; }

const char* const kExamples[] = {"AirPassengers.csv", "UKgas.csv", "USAccDeaths.csv"};

// Holt's linear method written in its textbook form, independently of the
// kernel: from level l and trend b before observation 0,
//   prediction l + b,  l' = a x + (1 - a)(l + b),  b' = g (l' - l) + (1 - g) b.
struct Holt {
  std::vector<double> pred, level, trend;
};
Holt holt(const std::vector<double>& x, double a, double g, double l, double b) {
  Holt h;
  for (double v : x) {
    h.pred.push_back(l + b);
    const double nl = a * v + (1.0 - a) * (l + b);
    b = g * (nl - l) + (1.0 - g) * b;
    l = nl;
    h.level.push_back(l);
    h.trend.push_back(b);
  }
  return h;
}

// The standard closed form of the h-step variance factor of Holt's method:
// 1 + sum_{j=1}^{h-1} (a + j a g)^2.
double holt_variance_factor(double a, double g, long h) {
  const double m = static_cast<double>(h - 1);
  return 1.0 + m * a * a + a * a * g * m * (m + 1.0) + a * a * g * g * m * (m + 1.0) * (2.0 * m + 1.0) / 6.0;
}

void expect_rel(double got, double want, double rel, const char* what) {
  EXPECT_NEAR(got, want, rel * std::fabs(want) + 1e-300) << what;
}

class Es2Kernel : public ::testing::Test {
 protected:
  void SetUp() override { smooth_test::connect_module(); }
};

TEST_F(Es2Kernel, PredictionPassAgreesWithHoltsMethod) {
  struct Case {
    const char* series;
    double a, g;
  } const cases[] = {
      {"AirPassengers.csv", 0.3, 0.1},
      {"UKgas.csv", 0.05, 0.6},
      {"USAccDeaths.csv", 0.9, 0.02},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.series);
    std::vector<double> x = example_series(c.series);
    const long n = static_cast<long>(x.size());
    std::vector<char> mis(n, 0);
    const double l0 = x[0], b0 = x[1] - x[0];
    double level = l0, trend = b0, mse = 0;
    std::vector<double> rows(8 * (n + 12));
    ASSERT_EQ(zes2prd(x.data(), mis.data(), 1e6, n, c.a, c.g, &level, &trend, 0, n - 1, 12, 4.0,
                      0.05, 1, &mse, rows.data()),
              0);
    const Holt h = holt(x, c.a, c.g, l0, b0);
    double sse = 0;
    for (long t = 0; t < n; ++t) {
      const double* r = &rows[8 * t];
      expect_rel(r[1], h.pred[t], 1e-12, "prediction");
      expect_rel(r[4], h.pred[t] - x[t], 1e-9, "error");
      expect_rel(r[6], h.level[t], 1e-12, "level");
      EXPECT_NEAR(r[7], h.trend[t], 1e-12 * (std::fabs(h.trend[t]) + std::fabs(h.level[t])));
      sse += (h.pred[t] - x[t]) * (h.pred[t] - x[t]);
    }
    expect_rel(mse, sse / (n - 2), 1e-10, "mse divides by nobs - 2");
    expect_rel(level, h.level.back(), 1e-12, "end level");
  }
}

TEST_F(Es2Kernel, BackcastRunsHoltsMethodBackwardThenTurns) {
  std::vector<double> x = example_series("AirPassengers.csv");
  const long n = static_cast<long>(x.size());
  std::vector<char> mis(n, 0);
  const double a = 0.4, g = 0.2;
  double l = 0, b = 0;
  ASSERT_EQ(zes2svi(x.data(), mis.data(), n, 1, &l, &b), 0);
  // Backward in time from the start values, then one step forward.
  std::vector<double> reversed(x.rbegin(), x.rend());
  const Holt back = holt(reversed, a, g, l, b);
  const double l0 = back.level.back() + back.trend.back();
  const double b0 = -back.trend.back();
  const Holt fwd = holt(x, a, g, l0, b0);
  double sse = 0;
  for (long t = 0; t < n; ++t) sse += (fwd.pred[t] - x[t]) * (fwd.pred[t] - x[t]);
  double level = l, trend = b, mse = 0;
  std::vector<double> smoothed(n);
  ASSERT_EQ(zes2smo(x.data(), mis.data(), 1e6, n, a, g, &level, &trend, &mse, smoothed.data(), nullptr), 0);
  expect_rel(mse, sse / n, 1e-10, "mse");
  for (long t = 0; t < n; ++t) expect_rel(smoothed[t], fwd.pred[t], 1e-11, "prediction");
  expect_rel(level, fwd.level.back(), 1e-11, "end level");
}

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
      ASSERT_EQ(zes2prd(x.data(), mis.data(), 1e6, n, a, g, &level, &trend, 0, n - 1, lead, se2,
                        0.05, 1, &mse, rows.data()),
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

TEST_F(Es2Kernel, VarianceAtALeadIsTheSumOfSquaredPsiWeights) {
  for (double a : {0.1, 0.7}) {
    for (double g : {0.05, 0.5}) {
      std::vector<double> psi(30);
      ASSERT_EQ(zes2psi(a, g, 30, psi.data()), 0);
      EXPECT_EQ(psi[0], 1.0);
      double sum = 0;
      for (long lead = 1; lead <= 30; ++lead) {
        sum += psi[lead - 1] * psi[lead - 1];
        double limit = 0;
        const double var = zes2cla(a, g, 3.0, lead, 0.1, &limit);
        expect_rel(var, 3.0 * sum, 1e-13, "var");
        expect_rel(limit, zprobit(0.95) * std::sqrt(var), 1e-15, "limit");
      }
    }
  }
}

TEST_F(Es2Kernel, SideBySidePassesMatchOneAtATime) {
  // The grid's side-by-side passes give every pair the bits of zes2smo,
  // including the pairs whose guards trip (wild weights, small xscale).
  std::vector<double> x = example_series("AirPassengers.csv");
  std::vector<char> mis(x.size(), 0);
  for (std::size_t t = 5; t < x.size(); t += 17) {
    x[t] = kMiss;
    mis[t] = 1;
  }
  const long n = static_cast<long>(x.size());
  std::vector<double> w;
  for (double a : {0.01, 0.1, 0.5, 0.9, 0.999, 1.9, 30.0}) {
    for (double g : {0.001, 0.2, 0.9, 3.9, 80.0}) w.insert(w.end(), {a, g});
  }
  for (double xscale : {1e9, 700.0, 450.0}) {
    const auto [ok, failed] = trend_test::compare_side_by_side(
        w, 2,
        [&](const double* v, double* mse) {
          double l = 430.0, b = -2.5;
          return zes2smo(x.data(), mis.data(), xscale, n, v[0], v[1], &l, &b, mse, nullptr, nullptr);
        },
        [&](const double* v, int count, int* rc, double* mse) {
          es2::smooth_many(x.data(), mis.data(), xscale, n, v, count, 430.0, -2.5, rc, mse);
        });
    EXPECT_GT(ok, 0);
    EXPECT_GT(failed, 0);
  }
  int rc[1];
  double mse[1];
  const double one[2] = {0.3, 0.1};
  es2::smooth_many(x.data(), mis.data(), 1e9, 0, one, 1, 0.0, 0.0, rc, mse);
  EXPECT_EQ(rc[0], -2);
  std::vector<char> none(x.size(), 1);
  es2::smooth_many(x.data(), none.data(), 1e9, n, one, 1, 0.0, 0.0, rc, mse);
  EXPECT_EQ(rc[0], -2);
}

// The gradient of the mean squared error by the weights, through the
// kernel's derivative recursions over the backward pass, the turn and the
// forward pass, as the estimation frame runs them.
void analytic_gradient(const std::vector<double>& x, double a, double g, double l, double b,
                       double grad[2]) {
  double dl[2] = {0, 0}, dt[2] = {0, 0}, dv[2];
  double xhat, e, s0 = 0, s1 = 0;
  const long n = static_cast<long>(x.size());
  for (long t = n - 1; t >= 0; --t) {
    const double ll = l, lt = b;
    ASSERT_EQ(zes2pnt(x[t], 1e9, a, g, &l, &b, &xhat, &e), 0);
    ASSERT_EQ(zes2dpd(x[t], a, g, ll, l, lt, b, dl, dt, dv), 0);
  }
  l += b;
  b = -b;
  for (int i = 0; i < 2; ++i) {
    dl[i] += dt[i];
    dt[i] = -dt[i];
  }
  for (long t = 0; t < n; ++t) {
    const double ll = l, lt = b;
    ASSERT_EQ(zes2pnt(x[t], 1e9, a, g, &l, &b, &xhat, &e), 0);
    ASSERT_EQ(zes2dpd(x[t], a, g, ll, l, lt, b, dl, dt, dv), 0);
    s0 += dv[0] * e;
    s1 += dv[1] * e;
  }
  grad[0] = 2.0 * s0 / n;
  grad[1] = 2.0 * s1 / n;
}

TEST_F(Es2Kernel, AnalyticDerivativesAgreeWithNumericOnes) {
  for (const char* name : kExamples) {
    std::vector<double> x = example_series(name);
    const long n = static_cast<long>(x.size());
    std::vector<char> mis(n, 0);
    double l = 0, b = 0;
    ASSERT_EQ(zes2svi(x.data(), mis.data(), n, 1, &l, &b), 0);
    for (const auto& w : {std::pair{0.2, 0.1}, std::pair{0.6, 0.3}, std::pair{0.05, 0.7}}) {
      SCOPED_TRACE(testing::Message() << name << " " << w.first << " " << w.second);
      double grad[2];
      analytic_gradient(x, w.first, w.second, l, b, grad);
      double deltas[2] = {1e-6, 1e-6}, num[2];
      ASSERT_EQ(zes2npd(x.data(), mis.data(), 1e9, n, w.first, w.second, l, b, deltas, 1, num), 0);
      for (int i = 0; i < 2; ++i) EXPECT_NEAR(num[i], grad[i], 1e-6 * std::fabs(grad[i])) << i;
      ASSERT_EQ(zes2npd(x.data(), mis.data(), 1e9, n, w.first, w.second, l, b, deltas, 0, num), 0);
      for (int i = 0; i < 2; ++i) EXPECT_NEAR(num[i], grad[i], 1e-6 * std::fabs(grad[i])) << i;
    }
  }
}

TEST_F(Es2Kernel, StabilityRegion) {
  struct Case {
    double a, g;
    int stable;
  } const cases[] = {
      {0.5, 0.5, 1},   {2.0, 0.0, 0},   {2.0, -1.0, 0}, {1.0, 2.0, 0},  // 4 / 1 - 2 = 2, excluded
      {1.0, 1.999, 1}, {0.0, 0.1, 0},   {0.5, -0.01, 0}, {0.5, 5.99, 1},
      {0.5, 6.0, 0},   {1.9, 0.105, 1}, {1.9, 0.106, 0},  {0.001, 0.0, 1},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(zes2stb(c.a, c.g) != 0, c.stable != 0) << c.a << " " << c.g;
  }
}

TEST_F(Es2Kernel, AStraightSeriesIsFittedWithoutError) {
  std::vector<double> x;
  for (int t = 0; t < 40; ++t) x.push_back(5.0 + 2.0 * t);
  std::vector<char> mis(40, 0);
  double l = 0, b = 0;
  ASSERT_EQ(zes2svi(x.data(), mis.data(), 40, 1, &l, &b), 0);
  EXPECT_EQ(l, x.back());
  EXPECT_NEAR(b, -2.0, 1e-12);
  for (double a : {0.1, 0.9}) {
    SCOPED_TRACE(a);
    // From the state on the line one step beyond the end, the backward pass
    // stays on the line, and so does the forward pass.
    double level = x.back() + 2.0, trend = -2.0, mse = 1;
    ASSERT_EQ(zes2smo(x.data(), mis.data(), 100, 40, a, 0.3, &level, &trend, &mse, nullptr, nullptr), 0);
    EXPECT_LT(mse, 1e-24);
    EXPECT_NEAR(trend, 2.0, 1e-13);
    // From the state before observation 0, every error of the pass is 0.
    level = 3.0;
    trend = 2.0;
    std::vector<double> rows(8 * 40);
    ASSERT_EQ(zes2prd(x.data(), mis.data(), 100, 40, a, 0.3, &level, &trend, 0, 39, 0, 1.0, 0.05,
                      1, &mse, rows.data()),
              0);
    EXPECT_LT(mse, 1e-24);
    for (int t = 0; t < 40; ++t) EXPECT_NEAR(rows[8 * t + 4], 0.0, 1e-12);
  }
}

TEST_F(Es2Kernel, AMissingObservationMovesTheLevelByTheTrend) {
  std::vector<double> x = {10, 12, kMiss, 16, 18};
  std::vector<char> mis = {0, 0, 1, 0, 0};
  double level = 18, trend = -2, mse = 0;
  std::vector<double> rows(25);
  ASSERT_EQ(zes2smo(x.data(), mis.data(), 100, 5, 0.5, 0.5, &level, &trend, &mse, nullptr, rows.data()), 0);
  const double* before = &rows[5];
  const double* gap = &rows[10];
  EXPECT_TRUE(is_miss(gap[2]));
  EXPECT_EQ(gap[3], before[3] + before[4]);  // level moves by the trend
  EXPECT_EQ(gap[1], gap[3]);                 // the prediction is the new level
  EXPECT_EQ(gap[4], before[4]);              // the trend stays
  // Four errors enter the mean.
  double sse = 0;
  for (int t : {0, 1, 3, 4}) sse += rows[5 * t + 2] * rows[5 * t + 2];
  EXPECT_DOUBLE_EQ(mse, sse / 4);
}

TEST_F(Es2Kernel, PredictionPassWithTwoObservationsKeepsThePlainSum) {
  std::vector<double> x = {10, kMiss, 14};
  std::vector<char> mis = {0, 1, 0};
  double level = 8, trend = 2, mse = 0;
  std::vector<double> rows(8 * 3);
  ASSERT_EQ(zes2prd(x.data(), mis.data(), 100, 3, 0.5, 0.5, &level, &trend, 0, 2, 0, 1.0, 0.05, 1,
                    &mse, rows.data()),
            0);
  EXPECT_DOUBLE_EQ(mse, rows[4] * rows[4] + rows[20] * rows[20]);
  EXPECT_TRUE(is_miss(rows[12]));
}

TEST_F(Es2Kernel, StartValues) {
  std::vector<double> x = {1, 3, 5, 7, kMiss};
  std::vector<char> mis = {0, 0, 0, 0, 1};
  double l, b;
  ASSERT_EQ(zes2svi(x.data(), mis.data(), 5, 0, &l, &b), 0);
  EXPECT_EQ(l, 7.0);
  EXPECT_EQ(b, 0.0);
  ASSERT_EQ(zes2svi(x.data(), mis.data(), 5, 1, &l, &b), 0);
  EXPECT_EQ(l, 7.0);
  EXPECT_NEAR(b, -2.0, 1e-12);
  std::vector<char> only_first = {0, 1, 1, 1, 1};
  EXPECT_EQ(zes2svi(x.data(), only_first.data(), 5, 1, &l, &b), -2);
  EXPECT_TRUE(is_miss(l));
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
  EXPECT_EQ(zes2pnt(1, 1.0, 0.5, 0.5, &l, &b, &xhat, &e), 0);   // only the upper side
  double dl[2] = {1e155, 0}, dt[2] = {0, 0}, dv[2];
  EXPECT_EQ(zes2dpd(1, 0.5, 0.5, 0, 0, 0, 0, dl, dt, dv), -9);
  EXPECT_TRUE(is_miss(dt[1]));
  std::vector<double> x = {1, 2};
  std::vector<char> mis = {0, 0};
  double mse;
  EXPECT_EQ(zes2smo(x.data(), mis.data(), 10, 0, 0.5, 0.5, &l, &b, &mse, nullptr, nullptr), -2);
  l = 2;
  b = 0;
  EXPECT_EQ(zes2smo(x.data(), mis.data(), 10, 2, 1e153, 0.5, &l, &b, &mse, nullptr, nullptr), -9);
  std::vector<char> all = {1, 1};
  EXPECT_EQ(zes2smo(x.data(), all.data(), 10, 2, 0.5, 0.5, &l, &b, &mse, nullptr, nullptr), -2);
}

// ---- Estimation -------------------------------------------------------------

class Es2Fit : public ::testing::Test {
 protected:
  void SetUp() override { smooth_test::connect_module(); }
  static void start(WINMODEL* m) {
    ASSERT_EQ(zes2svi(m->ts.x, m->ts.misflg, m->ts.nobs, 1, &m->svi.level, &m->svi.trend), 0);
  }
  static double mse_at(WINMODEL* m, double a, double g) {
    double l = m->svi.level, b = m->svi.trend, mse = 0;
    EXPECT_EQ(zes2smo(m->ts.x, m->ts.misflg, m->ts.descstats.norm, m->ts.nobs, a, g, &l, &b, &mse,
                      nullptr, nullptr),
              0);
    return mse;
  }
};

TEST_F(Es2Fit, EstimatesAreTheBestWeightsNearby) {
  for (const char* name : kExamples) {
    SCOPED_TRACE(name);
    Model m(example_series(name), 2);
    start(m.get());
    const int rc = nes2fit(m.get());
    ASSERT_TRUE(rc == 0 || rc == 90) << rc;
    const double a = m->pest.parms[0], g = m->pest.parms[1];
    ASSERT_GE(a, 0.001);
    ASSERT_LE(a, 0.999);
    ASSERT_GE(g, 0.001);
    ASSERT_LE(g, 0.999);
    const double best = mse_at(m.get(), a, g);
    const long n = m->ts.nobs;
    expect_rel(m->pest.mse, best * n / (n - 2), 1e-9, "error variance");
    // No grid candidate and no feasible neighbour is better.
    for (double da : {-0.002, 0.0, 0.002}) {
      for (double dg : {-0.002, 0.0, 0.002}) {
        const double na = std::fmin(0.999, std::fmax(0.001, a + da));
        const double ng = std::fmin(0.999, std::fmax(0.001, g + dg));
        EXPECT_GE(mse_at(m.get(), na, ng), best * (1.0 - 1e-9)) << na << " " << ng;
      }
    }
    for (int i = 0; i < 2; ++i) EXPECT_FALSE(is_miss(m->pest.stderr[i]));
  }
}

TEST_F(Es2Fit, FixedWeightsAreKept) {
  Model m(example_series("AirPassengers.csv"), 2);
  start(m.get());
  m->wbnds.wlevel[0] = m->wbnds.wlevel[1] = 0.25;
  m->wbnds.wtrend[0] = m->wbnds.wtrend[1] = 0.05;
  m->wbnds.wlevflg = m->wbnds.wtreflg = 1;
  EXPECT_EQ(nes2fit(m.get()), 0);
  EXPECT_EQ(m->pest.parms[0], 0.25);
  EXPECT_EQ(m->pest.parms[1], 0.05);
}

TEST_F(Es2Fit, WeightsStayStableBeyondTheUsualBox) {
  Model m(example_series("UKgas.csv"), 2);
  start(m.get());
  m->wbnds.wlevel[1] = 1.999;
  m->wbnds.wtrend[1] = 3.5;
  const int rc = nes2fit(m.get());
  ASSERT_GE(rc, 0);
  EXPECT_NE(zes2stb(m->pest.parms[0], m->pest.parms[1]), 0);
}

TEST_F(Es2Fit, TwoObservationsLeaveStandardErrorsMissing) {
  Model m({4.0, std::nan(""), 7.0, std::nan("")}, 2);
  start(m.get());
  ASSERT_GE(nes2fit(m.get()), 0);
  EXPECT_TRUE(is_miss(m->pest.stderr[0]));
  EXPECT_TRUE(is_miss(m->pest.tvals[1]));
}

// ---- Forecast table ----------------------------------------------------------

class Es2Forecast : public ::testing::Test {
 protected:
  void SetUp() override {
    smooth_test::connect_module();
    dir_ = fs::temp_directory_path() / ("es2_test_" + std::to_string(::getpid()));
    fs::create_directories(dir_);
    esf::host::assign_libref("ES2", dir_);
  }
  void TearDown() override { fs::remove_all(dir_); }
  fs::path dir_;
};

TEST_F(Es2Forecast, TableHasLevelAndTrendAndLinearForecasts) {
  std::vector<double> x = example_series("AirPassengers.csv");
  Model m(x, 2);
  ASSERT_EQ(zes2svi(m->ts.x, m->ts.misflg, m->ts.nobs, 1, &m->svi.level, &m->svi.trend), 0);
  m->parms.parms[0] = 0.4;
  m->parms.parms[1] = kMiss;  // falls back on the estimate by itself
  m->pest.parms[1] = 0.1;
  m->pest.mse = 900.0;
  m.output("ES2.FC");
  ASSERT_EQ(nes2for(m.get(), 0), 0);
  const smooth_test::Table t = smooth_test::read_table(dir_ / "fc.csv");
  const std::vector<std::string> names = {"DATE", "ACTUAL", "FORECAST", "U95", "L95",
                                          "RESIDUAL", "STD", "LEVEL", "TREND"};
  EXPECT_EQ(t.names, names);
  ASSERT_EQ(t.rows.size(), x.size() + 12);
  const auto& last = t.rows[x.size() - 1];
  for (int k = 1; k <= 12; ++k) {
    const auto& r = t.rows[x.size() + k - 1];
    EXPECT_NEAR(r[2], last[7] + k * last[8], 1e-3);
    EXPECT_TRUE(std::isnan(r[1]));
    EXPECT_NEAR(r[6] * r[6], 900.0 * holt_variance_factor(0.4, 0.1, k), 1e-2 * k);
  }
  // Both weights missing: nothing to forecast with.
  m->pest.parms[1] = kMiss;
  EXPECT_EQ(nes2for(m.get(), 0), -999);
}

// ---- Methods ------------------------------------------------------------------

TEST(Es2Methods, AFitFeedsAForecastThroughTheLists) {
  const trend_test::MethodRun run = trend_test::run_methods(
      mes2fit, mes2for, example_series("AirPassengers.csv"), "MONTH", method_test::date(1949, 1, 1), 0.05, 6);
  EXPECT_EQ(run.fit_rc, 0.0);
  EXPECT_EQ(run.forecast_rc, 0.0);
  EXPECT_EQ(run.weight_names, (std::vector<std::string>{"LEVEL", "TREND"}));
  EXPECT_EQ(run.labels, (std::vector<std::string>{"LEVEL Smoothing Weight", "TREND Smoothing Weight"}));
  EXPECT_EQ(run.nparms, 2.0);
  EXPECT_TRUE(run.trend_in_state);
  EXPECT_TRUE(run.eval_variance);
  EXPECT_TRUE(run.pool_balanced);
  EXPECT_EQ(run.table.rows.size(), 144u + 6u);
  EXPECT_EQ(run.table.column("TREND"), 8);
}

}  // namespace
