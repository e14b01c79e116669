// The estimation frame and the forecast driver, run on simple smoothing:
// nes1fit and nes1for called directly on a WINMODEL filled here, and the
// frame's steps driven one at a time through the family's trait.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <string>
#include <vector>

#include "host/host.h"
#include "numeric/numeric.h"
#include "smoothing/es1fit.h"
#include "smoothing/es1subs.h"
#include "smoothing/frame_es1.h"
#include "support/smooth_model.h"

namespace {

using smooth_test::kMiss;
using smooth_test::Model;
namespace fr = smoothing::frame;

bool missing(double d) { return wzmis(d) != 0; }

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
  ASSERT_EQ(zes1svi(m->ts.x + m->fitrange.start, m->ts.misflg + m->fitrange.start,
                    m->fitrange.nobs, 1, &m->svi.level),
            0);
}

// Minimiser of the independent backcast mse on [lo, hi] by golden section.
double golden_minimum(const std::vector<double>& x, double lo, double hi) {
  const double start = smooth_test::last_usable(x);
  const double g = (std::sqrt(5.0) - 1.0) / 2.0;
  double a = lo, b = hi;
  double c = b - g * (b - a), d = a + g * (b - a);
  double fc = smooth_test::ses_backcast_mse(x, c, start);
  double fd = smooth_test::ses_backcast_mse(x, d, start);
  while (b - a > 1e-12) {
    if (fc < fd) {
      b = d;
      d = c;
      fd = fc;
      c = b - g * (b - a);
      fc = smooth_test::ses_backcast_mse(x, c, start);
    } else {
      a = c;
      c = d;
      fc = fd;
      d = a + g * (b - a);
      fd = smooth_test::ses_backcast_mse(x, d, start);
    }
  }
  return 0.5 * (a + b);
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

long usable(const std::vector<double>& x) {
  long k = 0;
  for (double v : x) k += !std::isnan(v);
  return k;
}

// ---- The driver --------------------------------------------------------------

TEST(SimpleFit, InteriorOptimumIsTheMinimumOfTheBackcastError) {
  for (std::uint64_t seed : {3u, 5u, 9u}) {
    SCOPED_TRACE(seed);
    const std::vector<double> x = local_level(seed, 80, 1.5, 3.0);
    Model m(x);
    set_svi(m);
    ASSERT_EQ(nes1fit(m.get()), 0);
    const double w = m->pest.parms[0];
    const double best = golden_minimum(x, 0.001, 0.999);
    ASSERT_GT(best, 0.01);
    ASSERT_LT(best, 0.99);
    // r <= 1e-4 leaves about r^2 of the error for one more linearised step
    // to explain; allow the curvature a factor of ten.
    const double start = smooth_test::last_usable(x);
    const double at_best = smooth_test::ses_backcast_mse(x, best, start);
    EXPECT_LE(smooth_test::ses_backcast_mse(x, w, start), at_best * (1.0 + 1e-7));
    EXPECT_NEAR(w, best, 1e-3);

    // The error variance carries the degrees-of-freedom correction.
    double time0 = 0.0;
    const double mse = smooth_test::ses_backcast_mse(x, w, smooth_test::last_usable(x), &time0);
    const double n = static_cast<double>(x.size());
    EXPECT_NEAR(m->pest.mse, mse * n / (n - 1.0), 1e-12 * mse);
    EXPECT_NEAR(m->startvals.level, time0, 1e-12 * std::fabs(time0));

    // Standard error: sqrt(mse / (2 * sum of squared prediction derivatives)).
    const double h = 1e-6;
    const std::vector<double> up = predictions(x, w + h), down = predictions(x, w - h);
    double s = 0.0;
    for (std::size_t t = 0; t < x.size(); ++t) {
      const double d = (up[t] - down[t]) / (2 * h);
      s += d * d;
    }
    const double se = std::sqrt(m->pest.mse / (2.0 * s));
    EXPECT_NEAR(m->pest.stderr[0], se, 1e-5 * se);
    EXPECT_EQ(m->pest.tvals[0], w / m->pest.stderr[0]);
  }
}

TEST(SimpleFit, OptimumBeyondABoundLandsExactlyOnIt) {
  struct Case {
    const char* what;
    std::vector<double> x;
    double lo, hi, tol;
    double expect;
  };
  const std::vector<double> walk = local_level(21, 60, 5.0, 0.2);    // wants w near 1
  const std::vector<double> noise = local_level(22, 60, 0.0, 4.0);   // wants w near 0
  const std::vector<double> air = smooth_test::example_series("AirPassengers.csv");
  const Case cases[] = {
      {"random walk under 0.5", walk, 0.001, 0.5, 0.0, 0.5},
      {"random walk, snap tolerance", walk, 0.001, 0.5, 1e-3, 0.5},
      {"white noise over 0.2", noise, 0.2, 0.999, 0.0, 0.2},
      {"airline passengers, default bounds", air, 0.001, 0.999, 0.0, 0.999},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    Model m(c.x);
    m.level_bounds(c.lo, c.hi, c.tol);
    set_svi(m);
    ASSERT_EQ(nes1fit(m.get()), 0);
    EXPECT_EQ(m->pest.parms[0], c.expect);
    // The independent minimum on the interval agrees that the bound is best.
    EXPECT_NEAR(golden_minimum(c.x, c.lo, c.hi), c.expect, 1e-6);
  }
}

TEST(SimpleFit, FixedWeightIsKeptBitForBit) {
  const std::vector<double> x = local_level(4, 50, 1.0, 2.0);
  for (double fixed : {0.05, 0.3, 0.9}) {
    SCOPED_TRACE(fixed);
    Model m(x);
    m.level_bounds(fixed, fixed);
    set_svi(m);
    ASSERT_EQ(nes1fit(m.get()), 0);
    EXPECT_EQ(m->pest.parms[0], fixed);
    const double mse = smooth_test::ses_backcast_mse(x, fixed, smooth_test::last_usable(x));
    EXPECT_NEAR(m->pest.mse, mse * 50.0 / 49.0, 1e-12 * mse);
    EXPECT_FALSE(missing(m->pest.stderr[0]));
    EXPECT_GT(m->pest.stderr[0], 0.0);
  }
}

TEST(SimpleFit, ConstantSeriesIsAnExactFit) {
  Model m(std::vector<double>(24, 7.5));
  set_svi(m);
  ASSERT_EQ(nes1fit(m.get()), 0);
  EXPECT_EQ(m->pest.mse, 0.0);
  EXPECT_EQ(m->pest.parms[0], 0.01);  // every candidate ties; the first stays
  EXPECT_EQ(m->startvals.level, 7.5);
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
  const double nobs = static_cast<double>(usable(x));
  EXPECT_NEAR(m->pest.mse, mse * nobs / (nobs - 1.0), 1e-12 * mse);
  EXPECT_FALSE(missing(m->pest.stderr[0]));
  EXPECT_FALSE(missing(m->pest.tvals[0]));
}

TEST(SimpleFit, StandardErrorsNeedTwoObservations) {
  struct Case {
    std::vector<double> x;
    bool has_stderr;
  };
  const Case cases[] = {
      {{NAN, NAN, 7.0, NAN}, false},  // one usable observation: nobs == p
      {{3.0, NAN, 5.0}, true},
  };
  for (const Case& c : cases) {
    Model m(c.x);
    set_svi(m);
    ASSERT_GE(nes1fit(m.get()), 0);
    EXPECT_EQ(!missing(m->pest.stderr[0]), c.has_stderr);
    EXPECT_EQ(!missing(m->pest.tvals[0]), c.has_stderr);
    if (!c.has_stderr) {
      EXPECT_EQ(m->pest.mse, 0.0);  // the plain mean square, no correction
    }
  }
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
  ASSERT_EQ(zes1npd(m->ts.x, m->ts.misflg, m->ts.descstats.norm, 144, w, m->svi.level, 1e-6, 0,
                    &slope),
            0);
  const double mse = smooth_test::ses_backcast_mse(air, w, m->svi.level);
  EXPECT_LT(std::fabs(slope) * 0.01, 1e-4 * mse);  // a step of 0.01 changes mse by < 1e-4
}

TEST(SimpleFit, NoUsableGridCandidateGivesMinus8) {
  Model m(std::vector<double>{1, 2, 3, 2, 1});
  m->svi.level = 1e6;  // above 10000 * xscale: every pass overflows
  EXPECT_EQ(nes1fit(m.get()), -8);
}

TEST(SimpleFit, FitRangeIsASliceOfTheData) {
  const std::vector<double> x = local_level(8, 60, 1.0, 2.0);
  Model m(x);
  m.fit_range(12, 36);
  set_svi(m);
  ASSERT_GE(nes1fit(m.get()), 0);
  const std::vector<double> slice(x.begin() + 12, x.begin() + 48);
  EXPECT_NEAR(m->pest.parms[0], golden_minimum(slice, 0.001, 0.999), 1e-3);
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

TEST(FrameSteps, AcceptedStepsNeverRaiseTheErrorAndStayInBounds) {
  struct Case {
    std::uint64_t seed;
    double lo, hi;
  };
  const Case cases[] = {{31, 0.001, 0.999}, {32, 0.05, 0.4}, {33, 0.3, 0.999}, {34, 0.001, 0.2}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.seed);
    Model m(local_level(c.seed, 70, 2.0, 2.0));
    m.level_bounds(c.lo, c.hi);
    set_svi(m);
    Search s(m);
    ASSERT_EQ(fr::grid<es1::Family>(m.get(), &s.fitcon, &s.point), 0);
    for (int iter = 1; iter <= 99 && s.point.r > 0.0001; ++iter) {
      const double before = s.point.mse;
      const double lambda = s.fitcon.lambda;
      const int rc = fr::iterate<es1::Family>(m.get(), iter, &s.fitcon, &s.point);
      ASSERT_TRUE(rc == 0 || rc == 90);
      EXPECT_LE(s.point.mse, before);
      EXPECT_GE(s.point.wlevel, c.lo);
      EXPECT_LE(s.point.wlevel, c.hi);
      // lambda falls only after an improving full step.
      if (s.fitcon.lambda < lambda) {
        EXPECT_EQ(s.fitcon.stepstart, 1.0);
      }
      if (rc == 90) break;
    }
  }
}

TEST(FrameSteps, PointPressedOnABoundIsFlaggedThenEnds) {
  Model m(local_level(21, 60, 5.0, 0.2));
  m.level_bounds(0.001, 0.5);
  set_svi(m);
  Search s(m);
  ASSERT_EQ(fr::grid<es1::Family>(m.get(), &s.fitcon, &s.point), 0);
  int iter = 1;
  while (s.point.wlevel != 0.5 && iter < 20) {
    ASSERT_EQ(fr::iterate<es1::Family>(m.get(), iter++, &s.fitcon, &s.point), 0);
  }
  ASSERT_EQ(s.point.wlevel, 0.5);
  EXPECT_EQ(s.point.wbnds.wlevflg, 1);
  // The next step still points outward: flagged, then the search ends with r 0.
  for (int k = 0; k < 2 && s.point.r > 0.0001; ++k) {
    ASSERT_EQ(fr::iterate<es1::Family>(m.get(), iter++, &s.fitcon, &s.point), 0);
  }
  EXPECT_EQ(s.point.rflag, 1);
  EXPECT_EQ(s.point.r, 0.0);
  EXPECT_EQ(s.point.wlevel, 0.5);
}

TEST(FrameSteps, FixedWeightGivesDimensionZeroAndNoSearch) {
  Model m(local_level(40, 30, 1.0, 1.0));
  m.level_bounds(0.25, 0.25);
  set_svi(m);
  Search s(m);
  ASSERT_EQ(fr::grid<es1::Family>(m.get(), &s.fitcon, &s.point), 0);
  EXPECT_EQ(s.point.wlevel, 0.25);
  EXPECT_EQ(s.point.wbnds.dim, 0);
  EXPECT_EQ(s.point.wbnds.wlevflg, -1);
  EXPECT_EQ(s.point.wbnds.wlevchn, 1);
  EXPECT_EQ(s.point.r, 0.0);
}

TEST(FrameSteps, ImprovePrefersFewerMissingThenLowerError) {
  POINT a{}, b{};
  a.nmiss = 2;
  a.mse = 1.0;
  b.nmiss = 3;
  b.mse = 0.5;
  EXPECT_FALSE(fr::improve(&a, &b));
  EXPECT_TRUE(fr::improve(&b, &a));
  b.nmiss = 2;
  EXPECT_TRUE(fr::improve(&a, &b));
  b.mse = 1.0;
  EXPECT_TRUE(fr::improve(&a, &b));  // ties go to the new point
  b.mse = 1.5;
  EXPECT_FALSE(fr::improve(&a, &b));
}

// ---- The forecast driver and the table ----------------------------------------------

class SimpleForecast : public testing::Test {
 protected:
  void SetUp() override {
    smooth_test::connect_module();
    dir_ = std::filesystem::temp_directory_path() /
           ("es1_frame_test_" + std::to_string(::getpid()));
    std::filesystem::create_directories(dir_);
    esf::host::assign_libref("SMT", dir_);
  }
  void TearDown() override { std::filesystem::remove_all(dir_); }

  std::filesystem::path file(const char* mem) const {
    return esf::host::table_path(std::string("SMT.") + mem);
  }

  std::filesystem::path dir_;
};

TEST_F(SimpleForecast, GivenWeightAndStartAgreeWithAnIndependentLoop) {
  const std::vector<double> x = local_level(50, 36, 1.0, 2.0);
  Model m(x);
  const double w = 0.3, start = 97.0, se2 = 4.0;
  m->parms.parms[0] = w;
  m->startvals.level = start;
  m->pest.mse = se2;
  m->lead = 12;
  m.output("SMT.FIXED");
  ASSERT_EQ(nes1for(m.get(), 1), 0);

  const smooth_test::Table t = smooth_test::read_table(file("FIXED"));
  const std::vector<std::string> names = {"DATE",     "ACTUAL", "FORECAST", "U95",
                                          "L95",      "RESIDUAL", "STD",    "LEVEL"};
  ASSERT_EQ(t.names, names);
  ASSERT_EQ(t.rows.size(), 36u + 12u);
  const double z = zprobit(0.975);
  double level = start, sse = 0.0;
  for (std::size_t k = 0; k < t.rows.size(); ++k) {
    SCOPED_TRACE(k);
    const std::vector<double>& r = t.rows[k];
    const int month = static_cast<int>(k);
    EXPECT_EQ(r[0], smooth_test::date(1949 + month / 12, 1 + month % 12, 1));
    if (k < x.size()) {
      const double e = level - x[k];
      EXPECT_EQ(r[1], x[k]);
      EXPECT_NEAR(r[2], level, 1e-12 * std::fabs(level));
      EXPECT_NEAR(r[3], level + z * 2.0, 1e-12 * std::fabs(level));
      EXPECT_NEAR(r[4], level - z * 2.0, 1e-12 * std::fabs(level));
      EXPECT_NEAR(r[5], e, 1e-12 * std::fabs(level));
      EXPECT_EQ(r[6], 2.0);
      level = x[k] * w + level * (1.0 - w);
      EXPECT_NEAR(r[7], level, 1e-12 * std::fabs(level));
      sse += e * e;
    } else {
      const double lead = static_cast<double>(k - x.size() + 1);
      const double sd = std::sqrt((1.0 + (lead - 1.0) * w * w) * se2);
      EXPECT_TRUE(std::isnan(r[1]));
      EXPECT_NEAR(r[2], level, 1e-12 * std::fabs(level));
      EXPECT_NEAR(r[3], level + z * sd, 1e-12 * std::fabs(level));
      EXPECT_TRUE(std::isnan(r[5]));
      EXPECT_NEAR(r[6], sd, 1e-12 * sd);
      EXPECT_NEAR(r[7], level, 1e-12 * std::fabs(level));
    }
  }
  EXPECT_NEAR(m->stats.mse, sse / 35.0, 1e-12 * sse);
  EXPECT_EQ(m->out.strptr, nullptr);  // the row buffer went back to the pool
}

TEST_F(SimpleForecast, WithoutStartValuesTheBackcastRunsFromSvi) {
  const std::vector<double> x = local_level(51, 30, 1.0, 2.0);
  Model m(x);
  set_svi(m);
  m->parms.parms[0] = 0.4;
  m->pest.mse = 1.0;
  m->lead = 0;
  m.output("SMT.BACK");
  ASSERT_EQ(nes1for(m.get(), 0), 0);
  const smooth_test::Table t = smooth_test::read_table(file("BACK"));
  ASSERT_EQ(t.rows.size(), 30u);  // lead 0: the observed rows only
  double time0 = 0.0;
  smooth_test::ses_backcast_mse(x, 0.4, m->svi.level, &time0);
  EXPECT_NEAR(t.rows[0][2], time0, 1e-12 * time0);
}

TEST_F(SimpleForecast, LimitNamesAndLabels) {
  struct Case {
    double cl;
    const char* upper;
    const char* lower;
  };
  const Case cases[] = {
      {0.05, "U95", "L95"}, {0.5, "U50", "L50"}, {0.995, "U01", "L01"},
      {0.001, "U99", "L99"}, {0.1, "U90", "L90"}, {0.95, "U05", "L05"},
  };
  const std::vector<double> x = local_level(52, 12, 1.0, 1.0);
  for (const Case& c : cases) {
    SCOPED_TRACE(c.cl);
    Model m(x);
    m->parms.parms[0] = 0.5;
    m->startvals.level = x[0];
    m->pest.mse = 1.0;
    m->cl = c.cl;
    m->lead = 2;
    m.output("SMT.LIMITS");
    ASSERT_EQ(nes1for(m.get(), 1), 0);
    const smooth_test::Table t = smooth_test::read_table(file("LIMITS"));
    ASSERT_EQ(t.names.size(), 8u);
    EXPECT_EQ(t.names[3], c.upper);
    EXPECT_EQ(t.names[4], c.lower);
    // Wider limits for a smaller significance level.
    EXPECT_NEAR(t.rows[0][3] - t.rows[0][2], zprobit(1.0 - c.cl * 0.5), 1e-12);
  }
  const std::vector<esf::host::VariableInfo> vars = esf::host::table_variables(file("LIMITS"));
  ASSERT_EQ(vars.size(), 8u);
  EXPECT_EQ(vars[0].label, "DATE");
  EXPECT_EQ(vars[0].width, 0);
  EXPECT_EQ(vars[1].label, "Air passengers");
  for (std::size_t j = 1; j < vars.size(); ++j) {
    EXPECT_EQ(vars[j].width, 10);
    EXPECT_EQ(vars[j].decimals, 5);
  }
}

TEST_F(SimpleForecast, WeightFallsBackOnTheEstimate) {
  struct Case {
    const char* what;
    double given, estimated;
    int rc;
    bool constant;  // a constant series: any weight keeps the level
  };
  const Case cases[] = {
      {"given weight", 0.2, 0.7, 0, false},
      {"missing weight falls back", kMiss, 0.7, 0, false},
      {"both missing", kMiss, kMiss, -999, false},
      {"weight beyond 100", 150.0, 0.7, -999, false},
      {"weight of exactly 100 passes", 100.0, 0.7, 0, true},
      {"weight of -100 passes", -100.0, 0.7, 0, true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    const std::vector<double> x =
        c.constant ? std::vector<double>(10, 5.0) : local_level(53, 10, 1.0, 1.0);
    std::filesystem::remove(file("FALL"));
    Model m(x);
    m->parms.parms[0] = c.given;
    m->pest.parms[0] = c.estimated;
    m->startvals.level = x[0];
    m->pest.mse = 1.0;
    m->lead = 1;
    m.output("SMT.FALL");
    const std::size_t blocks = esf::host::pool_outstanding();
    ASSERT_EQ(nes1for(m.get(), 1), c.rc);
    EXPECT_EQ(esf::host::pool_outstanding(), blocks);
    EXPECT_EQ(std::filesystem::exists(file("FALL")), c.rc == 0);
    if (c.rc == 0) {
      const double w = missing(c.given) ? c.estimated : c.given;
      const smooth_test::Table t = smooth_test::read_table(file("FALL"));
      const double level1 = x[0] * w + x[0] * (1.0 - w);
      EXPECT_NEAR(t.rows[1][2], level1, 1e-12 * std::fabs(x[0]));
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
  EXPECT_EQ(t.rows[35][1], x[47]);               // evaluated past the fit range
  EXPECT_FALSE(std::isnan(t.rows[35][5]));
  EXPECT_EQ(t.rows[38][0], smooth_test::date(1953, 3, 1));
}

TEST_F(SimpleForecast, TableThatCannotBeNamedGivesMinus101) {
  const std::vector<double> x = local_level(55, 10, 1.0, 1.0);
  Model m(x);
  m->parms.parms[0] = 0.5;
  m->startvals.level = x[0];
  m.output("");
  const std::size_t blocks = esf::host::pool_outstanding();
  EXPECT_EQ(nes1for(m.get(), 1), -101);
  EXPECT_EQ(esf::host::pool_outstanding(), blocks);
}

}  // namespace

