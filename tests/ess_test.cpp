// Seasonal exponential smoothing: the kernel against an independent loop,
// the analytic derivatives against central differences, the stability
// region, the centring, the forecast variance against the moving-average
// weights, start values, the estimation, the methods and the command line.
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <numeric>
#include <string>
#include <vector>

#include "host/host.h"
#include "module/host_api.h"
#include "numeric/numeric.h"
#include "regression/regression.h"
#include "smoothing/essfit.h"
#include "smoothing/esssubs.h"
#include "support/method_session.h"
#include "support/smooth_model.h"

namespace {

namespace fs = std::filesystem;
using smooth_test::example_series;

const double kMiss = esf::kMissing;
bool is_miss(double d) { return wzmis(d) != 0; }

#define EXPECT_REL(got, want, rel) EXPECT_NEAR((got), (want), (rel) * std::fabs(want) + 1e-300)

// A series with its flags and season codes: observation t is of season
// (t + first) mod ns.  NaN marks a missing value.
struct Seasonal {
  std::vector<double> x;
  std::vector<char> mis;
  std::vector<int> codes;
  int ns;
  double norm = 0.0;

  Seasonal(const std::vector<double>& values, int nseasons, int first = 0) : ns(nseasons) {
    for (std::size_t t = 0; t < values.size(); ++t) {
      const bool m = std::isnan(values[t]);
      x.push_back(m ? kMiss : values[t]);
      mis.push_back(m ? 1 : 0);
      codes.push_back(static_cast<int>((t + first) % nseasons));
      if (!m) norm = std::fmax(norm, std::fabs(values[t]));
    }
  }
  long n() const { return static_cast<long>(x.size()); }
};

// The textbook additive seasonal recursion without trend, one observation:
// prediction l + s; l' = a (x - s) + (1 - a) l; s' = g (x - l') + (1 - g) s.
struct RefState {
  double level;
  std::vector<double> f;
  void step(double x, double a, double g, int s, double* pred) {
    *pred = level + f[s];
    const double nl = a * (x - f[s]) + (1.0 - a) * level;
    f[s] = g * (x - nl) + (1.0 - g) * f[s];
    level = nl;
  }
};

struct Pair {
  double a, g;
};
const Pair kWeights[] = {{0.3, 0.2}, {0.8, 0.05}, {0.05, 0.9}, {0.5, 0.5}, {0.999, 0.001}};

struct Example {
  const char* file;
  int ns;
};
const Example kExamples[] = {{"UKgas.csv", 4}, {"AirPassengers.csv", 12}, {"USAccDeaths.csv", 12}};

std::vector<double> start_factors(int ns) {
  std::vector<double> f(ns);
  for (int s = 0; s < ns; ++s) f[s] = 3.0 * std::sin(0.7 * s) - 1.0;
  return f;
}

class EssKernel : public ::testing::Test {
 protected:
  void SetUp() override { smooth_test::connect_module(); }
};

TEST_F(EssKernel, PassesAgreeWithTheTextbookRecursion) {
  for (const Example& ex : kExamples) {
    std::vector<double> values = example_series(ex.file);
    values[5] = std::nan("");  // a missing observation inside the series
    values[values.size() - 3] = std::nan("");
    Seasonal ser(values, ex.ns, 1);
    for (const Pair& w : kWeights) {
      SCOPED_TRACE(testing::Message() << ex.file << " " << w.a << " " << w.g);
      const double l0 = 250.0;
      std::vector<double> f = start_factors(ex.ns);
      RefState ref{l0, f};
      double pred = 0.0;
      for (long t = ser.n() - 1; t >= 0; --t) {
        if (!ser.mis[t]) ref.step(ser.x[t], w.a, w.g, ser.codes[t], &pred);
      }
      double level = l0;
      double mse = 0.0;
      std::vector<double> smoothed(ser.n());
      std::vector<double> rows(5 * ser.n());
      ASSERT_EQ(zesssmo(ser.x.data(), ser.mis.data(), ser.norm, ser.n(), ex.ns, w.a, w.g, &level,
                        f.data(), ser.codes.data(), &mse, smoothed.data(), rows.data()),
                0);
      double sse = 0.0;
      long used = 0;
      for (long t = 0; t < ser.n(); ++t) {
        const int s = ser.codes[t];
        if (ser.mis[t]) {
          // No state changes; the prediction is still level plus factor.
          EXPECT_REL(rows[5 * t + 1], ref.level + ref.f[s], 1e-12);
          EXPECT_TRUE(is_miss(rows[5 * t + 2])) << t;
        } else {
          ref.step(ser.x[t], w.a, w.g, s, &pred);
          EXPECT_REL(rows[5 * t + 1], pred, 1e-12) << t;
          EXPECT_REL(rows[5 * t + 2], pred - ser.x[t], 1e-9) << t;
          sse += (pred - ser.x[t]) * (pred - ser.x[t]);
          ++used;
        }
        EXPECT_EQ(smoothed[t], rows[5 * t + 1]);
        EXPECT_REL(rows[5 * t + 3], ref.level, 1e-12) << t;
        EXPECT_REL(rows[5 * t + 4], ref.f[s], 1e-9 * ser.norm) << t;
      }
      EXPECT_REL(mse, sse / used, 1e-10);
      EXPECT_REL(level, ref.level, 1e-12);
      for (int s = 0; s < ex.ns; ++s) EXPECT_NEAR(f[s], ref.f[s], 1e-9 * ser.norm) << s;
    }
  }
}

TEST_F(EssKernel, OneObservationRoutinesMatchTheirFormulas) {
  double f[3] = {1.0, -2.0, 4.0};
  double level = 10.0, xhat = 0.0, e = 0.0;
  ASSERT_EQ(zesspnt(5.0, 100.0, 0.25, 0.5, &level, f, 1, &xhat, &e), 0);
  EXPECT_EQ(xhat, 8.0);
  EXPECT_EQ(e, 3.0);
  EXPECT_EQ(level, 0.25 * 7.0 + 0.75 * 10.0);
  EXPECT_EQ(f[1], 0.5 * (5.0 - level) + 0.5 * -2.0);  // against the new level
  EXPECT_EQ(f[0], 1.0);
  EXPECT_EQ(f[2], 4.0);

  // Only the upper side of the prediction is limited; the failed level and
  // the factor in question become missing.
  double g[2] = {0.0, 5.0};
  level = 996.0;
  EXPECT_EQ(zesspnt(0.0, 0.1, 0.3, 0.3, &level, g, 1, &xhat, &e), -9);
  EXPECT_TRUE(is_miss(level));
  EXPECT_TRUE(is_miss(g[1]));
  EXPECT_EQ(g[0], 0.0);
  level = -1e100;
  EXPECT_EQ(zesspnt(0.0, 0.1, 0.3, 0.3, &level, g + 0, 0, &xhat, &e), 0);
  level = 0.0;
  double h[1] = {2e152};
  EXPECT_EQ(zesspnt(0.0, 1e300, 0.3, 0.3, &level, h, 0, &xhat, &e), -9);

  double derlev[2] = {1e155, 0.0};
  double dersea[2] = {0.0, 0.0};
  double dervec[2] = {0.0, 0.0};
  EXPECT_EQ(zessdpd(1.0, 0.3, 0.3, 1.0, 1.0, 0.0, 0.0, derlev, dersea, dervec), -9);
  EXPECT_TRUE(is_miss(derlev[0]) && is_miss(derlev[1]) && is_miss(dersea[0]) && is_miss(dersea[1]));
}

// The gradient of the mean squared error from the derivative recursions run
// through both passes with the centring between them, as the estimation
// does, against central differences of the whole-series mse.
TEST_F(EssKernel, AnalyticDerivativesAgreeWithNumericOnes) {
  for (const Example& ex : kExamples) {
    Seasonal ser(example_series(ex.file), ex.ns);
    double svi_level = 0.0;
    std::vector<double> svi_f(ex.ns);
    ASSERT_EQ(zesssvi(ser.x.data(), ser.mis.data(), ser.n(), ex.ns, 0, 1, &svi_level, svi_f.data()), 0);
    for (const Pair& w : kWeights) {
      SCOPED_TRACE(testing::Message() << ex.file << " " << w.a << " " << w.g);
      double level = svi_level;
      std::vector<double> f = svi_f;
      std::vector<double> dl(ex.ns, 0.0), ds(ex.ns, 0.0);
      double derlev[2] = {0.0, 0.0};
      double grad[2] = {0.0, 0.0};
      double sse = 0.0;
      auto observe = [&](long t, bool forward) {
        const int s = ser.codes[t];
        const double ll = level, ls = f[s];
        double xhat, e, dervec[2];
        ASSERT_EQ(zesspnt(ser.x[t], ser.norm, w.a, w.g, &level, f.data(), s, &xhat, &e), 0);
        double dersea[2] = {dl[s], ds[s]};
        ASSERT_EQ(zessdpd(ser.x[t], w.a, w.g, ll, level, ls, f[s], derlev, dersea, dervec), 0);
        dl[s] = dersea[0];
        ds[s] = dersea[1];
        if (forward) {
          grad[0] += dervec[0] * e;
          grad[1] += dervec[1] * e;
          sse += e * e;
        }
      };
      for (long t = ser.n() - 1; t >= 0; --t) observe(t, false);
      zessnmd(ex.ns, &level, f.data(), derlev, dl.data(), ds.data());
      for (long t = 0; t < ser.n(); ++t) observe(t, true);

      double deltas[2] = {1e-6, 1e-6};
      double pder[2];
      ASSERT_EQ(zessnpd(ser.x.data(), ser.mis.data(), ser.norm, ser.n(), ex.ns, w.a, w.g, svi_level,
                        svi_f.data(), ser.codes.data(), deltas, 0, pder),
                0);
      const double scale = sse / ser.n();  // derivatives of the mse are of its order
      for (int i = 0; i < 2; ++i) {
        EXPECT_NEAR(2.0 * grad[i] / ser.n(), pder[i], 1e-6 * scale) << "weight " << i;
      }
      // Relative steps give the same derivatives.
      double rel[2];
      ASSERT_EQ(zessnpd(ser.x.data(), ser.mis.data(), ser.norm, ser.n(), ex.ns, w.a, w.g, svi_level,
                        svi_f.data(), ser.codes.data(), deltas, 1, rel),
                0);
      for (int i = 0; i < 2; ++i) EXPECT_NEAR(rel[i], pder[i], 1e-6 * scale) << "weight " << i;
    }
  }
}

TEST_F(EssKernel, NumericDerivativesFailureAndMemory) {
  Seasonal ser(example_series("UKgas.csv"), 4);
  std::vector<double> f(4, 0.0);
  double deltas[2] = {1e-6, 0.0};
  double pder[2];
  // A zero step on the second weight: its entry stays missing and -92.
  EXPECT_EQ(zessnpd(ser.x.data(), ser.mis.data(), ser.norm, ser.n(), 4, 0.3, 0.3, ser.x.back(),
                    f.data(), ser.codes.data(), deltas, 0, pder),
            -92);
  EXPECT_FALSE(is_miss(pder[0]));
  EXPECT_TRUE(is_miss(pder[1]));
  esf::host::pool_fail_after(0);
  deltas[1] = 1e-6;
  EXPECT_EQ(zessnpd(ser.x.data(), ser.mis.data(), ser.norm, ser.n(), 4, 0.3, 0.3, ser.x.back(),
                    f.data(), ser.codes.data(), deltas, 0, pder),
            -100);
  esf::host::pool_fail_after(-1);
  xmemdef();
  EXPECT_EQ(f, std::vector<double>(4, 0.0));  // the factors handed in stay as they were
}

TEST_F(EssKernel, StabilityRegion) {
  struct Case {
    int ns;
    double a, g;
    int stable;
  };
  const Case cases[] = {
      {12, 0.3, 0.2, 1},    {12, 0.3, 0.0, 0},   // d = 0
      {12, 1.0, 0.5, 0},    {4, 2.0, 0.5, 0},    // wlevel 1 and 2
      {12, -0.05, 0.5, 0},  {4, -0.05, 0.5, 1},  // ns * wlevel + d
      {4, 1.5, -1.0, 0},    {4, 1.4, -1.0, 1},   // 2 - wlevel - d
      {4, 0.999, 0.999, 1}, {4, 0.001, 0.001, 1},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(zessstb(c.ns, c.a, c.g), c.stable) << c.ns << " " << c.a << " " << c.g;
  }
}

TEST_F(EssKernel, CentringMovesTheMeanOfTheFactorsIntoTheLevel) {
  double level = 10.0;
  double f[4] = {1.0, 2.0, 3.0, 6.0};
  double derlev[2] = {0.5, -0.5};
  double dl[4] = {1.0, 1.0, 1.0, 5.0};
  double ds[4] = {0.0, 0.0, 4.0, 0.0};
  ASSERT_EQ(zessnmd(4, &level, f, derlev, dl, ds), 0);
  EXPECT_EQ(level, 13.0);
  EXPECT_EQ(f[0] + f[1] + f[2] + f[3], 0.0);
  EXPECT_EQ(f[3], 3.0);
  EXPECT_EQ(derlev[0], 2.5);
  EXPECT_EQ(derlev[1], 0.5);
  EXPECT_EQ(dl[3], 3.0);
  EXPECT_EQ(ds[2], 3.0);

  // A mean below the threshold changes nothing, derivatives included.
  double tiny_f[2] = {1e-14 + 0.5, 1e-14 - 0.5};
  double tl = 7.0, td[2] = {1.0, 1.0}, a[2] = {2.0, 0.0}, b[2] = {0.0, 2.0};
  zessnmd(2, &tl, tiny_f, td, a, b);
  EXPECT_EQ(tl, 7.0);
  EXPECT_EQ(td[0], 1.0);
  EXPECT_EQ(a[0], 2.0);
  EXPECT_EQ(tiny_f[0], 1e-14 + 0.5);

  double nl = 0.0;
  double nf[3] = {3.0, 3.0, 6.0};
  zessnrm(3, &nl, nf);
  EXPECT_EQ(nl, 4.0);
  EXPECT_EQ(nf[2], 2.0);
}

// The variance multiplier of the forecast rows against the sum of squared
// moving-average weights: equal up to one cycle and where k - 1 is a whole
// number of cycles, ahead of it in between.
TEST_F(EssKernel, ForecastVarianceAgainstMovingAverageWeights) {
  const int ns = 4;
  const long lead = 14;
  for (const Pair& w : kWeights) {
    SCOPED_TRACE(testing::Message() << w.a << " " << w.g);
    Seasonal ser(example_series("UKgas.csv"), ns);
    std::vector<double> f(ns, 0.0);
    double level = ser.x.back(), mse = 0.0;
    const long n = ser.n();
    std::vector<double> rows(8 * (n + lead));
    const double se2 = 4.0;
    ASSERT_EQ(zessprd(ser.x.data(), ser.mis.data(), ser.norm, n, ns, w.a, w.g, &level, f.data(),
                      ser.codes.data(), 0, n - 1, lead, se2, 0.05, 0, &mse, rows.data()),
              0);
    std::vector<double> psi(lead);
    ASSERT_EQ(zesspsi(w.a, w.g, ns, lead, psi.data()), 0);
    double psi_sum = 1.0;
    const double d = w.g * (1.0 - w.a);
    for (long k = 1; k <= lead; ++k) {
      const double* row = &rows[8 * (n + k - 1)];
      const double vm = row[5] * row[5] / se2;
      if (k > 1) psi_sum += psi[k - 1] * psi[k - 1];
      if (k <= ns || (k - 1) % ns == 0) {
        EXPECT_REL(vm, psi_sum, 1e-12) << k;
      } else if (d > 0.0) {
        EXPECT_GT(vm, psi_sum * (1.0 + 1e-12)) << k;
      }
      if (k <= ns) {
        EXPECT_REL(vm, 1.0 + w.a * w.a * (k - 1), 1e-12) << k;
      }
      if (k == ns + 1) {
        EXPECT_REL(vm, 1.0 + w.a * w.a * ns + d * (2.0 * w.a + d), 1e-12);
      }
      // Forecasts: last level plus the factor of the season, which runs on
      // from the season after the last row, however long the lead.
      const int s = static_cast<int>((n - 1 + k) % ns);
      EXPECT_EQ(row[1], level + f[s]) << k;
      EXPECT_EQ(row[7], f[s]) << k;
      EXPECT_EQ(row[6], level);
      EXPECT_TRUE(is_miss(row[0]) && is_miss(row[4]));
      EXPECT_REL(row[2] - row[1], zprobit(0.975) * row[5], 1e-12);
    }
  }
}

TEST_F(EssKernel, PredictionPassRowsAndErrorVariance) {
  std::vector<double> values = example_series("AirPassengers.csv");
  values[0] = std::nan("");
  Seasonal ser(values, 12);
  const long n = ser.n();
  double level = 200.0, mse = 0.0;
  std::vector<double> f = start_factors(12);
  RefState ref{level, f};
  std::vector<double> rows(8 * n);
  // The state handed in is the state before observation 0.
  ASSERT_EQ(zessprd(ser.x.data(), ser.mis.data(), ser.norm, n, 12, 0.4, 0.3, &level, f.data(),
                    ser.codes.data(), 10, n - 1, 0, kMiss, 0.05, 1, &mse, rows.data()),
            0);
  double sse = 0.0, pred = 0.0;
  for (long t = 0; t < n; ++t) {
    if (ser.mis[t]) continue;
    ref.step(ser.x[t], 0.4, 0.3, ser.codes[t], &pred);
    sse += (pred - ser.x[t]) * (pred - ser.x[t]);
    if (t >= 10) {
      const double* row = &rows[8 * (t - 10)];
      EXPECT_REL(row[1], pred, 1e-12) << t;
      EXPECT_EQ(row[5], 0.0);  // a missing se2 gives std 0
      EXPECT_REL(row[6], ref.level, 1e-12);
    }
  }
  EXPECT_REL(mse, sse / (n - 1 - 2), 1e-10);

  // At most two observations: the plain sum of squares.
  Seasonal two({10.0, 12.0, std::nan("")}, 2);
  double l2 = 11.0, f2[2] = {0.0, 0.0}, m2 = 0.0;
  ASSERT_EQ(zessprd(two.x.data(), two.mis.data(), 12.0, 3, 2, 0.5, 0.5, &l2, f2, two.codes.data(),
                    0, 2, 0, 1.0, 0.05, 1, &m2, nullptr),
            0);
  EXPECT_EQ(m2, 1.0 + 2.25);  // errors 1 and -1.5: level 10.5 and factor 0 at t = 1
}

TEST_F(EssKernel, FixedWeightsFreezeTheirStates) {
  Seasonal ser(example_series("UKgas.csv"), 4);
  std::vector<double> f = start_factors(4);
  double level = 300.0, mse = 0.0;
  ASSERT_EQ(zesssmo(ser.x.data(), ser.mis.data(), ser.norm, ser.n(), 4, 0.4, 0.0, &level, f.data(),
                    ser.codes.data(), &mse, nullptr, nullptr),
            0);
  EXPECT_EQ(f, start_factors(4));
  std::vector<double> g = start_factors(4);
  level = 300.0;
  ASSERT_EQ(zesssmo(ser.x.data(), ser.mis.data(), ser.norm, ser.n(), 4, 0.0, 0.4, &level, g.data(),
                    ser.codes.data(), &mse, nullptr, nullptr),
            0);
  EXPECT_EQ(level, 300.0);

  // A season without any observation keeps its start factor.
  std::vector<double> values = example_series("UKgas.csv");
  for (std::size_t t = 2; t < values.size(); t += 4) values[t] = std::nan("");
  Seasonal gap(values, 4);
  std::vector<double> h = start_factors(4);
  level = 300.0;
  ASSERT_EQ(zesssmo(gap.x.data(), gap.mis.data(), gap.norm, gap.n(), 4, 0.3, 0.3, &level, h.data(),
                    gap.codes.data(), &mse, nullptr, nullptr),
            0);
  EXPECT_EQ(h[2], start_factors(4)[2]);
  EXPECT_NE(h[1], start_factors(4)[1]);
}

TEST_F(EssKernel, WholeSeriesGuards) {
  Seasonal ser({1.0, 2.0, 3.0}, 2);
  std::vector<double> f(2, 0.0);
  double level = 1.0, mse = 0.0;
  EXPECT_EQ(zesssmo(ser.x.data(), ser.mis.data(), 3.0, 0, 2, 0.3, 0.3, &level, f.data(),
                    ser.codes.data(), &mse, nullptr, nullptr),
            -2);
  EXPECT_EQ(zesssmo(ser.x.data(), ser.mis.data(), 3.0, 3, 2, 0.3, 2e152, &level, f.data(),
                    ser.codes.data(), &mse, nullptr, nullptr),
            -9);
  Seasonal none({std::nan(""), std::nan("")}, 2);
  EXPECT_EQ(zesssmo(none.x.data(), none.mis.data(), 3.0, 2, 2, 0.3, 0.3, &level, f.data(),
                    none.codes.data(), &mse, nullptr, nullptr),
            -2);
  EXPECT_TRUE(is_miss(mse));
}

TEST_F(EssKernel, StartValues) {
  std::vector<double> values = example_series("AirPassengers.csv");
  Seasonal ser(values, 12);
  const long n = ser.n();
  double ccoef = 0.0;
  std::vector<double> csfact(12);
  ASSERT_EQ(ztsrdmy(ser.x.data(), ser.mis.data(), n, 12, &ccoef, nullptr, nullptr, csfact.data(),
                    nullptr),
            0);
  // The first regression factor goes to the season of observation 0.
  for (int nstart : {0, 5, 11}) {
    double level = 0.0;
    std::vector<double> f(12, -1.0);
    ASSERT_EQ(zesssvi(ser.x.data(), ser.mis.data(), n, 12, nstart, 1, &level, f.data()), 0);
    EXPECT_EQ(level, values.back());
    for (int i = 0; i < 12; ++i) EXPECT_EQ(f[(nstart + i) % 12], csfact[i]) << nstart << " " << i;
  }
  // Without stflg the factors are 0.
  double level = 0.0;
  std::vector<double> f(12, -1.0);
  ASSERT_EQ(zesssvi(ser.x.data(), ser.mis.data(), n, 12, 0, 0, &level, f.data()), 0);
  EXPECT_EQ(f, std::vector<double>(12, 0.0));

  // One observation, or only observation 0 present: no start.
  Seasonal one({5.0}, 4);
  EXPECT_EQ(zesssvi(one.x.data(), one.mis.data(), 1, 4, 0, 1, &level, f.data()), -2);
  Seasonal first({5.0, std::nan(""), std::nan("")}, 4);
  EXPECT_EQ(zesssvi(first.x.data(), first.mis.data(), 3, 4, 0, 1, &level, f.data()), -2);

  // A reduced regression (no season with two points): its constant is the
  // level.
  Seasonal few({10.0, 20.0, 30.0, 40.0, 50.0}, 12);
  std::vector<double> c(12);
  double cc = 0.0;
  ASSERT_EQ(ztsrdmy(few.x.data(), few.mis.data(), 5, 12, &cc, nullptr, nullptr, c.data(), nullptr), 1);
  ASSERT_EQ(zesssvi(few.x.data(), few.mis.data(), 5, 12, 0, 1, &level, f.data()), 0);
  EXPECT_EQ(level, cc);
  for (int i = 0; i < 12; ++i) EXPECT_EQ(f[i], is_miss(c[i]) ? 0.0 : c[i]);

  esf::host::pool_fail_after(0);
  EXPECT_EQ(zesssvi(ser.x.data(), ser.mis.data(), n, 12, 0, 1, &level, f.data()), -100);
  esf::host::pool_fail_after(-1);
  xmemdef();
}

// ---- Estimation --------------------------------------------------------------

// A model of the estimation on a monthly series with its season codes and
// factor arrays, the start values computed as the readers compute them.
class SeasonalModel {
 public:
  SeasonalModel(const std::vector<double>& values, int ns) : m_(values, 2), ns_(ns) {
    WINMODEL* m = m_.get();
    const long n = m->ts.nobs;
    m->ts.nseasons = ns;
    m->ts.scodes = static_cast<int*>(host_alloc(n * 4, VM_NUMBERS));
    block_ = static_cast<double*>(host_alloc(3 * ns * 8, VM_NUMBERS));
    for (long t = 0; t < n; ++t) m->ts.scodes[t] = static_cast<int>(t % ns);
    m->startvals.sfactor = block_;
    m->svi.sfactor = block_ + ns;
    m->smooth.sfactor = block_ + 2 * ns;
    EXPECT_EQ(zesssvi(m->ts.x, m->ts.misflg, n, ns, 0, 1, &m->svi.level, m->svi.sfactor), 0);
  }
  ~SeasonalModel() {
    host_free(m_->ts.scodes);
    host_free(block_);
  }
  WINMODEL* get() { return m_.get(); }
  smooth_test::Model& base() { return m_; }

