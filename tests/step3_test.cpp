// The three-weight constrained step: the solves of nextstep against an
// independent least-squares solve, and trystep at the corners and faces of
// the box of bounds.
#include <cmath>
#include <cstring>
#include <vector>

#include <gtest/gtest.h>

#include "smoothing/es3fit.h"
#include "smoothing/winfit.h"
#include "support/trend_session.h"

namespace {

using trend_test::least_squares;

constexpr double kBig = 1.3407807929943e+154;

// ---------------------------------------------------------------------------
// divide
// ---------------------------------------------------------------------------

TEST(Step3Divide, GuardsOverflowByTheSignOfTheQuotient) {
  struct Case {
    double num, den, want;
  } const cases[] = {
      {6.0, 3.0, 2.0},                                   // |den| >= 1: plain
      {3e-300, 0.5, 6e-300},                             // tiny denominator, quotient still finite
      {-1.0, 0.0, -kBig},                                // zero denominator: the numerator's sign
      {0.0, 0.0, 0.0},         {1e300, -1e-200, -kBig},  // would overflow
      {-1e300, -1e-200, kBig},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.num << " / " << c.den);
    EXPECT_EQ(smoothing::frame::bounded_divide(c.num, c.den), c.want);
  }
}

// ---------------------------------------------------------------------------
// nextstep: the solves
// ---------------------------------------------------------------------------

// A synthetic Gauss-Newton problem: m rows of three derivatives and an
// error, and its packed cross products.
struct Problem {
  int m = 0;
  std::vector<double> j;  // m x 3, row-major
  std::vector<double> e;
  double xpx[10] = {};

  void accumulate() {
    std::memset(xpx, 0, sizeof xpx);
    for (int r = 0; r < m; ++r) {
      const double v[4] = {j[r * 3], j[r * 3 + 1], j[r * 3 + 2], e[r]};
      for (int a = 0; a < 4; ++a) {
        for (int b = 0; b <= a; ++b) xpx[esf::packed_index(a, b)] += v[a] * v[b];
      }
    }
  }
  double sse() const {
    double s = 0;
    for (double v : e) s += v * v;
    return s;
  }
  // Minus the regression of e on the columns `cols`, with the diagonal of
  // the normal equations raised by `ridge` (ridge regression by augmented
  // rows), and the residual sum of squares of the plain regression.
  std::vector<double> step(const std::vector<int>& cols, double ridge, double* rss = nullptr) const {
    const int k = static_cast<int>(cols.size());
    std::vector<long double> x, y;
    for (int r = 0; r < m; ++r) {
      for (int c : cols) x.push_back(j[r * 3 + c]);
      y.push_back(e[r]);
    }
    int rows = m;
    if (ridge > 1.0) {
      // (J'J + (ridge - 1) diag(J'J)) b = J'e as least squares on extra rows.
      for (int a = 0; a < k; ++a) {
        long double d = 0;
        for (int r = 0; r < m; ++r) d += static_cast<long double>(j[r * 3 + cols[a]]) * j[r * 3 + cols[a]];
        for (int b = 0; b < k; ++b) x.push_back(a == b ? std::sqrt((ridge - 1.0L) * d) : 0.0L);
        y.push_back(0.0L);
        ++rows;
      }
    }
    std::vector<double> beta = least_squares(x, y, rows, k);
    if (rss) {
      long double s = 0;
      for (int r = 0; r < m; ++r) {
        long double fit = 0;
        for (int a = 0; a < k; ++a) fit += static_cast<long double>(j[r * 3 + cols[a]]) * beta[a];
        s += (e[r] - fit) * (e[r] - fit);
      }
      *rss = static_cast<double>(s);
    }
    for (double& b : beta) b = -b;
    return beta;
  }
};

// Derivatives that are far from collinear, and an error that is partly
// explained by them and scaled so that the Gauss-Newton step is short.
Problem make_problem(int m, double error_scale, bool dead_third = false) {
  Problem p;
  p.m = m;
  trend_test::Noise noise(17);
  for (int r = 0; r < m; ++r) {
    const double a = noise.next(), b = noise.next(), c = noise.next();
    p.j.insert(p.j.end(), {1.0 + a, 0.5 * b + 0.2 * a, dead_third ? 0.0 : c - 0.3 * b});
    p.e.push_back(error_scale * (0.3 * a - 0.2 * b + 0.1 * c + 0.5 * noise.next()));
  }
  p.accumulate();
  return p;
}

