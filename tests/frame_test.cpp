// The estimation frame and the forecast driver, run on simple smoothing:
// nes1fit and nes1for called directly on a WINMODEL filled here, and the
// frame's steps driven one at a time through the family's trait.
#include "smoothing/frame.h"

#include <array>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "host/host.h"
#include "numeric/numeric.h"
#include "smoothing/es1fit.h"
#include "smoothing/es1subs.h"
#include "smoothing/es2fit.h"
#include "smoothing/es3fit.h"
#include "smoothing/winfit.h"
#include "support/smooth_model.h"
#include "support/trend_session.h"

namespace {

using smooth_test::is_miss;
using smooth_test::kMiss;
using smooth_test::Model;
namespace fr = smoothing::frame;

// A local-level series: a random walk observed with noise.
std::vector<double> local_level(std::uint64_t seed, int n, double drift_sd, double noise_sd) {
  smooth_test::Noise noise(seed);
  std::vector<double> x;
  double level = 100.0;
  for (int t = 0; t < n; ++t) {
    level += drift_sd * noise.next();
    x.push_back(level + noise_sd * noise.next());
  }
  return x;
}

// The start of the backward pass, as getstartvals computes it.
void set_svi(Model& m) {
  ASSERT_EQ(zes1svi(m->ts.x + m->fitrange.start, m->ts.misflg + m->fitrange.start, m->fitrange.nobs, 1, &m->svi.level),
            0);
}

// Minimiser of f on [lo, hi] by golden section.
template <class F>
double golden(F f, double lo, double hi) {
  const double g = (std::sqrt(5.0) - 1.0) / 2.0;
  double a = lo, b = hi;
  while (b - a > 1e-12) {
    const double c = b - g * (b - a), d = a + g * (b - a);
    if (f(c) < f(d)) {
      b = d;
    } else {
      a = c;
    }
  }
  return 0.5 * (a + b);
}

// Minimiser of the independent backcast mse on [lo, hi].
double golden_minimum(const std::vector<double>& x, double lo, double hi) {
  const double start = smooth_test::last_usable(x);
  return golden([&](double w) { return smooth_test::ses_backcast_mse(x, w, start); }, lo, hi);
}

// Predictions of the independent loop at weight w (after the backcast).
std::vector<double> predictions(const std::vector<double>& x, double w) {
  double level = 0.0;
  smooth_test::ses_backcast_mse(x, w, smooth_test::last_usable(x), &level);
  std::vector<double> out;
  for (double v : x) {
    out.push_back(level);
    if (!std::isnan(v)) level = v * w + level * (1.0 - w);
  }
  return out;
}

// ---- The driver --------------------------------------------------------------

// The estimate is the minimum of the independent backcast error on the
// interval of the bounds (golden section), exactly on a bound when the
// minimum lies beyond it, also over a slice of the data; the time-0 level is
// the backcast's, and the standard error is sqrt(mse / (2 * sum of squared
// prediction derivatives)), the derivatives numeric.
TEST(SimpleFit, EstimateIsTheMinimumOfTheBackcastError) {
  struct Case {
    const char* what;
    std::vector<double> x;
    double lo, hi, tol;
    long start, nobs;  // the fit range; nobs 0: all of the data
    double bound;      // NaN: an interior minimum
  };
  const Case cases[] = {
      {"interior", local_level(3, 80, 1.5, 3.0), 0.001, 0.999, 0.0, 0, 0, NAN},
      {"a slice of the data", local_level(8, 60, 1.0, 2.0), 0.001, 0.999, 0.0, 12, 36, NAN},
      {"random walk, snap tolerance", local_level(21, 60, 5.0, 0.2), 0.001, 0.5, 1e-3, 0, 0, 0.5},
      {"white noise over 0.2", local_level(22, 60, 0.0, 4.0), 0.2, 0.999, 0.0, 0, 0, 0.2},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    const long nobs = c.nobs ? c.nobs : static_cast<long>(c.x.size());
    const std::vector<double> x(c.x.begin() + c.start, c.x.begin() + c.start + nobs);
    Model m(c.x);
    m.level_bounds(c.lo, c.hi, c.tol);
    m.fit_range(c.start, nobs);
    set_svi(m);
    ASSERT_EQ(nes1fit(m.get()), 0);
    const double w = m->pest.parms[0], best = golden_minimum(x, c.lo, c.hi), start = smooth_test::last_usable(x);
    if (std::isnan(c.bound)) {
      // r <= 1e-4 leaves about r^2 of the error for one more linearised
      // step to explain; allow the curvature a factor of ten.
      EXPECT_LE(smooth_test::ses_backcast_mse(x, w, start), smooth_test::ses_backcast_mse(x, best, start) * (1 + 1e-7));
      EXPECT_NEAR(w, best, 1e-3);
    } else {
      EXPECT_EQ(w, c.bound);
      EXPECT_NEAR(best, c.bound, 1e-6);
    }
    double time0 = 0.0;
    smooth_test::ses_backcast_mse(x, w, start, &time0);
    EXPECT_NEAR(m->startvals.level, time0, 1e-12 * std::fabs(time0));
    const double h = 1e-6;
    const std::vector<double> up = predictions(x, w + h), down = predictions(x, w - h);
    double s = 0.0;
    for (std::size_t t = 0; t < x.size(); ++t) s += (up[t] - down[t]) * (up[t] - down[t]) / (4 * h * h);
    const double se = std::sqrt(m->pest.mse / (2.0 * s));
    EXPECT_NEAR(m->pest.stderr[0], se, 1e-5 * se);
  }
}

TEST(SimpleFit, MissingValuesCanStallWithUsableWeights) {
  // The derivative pass holds the value put in place of a missing
  // observation constant, so the step need not point at the minimum.
  std::vector<double> x = local_level(1, 30, 3.0, 3.0);
  for (int t = 4; t < 30; t += 6) x[t] = std::nan("");
  Model m(x);
  set_svi(m);
  ASSERT_EQ(nes1fit(m.get()), 90);
  const double w = m->pest.parms[0];
  EXPECT_GE(w, 0.001);
  EXPECT_LE(w, 0.999);
  const double mse = smooth_test::ses_backcast_mse(x, w, smooth_test::last_usable(x));
  const double nobs = 30.0 - 5.0;  // five observations removed
  EXPECT_NEAR(m->pest.mse, mse * nobs / (nobs - 1.0), 1e-12 * mse);
  EXPECT_FALSE(is_miss(m->pest.tvals[0]));
}

// Every candidate ties on a constant series; the first stays.
TEST(SimpleFit, ConstantSeriesKeepsTheFirstCandidate) {
  Model m(std::vector<double>(24, 7.5));
  set_svi(m);
  ASSERT_EQ(nes1fit(m.get()), 0);
  EXPECT_EQ(m->pest.parms[0], 0.01);
  EXPECT_EQ(m->pest.mse, 0.0);
  EXPECT_FALSE(is_miss(m->pest.stderr[0]));
}

TEST(SimpleFit, WithoutBoundsEndsAtAStationaryPoint) {
  const std::vector<double> air = smooth_test::example_series("AirPassengers.csv");
  Model m(air);
  m->wbnds.bounds = 0;
  set_svi(m);
  ASSERT_EQ(nes1fit(m.get()), 0);
  const double w = m->pest.parms[0];
  EXPECT_GT(w, 0.999);  // the trend pulls the weight past the default bound
  double slope = 0.0;
  ASSERT_EQ(zes1npd(m->ts.x, m->ts.misflg, m->ts.descstats.norm, 144, w, m->svi.level, 1e-6, 0, &slope), 0);
  const double mse = smooth_test::ses_backcast_mse(air, w, m->svi.level);
  EXPECT_LT(std::fabs(slope) * 0.01, 1e-4 * mse);  // a step of 0.01 changes mse by < 1e-4
}

// ---- The frame, one step at a time -----------------------------------------------

struct Search {
  FITCON fitcon{};
  POINT point{};
  explicit Search(Model& m) {
    fitcon.x = m->ts.x + m->fitrange.start;
    fitcon.misflg = m->ts.misflg + m->fitrange.start;
    fitcon.n = m->fitrange.nobs;
    fitcon.stepstart = 1.0;
    fitcon.lambda = 0.01;
    fitcon.min_nmiss = 9007199254740992.0;
    fitcon.min_mse = 1.7976931348623157e+308;
  }
};

// An improving trial makes the next first step a full one and lowers lambda
// tenfold only when it was a full step itself: started at half a step, the
// same improvement raises it.  A trial that cannot improve on the point
// halves the first step of the next iteration and raises lambda tenfold, no
// higher than 1000.
TEST(FrameSteps, LambdaAndTheFirstStepFollowTheTrial) {
  struct Case {
    double stepstart, lambda;
    bool improves;
    double stepstart_after, lambda_after;
  };
  const Case cases[] = {{1.0, 0.01, true, 1.0, 0.001},
                        {0.5, 0.01, true, 1.0, 0.1},
                        {1.0, 500.0, false, 0.5, 1000.0},
                        {0.5, 1000.0, false, 0.25, 1000.0}};
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.stepstart << " " << c.lambda);
    Model m(local_level(31, 70, 2.0, 2.0));
    set_svi(m);
    Search s(m);
    ASSERT_EQ(fr::grid<es1::Family>(m.get(), &s.fitcon, &s.point), 0);
    const double before = s.point.mse;
    if (!c.improves) s.point.mse = 0.0;  // nothing does better
    s.fitcon.stepstart = c.stepstart;
    s.fitcon.lambda = c.lambda;
    ASSERT_EQ(fr::iterate<es1::Family>(m.get(), 1, &s.fitcon, &s.point), 0);
    if (c.improves) {
      ASSERT_LT(s.point.mse, before);  // the first trial improved
    }
    EXPECT_EQ(s.fitcon.stepstart, c.stepstart_after);
    EXPECT_EQ(s.fitcon.lambda, c.lambda_after);
  }
}

