// Damped-trend exponential smoothing: the kernel against an independent
// damped-trend loop, the flattening forecasts and their variance, analytic
// against numeric derivatives, the stability test, the estimation with the
// three-weight step, the forecast table and the methods.
#include <gtest/gtest.h>

#include <unistd.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "module/host_api.h"
#include "numeric/numeric.h"
#include "smoothing/es2subs.h"
#include "smoothing/es3fit.h"
#include "smoothing/es3subs.h"
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

void expect_rel(double got, double want, double rel, const char* what) {
  EXPECT_NEAR(got, want, rel * std::fabs(want) + 1e-300) << what;
}

struct Weights {
  double a, g, phi;
};

class Es3Kernel : public ::testing::Test {
 protected:
  void SetUp() override { smooth_test::connect_module(); }
};

TEST_F(Es3Kernel, PredictionPassAgreesWithTheDampedTrendMethod) {
  // The textbook form: prediction l + phi b,
  //   l' = a x + (1 - a)(l + phi b),  b' = g (l' - l) + (1 - g) phi b.
  const Weights cases[] = {{0.3, 0.1, 0.95}, {0.8, 0.4, 0.9}, {0.05, 0.6, 0.99}, {0.5, 0.2, 1.0}};
  for (const char* name : kExamples) {
    std::vector<double> x = example_series(name);
    const long n = static_cast<long>(x.size());
    std::vector<char> mis(n, 0);
    for (const Weights& w : cases) {
      SCOPED_TRACE(testing::Message() << name << " " << w.a << " " << w.g << " " << w.phi);
      double l = x[0], b = x[1] - x[0];
      double level = l, trend = b, mse = 0;
      std::vector<double> rows(8 * n);
      ASSERT_EQ(zes3prd(x.data(), mis.data(), 1e9, n, w.a, w.g, w.phi, &level, &trend, 0, n - 1, 0,
                        1.0, 0.05, 1, &mse, rows.data()),
                0);
      double sse = 0;
      for (long t = 0; t < n; ++t) {
        const double pred = l + w.phi * b;
        const double nl = w.a * x[t] + (1.0 - w.a) * (l + w.phi * b);
        b = w.g * (nl - l) + (1.0 - w.g) * w.phi * b;
        l = nl;
        EXPECT_NEAR(rows[8 * t + 1], pred, 1e-12 * std::fabs(pred)) << t;
        EXPECT_NEAR(rows[8 * t + 6], l, 1e-12 * std::fabs(l)) << t;
        EXPECT_NEAR(rows[8 * t + 7], b, 1e-11 * (std::fabs(b) + std::fabs(l))) << t;
        sse += (pred - x[t]) * (pred - x[t]);
      }
      expect_rel(mse, sse / (n - 3), 1e-9, "mse divides by nobs - 3");
    }
  }
}

TEST_F(Es3Kernel, WithoutDampingTheModelIsLinearSmoothing) {
  std::vector<double> x = example_series("UKgas.csv");
  const long n = static_cast<long>(x.size());
  std::vector<char> mis(n, 0);
  double l3 = 0, b3 = 0;
  ASSERT_EQ(zes3svi(x.data(), mis.data(), n, 1, &l3, &b3), 0);
  double l2 = l3, b2 = b3, m2 = 0, m3 = 0;
  ASSERT_EQ(zes3smo(x.data(), mis.data(), 1e9, n, 0.2, 0.3, 1.0, &l3, &b3, &m3, nullptr, nullptr), 0);
  ASSERT_EQ(zes2smo(x.data(), mis.data(), 1e9, n, 0.2, 0.3, &l2, &b2, &m2, nullptr, nullptr), 0);
  expect_rel(m3, m2, 1e-12, "mse");
  // Undamped forecasts lie on a straight line, with the linear variances.
  const long lead = 8;
  std::vector<double> rows(8 * (n + lead));
  double level = 300, trend = 2, mse = 0;
  ASSERT_EQ(zes3prd(x.data(), mis.data(), 1e9, n, 0.2, 0.3, 1.0, &level, &trend, 0, n - 1, lead, 5.0,
                    0.05, 1, &mse, rows.data()),
            0);
  for (long k = 1; k <= lead; ++k) {
    const double* r = &rows[8 * (n + k - 1)];
    expect_rel(r[1], level + k * trend, 1e-13, "straight line");
    EXPECT_EQ(r[7], trend);
    expect_rel(r[5] * r[5], zes2cla(0.2, 0.3, 5.0, k, 0.05, nullptr), 1e-13, "variance");
  }
}