double relative_offset(double rss, double sse) {
  const double q = 1.0 - rss / sse;
  return q > 1.0 ? 1.0 : (q > 0.0 ? std::sqrt(q) : 0.0);
}

class Step3Solve : public ::testing::Test {
 protected:
  void SetUp() override {
    trend_test::connect_module();
    std::memset(&model_, 0, sizeof model_);
    std::memset(&fitcon_, 0, sizeof fitcon_);
    std::memset(&point_, 0, sizeof point_);
    model_.wbnds.bounds = 1;
    point_.wbnds.dim = 3;
    point_.wbnds.nextdim = 3;
  }
  int solve(Problem& p) {
    double xpx[10];
    std::memcpy(xpx, p.xpx, sizeof xpx);
    fitcon_.n = p.m;
    return smoothing::frame::solven<es3::Family>(&model_, &fitcon_, &point_, xpx, 0);
  }
  WINMODEL model_;
  FITCON fitcon_;
  POINT point_;
};

TEST_F(Step3Solve, FullStepIsTheDampedGaussNewtonStepCappedAtLengthOne) {
  struct Case {
    int m;
    double error_scale, lambda;
  } const cases[] = {{40, 0.1, 0.0}, {30, 50.0, 0.0}, {40, 0.1, 0.5}};
  for (const Case& c : cases) {
    SetUp();
    SCOPED_TRACE(testing::Message() << c.error_scale << " " << c.lambda);
    Problem p = make_problem(c.m, c.error_scale);
    fitcon_.lambda = c.lambda;
    ASSERT_EQ(solve(p), 0);
    const std::vector<double> want = p.step({0, 1, 2}, 1.0 + c.lambda);
    const double len = std::sqrt(want[0] * want[0] + want[1] * want[1] + want[2] * want[2]);
    const double scale = len > 1.0 ? len : 1.0;
    for (int k = 0; k < 3; ++k) EXPECT_NEAR(point_.delta[k], want[k] / scale, 1e-10) << k;
    EXPECT_NEAR(point_.delta_norm, len / scale, 1e-12);
    EXPECT_EQ(point_.rankxpx, 3);
    // The convergence measure does not depend on lambda.
    double rss = 0;
    p.step({0, 1, 2}, 1.0, &rss);
    EXPECT_NEAR(point_.rr[2], relative_offset(rss, p.sse()), 1e-9);
    EXPECT_NEAR(point_.mse, p.sse() / p.m, 1e-15 * p.sse());
    EXPECT_EQ(point_.nobs, c.m);
    for (int k = 0; k < 3; ++k) {
      EXPECT_NEAR(point_.grad[k], 2.0 * p.xpx[esf::packed_index(k, 3)] / p.m,
                  1e-15 * (1.0 + std::fabs(point_.grad[k])));
    }
    // Half the diagonal of the inverse of J'J (up to its sign) feeds the
    // standard errors; inv(J'J)_kk is 1 / (the residual sum of squares of
    // column k regressed on the other two).
    Problem unit = p;
    for (int k = 0; k < 3; ++k) {
      std::vector<int> others;
      for (int o = 0; o < 3; ++o) {
        if (o != k) others.push_back(o);
      }
      unit.e.clear();
      for (int r = 0; r < p.m; ++r) unit.e.push_back(p.j[r * 3 + k]);
      double rss0 = 0;
      unit.step(others, 1.0, &rss0);
      EXPECT_NEAR(std::fabs(point_.xpxdiag[k]), 0.5 / rss0, 1e-9 * (0.5 / rss0)) << k;
    }
  }
}