  // Mean squared error of the whole-series pass from svi.
  double mse_at(double a, double g) {
    WINMODEL* m = m_.get();
    std::vector<double> f(m->svi.sfactor, m->svi.sfactor + ns_);
    double level = m->svi.level, mse = 0.0;
    const int rc = zesssmo(m->ts.x, m->ts.misflg, m->ts.descstats.norm, m->ts.nobs, ns_, a, g,
                           &level, f.data(), m->ts.scodes, &mse, nullptr, nullptr);
    return rc == 0 ? mse : HUGE_VAL;
  }

 private:
  smooth_test::Model m_;
  int ns_;
  double* block_ = nullptr;
};

class EssFit : public ::testing::Test {
 protected:
  void SetUp() override { smooth_test::connect_module(); }
};

TEST_F(EssFit, EstimateIsALocalMinimumWithinTheBounds) {
  for (const Example& ex : kExamples) {
    SCOPED_TRACE(ex.file);
    SeasonalModel sm(example_series(ex.file), ex.ns);
    WINMODEL* m = sm.get();
    const std::size_t outstanding = esf::host::pool_outstanding();
    const int rc = nessfit(m);
    EXPECT_TRUE(rc == 0 || rc == 90) << rc;
    EXPECT_EQ(esf::host::pool_outstanding(), outstanding);
    const double a = m->pest.parms[0], g = m->pest.parms[1];
    EXPECT_GE(a, 0.001);
    EXPECT_LE(a, 0.999);
    EXPECT_GE(g, 0.001);
    EXPECT_LE(g, 0.999);
    EXPECT_EQ(zessstb(ex.ns, a, g), 1);
    const double best = sm.mse_at(a, g);
    for (double da : {-0.01, 0.0, 0.01}) {
      for (double dg : {-0.01, 0.0, 0.01}) {
        const double ta = a + da, tg = g + dg;
        if (ta < 0.001 || ta > 0.999 || tg < 0.001 || tg > 0.999) continue;
        EXPECT_LE(best, sm.mse_at(ta, tg) * (1.0 + 1e-7)) << da << " " << dg;
      }
    }
    const long n = m->ts.nobs;
    EXPECT_REL(m->pest.mse, (static_cast<double>(n) / (n - 2)) * best, 1e-9);
    EXPECT_FALSE(is_miss(m->pest.stderr[0]) || is_miss(m->pest.stderr[1]));
    EXPECT_REL(m->pest.tvals[1], g / m->pest.stderr[1], 1e-12);
    // The state at time 0 is centred.
    double sum = 0.0;
    for (int s = 0; s < ex.ns; ++s) sum += m->startvals.sfactor[s];
    EXPECT_LT(std::fabs(sum / ex.ns), 1.1368683772161608e-13 * 4);
  }
}

TEST_F(EssFit, FixedWeightsAndShortSeries) {
  std::vector<double> air = example_series("AirPassengers.csv");
  {
    // Both weights fixed: the grid point is the estimate.
    SeasonalModel sm(air, 12);
    WINMODEL* m = sm.get();
    m->wbnds.wlevel[0] = m->wbnds.wlevel[1] = 0.4;
    m->wbnds.wseason[0] = m->wbnds.wseason[1] = 0.3;
    m->wbnds.wlevflg = m->wbnds.wseaflg = 1;
    EXPECT_EQ(nessfit(m), 0);
    EXPECT_EQ(m->pest.parms[0], 0.4);
    EXPECT_EQ(m->pest.parms[1], 0.3);
  }
  {
    // One weight fixed: the other one moves.
    SeasonalModel sm(air, 12);
    WINMODEL* m = sm.get();
    m->wbnds.wseason[0] = m->wbnds.wseason[1] = 0.3;
    m->wbnds.wseaflg = 1;
    const int rc = nessfit(m);
    EXPECT_TRUE(rc == 0 || rc == 90);
    EXPECT_EQ(m->pest.parms[1], 0.3);
    const double a = m->pest.parms[0];
    EXPECT_LE(sm.mse_at(a, 0.3), sm.mse_at(a + 0.01, 0.3) * (1.0 + 1e-7));
    EXPECT_LE(sm.mse_at(a, 0.3), sm.mse_at(a - 0.01, 0.3) * (1.0 + 1e-7));
  }
  {
    // nobs = nseasons + 1: weights and mse, but no standard errors.
    std::vector<double> head(air.begin(), air.begin() + 13);
    SeasonalModel sm(head, 12);
    WINMODEL* m = sm.get();
    const int rc = nessfit(m);
    EXPECT_GE(rc, 0);
    EXPECT_FALSE(is_miss(m->pest.parms[0]) || is_miss(m->pest.mse));
    EXPECT_TRUE(is_miss(m->pest.stderr[0]) && is_miss(m->pest.tvals[1]));
  }
  {
    // Without memory for the derivative arrays.
    SeasonalModel sm(air, 12);
    esf::host::pool_fail_after(1);
    EXPECT_EQ(nessfit(sm.get()), -100);
    esf::host::pool_fail_after(-1);
    xmemdef();
  }
}

TEST_F(EssFit, MissingFirstObservationHasNoError) {
  std::vector<double> air = example_series("AirPassengers.csv");
  air[0] = std::nan("");
  SeasonalModel sm(air, 12);
  WINMODEL* m = sm.get();
  const int rc = nessfit(m);
  EXPECT_TRUE(rc == 0 || rc == 90) << rc;
  EXPECT_REL(m->pest.mse, (143.0 / 141.0) * sm.mse_at(m->pest.parms[0], m->pest.parms[1]), 1e-9);
}

// ---- Methods and command line ----------------------------------------------

struct MethodOutcome {
  std::optional<double> fit_rc, forecast_rc;
  std::vector<std::string> weight_names;
  std::vector<double> end_factors, start_factors;
  bool pool_balanced = false;
  smooth_test::Table table;
};

MethodOutcome run_methods(const std::vector<double>& values, const char* interval, double stdate,
                          long nseasons, double lead) {
  using namespace esf::host;
  method_test::connect_module();
  const fs::path dir = fs::temp_directory_path() / ("ess_methods_" + std::to_string(::getpid()));
  fs::create_directories(dir);
  assign_libref("ESSM", dir);
  MethodOutcome run;
  {
    method_test::CallLists l(values, interval, stdate);
    if (nseasons > 0) set_integer(l.interval_info(), "NSEASONS", nseasons);
    const std::size_t outstanding = pool_outstanding();
    MethodCall fit_call;
    fit_call.list(l.series).list(l.spec).list(l.fit_range).list(l.eval_range).list(l.model).number(0);
    EXPECT_EQ(messfit(fit_call.plist(), nullptr, nullptr, 0), 0);
    run.fit_rc = fit_call.written(7);
    for (const SLIST_ITEM* it : items(find_list(find_list(l.model, "PARMVALS"), "SMOOTHING_WEIGHTS"))) {
      run.weight_names.push_back(item_name(it));
    }
    List state = find_list(find_list(l.model, "ESTIMATES"), "SMOOTHED_STATE");
    for (const SLIST_ITEM* it : items(find_list(state, "SFACTORS"))) run.end_factors.push_back(slgetnv(it, 0));
    List start = find_list(l.spec, "STARTVALS");
    for (const SLIST_ITEM* it : items(find_list(start, "SFACTORS"))) run.start_factors.push_back(slgetnv(it, 0));
    MethodCall for_call;
    for_call.list(l.series).list(l.model).list(l.eval_range).text("ESSM.FC").number(0.05).number(lead).number(0);
    EXPECT_EQ(messfor(for_call.plist(), nullptr, nullptr, 0), 0);
    run.forecast_rc = for_call.written(8);
    run.pool_balanced = pool_outstanding() == outstanding;
  }
  run.table = smooth_test::read_table(dir / "fc.csv");
  fs::remove_all(dir);
  return run;
}

TEST_F(EssFit, MethodsFitAndForecastQuarterlyGas) {
  const std::vector<double> gas = example_series("UKgas.csv");
  const MethodOutcome run = run_methods(gas, "QTR", method_test::date(1960, 1, 1), 4, 8);
  ASSERT_TRUE(run.fit_rc && run.forecast_rc);
  EXPECT_EQ(*run.fit_rc, 0.0);
  EXPECT_EQ(*run.forecast_rc, 0.0);
  EXPECT_TRUE(run.pool_balanced);
  EXPECT_EQ(run.weight_names, (std::vector<std::string>{"LEVEL", "SEASONAL"}));
  ASSERT_EQ(run.end_factors.size(), 4u);
  ASSERT_EQ(run.start_factors.size(), 4u);
  EXPECT_NEAR(std::accumulate(run.start_factors.begin(), run.start_factors.end(), 0.0), 0.0, 1e-9);

  const smooth_test::Table& t = run.table;
  ASSERT_EQ(t.names.size(), 9u);
  EXPECT_EQ(t.names.back(), "SEASON");
  EXPECT_EQ(t.names[7], "LEVEL");
  ASSERT_EQ(t.rows.size(), gas.size() + 8);
  const int fc = t.column("FORECAST"), lev = t.column("LEVEL"), sea = t.column("SEASON"),
            sd = t.column("STD"), act = t.column("ACTUAL");
  for (std::size_t r = gas.size(); r < t.rows.size(); ++r) {
    const auto& row = t.rows[r];
    EXPECT_TRUE(std::isnan(row[act]));
    EXPECT_NEAR(row[fc], row[lev] + row[sea], 1e-9 * std::fabs(row[fc]));
    if (r >= gas.size() + 4) {
      EXPECT_EQ(row[sea], t.rows[r - 4][sea]);  // the pattern repeats
    }
    if (r > gas.size()) {
      EXPECT_GE(row[sd], t.rows[r - 1][sd]);
    }
  }
  // The last fitted row's factor is the end factor of its season.
  EXPECT_NEAR(t.rows[gas.size() - 1][sea], run.end_factors[(gas.size() - 1) % 4], 1e-9 * 400);
}

TEST_F(EssFit, MethodsStopWithoutAUsableCycle) {
  const std::vector<double> gas = example_series("UKgas.csv");
  // No NSEASONS, and a cycle shorter than the interval's: nothing runs.
  for (long ns : {0L, 2L}) {
    const MethodOutcome run = run_methods(gas, "QTR", method_test::date(1960, 1, 1), ns, 4);
    ASSERT_TRUE(run.fit_rc.has_value());
    EXPECT_EQ(*run.fit_rc, 999.0) << ns;
    EXPECT_TRUE(run.pool_balanced) << ns;
  }
}

std::string quote(const std::string& s) {
  std::string q = "'";
  for (char c : s) q += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return q + "'";
}

int run_cli(const fs::path& dir, const std::vector<std::string>& args) {
  const fs::path supp = dir / "lsan.supp";
  std::ofstream(supp) << "leak:esf::cli::Loader::load\n";
  std::string cmd = "cd " + quote(dir.string()) + " && LSAN_OPTIONS=suppressions=" + quote(supp.string()) +
                    " " + quote(ESF_CLI);
  for (const std::string& a : args) cmd += " " + quote(a);
  cmd += " >" + quote((dir / "stdout.txt").string()) + " 2>" + quote((dir / "stderr.txt").string());
  const int raw = std::system(cmd.c_str());
  return WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
}

TEST(EssCli, ForecastCommandWritesADatedTableWithTheSeasonColumn) {
  const fs::path dir = fs::temp_directory_path() / ("ess_cli_" + std::to_string(::getpid()));
  fs::remove_all(dir);
  fs::create_directories(dir);
  const std::string series = std::string(ESF_SOURCE_DIR) + "/examples/AirPassengers.csv";
  ASSERT_EQ(run_cli(dir, {"forecast", "--model", "seasonal", "--interval", "MONTH", "--lead", "24", "-o",
                          "out.csv", series}),
            0);
  const smooth_test::Table t = smooth_test::read_table(dir / "out.csv");
  ASSERT_EQ(t.names.size(), 9u);
  EXPECT_EQ(t.names[3], "U95");
  EXPECT_EQ(t.names.back(), "SEASON");
  ASSERT_EQ(t.rows.size(), 144u + 24u);
  std::ifstream in(dir / "out.csv");
  std::string line;
  std::string last;
  while (std::getline(in, line)) last = line;
  EXPECT_EQ(last.substr(0, 10), "1962-12-01");
  const int fc = t.column("FORECAST"), sea = t.column("SEASON");
  for (std::size_t r = 144 + 12; r < t.rows.size(); ++r) {
    EXPECT_EQ(t.rows[r][sea], t.rows[r - 12][sea]);
    EXPECT_EQ(t.rows[r][fc], t.rows[r - 12][fc]);
    EXPECT_GT(t.rows[r][t.column("U95")] - t.rows[r][fc], t.rows[r - 12][t.column("U95")] - t.rows[r - 12][fc]);
  }

  // A cycle the interval cannot have: an error and no table.
  EXPECT_NE(run_cli(dir, {"forecast", "--model", "seasonal", "--interval", "MONTH", "--nseasons", "4", "-o",
                          "bad.csv", series}),
            0);
  EXPECT_FALSE(fs::exists(dir / "bad.csv"));
  fs::remove_all(dir);
}

}  // namespace
