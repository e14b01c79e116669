// Seasonal exponential smoothing: the guards, the stability region, the
// centring, the forecast variance against the moving-average weights and
// start values against the regression (the passes against the textbook
// recursion and the properties every family shares are in family_test.cpp).

#include <cmath>
#include <filesystem>
#include <numeric>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "host/host.h"
#include "numeric/numeric.h"
#include "regression/regression.h"
#include "smoothing/essfit.h"
#include "smoothing/esssubs.h"
#include "support/pass_compare.h"
#include "support/smooth_model.h"

namespace {

using smooth_test::expect_rel;
using smooth_test::is_miss;
using smooth_test::kMiss;

using smooth_test::example_series;
const double kNaN = std::nan("");

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

struct Pair {
  double a, g;
};
const Pair kWeights[] = {{0.3, 0.2}, {0.8, 0.05}, {0.05, 0.9}, {0.4, 0.0}, {0.0, 0.4}, {0.999, 0.001}};
class Ess : public ::testing::Test {
 protected:
  void SetUp() override { smooth_test::connect_module(); }
};

TEST_F(Ess, GuardsOfTheKernel) {
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

  Seasonal ser({1.0, 2.0, kNaN}, 2);
  double g[2] = {0.0, 0.0}, mse = 0.0;
  EXPECT_EQ(zesssmo(ser.x.data(), ser.mis.data(), 3, 3, 2, 0.3, 2e152, &level, g, ser.codes.data(), &mse, 0, 0), -9);
}

// With no observation rows (end -1) the forecasts run from season 0 on the
// state handed in, and nothing before them counts towards the mse.
TEST_F(Ess, ForecastsWithoutObservationRowsStartAtSeasonZero) {
  Seasonal ser({1.0, 2.0, 3.0, 4.0}, 3);
  double level = 10.0, mse = 0.0;
  double f[3] = {1.0, 2.0, 3.0};
  std::vector<double> rows(8 * 4);
  ASSERT_EQ(zessprd(ser.x.data(), ser.mis.data(), 12.0, 4, 3, 0.5, 0.5, &level, f, ser.codes.data(), 0, -1, 4, 1.0,
                    0.05, 1, &mse, rows.data()),
            0);
  EXPECT_EQ(mse, 0.0);
  for (int k = 0; k < 4; ++k) {
    SCOPED_TRACE(k + 1);
    EXPECT_EQ(rows[8 * k + 7], f[k % 3]);
    EXPECT_EQ(rows[8 * k + 1], 10.0 + f[k % 3]);
    EXPECT_EQ(rows[8 * k + 6], 10.0);
  }
}

// The numeric derivative without memory: -100.
TEST_F(Ess, NumericDerivativeWithoutMemory) {
  Seasonal gas(example_series("UKgas.csv"), 4);
  std::vector<double> f(4, 0.0);
  double deltas[2] = {1e-6, 1e-6}, pder[2];
  esf::host::pool_fail_after(0);
  EXPECT_EQ(zessnpd(gas.x.data(), gas.mis.data(), gas.norm, gas.n(), 4, 0.3, 0.3, 400.0, f.data(), gas.codes.data(),
                    deltas, 0, pder),
            -100);
  esf::host::pool_fail_after(-1);
  xmemdef();
}

// The derivative passes' lanes on every instruction set the processor has
// give the bits of the checked scalar pass wherever no guard tripped, over
// missing observations and alternating signs too; weights outside the
// bounds and a series near the limits trip the guards.
TEST_F(Ess, DerivativeLanesGiveTheBitsOfTheCheckedPass) {
  std::vector<double> gaps = example_series("AirPassengers.csv");
  gaps[5] = gaps[40] = gaps[143] = kNaN;
  std::vector<double> alternating = example_series("UKgas.csv");
  for (std::size_t t = 0; t < alternating.size(); t += 2) alternating[t] = -alternating[t];
  std::vector<double> big = example_series("USAccDeaths.csv");
  for (double& v : big) v *= 1e150;
  std::vector<Pair> weights(std::begin(kWeights), std::end(kWeights));
  weights.insert(weights.end(), {{1.6, 0.5}, {-0.3, 1.7}});
  const bool avx = __builtin_cpu_supports("avx");
  int count[2] = {};
  for (const auto& [x, ns] : {std::pair{gaps, 12}, std::pair{alternating, 4}, std::pair{big, 12}}) {
    smooth_test::Model m(x, 2);
    m.seasons(ns);
    ASSERT_EQ(zesssvi(m->ts.x, m->ts.misflg, m->ts.nobs, ns, 0, 1, &m->svi.level, m->svi.sfactor), 0);
    for (const int isa : {1, avx ? 2 : 1}) {
      for (const Pair& w : weights) {
        const double wv[2] = {w.a, w.g};
        pass_test::expect_lanes_give_scalar_bits<ess::FactorUpdate, 2>(m.get(), ns, {m->svi.level, 0.0, {}}, wv, isa,
                                                                       count);
      }
    }
  }
  EXPECT_GT(count[0], 0);
  EXPECT_GT(count[1], 0);
}

TEST_F(Ess, StabilityRegion) {
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
        expect_rel(vm, psi_sum, 1e-12, std::to_string(k));
      } else if (d > 0.0) {
        EXPECT_GT(vm, psi_sum * (1.0 + 1e-12)) << k;
      }
      if (k == ns + 1) {
        expect_rel(vm, 1.0 + w.a * w.a * ns + d * (2.0 * w.a + d), 1e-12);
      }
      const int s = static_cast<int>((n - 1 + k) % ns);
      EXPECT_TRUE(row[1] == level + f[s] && row[7] == f[s] && row[6] == level) << k;
      EXPECT_TRUE(is_miss(row[0]) && is_miss(row[4]));
      expect_rel(row[2] - row[1], zprobit(0.975) * row[5], 1e-12);
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
  // A reduced regression (no season with two points): its constant is the level.
  Seasonal few({10.0, 20.0, 30.0, 40.0, 50.0}, 12);
  ASSERT_EQ(ztsrdmy(few.x.data(), few.mis.data(), 5, 12, &ccoef, nullptr, nullptr, csfact.data(), nullptr), 1);
  ASSERT_EQ(zesssvi(few.x.data(), few.mis.data(), 5, 12, 0, 1, &level, f.data()), 0);
  EXPECT_EQ(level, ccoef);
  for (int i = 0; i < 12; ++i) EXPECT_EQ(f[i], is_miss(csfact[i]) ? 0.0 : csfact[i]);
  // No memory: -100.
  esf::host::pool_fail_after(0);
  EXPECT_EQ(zesssvi(ser.x.data(), ser.mis.data(), ser.n(), 12, 0, 1, &level, f.data()), -100);
  esf::host::pool_fail_after(-1);
  xmemdef();
}

// A seasonal model of a series with its season codes and start values.
struct SeasonalModel : smooth_test::Model {
  SeasonalModel(const std::vector<double>& values, int ns) : Model(values, 2) {
    seasons(ns);
    EXPECT_EQ(zesssvi(get()->ts.x, get()->ts.misflg, get()->ts.nobs, ns, 0, 1, &get()->svi.level, get()->svi.sfactor),
              0);
  }
};

TEST_F(Ess, FitWithoutMemory) {
  const std::vector<double> air = example_series("AirPassengers.csv");
  SeasonalModel m(std::vector<double>(air.begin(), air.begin() + 13), 12);
  esf::host::pool_fail_after(1);
  EXPECT_EQ(nessfit(m.get()), -100);
  esf::host::pool_fail_after(-1);
  xmemdef();
}

}  // namespace