TEST_F(Step3Solve, PairAndSingleStepsFollowThePositionOfThePoint) {
  struct Case {
    const char* name;
    int lev, tre, dam;    // flags of the point
    char levchn, trechn;  // pins of the point
    int dim, nextdim;
    int pair_a, pair_b;  // -1: no pair step
    int single;          // -1: no single step
  } const cases[] = {
      {"level_and_trend_inside", 0, 0, 1, 0, 0, 3, 2, 0, 1, -1},
      {"trend_on_bound", 0, -1, 0, 0, 0, 3, 2, 0, 2, -1},
      {"level_on_bound", 1, 0, 0, 0, 0, 3, 2, 1, 2, -1},
      {"pinned_trend_picks_by_pins", 0, 0, 0, 0, 1, 2, 3, 0, 2, -1},
      {"corner", -1, 1, -1, 0, 0, 3, 0, -1, -1, 2},
      {"all_inside", 0, 0, 0, 0, 0, 3, 3, -1, -1, -1},
  };
  Problem p = make_problem(40, 0.1);
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    for (int k = 0; k < 3; ++k) point_.delta1[k] = point_.delta2[k] = 7.0;
    point_.rr[0] = point_.rr[1] = 7.0;
    point_.wbnds.wlevflg = c.lev;
    point_.wbnds.wtreflg = c.tre;
    point_.wbnds.wdamflg = c.dam;
    point_.wbnds.wlevchn = c.levchn;
    point_.wbnds.wtrechn = c.trechn;
    point_.wbnds.dim = static_cast<char>(c.dim);
    point_.wbnds.nextdim = static_cast<char>(c.nextdim);
    ASSERT_EQ(solve(p), 0);
    if (c.pair_a >= 0) {
      double rss = 0;
      const std::vector<double> want = p.step({c.pair_a, c.pair_b}, 1.0, &rss);
      EXPECT_NEAR(point_.delta2[c.pair_a], want[0], 1e-10);
      EXPECT_NEAR(point_.delta2[c.pair_b], want[1], 1e-10);
      EXPECT_EQ(point_.delta2[3 - c.pair_a - c.pair_b], 0.0);
      EXPECT_NEAR(point_.rr[1], relative_offset(rss, p.sse()), 1e-9);
    } else {
      EXPECT_EQ(point_.delta2[0], 7.0);  // untouched
      EXPECT_EQ(point_.rr[1], 7.0);
    }
    if (c.single >= 0) {
      double rss = 0;
      const std::vector<double> want = p.step({c.single}, 1.0, &rss);
      EXPECT_NEAR(point_.delta1[c.single], want[0], 1e-12);
      for (int k = 0; k < 3; ++k) {
        if (k != c.single) {
          EXPECT_EQ(point_.delta1[k], 0.0);
        }
      }
      EXPECT_NEAR(point_.rr[0], relative_offset(rss, p.sse()), 1e-9);
      EXPECT_EQ(point_.delta_norm1, std::fabs(point_.delta1[c.single]));
    } else {
      EXPECT_EQ(point_.delta1[0], 7.0);
      EXPECT_EQ(point_.rr[0], 7.0);
    }
  }
}

TEST_F(Step3Solve, WithoutBoundsOnlyTheFullStepIsSolved) {
  Problem p = make_problem(40, 0.1);
  model_.wbnds.bounds = 0;
  point_.wbnds.nextdim = 0;
  point_.delta1[0] = point_.delta2[0] = 7.0;
  ASSERT_EQ(solve(p), 0);
  EXPECT_EQ(point_.delta1[0], 7.0);
  EXPECT_EQ(point_.delta2[0], 7.0);
  EXPECT_NE(point_.delta[0], 0.0);
}

TEST_F(Step3Solve, AFailedPivotLeavesItsWeightOut) {
  Problem p = make_problem(40, 0.1, /*dead_third=*/true);
  ASSERT_EQ(solve(p), 0);
  EXPECT_EQ(point_.rankxpx, 2);
  EXPECT_EQ(point_.delta[2], 0.0);
  const std::vector<double> want = p.step({0, 1}, 1.0);
  EXPECT_NEAR(point_.delta[0], want[0], 1e-10);
  EXPECT_NEAR(point_.delta[1], want[1], 1e-10);
}

TEST_F(Step3Solve, NoObservationIsTooFew) {
  Problem p = make_problem(5, 0.1);
  double xpx[10];
  std::memcpy(xpx, p.xpx, sizeof xpx);
  fitcon_.n = 5;
  EXPECT_EQ(smoothing::frame::solven<es3::Family>(&model_, &fitcon_, &point_, xpx, 5), -2);
}

