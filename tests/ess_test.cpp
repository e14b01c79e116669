// Seasonal exponential smoothing: the kernel against an independent loop,
// analytic against numeric derivatives, the stability region, the centring,
// the forecast variance against the moving-average weights, start values,
// the estimation, the methods and the command line.
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <cstdlib>
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
#include "support/pass_compare.h"
#include "support/smooth_model.h"
#include "support/trend_session.h"

namespace {

namespace fs = std::filesystem;
using smooth_test::example_series;
const double kMiss = esf::kMissing;
const double kNaN = std::nan("");
bool is_miss(double d) { return wzmis(d) != 0; }
#define EXPECT_REL(got, want, rel) EXPECT_NEAR((got), (want), (rel) * std::fabs(want) + 1e-300)

// A series with flags and season codes; observation t is of season
// (t + first) mod ns.  NaN marks a missing value.
struct Seasonal {
  std::vector<double> x;
  std::vector<char> mis;
  std::vector<int> codes;
  double norm = 0.0;
  Seasonal(const std::vector<double>& v, int ns, int first = 0) {
    for (std::size_t t = 0; t < v.size(); ++t) {
      x.push_back(std::isnan(v[t]) ? kMiss : v[t]);
      mis.push_back(std::isnan(v[t]) ? 1 : 0);
      codes.push_back(static_cast<int>((t + first) % ns));
      if (!std::isnan(v[t])) norm = std::fmax(norm, std::fabs(v[t]));
    }
  }
  long n() const { return static_cast<long>(x.size()); }
};

// The textbook additive seasonal recursion without trend: prediction l + s,
// l' = a (x - s) + (1 - a) l, s' = g (x - l') + (1 - g) s.
struct Ref {
  double level;
  std::vector<double> f;
  double step(double x, double a, double g, int s) {
    const double pred = level + f[s];
    const double nl = a * (x - f[s]) + (1.0 - a) * level;
    f[s] = g * (x - nl) + (1.0 - g) * f[s];
    level = nl;
    return pred;
  }
};

struct Pair {
  double a, g;
};
const Pair kWeights[] = {{0.3, 0.2}, {0.8, 0.05}, {0.05, 0.9}, {0.4, 0.0}, {0.0, 0.4}, {0.999, 0.001}};
struct Example {
  const char* file;
  int ns;
};
const Example kExamples[] = {{"UKgas.csv", 4}, {"AirPassengers.csv", 12}, {"USAccDeaths.csv", 12}};

std::vector<double> some_factors(int ns) {
  std::vector<double> f(ns);
  for (int s = 0; s < ns; ++s) f[s] = 3.0 * std::sin(0.7 * s) - 1.0;
  return f;
}

class Ess : public ::testing::Test {
 protected:
  void SetUp() override { smooth_test::connect_module(); }
};

TEST_F(Ess, PassesAgreeWithTheTextbookRecursion) {
  for (const Example& ex : kExamples) {
    std::vector<double> v = example_series(ex.file);
    v[5] = v[v.size() - 3] = kNaN;
    Seasonal ser(v, ex.ns, 1);
    const long n = ser.n();
    for (const Pair& w : kWeights) {
      SCOPED_TRACE(testing::Message() << ex.file << " " << w.a << " " << w.g);
      std::vector<double> f = some_factors(ex.ns);
      Ref ref{250.0, f};
      for (long t = n - 1; t >= 0; --t) {
        if (!ser.mis[t]) ref.step(ser.x[t], w.a, w.g, ser.codes[t]);
      }
      Ref start = ref;  // the backward pass leaves the state before observation 0
      double level = 250.0, mse = 0.0, sse = 0.0;
      std::vector<double> rows(5 * n);
      ASSERT_EQ(zesssmo(ser.x.data(), ser.mis.data(), ser.norm, n, ex.ns, w.a, w.g, &level, f.data(),
                        ser.codes.data(), &mse, nullptr, rows.data()),
                0);
      for (long t = 0; t < n; ++t) {
        const int s = ser.codes[t];
        const double* row = &rows[5 * t];
        if (ser.mis[t]) {  // no state changes; the prediction is level plus factor
          EXPECT_REL(row[1], ref.level + ref.f[s], 1e-12);
          EXPECT_TRUE(is_miss(row[2]));
        } else {
          const double pred = ref.step(ser.x[t], w.a, w.g, s);
          EXPECT_REL(row[1], pred, 1e-12) << t;
          sse += (pred - ser.x[t]) * (pred - ser.x[t]);
        }
        EXPECT_REL(row[3], ref.level, 1e-12) << t;
        EXPECT_NEAR(row[4], ref.f[s], 1e-9 * ser.norm) << t;
      }
      EXPECT_REL(mse, sse / (n - 2), 1e-10);
      for (int s = 0; s < ex.ns; ++s) EXPECT_NEAR(f[s], ref.f[s], 1e-9 * ser.norm);

      // The prediction pass from the state before observation 0, rows from
      // 10 on; its error variance divides by nobs - 2.
      std::vector<double> prow(8 * n);
      double plevel = start.level, pmse = 0.0;
      ASSERT_EQ(zessprd(ser.x.data(), ser.mis.data(), ser.norm, n, ex.ns, w.a, w.g, &plevel, start.f.data(),
                        ser.codes.data(), 10, n - 1, 0, kMiss, 0.05, 1, &pmse, prow.data()),
                0);
      EXPECT_REL(pmse, sse / (n - 4), 1e-10);
      EXPECT_REL(prow[8 * (n - 11) + 1], rows[5 * (n - 1) + 1], 1e-12);
      EXPECT_EQ(prow[5], 0.0);  // a missing se2 gives std 0
    }
  }
}

// The grid's side-by-side pass gives every pair the return code and the
// bits of the mean squared error of its own whole-series pass, failures
// included.
TEST_F(Ess, SideBySidePassMatchesSinglePasses) {
  std::vector<double> v = example_series("AirPassengers.csv");
  v[7] = kNaN;
  Seasonal ser(v, 12);
  const std::vector<double> f0 = some_factors(12);
  std::vector<double> weights;
  for (double a : {0.001, 0.3, 0.999, 1.9, -40.0}) {
    for (double g : {0.001, 0.5, 0.999, 3.0, 50.0}) {
      weights.push_back(a);
      weights.push_back(g);
    }
  }
  std::vector<double> work(ess::kManyPairs * 12);
  const auto [ok, failed] = trend_test::compare_side_by_side(
      weights, 2,
      [&](const double* w, double* mse) {
        double level = 300.0;
        std::vector<double> f = f0;
        return zesssmo(ser.x.data(), ser.mis.data(), ser.norm, ser.n(), 12, w[0], w[1], &level, f.data(),
                       ser.codes.data(), mse, nullptr, nullptr);
      },
      [&](const double* w, int count, int* rc, double* mse) {
        ess::smooth_many(ser.x.data(), ser.mis.data(), ser.norm, ser.n(), 12, w, count, 300.0, f0.data(),
                         ser.codes.data(), work.data(), rc, mse);
      });
  EXPECT_GT(ok, 0);
  EXPECT_GT(failed, 0);
}

TEST_F(Ess, GuardsOfTheKernel) {
  double f[3] = {1.0, -2.0, 4.0}, level = 10.0, xhat = 0.0, e = 0.0;
  ASSERT_EQ(zesspnt(5.0, 100.0, 0.25, 0.5, &level, f, 1, &xhat, &e), 0);
  EXPECT_EQ(e, 3.0);  // prediction minus observation
  EXPECT_EQ(f[1], 0.5 * (5.0 - level) + 0.5 * -2.0);  // against the new level
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

  Seasonal ser({1.0, 2.0, kNaN}, 2), none({kNaN, kNaN}, 2);
  double g[2] = {0.0, 0.0}, mse = 0.0;
  EXPECT_EQ(zesssmo(ser.x.data(), ser.mis.data(), 3, 0, 2, 0.3, 0.3, &level, g, ser.codes.data(), &mse, 0, 0), -2);
  EXPECT_EQ(zesssmo(ser.x.data(), ser.mis.data(), 3, 3, 2, 0.3, 2e152, &level, g, ser.codes.data(), &mse, 0, 0), -9);
  EXPECT_EQ(zesssmo(none.x.data(), none.mis.data(), 3, 2, 2, 0.3, 0.3, &level, g, none.codes.data(), &mse, 0, 0), -2);
  // At most two observations: the prediction pass reports the plain sse.
  level = 11.0;
  ASSERT_EQ(zessprd(ser.x.data(), ser.mis.data(), 12.0, 3, 2, 0.5, 0.5, &level, g, ser.codes.data(), 0, 2, 0, 1.0,
                    0.05, 1, &mse, nullptr),
            0);
  EXPECT_EQ(mse, 100.0 + 16.0);  // errors 10 and 4
}

// With no observation rows (end -1) the forecasts run from season 0 on the
// state handed in, and nothing before them counts towards the mse.
TEST_F(Ess, ForecastsWithoutObservationRowsStartAtSeasonZero) {
  Seasonal ser({1.0, 2.0, 3.0, 4.0}, 3);
  double level = 10.0, mse = 0.0;
  double f[3] = {1.0, 2.0, 3.0};
  std::vector<double> rows(8 * 4);
  ASSERT_EQ(zessprd(ser.x.data(), ser.mis.data(), 12.0, 4, 3, 0.5, 0.5, &level, f, ser.codes.data(), 0, -1, 4,
                    1.0, 0.05, 1, &mse, rows.data()),
            0);
  EXPECT_EQ(mse, 0.0);
  for (int k = 0; k < 4; ++k) {
    SCOPED_TRACE(k + 1);
    EXPECT_EQ(rows[8 * k + 7], f[k % 3]);
    EXPECT_EQ(rows[8 * k + 1], 10.0 + f[k % 3]);
    EXPECT_EQ(rows[8 * k + 6], 10.0);
  }
}

// The gradient from the derivative recursions run through both passes with
// the centring between them, as the estimation runs them, against central
// differences of the whole-series mean squared error.
TEST_F(Ess, AnalyticDerivativesAgreeWithNumericOnes) {
  for (const Example& ex : kExamples) {
    Seasonal ser(example_series(ex.file), ex.ns);
    const long n = ser.n();
    double svi_level = 0.0;
    std::vector<double> svi_f(ex.ns);
    ASSERT_EQ(zesssvi(ser.x.data(), ser.mis.data(), n, ex.ns, 0, 1, &svi_level, svi_f.data()), 0);
    for (const Pair& w : kWeights) {
      SCOPED_TRACE(testing::Message() << ex.file << " " << w.a << " " << w.g);
      double level = svi_level, derlev[2] = {0.0, 0.0}, grad[2] = {0.0, 0.0}, sse = 0.0;
      std::vector<double> f = svi_f, dl(ex.ns, 0.0), ds(ex.ns, 0.0);
      auto observe = [&](long t, bool forward) {
        const int s = ser.codes[t];
        const double ll = level, ls = f[s];
        double xhat, e, dervec[2], dersea[2] = {dl[s], ds[s]};
        ASSERT_EQ(zesspnt(ser.x[t], ser.norm, w.a, w.g, &level, f.data(), s, &xhat, &e), 0);
        ASSERT_EQ(zessdpd(ser.x[t], w.a, w.g, ll, level, ls, f[s], derlev, dersea, dervec), 0);
        dl[s] = dersea[0];
        ds[s] = dersea[1];
        if (!forward) return;
        grad[0] += dervec[0] * e;
        grad[1] += dervec[1] * e;
        sse += e * e;
      };
      for (long t = n - 1; t >= 0; --t) observe(t, false);
      zessnmd(ex.ns, &level, f.data(), derlev, dl.data(), ds.data());
      for (long t = 0; t < n; ++t) observe(t, true);
      double deltas[2] = {1e-6, 1e-6}, pder[2];
      ASSERT_EQ(zessnpd(ser.x.data(), ser.mis.data(), ser.norm, n, ex.ns, w.a, w.g, svi_level, svi_f.data(),
                        ser.codes.data(), deltas, 0, pder),
                0);
      for (int i = 0; i < 2; ++i) EXPECT_NEAR(2.0 * grad[i] / n, pder[i], 1e-6 * sse / n) << i;
    }
  }
  // A zero step on the second weight: -92, that entry missing; no memory: -100.
  Seasonal gas(example_series("UKgas.csv"), 4);
  std::vector<double> f(4, 0.0);
  double deltas[2] = {1e-6, 0.0}, pder[2];
  EXPECT_EQ(zessnpd(gas.x.data(), gas.mis.data(), gas.norm, gas.n(), 4, 0.3, 0.3, 400.0, f.data(),
                    gas.codes.data(), deltas, 0, pder),
            -92);
  EXPECT_TRUE(!is_miss(pder[0]) && is_miss(pder[1]));
  esf::host::pool_fail_after(0);
  EXPECT_EQ(zessnpd(gas.x.data(), gas.mis.data(), gas.norm, gas.n(), 4, 0.3, 0.3, 400.0, f.data(),
                    gas.codes.data(), deltas, 0, pder),
            -100);
  esf::host::pool_fail_after(-1);
  xmemdef();
}

TEST_F(Ess, StabilityRegion) {
  struct Case {
    int ns;
    double a, g;
    int stable;
  } const cases[] = {
      {12, 0.3, 0.2, 1},   {12, 0.3, 0.0, 0},  {12, 1.0, 0.5, 0}, {4, 2.0, 0.5, 0},   // d, wlevel 1 and 2
      {12, -0.05, 0.5, 0}, {4, -0.05, 0.5, 1},                                         // ns * wlevel + d
      {4, 1.5, -1.0, 0},   {4, 1.4, -1.0, 1},  {4, 0.999, 0.999, 1}};                  // 2 - wlevel - d
  for (const Case& c : cases) EXPECT_EQ(zessstb(c.ns, c.a, c.g), c.stable) << c.ns << " " << c.a << " " << c.g;
}

TEST_F(Ess, CentringMovesTheMeanOfTheFactorsIntoTheLevel) {
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

// The variance multiplier of the forecast rows against 1 + the sum of
// squared moving-average weights: equal up to one cycle and where k - 1 is
// a whole number of cycles, ahead in between.  The forecasts repeat the
// factors from the season after the last row.
TEST_F(Ess, ForecastRowsAndTheirVariance) {
  const int ns = 4;
  const long lead = 14;
  Seasonal ser(example_series("UKgas.csv"), ns);
  const long n = ser.n();
  for (const Pair& w : kWeights) {
    SCOPED_TRACE(testing::Message() << w.a << " " << w.g);
    std::vector<double> f(ns, 0.0), rows(8 * (n + lead)), psi(lead);
    double level = ser.x.back(), mse = 0.0;
    ASSERT_EQ(zessprd(ser.x.data(), ser.mis.data(), ser.norm, n, ns, w.a, w.g, &level, f.data(), ser.codes.data(), 0,
                      n - 1, lead, 4.0, 0.05, 0, &mse, rows.data()),
              0);
    ASSERT_EQ(zesspsi(w.a, w.g, ns, lead, psi.data()), 0);
    const double d = w.g * (1.0 - w.a);
    double psi_sum = 1.0;
    for (long k = 1; k <= lead; ++k) {
      const double* row = &rows[8 * (n + k - 1)];
      const double vm = row[5] * row[5] / 4.0;
      if (k > 1) psi_sum += psi[k - 1] * psi[k - 1];
      if (k <= ns || (k - 1) % ns == 0) {
        EXPECT_REL(vm, psi_sum, 1e-12) << k;
      } else if (d > 0.0) {
        EXPECT_GT(vm, psi_sum * (1.0 + 1e-12)) << k;
      }
      if (k == ns + 1) {
        EXPECT_REL(vm, 1.0 + w.a * w.a * ns + d * (2.0 * w.a + d), 1e-12);
      }
      const int s = static_cast<int>((n - 1 + k) % ns);
      EXPECT_TRUE(row[1] == level + f[s] && row[7] == f[s] && row[6] == level) << k;
      EXPECT_TRUE(is_miss(row[0]) && is_miss(row[4]));
      EXPECT_REL(row[2] - row[1], zprobit(0.975) * row[5], 1e-12);
    }
  }
}

TEST_F(Ess, StartValues) {
  std::vector<double> air = example_series("AirPassengers.csv");
  Seasonal ser(air, 12);
  double ccoef = 0.0, level = 0.0;
  std::vector<double> csfact(12), f(12);
  ASSERT_EQ(ztsrdmy(ser.x.data(), ser.mis.data(), ser.n(), 12, &ccoef, nullptr, nullptr, csfact.data(), nullptr), 0);
  for (int nstart : {0, 5, 11}) {  // the first regression factor is nstart's
    ASSERT_EQ(zesssvi(ser.x.data(), ser.mis.data(), ser.n(), 12, nstart, 1, &level, f.data()), 0);
    EXPECT_EQ(level, air.back());
    for (int i = 0; i < 12; ++i) EXPECT_EQ(f[(nstart + i) % 12], csfact[i]) << nstart << " " << i;
  }
  ASSERT_EQ(zesssvi(ser.x.data(), ser.mis.data(), ser.n(), 12, 0, 0, &level, f.data()), 0);
  EXPECT_EQ(f, std::vector<double>(12, 0.0));
  // A reduced regression (no season with two points): its constant is the level.
  Seasonal few({10.0, 20.0, 30.0, 40.0, 50.0}, 12);
  ASSERT_EQ(ztsrdmy(few.x.data(), few.mis.data(), 5, 12, &ccoef, nullptr, nullptr, csfact.data(), nullptr), 1);
  ASSERT_EQ(zesssvi(few.x.data(), few.mis.data(), 5, 12, 0, 1, &level, f.data()), 0);
  EXPECT_EQ(level, ccoef);
  for (int i = 0; i < 12; ++i) EXPECT_EQ(f[i], is_miss(csfact[i]) ? 0.0 : csfact[i]);
  // One observation, or only the first present: no start; no memory: -100.
  Seasonal one({5.0}, 4), first({5.0, kNaN, kNaN}, 4);
  EXPECT_EQ(zesssvi(one.x.data(), one.mis.data(), 1, 4, 0, 1, &level, f.data()), -2);
  EXPECT_EQ(zesssvi(first.x.data(), first.mis.data(), 3, 4, 0, 1, &level, f.data()), -2);
  esf::host::pool_fail_after(0);
  EXPECT_EQ(zesssvi(ser.x.data(), ser.mis.data(), ser.n(), 12, 0, 1, &level, f.data()), -100);
  esf::host::pool_fail_after(-1);
  xmemdef();
}

// A model of one seasonal call: season codes, factor arrays, start values.
class SeasonalModel {
 public:
  SeasonalModel(const std::vector<double>& values, int ns) : m_(values, 2), ns_(ns) {
    const long n = m_->ts.nobs;
    m_->ts.nseasons = ns;
    m_->ts.scodes = static_cast<int*>(host_alloc(n * 4, VM_NUMBERS));
    for (long t = 0; t < n; ++t) m_->ts.scodes[t] = static_cast<int>(t % ns);
    block_ = static_cast<double*>(host_alloc(3 * ns * 8, VM_NUMBERS));
    m_->startvals.sfactor = block_;
    m_->svi.sfactor = block_ + ns;
    m_->smooth.sfactor = block_ + 2 * ns;
    EXPECT_EQ(zesssvi(m_->ts.x, m_->ts.misflg, n, ns, 0, 1, &m_->svi.level, m_->svi.sfactor), 0);
  }
  ~SeasonalModel() {
    host_free(m_->ts.scodes);
    host_free(block_);
  }
  WINMODEL* get() { return m_.get(); }
  double mse_at(double a, double g) {  // the whole-series pass from svi
    std::vector<double> f(m_->svi.sfactor, m_->svi.sfactor + ns_);
    double level = m_->svi.level, mse = 0.0;
    return zesssmo(m_->ts.x, m_->ts.misflg, m_->ts.descstats.norm, m_->ts.nobs, ns_, a, g, &level, f.data(),
                   m_->ts.scodes, &mse, nullptr, nullptr) == 0
               ? mse
               : HUGE_VAL;
  }

 private:
  smooth_test::Model m_;
  int ns_;
  double* block_ = nullptr;
};

TEST_F(Ess, EstimateIsALocalMinimumWithinTheBounds) {
  std::vector<double> gapped = example_series("AirPassengers.csv");
  gapped[0] = kNaN;  // the prediction stands in for it: no error
  const std::pair<std::vector<double>, int> cases[] = {{example_series("UKgas.csv"), 4},
                                                       {example_series("AirPassengers.csv"), 12},
                                                       {example_series("USAccDeaths.csv"), 12},
                                                       {gapped, 12}};
  for (const auto& [values, ns] : cases) {
    SeasonalModel sm(values, ns);
    WINMODEL* m = sm.get();
    const std::size_t outstanding = esf::host::pool_outstanding();
    const int rc = nessfit(m);
    EXPECT_TRUE(rc == 0 || rc == 90) << rc;
    EXPECT_EQ(esf::host::pool_outstanding(), outstanding);
    const double a = m->pest.parms[0], g = m->pest.parms[1], best = sm.mse_at(a, g);
    EXPECT_TRUE(a >= 0.001 && a <= 0.999 && g >= 0.001 && g <= 0.999 && zessstb(ns, a, g) == 1);
    for (double da : {-0.01, 0.01}) {
      for (double dg : {-0.01, 0.0, 0.01}) {
        if (a + da >= 0.001 && a + da <= 0.999 && g + dg >= 0.001 && g + dg <= 0.999) {
          EXPECT_LE(best, sm.mse_at(a + da, g + dg) * (1.0 + 1e-7)) << da << " " << dg;
        }
      }
    }
    const long nobs = m->ts.nobs - m->ts.nmiss;
    EXPECT_REL(m->pest.mse, (static_cast<double>(nobs) / (nobs - 2)) * best, 1e-9);
    EXPECT_REL(m->pest.tvals[1], g / m->pest.stderr[1], 1e-12);
    // The state at time 0 is centred.
    EXPECT_LT(std::fabs(std::accumulate(m->startvals.sfactor, m->startvals.sfactor + ns, 0.0)), 1e-12 * ns);
  }
}

// The kernel's derivative loops give the frame's results to the bit, where
// the passes end well and where they stop (cross products past their limit,
// which the unchecked forward loop must find again by the checked one).
TEST_F(Ess, DerivativeLoopsGiveTheBitsOfTheFrameStepByStep) {
  std::vector<double> gapped = example_series("AirPassengers.csv");
  gapped[0] = gapped[70] = kNaN;
  std::vector<std::pair<std::vector<double>, int>> cases = {{gapped, 12}, {example_series("UKgas.csv"), 4}};
  for (double scale : {1e74, 1e75, 1e76, 1e77, 1e150}) {
    std::vector<double> big = example_series("USAccDeaths.csv");
    for (double& v : big) v *= scale;
    cases.emplace_back(big, 12);
  }
  int stopped = 0;
  for (const auto& [values, ns] : cases) {
    SeasonalModel sm(values, ns);
    WINMODEL* m = sm.get();
    stopped += pass_test::expect_same_passes<ess::Family>(m, m->ts.x, m->ts.misflg, m->ts.nobs, m->ts.scodes,
                                                          {0.3, 0.2, 0.9, 0.9, 0.05, 0.6});
  }
  EXPECT_GT(stopped, 0);
}

TEST_F(Ess, FixedWeightsShortSeriesAndMemory) {
  const std::vector<double> air = example_series("AirPassengers.csv");
  {  // both weights fixed: the grid point is the estimate
    SeasonalModel sm(air, 12);
    WINMODEL* m = sm.get();
    m->wbnds.wlevel[0] = m->wbnds.wlevel[1] = 0.4;
    m->wbnds.wseason[0] = m->wbnds.wseason[1] = 0.3;
    m->wbnds.wlevflg = m->wbnds.wseaflg = 1;
    m->opt.numeric = 1;  // with the derivative check, whose copies go back to the pool
    const std::size_t outstanding = esf::host::pool_outstanding();
    EXPECT_EQ(nessfit(m), 0);
    EXPECT_EQ(esf::host::pool_outstanding(), outstanding);
    EXPECT_TRUE(m->pest.parms[0] == 0.4 && m->pest.parms[1] == 0.3);
  }
  {  // the seasonal weight fixed: the level weight alone moves to its minimum
    SeasonalModel sm(air, 12);
    WINMODEL* m = sm.get();
    m->wbnds.wseason[0] = m->wbnds.wseason[1] = 0.3;
    m->wbnds.wseaflg = 1;
    EXPECT_GE(nessfit(m), 0);
    const double a = m->pest.parms[0];
    EXPECT_EQ(m->pest.parms[1], 0.3);
    EXPECT_LE(sm.mse_at(a, 0.3), std::fmin(sm.mse_at(a + 0.01, 0.3), sm.mse_at(a - 0.01, 0.3)) * (1.0 + 1e-7));
  }
  {  // nobs = nseasons + 1: weights and mse, no standard errors
    SeasonalModel sm(std::vector<double>(air.begin(), air.begin() + 13), 12);
    EXPECT_GE(nessfit(sm.get()), 0);
    EXPECT_FALSE(is_miss(sm.get()->pest.parms[0]) || is_miss(sm.get()->pest.mse));
    EXPECT_TRUE(is_miss(sm.get()->pest.stderr[0]) && is_miss(sm.get()->pest.tvals[1]));
  }
  SeasonalModel sm(air, 12);
  esf::host::pool_fail_after(1);
  EXPECT_EQ(nessfit(sm.get()), -100);
  esf::host::pool_fail_after(-1);
  xmemdef();
}

// messfit then messfor on the lists the object language passes; the table
// goes to a scratch directory.
TEST_F(Ess, MethodsFitAndForecastQuarterlyGas) {
  using namespace esf::host;
  const std::vector<double> gas = example_series("UKgas.csv");
  const fs::path dir = fs::temp_directory_path() / ("ess_methods_" + std::to_string(::getpid()));
  fs::create_directories(dir);
  assign_libref("ESSM", dir);
  for (long ns : {4L, 0L, 2L}) {  // no NSEASONS, or a cycle shorter than the interval's: nothing runs
    SCOPED_TRACE(ns);
    method_test::CallLists l(gas, "QTR", method_test::date(1960, 1, 1));
    if (ns > 0) set_integer(l.interval_info(), "NSEASONS", ns);
    const std::size_t outstanding = pool_outstanding();
    MethodCall fit;
    fit.list(l.series).list(l.spec).list(l.fit_range).list(l.eval_range).list(l.model).number(0);
    EXPECT_EQ(messfit(fit.plist(), nullptr, nullptr, 0), 0);
    EXPECT_EQ(fit.written(7), ns == 4 ? 0.0 : 999.0);
    EXPECT_EQ(pool_outstanding(), outstanding);
    if (ns != 4) continue;
    std::vector<std::string> names;
    for (const SLIST_ITEM* it : items(find_list(find_list(l.model, "PARMVALS"), "SMOOTHING_WEIGHTS"))) {
      names.push_back(item_name(it));
    }
    EXPECT_EQ(names, (std::vector<std::string>{"LEVEL", "SEASONAL"}));
    double start_sum = 0.0;
    for (const SLIST_ITEM* it : items(find_list(find_list(l.spec, "STARTVALS"), "SFACTORS"))) {
      start_sum += slgetnv(it, 0);
    }
    EXPECT_NEAR(start_sum, 0.0, 1e-9);
    MethodCall fc;
    fc.list(l.series).list(l.model).list(l.eval_range).text("ESSM.FC").number(0.05).number(8).number(0);
    EXPECT_EQ(messfor(fc.plist(), nullptr, nullptr, 0), 0);
    EXPECT_EQ(fc.written(8), 0.0);
    EXPECT_EQ(pool_outstanding(), outstanding);
    const smooth_test::Table t = smooth_test::read_table(dir / "fc.csv");
    ASSERT_EQ(t.names.size(), 9u);
    EXPECT_TRUE(t.names[7] == "LEVEL" && t.names[8] == "SEASON");
    ASSERT_EQ(t.rows.size(), gas.size() + 8);
    for (std::size_t r = gas.size(); r < t.rows.size(); ++r) {
      EXPECT_NEAR(t.rows[r][2], t.rows[r][7] + t.rows[r][8], 1e-9 * t.rows[r][2]);
      EXPECT_GE(t.rows[r][6], t.rows[r - 1][6]);  // STD does not fall with the lead
    }
  }
  fs::remove_all(dir);
}

std::string quote(const std::string& s) {
  std::string q = "'";
  for (char c : s) q += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return q + "'";
}

TEST(EssCli, ForecastCommandWritesADatedTableWithTheSeasonColumn) {
  const fs::path dir = fs::temp_directory_path() / ("ess_cli_" + std::to_string(::getpid()));
  fs::create_directories(dir);
  std::ofstream(dir / "lsan.supp") << "leak:esf::runner::Loader::load\n";
  auto run = [&](const std::string& args) {
    const std::string cmd = "cd " + quote(dir.string()) + " && LSAN_OPTIONS=suppressions=lsan.supp " + quote(ESF_CLI) +
                            " forecast --model seasonal --interval MONTH " + args + " " +
                            quote(std::string(ESF_SOURCE_DIR) + "/examples/AirPassengers.csv") + " >out.txt 2>err.txt";
    const int raw = std::system(cmd.c_str());
    return WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
  };
  ASSERT_EQ(run("--lead 24 -o out.csv"), 0);
  const smooth_test::Table t = smooth_test::read_table(dir / "out.csv");
  ASSERT_EQ(t.names.size(), 9u);
  EXPECT_TRUE(t.names[3] == "U95" && t.names[8] == "SEASON");
  ASSERT_EQ(t.rows.size(), 144u + 24u);
  std::ifstream in(dir / "out.csv");
  std::string line, last;
  while (std::getline(in, line)) last = line;
  EXPECT_EQ(last.substr(0, 10), "1962-12-01");
  for (std::size_t r = 144 + 12; r < t.rows.size(); ++r) {  // the pattern repeats, the limits widen
    EXPECT_TRUE(t.rows[r][8] == t.rows[r - 12][8] && t.rows[r][2] == t.rows[r - 12][2]);
    EXPECT_GT(t.rows[r][3] - t.rows[r][2], t.rows[r - 12][3] - t.rows[r - 12][2]);
  }
  // A cycle the interval cannot have: an error and no table.
  EXPECT_NE(run("--nseasons 4 -o bad.csv"), 0);
  EXPECT_FALSE(fs::exists(dir / "bad.csv"));
  fs::remove_all(dir);
}

}  // namespace