TEST_F(Es3Kernel, DampedForecastsFlattenAsTheLeadGrows) {
  std::vector<double> x = example_series("AirPassengers.csv");
  const long n = static_cast<long>(x.size());
  std::vector<char> mis(n, 0);
  const double phi = 0.9;
  const long lead = 200;
  double level = 0, trend = 0, mse = 0;
  ASSERT_EQ(zes3svi(x.data(), mis.data(), n, 1, &level, &trend), 0);
  std::vector<double> rows(8 * (n + lead));
  ASSERT_EQ(zes3prd(x.data(), mis.data(), 1e9, n, 0.5, 0.3, phi, &level, &trend, 0, n - 1, lead,
                    kMiss, 0.05, 0, &mse, rows.data()),
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
  EXPECT_FALSE(is_miss(rows[8 * n + 5]));  // missing se2: the pass's mse is the base
  EXPECT_EQ(level, rows[8 * (n - 1) + 6]);  // the state stays at the end of the range
}

TEST_F(Es3Kernel, VarianceIsTheSumOfSquaredPsiWeights) {
  const Weights cases[] = {{0.3, 0.1, 0.95}, {0.7, 0.5, 0.0}, {0.2, 0.4, 1.0}, {0.9, 0.9, 0.8}};
  for (const Weights& w : cases) {
    SCOPED_TRACE(testing::Message() << w.a << " " << w.g << " " << w.phi);
    std::vector<double> psi(25);
    ASSERT_EQ(zes3psi(w.a, w.g, w.phi, 25, psi.data()), 0);
    EXPECT_EQ(psi[0], 1.0);
    expect_rel(psi[1], w.a * (1.0 + w.phi * w.g), 1e-14, "psi(1)");
    double sum = 0;
    for (long lead = 1; lead <= 25; ++lead) {
      sum += psi[lead - 1] * psi[lead - 1];
      double limit = 0;
      const double var = zes3cla(w.a, w.g, w.phi, 2.0, lead, 0.05, &limit);
      expect_rel(var, 2.0 * sum, 1e-13, "var");
      expect_rel(limit, zprobit(0.975) * std::sqrt(var), 1e-14, "limit");
    }
  }
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
      EXPECT_EQ(zes3prd(const_cast<double*>(series.data()), mis.data(), 1e9, n, w.a, w.g, w.phi,
                        &level, &trend, 0, n - 1, lead, 1.0, 0.05, 1, &mse, rows.data()),
                0);
      return rows;
    };
    const std::vector<double> base = forecasts(x);
    std::vector<double> bumped = x;
    bumped.back() += 1.0;
    const std::vector<double> moved = forecasts(bumped);
    std::vector<double> psi(lead + 1);
    zes3psi(w.a, w.g, w.phi, lead + 1, psi.data());
    for (long k = 1; k <= lead; ++k) {
      EXPECT_NEAR(moved[8 * (n + k - 1) + 1] - base[8 * (n + k - 1) + 1], psi[k], 1e-8) << k;
    }
  }
}

TEST_F(Es3Kernel, SideBySidePassesMatchOneAtATime) {
  // The grid's side-by-side passes give every triple the bits of zes3smo,
  // including the triples whose guards trip.
  std::vector<double> x = example_series("USAccDeaths.csv");
  std::vector<char> mis(x.size(), 0);
  for (std::size_t t = 2; t < x.size(); t += 13) {
    x[t] = kMiss;
    mis[t] = 1;
  }
  const long n = static_cast<long>(x.size());
  std::vector<double> w;
  for (double a : {0.05, 0.5, 0.99, 1.9, 25.0}) {
    for (double g : {0.01, 0.4, 2.5}) {
      for (double phi : {0.0, 0.8, 0.98, 1.0, 1.6}) w.insert(w.end(), {a, g, phi});
    }
  }
  for (double xscale : {1e9, 1100.0, 900.0}) {
    const auto [ok, failed] = trend_test::compare_side_by_side(
        w, 3,
        [&](const double* v, double* mse) {
          double l = 9000.0, b = 8.0;
          return zes3smo(x.data(), mis.data(), xscale, n, v[0], v[1], v[2], &l, &b, mse, nullptr,
                         nullptr);
        },
        [&](const double* v, int count, int* rc, double* mse) {
          es3::smooth_many(x.data(), mis.data(), xscale, n, v, count, 9000.0, 8.0, rc, mse);
        });
    EXPECT_GT(ok, 0);
    EXPECT_GT(failed, 0);
  }
}