// ---------------------------------------------------------------------------
// trystep: the box
// ---------------------------------------------------------------------------

// Stands in for the frame's nextstep: records the trial and answers with
// fixed offsets and a configurable single step.
struct FakeEvaluation {
  int calls = 0;
  int rc = 0;
  double delta1[3] = {};
  POINT seen{};
};
FakeEvaluation g_eval;

int fake_nextstep(POINT* point) {
  ++g_eval.calls;
  g_eval.seen = *point;
  point->rr[0] = 0.11;
  point->rr[1] = 0.22;
  point->rr[2] = 0.33;
  for (int k = 0; k < 3; ++k) point->delta1[k] = g_eval.delta1[k];
  return g_eval.rc;
}

class Step3Box : public ::testing::Test {
 protected:
  void SetUp() override {
    trend_test::connect_module();
    g_eval = FakeEvaluation{};
    std::memset(&model_, 0, sizeof model_);
    std::memset(&fitcon_, 0, sizeof fitcon_);
    std::memset(&current_, 0, sizeof current_);
    std::memset(&new_, 0, sizeof new_);
    WGTBNDS& b = model_.wbnds;
    b.bounds = 1;
    // A snap tolerance far below any step, so that a weight cut at a bound
    // lands on it exactly.
    const double lev[3] = {0.001, 0.999, 1e-12}, damp[3] = {0.9, 0.999, 1e-12};
    std::memcpy(b.wlevel, lev, sizeof lev);
    std::memcpy(b.wtrend, lev, sizeof lev);
    std::memcpy(b.wseason, lev, sizeof lev);
    std::memcpy(b.wdamp, damp, sizeof damp);
    current_.wlevel = 0.5;
    current_.wtrend = 0.2;
    current_.wdamp = 0.95;
    current_.wbnds.dim = current_.wbnds.nextdim = 3;
  }
  int step(double stepsize, bool season = false) {
    using smoothing::frame::trystepn;
    return season ? trystepn<win::Family>(&model_, &fitcon_, &current_, stepsize, &new_, fake_nextstep)
                  : trystepn<es3::Family>(&model_, &fitcon_, &current_, stepsize, &new_, fake_nextstep);
  }
  void fix(double* bounds, double value) { bounds[0] = bounds[1] = value; }
  WINMODEL model_;
  FITCON fitcon_;
  POINT current_;
  POINT new_;
};

