// Start-value regressions: every model of ztsrdmy against an independent
// least-squares solve (which also holds the closed forms of the sums of
// powers of t), and the short, empty and failing cases.
#include "regression/regression.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "primitives/primitives.h"
#include "support/trend_session.h"

namespace {

using trend_test::least_squares;

const double kMiss = esf::kMissing;

bool is_miss(double d) { return wzmis(d) != 0; }

// Which points of a series are missing.
enum class Gaps { none, sparse, block, empty_season };

struct ModelCase {
  const char* name;
  int model;  // bits: 1 constant, 2 trend, 4 quadratic, 8 seasonal dummies
  long n;
  int ns;
  Gaps gaps;
};

const ModelCase kModelCases[] = {
    {"mean_gaps", 1, 40, 0, Gaps::sparse},
    {"origin_line", 2, 30, 0, Gaps::sparse},
    {"line_gaps", 3, 144, 0, Gaps::block},
    {"origin_quadratic", 6, 50, 0, Gaps::sparse},
    {"quadratic_gaps", 7, 144, 0, Gaps::block},
    {"season_means", 8, 50, 4, Gaps::sparse},
    {"season_deviations", 9, 50, 4, Gaps::block},
    {"season_deviations_empty", 9, 36, 4, Gaps::empty_season},
    // One point more than seasons: season 0 alone carries the trend.
    {"one_more_point_than_seasons", 11, 4, 3, Gaps::none},
    {"season_constants_line", 10, 49, 12, Gaps::sparse},
    {"centred_seasons_line_gaps", 11, 100, 12, Gaps::block},
    {"centred_seasons_line_empty", 11, 37, 4, Gaps::empty_season},
    {"season_constants_quadratic", 14, 61, 5, Gaps::sparse},
    {"centred_seasons_quadratic", 15, 144, 12, Gaps::block},
    {"centred_seasons_quadratic_empty", 15, 40, 4, Gaps::empty_season},
};

void PrintTo(const ModelCase& c, std::ostream* os) { *os << c.name; }

struct Series {
  std::vector<double> y;
  std::vector<char> misflg;
};

Series make_series(const ModelCase& c) {
  Series s;
  trend_test::Noise noise(static_cast<std::uint64_t>(c.model * 1000 + c.n));
  const double season[12] = {3, -1, 0.5, 2, -2.5, 1, -0.5, 4, -3, 0.25, -1.75, -2};
  for (long i = 0; i < c.n; ++i) {
    const double t = static_cast<double>(i + 1);
    double v = 20.0 + 0.7 * t - 0.004 * t * t + noise.next();
    if (c.ns > 0) v += season[i % c.ns];
    bool gap = false;
    switch (c.gaps) {
      case Gaps::none:
        break;
      case Gaps::sparse:
        gap = i % 7 == 3;
        break;
      case Gaps::block:
        gap = i >= c.n / 3 && i < c.n / 3 + 5;
        break;
      case Gaps::empty_season:
        gap = c.ns > 0 && i % c.ns == 1;
        break;
    }
    s.y.push_back(gap ? kMiss : v);
    s.misflg.push_back(gap ? 1 : 0);
  }
  return s;
}

// The coefficients a correct fit gives, by a least-squares solve on the
// design matrix written out in full. Seasons without a point are left out
// of the design and get a missing coefficient.
struct Expected {
  double c = kMiss, t = kMiss, q = kMiss;
  std::vector<double> sd;
};

Expected reference(const ModelCase& c, const Series& s) {
  Expected e;
  const bool con = c.model & 1, tre = c.model & 2, quad = c.model & 4, sea = c.model & 8;
  std::vector<long> count(std::max(c.ns, 1), 0);
  std::vector<double> ssum(std::max(c.ns, 1), 0.0);
  double total = 0;
  long nn = 0;
  for (long i = 0; i < c.n; ++i) {
    if (s.misflg[i]) continue;
    total += s.y[i];
    ++nn;
    if (sea) {
      ++count[i % c.ns];
      ssum[i % c.ns] += s.y[i];
    }
  }
  if (sea && !tre) {
    // Season means; with a constant, deviations from the mean of all points.
    const double mu = total / nn;
    if (con) e.c = mu;
    for (int k = 0; k < c.ns; ++k) {
      e.sd.push_back(count[k] == 0 ? kMiss : ssum[k] / count[k] - (con ? mu : 0.0));
    }
    return e;
  }
  if (c.model == 1) {
    e.c = total / nn;
    return e;
  }
  std::vector<int> season_col(std::max(c.ns, 1), -1);
  int cols = 0;
  if (sea) {
    for (int k = 0; k < c.ns; ++k) {
      if (count[k] > 0) season_col[k] = cols++;
    }
  } else if (con) {
    ++cols;
  }
  const int tcol = tre ? cols++ : -1;
  const int qcol = quad ? cols++ : -1;
  std::vector<long double> x, y;
  int rows = 0;
  for (long i = 0; i < c.n; ++i) {
    if (s.misflg[i]) continue;
    const long double t = i + 1;
    std::vector<long double> row(cols, 0.0L);
    if (sea)
      row[season_col[i % c.ns]] = 1.0L;
    else if (con)
      row[0] = 1.0L;
    if (tre) row[tcol] = t;
    if (quad) row[qcol] = t * t;
    x.insert(x.end(), row.begin(), row.end());
    y.push_back(s.y[i]);
    ++rows;
  }
  const std::vector<double> beta = least_squares(x, y, rows, cols);
  if (tre) e.t = beta[tcol];
  if (quad) e.q = beta[qcol];
  if (sea) {
    double sum = 0;
    for (int k = 0; k < c.ns; ++k) {
      e.sd.push_back(count[k] == 0 ? kMiss : beta[season_col[k]]);
      if (count[k] > 0) sum += beta[season_col[k]];
    }
    if (con) {
      // Centred dummies: the constant is their mean over all ns seasons.
      e.c = sum / c.ns;
      for (double& d : e.sd) {
        if (!is_miss(d)) d -= e.c;
      }
    }
  } else if (con) {
    e.c = beta[0];
  }
  return e;
}

void expect_close(const char* what, double got, double want, double tol) {
  SCOPED_TRACE(what);
  if (is_miss(want)) {
    EXPECT_TRUE(is_miss(got)) << got;
    return;
  }
  ASSERT_FALSE(is_miss(got));
  EXPECT_NEAR(got, want, tol * (1.0 + std::fabs(want)));
}

// Residuals: y less the fitted terms, and a copy of y where no fit exists (a
// missing point, or a season without a term; fewer than 3 seasons fit none).
void expect_residuals(const Series& s, int model, int ns, double c, double t, double q, const std::vector<double>& sd,
                      const std::vector<double>& res) {
  for (std::size_t i = 0; i < s.y.size(); ++i) {
    SCOPED_TRACE(i);
    const double sdk = (model & 8) && ns >= 3 ? sd[i % ns] : 0.0;
    if (s.misflg[i] || is_miss(sdk)) {
      EXPECT_EQ(std::bit_cast<std::uint64_t>(res[i]), std::bit_cast<std::uint64_t>(s.y[i]));
      continue;
    }
    const double ti = static_cast<double>(i + 1);
    const double fit = (model & 1 ? c : 0.0) + (model & 2 ? t * ti : 0.0) + (model & 4 ? q * ti * ti : 0.0) + sdk;
    EXPECT_NEAR(res[i], s.y[i] - fit, 1e-9 * (1.0 + std::fabs(s.y[i])));
  }
}

class RegressionEdge : public ::testing::Test {
 protected:
  void SetUp() override { trend_test::connect_module(); }
};

class ModelTest : public RegressionEdge, public ::testing::WithParamInterface<ModelCase> {};

TEST_P(ModelTest, MatchesIndependentLeastSquares) {
  const ModelCase& c = GetParam();
  Series s = make_series(c);
  const Series input = s;
  const bool con = c.model & 1, tre = c.model & 2, quad = c.model & 4, sea = c.model & 8;
  double cc = 0, tc = 0, qc = 0;
  std::vector<double> sd(std::max(c.ns, 1), 0.0);
  std::vector<double> res(c.n, 0.0);
  const int status = ztsrdmy(s.y.data(), s.misflg.data(), c.n, c.ns, con ? &cc : nullptr, tre ? &tc : nullptr,
                             quad ? &qc : nullptr, sea ? sd.data() : nullptr, res.data());
  EXPECT_EQ(0, std::memcmp(s.y.data(), input.y.data(), sizeof(double) * c.n));  // input left alone
  EXPECT_EQ(s.misflg, input.misflg);
  const Expected e = reference(c, s);
  const bool has_empty = c.gaps == Gaps::empty_season;
  // Only the dummy-and-trend fits report an empty season as a reduced fit.
  EXPECT_EQ(status, has_empty && tre ? 1 : 0);

  // The normal equations of a quadratic in t are badly conditioned; the
  // sweep in double keeps about eight digits of their coefficients.
  const double tol = quad ? 1e-6 : 1e-9;
  if (con) expect_close("ccoef", cc, e.c, tol);
  if (tre) expect_close("tcoef", tc, e.t, tol);
  if (quad) expect_close("qcoef", qc, e.q, tol);
  if (sea) {
    for (int k = 0; k < c.ns; ++k) {
      expect_close(("sdcoef " + std::to_string(k)).c_str(), sd[k], e.sd[k], tol);
    }
  }

  expect_residuals(s, c.model, c.ns, cc, tc, qc, sd, res);
}

INSTANTIATE_TEST_SUITE_P(AllModels, ModelTest, ::testing::ValuesIn(kModelCases),
                         [](const auto& test) { return std::string(test.param.name); });

// Few points, short series and unusable models, with the answers written out
// (statuses below -2 leave the outputs alone and aren't looked at).
TEST_F(RegressionEdge, FewPointsShortSeriesAndUnusableModels) {
  const struct {
    const char* label;
    int model;
    int ns;
    std::vector<double> y;
    int status;
    double c, t, q;
    std::vector<double> sd;  // the ns season terms of a model with seasons
  } cases[] = {
      {"one point is too few", 3, 0, {5.0}, -2, kMiss, kMiss, 0, {}},
      {"nothing asked wins over too few", 0, 0, {5.0}, -3, 0, 0, 0, {}},
      {"a line through one remaining point", 3, 0, {kMiss, 7.5}, 0, 7.5, 0.0, 0, {}},
      {"through the origin one point fixes the slope", 2, 0, {kMiss, 7.5}, 0, 0, 2.0 * 7.5 / 4.0, 0, {}},
      {"a quadratic through one point", 7, 0, {kMiss, 7.5}, 0, 7.5, 0.0, 0.0, {}},
      {"a quadratic without its linear term", 5, 0, {1, 2, 3, 4}, -99, 0, 0, 0, {}},
      // Two seasons set no seasonal bit, but their terms are cleared.
      {"two seasons", 9, 2, {1, 2, 3, 4, 5}, 0, 3.0, 0, 0, {kMiss, kMiss}},
      // No more points than seasons: each point is its own season, and
      // longer cycles than points leave the remaining seasons missing.
      {"a season a point", 11, 5, {4, 8, kMiss, 6, 2}, 1, 5.0, 0.0, 0, {-1, 3, kMiss, 1, -3}},
      {"more seasons than points", 8, 7, {4, 8, kMiss, 6, 2}, 1, 0, 0, 0, {4, 8, kMiss, 6, 2, kMiss, kMiss}},
      // More points than seasons, but missing points leave each season one.
      {"one point in every season", 11, 3, {1, 2, 3, kMiss, kMiss, kMiss}, 1, 2.0, 0.0, 0, {-1, 0, 1}},
      {"one point in every season, means", 8, 3, {1, 2, 3, kMiss, kMiss, kMiss}, 1, 0, 0, 0, {1, 2, 3}},
  };
  for (const auto& k : cases) {
    SCOPED_TRACE(k.label);
    Series s{k.y, {}};
    for (double v : s.y) s.misflg.push_back(is_miss(v) ? 1 : 0);
    double c = 1, t = 1, q = 1;
    std::vector<double> sd(std::max(k.ns, 1), 1.0), res(s.y.size(), 1.0);
    EXPECT_EQ(ztsrdmy(s.y.data(), s.misflg.data(), static_cast<long>(s.y.size()), k.ns, (k.model & 1) ? &c : nullptr,
                      (k.model & 2) ? &t : nullptr, (k.model & 4) ? &q : nullptr, (k.model & 8) ? sd.data() : nullptr,
                      res.data()),
              k.status);
    if (k.status < -2) continue;
    if (k.model & 1) expect_close("ccoef", c, k.c, 1e-15);
    if (k.model & 2) expect_close("tcoef", t, k.t, 1e-15);
    if (k.model & 4) expect_close("qcoef", q, k.q, 1e-15);
    for (std::size_t j = 0; j < k.sd.size(); ++j)
      expect_close(("sdcoef " + std::to_string(j)).c_str(), sd[j], k.sd[j], 1e-15);
    if (k.status >= 0) expect_residuals(s, k.model, k.ns, c, t, q, sd, res);
  }
}

TEST_F(RegressionEdge, AllMissingIsTooFewInEveryModel) {
  std::vector<double> y(12, kMiss);
  std::vector<char> m(12, 1);
  double c, t, q, sd[3];
  for (int model : {1, 2, 3, 6, 7, 8, 9, 10, 11, 14, 15}) {
    SCOPED_TRACE(model);
    const int status = ztsrdmy(y.data(), m.data(), 12, 3, (model & 1) ? &c : nullptr, (model & 2) ? &t : nullptr,
                               (model & 4) ? &q : nullptr, (model & 8) ? sd : nullptr, nullptr);
    EXPECT_EQ(status, -2);
    EXPECT_TRUE(!(model & 1) || is_miss(c));
    EXPECT_TRUE(!(model & 2) || is_miss(t));
    EXPECT_TRUE(!(model & 8) || is_miss(sd[0]));
  }
}

// The seasonal factors are ratios to the common line at t = 1; where that
// line is zero there are no ratios, and every factor is 1 whatever the
// seasons' own lines.
TEST_F(RegressionEdge, FactorsOfALineThroughZeroAreOne) {
  std::vector<double> y;
  for (int t = 1; t <= 12; ++t) y.push_back((8.0 - 8.0 * t) * (t % 2 == 1 ? 0.5 : 1.5));
  std::vector<char> m(12, 0);
  double c = 1, t = 1, sd[2] = {};
  EXPECT_EQ(ztsrsdm(y.data(), m.data(), 12, 2, &c, &t, sd, nullptr), 0);
  EXPECT_EQ(c + t, 0.0);
  EXPECT_EQ(sd[0], 1.0);
  EXPECT_EQ(sd[1], 1.0);
}

TEST_F(RegressionEdge, NoMemoryLeavesOutputsMissingAndReturnsEveryBlock) {
  ModelCase c{"gaps", 15, 48, 12, Gaps::sparse};
  Series s = make_series(c);
  const std::size_t before = esf::host::pool_outstanding();
  for (long grant : {0L, 1L, 3L, 4L}) {
    SCOPED_TRACE(grant);
    double cc = 0, tc = 0, qc = 0, sd[12] = {};
    esf::host::pool_fail_after(grant);
    const int status = ztsrdmy(s.y.data(), s.misflg.data(), c.n, c.ns, &cc, &tc, &qc, sd, nullptr);
    esf::host::pool_fail_after(-1);
    EXPECT_EQ(status, -1);
    EXPECT_TRUE(is_miss(cc));
    EXPECT_TRUE(is_miss(tc));
    EXPECT_TRUE(is_miss(qc));
    EXPECT_TRUE(is_miss(sd[0]));
    EXPECT_EQ(esf::host::pool_outstanding(), before);
  }
  // After the failures the same call succeeds and still returns its blocks.
  double cc = 0, tc = 0, qc = 0, sd[12] = {};
  EXPECT_EQ(ztsrdmy(s.y.data(), s.misflg.data(), c.n, c.ns, &cc, &tc, &qc, sd, nullptr), 0);
  EXPECT_EQ(esf::host::pool_outstanding(), before);
}

}  // namespace