// Simple smoothing whose level derivative is overstated fifty times: every
// step is a fiftieth of the Gauss-Newton step, improves, and leaves most of
// the way still to go, so the search runs out of iterations.  The frame's
// loops run it, one fitobs per observation.
struct SluggishFamily : es1::Family {
  static void backward_pass() = delete;
  static void forward_pass() = delete;
  static int fitobs(fr::Pass& pass, const double* w, long t, double value, double* wder) {
    const int rc = es1::Family::fitobs(pass, w, t, value, wder);
    wder[0] *= 50.0;
    return rc;
  }
};

TEST(FrameSteps, IterationLimitGivesNinetyWithUsableWeights) {
  Model m(local_level(3, 80, 1.5, 3.0));
  set_svi(m);
  ASSERT_EQ(fr::fit<SluggishFamily>(m.get()), 90);
  EXPECT_EQ(m->fitend.how, FITEND_ITERATION_LIMIT);
  EXPECT_EQ(m->fitend.iterations, 99);
  EXPECT_GT(m->fitend.r, 0.0001);
  EXPECT_GT(m->pest.parms[0], 0.001);
  EXPECT_LT(m->pest.parms[0], 0.999);
  EXPECT_FALSE(is_miss(m->pest.stderr[0]));
}

TEST(FrameDiagnostics, TraceAndDerivativeCheckPrintThroughTheHost) {
  Model m(local_level(80, 40, 1.0, 2.0));
  set_svi(m);
  m->opt.numeric = 1;
  Search s(m);
  s.fitcon.prtflag = 1;
  esf::host::capture_output(true);
  esf::host::take_printed();
  ASSERT_EQ(fr::grid<es1::Family>(m.get(), &s.fitcon, &s.point), 0);
  ASSERT_EQ(fr::iterate<es1::Family>(m.get(), 1, &s.fitcon, &s.point), 0);
  const std::string out = esf::host::take_printed();
  esf::host::capture_output(false);

  EXPECT_NE(out.find(" Iter Subit  Criterion  NMiss       MSE     Level    Change  Rank"), std::string::npos) << out;
  EXPECT_NE(out.find("     NUMERICAL :"), std::string::npos);
}