TEST_F(Step3Box, TrialsAreCutToTheBoxAndPinnedWeightsStay) {
  constexpr double kFree = NAN;
  struct Case {
    const char* what;
    double cur[3];              // level, trend, third weight
    signed char flags[3];       // of the current point
    double lo[3], hi[3];        // bounds; equal bounds fix a weight
    double d[3], d2[3], d1[3];  // full, pair and single steps
    double stepsize;
    bool season;
    double want[3];
    int dim, nextdim;  // -1: not checked
    double r;          // rr[0], rr[1] or rr[2] of the evaluation
  };
  const double cut = (0.999 - 0.95) / 0.2;  // the damping weight reaches its bound first
  const Case cases[] = {
      {"inside the box",
       {0.5, 0.2, 0.95},
       {0, 0, 0},
       {kFree, kFree, kFree},
       {kFree, kFree, kFree},
       {0.1, -0.05, 0.01},
       {},
       {},
       0.5,
       false,
       {0.55, 0.175, 0.955},
       3,
       3,
       0.33},
      {"crossing a bound stops on it",
       {0.5, 0.2, 0.95},
       {0, 0, 0},
       {kFree, kFree, kFree},
       {kFree, kFree, kFree},
       {0.1, 0.1, 0.2},
       {},
       {},
       1.0,
       false,
       {0.5 + 0.1 * cut, 0.2 + 0.1 * cut, 0.999},
       3,
       2,
       0.33},
      {"pressing the same bound takes the pair step",
       {0.5, 0.2, 0.999},
       {0, 0, 1},
       {kFree, kFree, kFree},
       {kFree, kFree, kFree},
       {0.1, 0.1, 0.2},
       {0.05, -0.02, 0.0},
       {},
       1.0,
       false,
       {0.55, 0.18, 0.999},
       2,
       -1,
       0.22},
      // A fixed weight sits on both its bounds, so it is not strictly inside.
      {"a fixed weight is held from the first step",
       {0.5, 0.2, 0.95},
       {0, 0, 0},
       {kFree, 0.2, kFree},
       {kFree, 0.2, kFree},
       {0.1, 0.3, 0.01},
       {0.04, 0.0, 0.02},
       {},
       1.0,
       false,
       {0.54, 0.2, 0.97},
       -1,
       2,
       0.22},
      {"two fixed weights leave the single step",
       {0.5, 0.2, 0.95},
       {0, 0, 0},
       {0.5, 0.2, kFree},
       {0.5, 0.2, kFree},
       {0.1, 0.3, 0.01},
       {0.1, 0.3, 0.01},
       {0.0, 0.0, 0.03},
       0.5,
       false,
       {0.5, 0.2, 0.965},
       1,
       -1,
       0.11},
      // A cut fraction of 0 is not passed over: the trial is the point.
      {"trend on its lower bound stepping out",
       {0.5, 0.0011, 0.95},
       {0, 0, 0},
       {kFree, 0.0011, kFree},
       {kFree, kFree, kFree},
       {0.1, -0.2, 0.01},
       {},
       {},
       1.0,
       false,
       {0.5, 0.0011, 0.95},
       -1,
       -1,
       0.33},
      {"the Winters family moves its seasonal weight",
       {0.5, 0.2, 0.3},
       {0, 0, 0},
       {kFree, kFree, kFree},
       {kFree, kFree, 0.35},
       {0.0, 0.01, 0.1},
       {},
       {},
       1.0,
       true,
       {0.5, 0.205, 0.35},
       3,
       2,
       0.33},
  };
  for (const Case& c : cases) {
    SetUp();
    SCOPED_TRACE(c.what);
    const bool season = c.season;
    double* bounds[3] = {model_.wbnds.wlevel, model_.wbnds.wtrend, season ? model_.wbnds.wseason : model_.wbnds.wdamp};
    char* fixed[3] = {&model_.wbnds.wlevflg, &model_.wbnds.wtreflg,
                      season ? &model_.wbnds.wseaflg : &model_.wbnds.wdamflg};
    for (int k = 0; k < 3; ++k) {
      if (!std::isnan(c.lo[k])) bounds[k][0] = c.lo[k];
      if (!std::isnan(c.hi[k])) bounds[k][1] = c.hi[k];
      *fixed[k] = bounds[k][0] == bounds[k][1];
      current_.delta[k] = c.d[k];
      current_.delta2[k] = c.d2[k];
      current_.delta1[k] = c.d1[k];
    }
    current_.wlevel = c.cur[0];
    current_.wtrend = c.cur[1];
    (season ? current_.wseason : current_.wdamp) = c.cur[2];
    if (season) current_.wdamp = 0.0;
    current_.wbnds.wlevflg = c.flags[0];
    current_.wbnds.wtreflg = c.flags[1];
    current_.wbnds.wdamflg = c.flags[2];
    ASSERT_EQ(step(c.stepsize, c.season), 0);
    const double got[3] = {new_.wlevel, new_.wtrend, season ? new_.wseason : new_.wdamp};
    double change = 0.0;
    for (int k = 0; k < 3; ++k) {
      EXPECT_NEAR(got[k], c.want[k], 1e-15) << k;
      // A weight stopped by a bound lands on it exactly.
      if (c.want[k] == bounds[k][0] || c.want[k] == bounds[k][1]) {
        EXPECT_EQ(got[k], c.want[k]) << k;
      }
      change += (got[k] - c.cur[k]) * (got[k] - c.cur[k]);
    }
    EXPECT_NEAR(new_.change, std::sqrt(change), 1e-15);
    if (season) {
      EXPECT_EQ(new_.wdamp, 0.0);
    }
    if (c.dim >= 0) {
      EXPECT_EQ(new_.wbnds.dim, c.dim);
    }
    if (c.nextdim >= 0) {
      EXPECT_EQ(new_.wbnds.nextdim, c.nextdim);
    }
    EXPECT_EQ(new_.r, c.r);
  }
}