void analytic_gradient(const std::vector<double>& x, const Weights& w, double l, double b,
                       double grad[3]) {
  double dl[3] = {}, dt[3] = {}, dv[3], xhat, e, s[3] = {};
  const long n = static_cast<long>(x.size());
  for (long t = n - 1; t >= 0; --t) {
    const double ll = l, lt = b;
    ASSERT_EQ(zes3pnt(x[t], 1e9, w.a, w.g, w.phi, &l, &b, &xhat, &e), 0);
    ASSERT_EQ(zes3dpd(x[t], w.a, w.g, w.phi, ll, l, lt, b, dl, dt, dv), 0);
  }
  // The reversal: one more damped step back, trend turned forward; the
  // derivatives follow it (d(phi b)/d phi = b + phi db/d phi).
  for (int i = 0; i < 3; ++i) dl[i] += w.phi * dt[i] + (i == 2 ? b : 0.0);
  for (int i = 0; i < 3; ++i) dt[i] = -(w.phi * dt[i] + (i == 2 ? b : 0.0));
  l += w.phi * b;
  b = -(w.phi * b);
  for (long t = 0; t < n; ++t) {
    const double ll = l, lt = b;
    ASSERT_EQ(zes3pnt(x[t], 1e9, w.a, w.g, w.phi, &l, &b, &xhat, &e), 0);
    ASSERT_EQ(zes3dpd(x[t], w.a, w.g, w.phi, ll, l, lt, b, dl, dt, dv), 0);
    for (int i = 0; i < 3; ++i) s[i] += dv[i] * e;
  }
  for (int i = 0; i < 3; ++i) grad[i] = 2.0 * s[i] / n;
}