// ---- Three weights: the solves against least squares, the trial in the box ----------

constexpr double kBig = 1.3407807929943e+154;

TEST(ThreeWeightDivide, GuardsOverflowByTheSignOfTheQuotient) {
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
    EXPECT_EQ(fr::bounded_divide(c.num, c.den), c.want);
  }
}

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
    std::vector<double> beta = trend_test::least_squares(x, y, rows, k);
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
  smooth_test::Noise noise(17);
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

class ThreeWeightSolve : public ::testing::Test {
 protected:
  void SetUp() override {
    smooth_test::connect_module();
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
    return fr::solven<es3::Family>(&model_, &fitcon_, &point_, xpx, 0);
  }
  WINMODEL model_;
  FITCON fitcon_;
  POINT point_;
};

TEST_F(ThreeWeightSolve, FullStepIsTheDampedGaussNewtonStepCappedAtLengthOne) {
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

TEST_F(ThreeWeightSolve, PairAndSingleStepsFollowThePositionOfThePoint) {
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

TEST_F(ThreeWeightSolve, AFailedPivotLeavesItsWeightOut) {
  Problem p = make_problem(40, 0.1, /*dead_third=*/true);
  ASSERT_EQ(solve(p), 0);
  EXPECT_EQ(point_.rankxpx, 2);
  EXPECT_EQ(point_.delta[2], 0.0);
  const std::vector<double> want = p.step({0, 1}, 1.0);
  EXPECT_NEAR(point_.delta[0], want[0], 1e-10);
  EXPECT_NEAR(point_.delta[1], want[1], 1e-10);
}

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

class ThreeWeightBox : public ::testing::Test {
 protected:
  void SetUp() override {
    smooth_test::connect_module();
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
  enum Form { kDamped, kWinters, kLinear };  // level, trend and damping, season or nothing
  int step(double stepsize, Form form = kDamped) {
    using fr::trystepn;
    switch (form) {
      case kWinters:
        return trystepn<win::Family>(&model_, &fitcon_, &current_, stepsize, &new_, fake_nextstep);
      case kLinear:
        return trystepn<es2::Family>(&model_, &fitcon_, &current_, stepsize, &new_, fake_nextstep);
      default:
        return trystepn<es3::Family>(&model_, &fitcon_, &current_, stepsize, &new_, fake_nextstep);
    }
  }
  void fix(double* bounds, double value) { bounds[0] = bounds[1] = value; }
  WINMODEL model_;
  FITCON fitcon_;
  POINT current_;
  POINT new_;
};

TEST_F(ThreeWeightBox, TrialsAreCutToTheBoxAndPinnedWeightsStay) {
  constexpr double kFree = NAN;
  using W = std::array<double, 3>;
  using Flags = std::array<signed char, 3>;
  struct Case {
    const char* what;
    W cur;        // level, trend, third weight
    Flags flags;  // of the current point
    W lo, hi;     // bounds; equal bounds fix a weight
    W d, d2, d1;  // full, pair and single steps
    double stepsize;
    Form form;
    W want;
    int dim, nextdim;  // -1: not checked
    double r;          // rr[0], rr[1] or rr[2] of the evaluation
  };
  const double cut = (0.999 - 0.95) / 0.2;  // the damping weight reaches its bound first
  const Case cases[] = {
      {"crossing a bound stops on it", W{0.5, 0.2, 0.95}, Flags{0, 0, 0}, W{kFree, kFree, kFree},
       W{kFree, kFree, kFree}, W{0.1, 0.1, 0.2}, W{}, W{}, 1.0, kDamped, W{0.5 + 0.1 * cut, 0.2 + 0.1 * cut, 0.999}, 3,
       2, 0.33},
      {"pressing the same bound takes the pair step", W{0.5, 0.2, 0.999}, Flags{0, 0, 1}, W{kFree, kFree, kFree},
       W{kFree, kFree, kFree}, W{0.1, 0.1, 0.2}, W{0.05, -0.02, 0.0}, W{}, 1.0, kDamped, W{0.55, 0.18, 0.999}, 2, -1,
       0.22},
      // A fixed weight sits on both its bounds, so it is not strictly inside.
      {"a fixed weight is held from the first step", W{0.5, 0.2, 0.95}, Flags{0, 0, 0}, W{kFree, 0.2, kFree},
       W{kFree, 0.2, kFree}, W{0.1, 0.3, 0.01}, W{0.04, 0.0, 0.02}, W{}, 1.0, kDamped, W{0.54, 0.2, 0.97}, -1, 2, 0.22},
      {"two fixed weights leave the single step", W{0.5, 0.2, 0.95}, Flags{0, 0, 0}, W{0.5, 0.2, kFree},
       W{0.5, 0.2, kFree}, W{0.1, 0.3, 0.01}, W{0.1, 0.3, 0.01}, W{0.0, 0.0, 0.03}, 0.5, kDamped, W{0.5, 0.2, 0.965}, 1,
       -1, 0.11},
      // A cut fraction of 0 is not passed over: the trial is the point.
      {"trend on its lower bound stepping out", W{0.5, 0.0011, 0.95}, Flags{0, 0, 0}, W{kFree, 0.0011, kFree},
       W{kFree, kFree, kFree}, W{0.1, -0.2, 0.01}, W{}, W{}, 1.0, kDamped, W{0.5, 0.0011, 0.95}, -1, -1, 0.33},
      {"the Winters family moves its seasonal weight", W{0.5, 0.2, 0.3}, Flags{0, 0, 0}, W{kFree, kFree, kFree},
       W{kFree, kFree, 0.35}, W{0.0, 0.01, 0.1}, W{}, W{}, 1.0, kWinters, W{0.5, 0.205, 0.35}, 3, 2, 0.33},
      // Two weights: the trend moves by the fraction that takes the level to
      // its bound; pressed on it again, the single step moves the trend.
      {"two weights stop on a bound", W{0.25, 0.5, 0}, Flags{0, 0, 0}, W{kFree, kFree, kFree}, W{0.5, kFree, kFree},
       W{0.5, 0.125, 0}, W{}, W{}, 1.0, kLinear, W{0.5, 0.5625, 0}, 2, 1, 0.22},
      {"two weights pressing a bound", W{0.5, 0.5625, 0}, Flags{1, 0, 0}, W{kFree, kFree, kFree}, W{0.5, kFree, kFree},
       W{0.5, 0.125, 0}, W{}, W{0.0, -0.25, 0}, 0.5, kLinear, W{0.5, 0.4375, 0}, 1, 1, 0.11},
  };
  for (const Case& c : cases) {
    SetUp();
    SCOPED_TRACE(c.what);
    const bool season = c.form == kWinters;
    const int p = c.form == kLinear ? 2 : 3;
    double* bounds[3] = {model_.wbnds.wlevel, model_.wbnds.wtrend, season ? model_.wbnds.wseason : model_.wbnds.wdamp};
    char* fixed[3] = {&model_.wbnds.wlevflg, &model_.wbnds.wtreflg,
                      season ? &model_.wbnds.wseaflg : &model_.wbnds.wdamflg};
    for (int k = 0; k < p; ++k) {
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
    ASSERT_EQ(step(c.stepsize, c.form), 0);
    const double got[3] = {new_.wlevel, new_.wtrend, season ? new_.wseason : new_.wdamp};
    double change = 0.0;
    for (int k = 0; k < p; ++k) {
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

TEST_F(ThreeWeightBox, ThreeFixedWeightsCannotMove) {
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

TEST_F(ThreeWeightBox, AtACornerTheSingleStepDecidesWhetherTheSearchEnds) {
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

// ---- The forecast driver and the table ----------------------------------------------

class SimpleForecast : public smooth_test::ModuleTest {
 protected:
  std::filesystem::path file(const char* mem) const { return esf::host::table_path(std::string("SMT.") + mem); }
  smooth_test::ScratchLibrary lib_{"SMT", "es1_frame_test"};
};

TEST_F(SimpleForecast, WeightFallsBackOnTheEstimateAndFailuresLeaveNoTable) {
  struct Case {
    const char* what;
    double given, estimated;
    int rc;
    bool constant;  // a constant series: any weight keeps the level
    bool no_array;  // no array of given weights at all
  };
  const Case cases[] = {
      {"given weight", 0.2, 0.7, 0, false, false},
      {"missing weight falls back", kMiss, 0.7, 0, false, false},
      {"no given weights fall back", 0.2, 0.7, 0, false, true},
      {"both missing", kMiss, kMiss, -999, false, false},
      {"weight beyond 100", 150.0, 0.7, -999, false, false},
      {"weight of exactly 100 passes", 100.0, 0.7, 0, true, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    const std::vector<double> x = c.constant ? std::vector<double>(10, 5.0) : local_level(53, 10, 1.0, 1.0);
    std::filesystem::remove(file("FALL"));
    Model m(x);
    m->parms.parms[0] = c.given;
    m->pest.parms[0] = c.estimated;
    if (c.no_array) m->parms.parms = nullptr;
    m->startvals.level = x[0];
    m->pest.mse = 1.0;
    m->lead = 1;
    m.output("SMT.FALL");
    const std::size_t blocks = esf::host::pool_outstanding();
    ASSERT_EQ(nes1for(m.get(), 1), c.rc);
    EXPECT_EQ(esf::host::pool_outstanding(), blocks);
    EXPECT_EQ(std::filesystem::exists(file("FALL")), c.rc == 0);
    if (c.rc == 0) {
      const double w = is_miss(c.given) || c.no_array ? c.estimated : c.given;
      const smooth_test::Table t = smooth_test::read_table(file("FALL"));
      const double level2 = x[1] * w + x[0] * (1.0 - w);  // the forecast of row 2
      EXPECT_NEAR(t.rows[2][2], level2, 1e-12 * std::fabs(x[0]));
    }
  }
}

TEST_F(SimpleForecast, TableRunsFromTheFitRangeToTheEvaluationEnd) {
  const std::vector<double> x = local_level(54, 48, 1.0, 1.0);
  Model m(x);
  m.fit_range(12, 24);  // observations 12..35
  m->evalrange.end = 47;
  set_svi(m);
  m->parms.parms[0] = 0.5;
  m->pest.mse = 1.0;
  m->lead = 3;
  m.output("SMT.RANGE");
  ASSERT_EQ(nes1for(m.get(), 0), 0);
  const smooth_test::Table t = smooth_test::read_table(file("RANGE"));
  ASSERT_EQ(t.rows.size(), 36u + 3u);
  EXPECT_EQ(t.rows[0][0], smooth_test::date(1950, 1, 1));
  // Without start values the backcast over the fit range runs from svi.
  double time0 = 0.0;
  smooth_test::ses_backcast_mse(std::vector<double>(x.begin() + 12, x.begin() + 36), 0.5, m->svi.level, &time0);
  EXPECT_NEAR(t.rows[0][2], time0, 1e-12 * std::fabs(time0));
  EXPECT_EQ(t.rows[35][1], x[47]);  // evaluated past the fit range
  EXPECT_FALSE(std::isnan(t.rows[35][5]));
  EXPECT_EQ(t.rows[38][0], smooth_test::date(1953, 3, 1));
}

}  // namespace