TEST_F(Step3Box, ThreeFixedWeightsCannotMove) {
  fix(model_.wbnds.wlevel, 0.5);
  fix(model_.wbnds.wtrend, 0.2);
  fix(model_.wbnds.wdamp, 0.95);
  model_.wbnds.wlevflg = model_.wbnds.wtreflg = model_.wbnds.wdamflg = 1;
  current_.delta[0] = 0.1;
  EXPECT_EQ(step(1.0), -9);
  EXPECT_EQ(g_eval.calls, 0);
  // At a corner the search has already accepted, the trial is the point.
  current_.rflag = 1;
  current_.r = 0.5;
  ASSERT_EQ(step(1.0), 0);
  EXPECT_EQ(new_.r, 0.0);
  EXPECT_EQ(new_.wlevel, 0.5);
  EXPECT_EQ(g_eval.calls, 0);
}

TEST_F(Step3Box, AtACornerTheSingleStepDecidesWhetherTheSearchEnds) {
  // Level and trend pinned on their lower bounds, damping driven to its
  // upper bound; the single step afterwards points out of or into the box.
  for (const double single : {0.01, -0.01}) {
    SetUp();
    SCOPED_TRACE(single);
    current_.wlevel = 0.001;
    current_.wtrend = 0.001;
    current_.wbnds.wlevflg = -1;
    current_.wbnds.wtreflg = -1;
    const double d[3] = {-0.1, -0.1, 0.2};
    const double d1[3] = {0.0, 0.0, 0.2};
    std::memcpy(current_.delta, d, sizeof d);
    std::memcpy(current_.delta2, d, sizeof d);
    std::memcpy(current_.delta1, d1, sizeof d1);
    g_eval.delta1[2] = single;
    ASSERT_EQ(step(1.0), 0);
    EXPECT_EQ(new_.wdamp, 0.999);
    EXPECT_EQ(new_.rflag, single > 0.0);
    EXPECT_EQ(new_.r, 0.11);  // rr[0]: the first visit of the corner
    if (single > 0.0) {
      EXPECT_EQ(new_.wbnds.nextdim, 0);
      // The next trial from the flagged corner ends with r = 0.
      current_ = new_;
      std::memset(&new_, 0, sizeof new_);
      ASSERT_EQ(step(1.0), 0);
      EXPECT_EQ(new_.r, 0.0);
    }
  }
}

TEST_F(Step3Box, WeightsWithinTheirToleranceSnapOntoTheBound) {
  model_.wbnds.wlevel[2] = 0.01;
  const double d[3] = {0.49, 0.0, 0.0};
  std::memcpy(current_.delta, d, sizeof d);
  current_.delta[1] = 1e-3;
  ASSERT_EQ(step(1.0), 0);
  EXPECT_EQ(new_.wlevel, 0.999);  // 0.99 is within 0.01 of the bound
  EXPECT_EQ(new_.wbnds.nextdim, 2);
}

TEST_F(Step3Box, WithoutBoundsTheStepIsFreeAndFailuresPassThrough) {
  model_.wbnds.bounds = 0;
  const double d[3] = {2.0, -1.0, 0.5};
  std::memcpy(current_.delta, d, sizeof d);
  ASSERT_EQ(step(1.0), 0);
  EXPECT_DOUBLE_EQ(new_.wlevel, 2.5);
  EXPECT_DOUBLE_EQ(new_.wtrend, -0.8);
  EXPECT_DOUBLE_EQ(new_.wdamp, 1.45);
  EXPECT_EQ(new_.wbnds.dim, 3);
  EXPECT_EQ(new_.r, 0.33);
  g_eval.rc = -9;
  EXPECT_EQ(step(0.5), -9);
  EXPECT_EQ(fitcon_.subiter, 2);
}

TEST_F(Step3Box, WithBoundsAFailedEvaluationIsReturnedAtOnce) {
  current_.delta[0] = 0.01;
  current_.delta[1] = 0.01;
  g_eval.rc = -2;
  EXPECT_EQ(step(1.0), -2);
  EXPECT_EQ(fitcon_.subiter, 0);
}

}  // namespace