TEST_F(Es3Kernel, AnalyticDerivativesAgreeWithNumericOnes) {
  for (const char* name : kExamples) {
    std::vector<double> x = example_series(name);
    const long n = static_cast<long>(x.size());
    std::vector<char> mis(n, 0);
    double l = 0, b = 0;
    ASSERT_EQ(zes3svi(x.data(), mis.data(), n, 1, &l, &b), 0);
    for (const Weights& w : {Weights{0.3, 0.1, 0.95}, Weights{0.6, 0.3, 0.9}, Weights{0.1, 0.5, 0.98}}) {
      SCOPED_TRACE(testing::Message() << name << " " << w.a << " " << w.g << " " << w.phi);
      double grad[3];
      analytic_gradient(x, w, l, b, grad);
      double deltas[3] = {1e-6, 1e-6, 1e-6}, num[3];
      ASSERT_EQ(zes3npd(x.data(), mis.data(), 1e9, n, w.a, w.g, w.phi, l, b, deltas, 1, num), 0);
      for (int i = 0; i < 3; ++i) EXPECT_NEAR(num[i], grad[i], 1e-6 * std::fabs(grad[i])) << i;
      ASSERT_EQ(zes3npd(x.data(), mis.data(), 1e9, n, w.a, w.g, w.phi, l, b, deltas, 0, num), 0);
      for (int i = 0; i < 3; ++i) EXPECT_NEAR(num[i], grad[i], 1e-6 * std::fabs(grad[i])) << i;
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
  EXPECT_EQ(zes3stb(0.5, 0.5, 0.9), 1);   // complex pair, squared modulus 0.45
  EXPECT_EQ(zes3stb(0.0, 0.5, 1.5), 0);   // real roots 1.5 and 1
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

TEST_F(Es3Kernel, MissingObservationsKeepMovingTheLevelByAShrinkingTrend) {
  std::vector<double> x = {10, 12, kMiss, kMiss, 18, 20};
  std::vector<char> mis = {0, 0, 1, 1, 0, 0};
  const double phi = 0.8;
  double level = 22, trend = -2, mse = 0;
  std::vector<double> rows(5 * 6);
  ASSERT_EQ(zes3smo(x.data(), mis.data(), 100, 6, 0.5, 0.5, phi, &level, &trend, &mse, nullptr, rows.data()), 0);
  for (int t : {2, 3}) {
    const double* prev = &rows[5 * (t - 1)];
    const double* gap = &rows[5 * t];
    EXPECT_TRUE(is_miss(gap[2]));
    EXPECT_EQ(gap[4], phi * prev[4]);
    EXPECT_EQ(gap[3], prev[3] + gap[4]);
    EXPECT_EQ(gap[1], gap[3]);
  }
  double sse = 0;
  for (int t : {0, 1, 4, 5}) sse += rows[5 * t + 2] * rows[5 * t + 2];
  EXPECT_DOUBLE_EQ(mse, sse / 4);
}

TEST_F(Es3Kernel, SmallCountsKeepThePlainSumOfSquares) {
  std::vector<double> x = {10, kMiss, 14, 15};
  std::vector<char> mis = {0, 1, 0, 0};
  double level = 8, trend = 2, mse = 0;
  std::vector<double> rows(8 * 4);
  ASSERT_EQ(zes3prd(x.data(), mis.data(), 100, 4, 0.5, 0.5, 0.9, &level, &trend, 0, 3, 0, 1.0, 0.05,
                    1, &mse, rows.data()),
            0);
  EXPECT_DOUBLE_EQ(mse, rows[4] * rows[4] + rows[20] * rows[20] + rows[28] * rows[28]);
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

TEST_F(Es3Kernel, StartValues) {
  std::vector<double> x = {2, 4, 6, kMiss};
  std::vector<char> mis = {0, 0, 0, 1};
  double l, b;
  ASSERT_EQ(zes3svi(x.data(), mis.data(), 4, 1, &l, &b), 0);
  EXPECT_EQ(l, 6.0);
  EXPECT_NEAR(b, -2.0, 1e-12);
  std::vector<char> only_first = {0, 1, 1, 1};
  EXPECT_EQ(zes3svi(x.data(), only_first.data(), 4, 1, &l, &b), -2);
}

// ---- Estimation -------------------------------------------------------------

class Es3Fit : public ::testing::Test {
 protected:
  void SetUp() override { smooth_test::connect_module(); }
  static void start(WINMODEL* m) {
    ASSERT_EQ(zes3svi(m->ts.x, m->ts.misflg, m->ts.nobs, 1, &m->svi.level, &m->svi.trend), 0);
  }
  static double mse_at(WINMODEL* m, double a, double g, double phi) {
    double l = m->svi.level, b = m->svi.trend, mse = 0;
    const int rc = zes3smo(m->ts.x, m->ts.misflg, m->ts.descstats.norm, m->ts.nobs, a, g, phi, &l, &b,
                           &mse, nullptr, nullptr);
    return rc == 0 ? mse : HUGE_VAL;
  }
};

TEST_F(Es3Fit, EstimatesImproveOnTheGridAndStayInTheBox) {
  const double grid[20][3] = {
      {0.1, 0.01, 0.99}, {0.1, 0.05, 0.99}, {0.2, 0.01, 0.99}, {0.1, 0.1, 0.98},  {0.2, 0.05, 0.98},
      {0.3, 0.01, 0.98}, {0.1, 0.15, 0.98}, {0.2, 0.1, 0.98},  {0.3, 0.05, 0.98}, {0.4, 0.01, 0.98},
      {0.1, 0.25, 0.97}, {0.2, 0.15, 0.97}, {0.3, 0.1, 0.97},  {0.4, 0.05, 0.97}, {0.5, 0.01, 0.97},
      {0.1, 0.9, 0.9},   {0.4, 0.6, 0.9},   {0.6, 0.4, 0.9},   {0.9, 0.1, 0.9},   {0.9, 0.9, 0.8}};
  for (const char* name : kExamples) {
    SCOPED_TRACE(name);
    Model m(example_series(name), 3);
    start(m.get());
    const int rc = nes3fit(m.get());
    ASSERT_TRUE(rc == 0 || rc == 90) << rc;
    const double a = m->pest.parms[0], g = m->pest.parms[1], phi = m->pest.parms[2];
    EXPECT_GE(a, 0.001);
    EXPECT_LE(a, 0.999);
    EXPECT_GE(g, 0.001);
    EXPECT_LE(g, 0.999);
    EXPECT_GE(phi, 0.9);
    EXPECT_LE(phi, 0.999);
    EXPECT_EQ(zes3stb(a, g, phi), 1);
    const double best = mse_at(m.get(), a, g, phi);
    const long n = m->ts.nobs;
    expect_rel(m->pest.mse, (static_cast<double>(n) / (n - 3)) * best, 1e-9, "error variance");
    for (const auto& row : grid) {
      if (!zes3stb(row[0], row[1], row[2])) continue;
      EXPECT_GE(mse_at(m.get(), row[0], row[1], row[2]), best * (1.0 - 1e-9));
    }
  }
}

TEST_F(Es3Fit, ConvergedEstimatesAreALocalMinimumInTheBox) {
  Model m(example_series("UKgas.csv"), 3);
  start(m.get());
  ASSERT_EQ(nes3fit(m.get()), 0);
  const double w[3] = {m->pest.parms[0], m->pest.parms[1], m->pest.parms[2]};
  const double lo[3] = {0.001, 0.001, 0.9}, hi[3] = {0.999, 0.999, 0.999};
  const double best = mse_at(m.get(), w[0], w[1], w[2]);
  for (int i = 0; i < 3; ++i) {
    for (double d : {-1e-3, 1e-3}) {
      double v[3] = {w[0], w[1], w[2]};
      v[i] = std::fmin(hi[i], std::fmax(lo[i], v[i] + d));
      EXPECT_GE(mse_at(m.get(), v[0], v[1], v[2]), best * (1.0 - 1e-8)) << i << " " << d;
    }
  }
  for (int i = 0; i < 3; ++i) EXPECT_FALSE(is_miss(m->pest.stderr[i]));
}

TEST_F(Es3Fit, ThreeFixedWeightsEndAtTheGridPoint) {
  Model m(example_series("AirPassengers.csv"), 3);
  start(m.get());
  m.level_bounds(0.3, 0.3);
  m->wbnds.wtrend[0] = m->wbnds.wtrend[1] = 0.1;
  m->wbnds.wdamp[0] = m->wbnds.wdamp[1] = 0.95;
  m->wbnds.wtreflg = m->wbnds.wdamflg = 1;
  EXPECT_EQ(nes3fit(m.get()), 0);
  EXPECT_EQ(m->pest.parms[0], 0.3);
  EXPECT_EQ(m->pest.parms[1], 0.1);
  EXPECT_EQ(m->pest.parms[2], 0.95);
}

TEST_F(Es3Fit, ThreeObservationsLeaveTheMeanSquareAndNoStandardErrors) {
  Model m({5.0, 6.0, std::nan(""), 8.5}, 3);
  start(m.get());
  ASSERT_GE(nes3fit(m.get()), 0);
  const double mse = mse_at(m.get(), m->pest.parms[0], m->pest.parms[1], m->pest.parms[2]);
  expect_rel(m->pest.mse, mse, 1e-12, "no correction");
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(is_miss(m->pest.stderr[i]));
}

TEST_F(Es3Fit, NoUsableGridRowIsNoStart) {
  Model m(example_series("AirPassengers.csv"), 3);
  start(m.get());
  m->ts.descstats.norm = 1e-6;  // every prediction passes 10000 * xscale
  EXPECT_EQ(nes3fit(m.get()), -8);
}

// ---- Forecast table and methods -------------------------------------------------

TEST(Es3Methods, AFitFeedsAForecastThroughTheLists) {
  const std::vector<double> x = example_series("UKgas.csv");
  const trend_test::MethodRun run =
      trend_test::run_methods(mes3fit, mes3for, x, "QTR", method_test::date(1960, 1, 1), 0.1, 8);
  EXPECT_EQ(run.fit_rc, 0.0);
  EXPECT_EQ(run.forecast_rc, 0.0);
  EXPECT_EQ(run.weight_names, (std::vector<std::string>{"LEVEL", "TREND", "DAMPING"}));
  EXPECT_EQ(run.labels.back(), "DAMPING Smoothing Weight");
  EXPECT_EQ(run.nparms, 3.0);
  EXPECT_TRUE(run.pool_balanced);
  const smooth_test::Table& t = run.table;
  ASSERT_EQ(t.rows.size(), x.size() + 8);
  EXPECT_EQ(t.names, (std::vector<std::string>{"DATE", "ACTUAL", "FORECAST", "U90", "L90", "RESIDUAL",
                                                "STD", "LEVEL", "TREND"}));
  // Each forecast row damps the trend once more.
  const double phi = run.weights[2];
  for (std::size_t k = x.size() + 1; k < t.rows.size(); ++k) {
    EXPECT_NEAR(t.rows[k][8], phi * t.rows[k - 1][8], 1e-4 + 1e-6 * std::fabs(t.rows[k][8]));
  }
}

}  // namespace
