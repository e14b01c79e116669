// What every smoothing family must do, written once and run over all of them
// through their traits: the prediction pass follows the family's textbook
// recursion, side-by-side grid passes give the bits of single passes,
// analytic gradients agree with numeric ones, a kernel's own derivative loops
// give the frame's bits, start values begin at the last observation, the
// estimates are a minimum within the bounds and the stable region, too few
// observations give no standard errors, no usable grid candidate is no start,
// fixed weights stay, and a fit feeds a forecast through the host's lists
// with the weights a direct fit finds and the table the command line writes.

#include <cfloat>
#include <cmath>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "host/host.h"
#include "module/families.h"
#include "module/method_frame.h"
#include "numeric/numeric.h"
#include "regression/regression.h"
#include "smoothing/es1fit.h"
#include "smoothing/es1subs.h"
#include "smoothing/es2fit.h"
#include "smoothing/es2subs.h"
#include "smoothing/es3fit.h"
#include "smoothing/es3subs.h"
#include "smoothing/esdfit.h"
#include "smoothing/esdsubs.h"
#include "smoothing/essfit.h"
#include "smoothing/esssubs.h"
#include "smoothing/winfit.h"
#include "smoothing/winsubs.h"
#include "support/cli_run.h"
#include "support/method_session.h"
#include "support/pass_compare.h"
#include "support/smooth_model.h"

namespace {

using smooth_test::is_miss;
namespace fs = std::filesystem;
namespace fr = smoothing::frame;
using smooth_test::example_series;
using smooth_test::Model;

// A state of the textbook recursions: level, trend, seasonal factors.
struct Ref {
  double l = 0.0, b = 0.0;
  std::vector<double> f;
};

// The test's view of one family (Winters in each of its two forms): the
// trait, the row of the family table, the drivers, the start values as the
// fit method computes them (the first observation of season nstart), the
// factor lanes of the derivative passes where the family has them (Lanes,
// from lane_start), and the family's recursion in its textbook form,
// written without the module: step(r, x, s, w) returns the one-step
// prediction and moves the state over observation x of season s (NaN:
// missing), turn(r, w) turns the state after the backcast; cla(w, ns, k,
// limit) is the family's exported forecast variance at se2 1 and cl 0.05
// (NaN: none).
struct Simple {
  using F = es1::Family;
  static constexpr const char* kCli = "simple";
  static constexpr int kType = esf::kFamilySimple, kAdditive = 0;
  static constexpr long kFew = 1;  // usable observations too few for standard errors
  static int start(WINMODEL* m, int = 0) { return zes1svi(m->ts.x, m->ts.misflg, m->ts.nobs, 1, &m->svi.level); }
  static double step(Ref& r, double x, int, const double* w) {
    const double pred = r.l;
    if (!std::isnan(x)) r.l = w[0] * x + (1.0 - w[0]) * r.l;
    return pred;
  }
  static void turn(Ref&, const double*) {}
  static double cla(const double* w, int, long k, double* hw) { return zes1cla(w[0], 1.0, k, 0.05, hw); }
};
// The families with level and trend differ only in their start routine.
template <class Trait, int Type, auto Start>
struct Trended {
  using F = Trait;
  static constexpr int kType = Type, kAdditive = 0;
  static int start(WINMODEL* m, int = 0) {
    return Start(m->ts.x, m->ts.misflg, m->ts.nobs, 1, &m->svi.level, &m->svi.trend);
  }
  static void turn(Ref& r, const double*) {
    r.l += r.b;
    r.b = -r.b;
  }
};
struct Double : Trended<esd::Family, esf::kFamilyDouble, zesdsvi> {
  static constexpr const char* kCli = "double";
  static constexpr long kFew = 2;
  // Brown's S1 = w x + (1 - w) S1, S2 = w S1 + (1 - w) S2 with level S1 and
  // trend w / (1 - w) (S1 - S2): prediction l + b / w.
  static double step(Ref& r, double x, int, const double* w) {
    const double pred = r.l + r.b / w[0], l = r.l;
    r.l = std::isnan(x) ? l + r.b : w[0] * x + (1.0 - w[0]) * l;
    if (!std::isnan(x)) r.b = w[0] * (r.l - l) + (1.0 - w[0]) * r.b;
    return pred;
  }
  static double cla(const double* w, int, long k, double* hw) { return zesdcla(w[0], 1.0, k, 0.05, hw); }
};
struct Linear : Trended<es2::Family, esf::kFamilyLinear, zes2svi> {
  static constexpr const char* kCli = "linear";
  static constexpr long kFew = 2;
  static double step(Ref& r, double x, int, const double* w) {
    const double pred = r.l + r.b, l = r.l;
    r.l = std::isnan(x) ? pred : w[0] * x + (1.0 - w[0]) * pred;  // Holt's method
    if (!std::isnan(x)) r.b = w[1] * (r.l - l) + (1.0 - w[1]) * r.b;
    return pred;
  }
  static double cla(const double* w, int, long k, double* hw) { return zes2cla(w[0], w[1], 1.0, k, 0.05, hw); }
};
struct Damped : Trended<es3::Family, esf::kFamilyDamped, zes3svi> {
  static constexpr const char* kCli = "damped";
  static constexpr long kFew = 3;
  static double step(Ref& r, double x, int, const double* w) {
    const double pred = r.l + w[2] * r.b, l = r.l;
    r.l = std::isnan(x) ? pred : w[0] * x + (1.0 - w[0]) * pred;
    r.b = std::isnan(x) ? w[2] * r.b : w[1] * (r.l - l) + (1.0 - w[1]) * w[2] * r.b;
    return pred;
  }
  static void turn(Ref& r, const double* w) {  // one more damped step back
    r.b = -(r.b * w[2]);
    r.l -= r.b;
  }
  static double cla(const double* w, int, long k, double* hw) { return zes3cla(w[0], w[1], w[2], 1.0, k, 0.05, hw); }
};
struct Seasonal {
  using F = ess::Family;
  static constexpr const char* kCli = "seasonal";
  static constexpr int kType = esf::kFamilySeasonal, kAdditive = 0;
  static constexpr long kFew = 5;  // a cycle of 4 and one
  static int start(WINMODEL* m, int nstart = 0) {
    return zesssvi(m->ts.x, m->ts.misflg, m->ts.nobs, m->ts.nseasons, nstart, 1, &m->svi.level, m->svi.sfactor);
  }
  using Lanes = ess::FactorUpdate;
  static Lanes::State lane_start(const WINMODEL* m) { return {m->svi.level, 0.0, {}}; }
  static double step(Ref& r, double x, int s, const double* w) {
    const double pred = r.l + r.f[s];
    if (std::isnan(x)) return pred;
    const double l = w[0] * (x - r.f[s]) + (1.0 - w[0]) * r.l;
    r.f[s] = w[1] * (x - l) + (1.0 - w[1]) * r.f[s];
    r.l = l;
    return pred;
  }
  static void turn(Ref&, const double*) {}
  static double cla(const double*, int, long, double*) { return std::nan(""); }
};
template <int Additive>
struct Winters {
  using F = win::Family;
  static constexpr int kType = esf::kFamilyWinters, kAdditive = Additive;
  static constexpr const char* kCli = Additive ? "winters-additive" : "winters";
  static constexpr long kFew = 5;
  static int start(WINMODEL* m, int nstart = 0) {
    return zwinsvi(m->ts.x, m->ts.misflg, m->ts.nobs, m->ts.nseasons, nstart, Additive, 1, &m->svi.level, &m->svi.trend,
                   m->svi.sfactor);
  }
  using Lanes = win::FactorUpdate<Additive>;
  static typename Lanes::State lane_start(const WINMODEL* m) { return {m->svi.level, m->svi.trend, 0.0, {}, {}}; }
  // Holt-Winters: prediction (l + b) + s or (l + b) s.
  static double step(Ref& r, double x, int s, const double* w) {
    if (std::isnan(x)) {
      r.l += r.b;
      return Additive ? r.l + r.f[s] : r.l * r.f[s];
    }
    const double pred = Additive ? r.l + r.b + r.f[s] : (r.l + r.b) * r.f[s];
    const double l = w[0] * (Additive ? x - r.f[s] : x / r.f[s]) + (1.0 - w[0]) * (r.l + r.b);
    r.f[s] = w[2] * (Additive ? x - l : x / l) + (1.0 - w[2]) * r.f[s];
    r.b = w[1] * (l - r.l) + (1.0 - w[1]) * r.b;
    r.l = l;
    return pred;
  }
  static void turn(Ref& r, const double*) {
    r.l += r.b;
    r.b = -r.b;
  }
  static double cla(const double* w, int ns, long k, double* hw) {
    return zwincla(w[0], w[1], w[2], ns, 1.0, k, 0.05, hw);
  }
};

template <class S>
const esf::Family& row_of() {
  for (const esf::Family& f : esf::kFamilies) {
    if (f.type == S::kType) return f;
  }
  return esf::kFamilies[0];
}

template <class S>
int fit(WINMODEL* m) {
  return fr::fit<typename S::F>(m);
}

// An example series with its cycle and its interval.
struct Example {
  const char* file;
  int ns;
  const char* interval;
  int year;
};
const Example kAir{"AirPassengers.csv", 12, "MONTH", 1949};
const Example kGas{"UKgas.csv", 4, "QTR", 1960};
const Example kDeaths{"USAccDeaths.csv", 12, "MONTH", 1973};

// A model of the family on an example, start values computed; `gaps` makes
// every 17th observation missing; `keep` > 0 keeps the first `keep` values
// behind one missing value.
template <class S>
struct Case {
  Model m;
  FITCON fc{};
  Case(const Example& ex, bool gaps = false, long keep = 0) : m(values(ex, gaps, keep), S::F::kNumWeights) {
    if (row_of<S>().seasonal) m.seasons(ex.ns);
    m->additive = S::kAdditive;
    EXPECT_EQ(S::start(m.get()), 0);
    fc = fr::fit_control(m.get());
    EXPECT_EQ(S::F::fit_setup(m.get(), &fc), 0);
  }
  ~Case() { S::F::fit_cleanup(m.get(), &fc); }
  static std::vector<double> values(const Example& ex, bool gaps, long keep) {
    std::vector<double> x = example_series(ex.file);
    for (std::size_t t = 5; gaps && t < x.size(); t += 17) x[t] = std::nan("");
    if (keep > 0) {
      x.resize(static_cast<std::size_t>(keep));
      x.insert(x.begin(), std::nan(""));
    }
    return x;
  }
  // The whole-series mean squared error at weights w; +inf when the pass fails.
  double mse_at(const double* w) {
    double mse = 0.0;
    return S::F::grid_mse(m.get(), &fc, w, &mse) == 0 ? mse : HUGE_VAL;
  }
  bool stable(const double* w) { return !fr::rejected_by_stability<typename S::F>(m.get(), w); }
};

// Weights of grid candidate k.
template <class F>
std::vector<double> grid_row(int k) {
  std::vector<double> w(F::kNumWeights);
  for (int i = 0; i < F::kNumWeights; ++i) w[i] = F::kGrid[i][k];
  return w;
}

template <class S>
class FamilyTest : public smooth_test::ModuleTest {};
using Families = ::testing::Types<Simple, Double, Linear, Damped, Seasonal, Winters<0>, Winters<1>>;
TYPED_TEST_SUITE(FamilyTest, Families);

// The grid's side-by-side passes give every candidate the return code of its
// own pass and the bits of its mean squared error, also where guards trip:
// the grid, the grid stretched past the stable region, and a prediction
// limit the series exceeds; in every lane width a family offers.
TYPED_TEST(FamilyTest, SideBySidePassesEqualSinglePasses) {
  using F = typename TypeParam::F;
  constexpr int p = F::kNumWeights;
  int count[2] = {};  // failed, ended well
  for (const Example& ex : {kAir, kGas}) {
    Case<TypeParam> c(ex, true);
    const double norm = c.m->ts.descstats.norm;
    for (double stretch : {1.0, 2.7, 60.0}) {
      for (double xscale : {norm, norm / 12000.0}) {
        SCOPED_TRACE(testing::Message() << ex.file << " stretch " << stretch << " xscale " << xscale);
        c.m->ts.descstats.norm = xscale;
        double w[p * fr::kGridRows], mse[fr::kGridRows];
        int rc[fr::kGridRows];
        bool eligible[fr::kGridRows];
        for (int k = 0; k < fr::kGridRows; ++k) {
          for (int i = 0; i < p; ++i) w[p * k + i] = F::kGrid[i][k] * (k % 2 ? stretch : 1.0);
          eligible[k] = true;
        }
        for (int width : {0, 1, 2, 4}) {
          if constexpr (requires { F::grid_mse_all(c.m.get(), &c.fc, w, eligible, rc, mse, width); }) {
            F::grid_mse_all(c.m.get(), &c.fc, w, eligible, rc, mse, width);
          } else if (width == 0) {
            F::grid_mse_all(c.m.get(), &c.fc, w, eligible, rc, mse);
          } else {
            continue;
          }
          for (int k = 0; k < fr::kGridRows; ++k) {
            SCOPED_TRACE(testing::Message() << "width " << width << " candidate " << k);
            double one = 0.0;
            const int want = F::grid_mse(c.m.get(), &c.fc, w + p * k, &one);
            pass_test::expect_same_outcome(rc[k], mse[k], want, one, count);
          }
        }
      }
    }
  }
  EXPECT_GT(count[0], 0);
  EXPECT_GT(count[1], 0);
}

// The prediction pass (backcast from the start values, turn, forward pass,
// forecasts) against the family's textbook recursion, the forecasts being
// its steps over missing observations: every prediction, error, limit and
// state, and the error variance over nobs - p, on series with gaps.
TYPED_TEST(FamilyTest, PredictionPassFollowsTheTextbookRecursion) {
  using F = typename TypeParam::F;
  using K = typename F::Kernel;
  constexpr int width = pass::kRowDoubles<K>;
  constexpr long lead = 6;
  const double hw = zprobit(1.0 - 0.05 * 0.5) * 2.0;  // se2 4, cl 0.05
  for (const Example& ex : {kAir, kGas}) {
    Case<TypeParam> c(ex, true);
    WINMODEL* m = c.m.get();
    const long n = m->ts.nobs, ns = m->ts.nseasons;
    std::vector<double> rows(static_cast<std::size_t>((n + lead) * width));
    for (int k : {3, 9, 12}) {
      const std::vector<double> w = grid_row<F>(k);
      SCOPED_TRACE(testing::Message() << ex.file << " grid row " << k);
      Ref r{m->svi.level, row_of<TypeParam>().trended ? m->svi.trend : 0.0, {}};
      if (ns > 0) r.f.assign(m->svi.sfactor, m->svi.sfactor + ns);
      auto x = [&](long t) { return m->ts.misflg[t] ? std::nan("") : m->ts.x[t]; };
      auto season = [&](long t) { return ns > 0 ? static_cast<int>(t % ns) : 0; };
      for (long t = n - 1; t >= 0; --t) TypeParam::step(r, x(t), season(t), w.data());
      TypeParam::turn(r, w.data());
      fr::forecast_start<K>(m, 0);
      m->lead = lead;
      m->pest.mse = 4.0;
      m->out.strptr = rows.data();
      ASSERT_EQ(fr::predict<F>(m, w.data(), n - 1, 0), 0);
      double sse = 0.0;
      long used = 0;
      for (long t = 0; t < n + lead; ++t) {
        const double xt = t < n ? x(t) : std::nan("");
        const double pred = TypeParam::step(r, xt, season(t), w.data());
        const double* row = &rows[static_cast<std::size_t>(t * width)];
        EXPECT_NEAR(row[1], pred, 1e-9 * std::fabs(pred)) << t;
        EXPECT_NEAR(row[6], r.l, 1e-9 * std::fabs(r.l)) << t;
        if (row_of<TypeParam>().trended) {
          EXPECT_NEAR(row[7], r.b, 1e-9 * (std::fabs(r.b) + std::fabs(r.l))) << t;
        }
        if (ns > 0) {
          EXPECT_NEAR(row[width - 1], r.f[season(t)], 1e-9 * m->ts.descstats.norm) << t;
        }
        if (t < n) {  // the limits of an observation row: se2 given
          EXPECT_TRUE(row[2] == row[1] + hw && row[3] == row[1] - hw && row[5] == 2.0) << t;
        }
        if (std::isnan(xt)) continue;
        EXPECT_NEAR(row[4], pred - xt, 1e-9 * std::fabs(pred)) << t;
        sse += (pred - xt) * (pred - xt);
        ++used;
      }
      EXPECT_NEAR(m->stats.mse, sse / static_cast<double>(used - K::kParms), 1e-9 * m->stats.mse);
    }
  }
}

// Raising the last observation by one moves the forecast k steps ahead by
// psi_k, the impulse response of the recursion; the forecast's variance is
// se2 (1 + psi_1^2 + ... + psi_{k-1}^2), for seasonal smoothing up to a
// cycle and at whole cycles past it, and more in between.  The
// multiplicative Winters form is not linear (win_test.cpp).
TYPED_TEST(FamilyTest, ForecastVarianceSumsTheImpulseResponse) {
  using F = typename TypeParam::F;
  using K = typename F::Kernel;
  constexpr int width = pass::kRowDoubles<K>;
  constexpr long lead = 14;
  if (row_of<TypeParam>().winters && !TypeParam::kAdditive) GTEST_SKIP() << "not linear";
  Case<TypeParam> c(kGas);
  WINMODEL* m = c.m.get();
  const long n = m->ts.nobs, ns = m->ts.nseasons;
  for (int k : {3, 9}) {
    const std::vector<double> w = grid_row<F>(k);
    std::vector<double> rows[2];
    for (int bump : {0, 1}) {
      rows[bump].resize(static_cast<std::size_t>((n + lead) * width));
      m->ts.x[n - 1] += bump;
      fr::forecast_start<K>(m, 0);  // the svi as the state at time 0
      m->lead = lead;
      m->pest.mse = 1.0;
      m->out.strptr = rows[bump].data();
      ASSERT_EQ(fr::predict<F>(m, w.data(), n - 1, 1), 0);
      m->ts.x[n - 1] -= bump;
    }
    double sum = 1.0;
    for (long j = 1; j <= lead; ++j) {
      const double* r = &rows[0][static_cast<std::size_t>((n - 1 + j) * width)];
      if (ns == 0 || row_of<TypeParam>().winters || j <= ns || (j - 1) % ns == 0) {
        EXPECT_NEAR(r[5] * r[5], sum, 1e-8 * sum) << k << " lead " << j;
      } else {
        EXPECT_GT(r[5] * r[5], sum * (1.0 + 1e-12)) << k << " lead " << j;
      }
      EXPECT_NEAR(r[2] - r[1], zprobit(1.0 - m->cl * 0.5) * r[5], 1e-9 * r[5]) << j;
      double hw = 0.0;
      if (!std::isnan(TypeParam::cla(w.data(), ns, j, &hw))) {
        EXPECT_NEAR(TypeParam::cla(w.data(), ns, j, nullptr), r[5] * r[5], 1e-12 * sum) << j;
        EXPECT_NEAR(hw, r[2] - r[1], 1e-12 * r[5]) << j;
      }
      const double psi = rows[1][static_cast<std::size_t>((n - 1 + j) * width + 1)] - r[1];
      sum += psi * psi;
    }
  }
}

// The gradient the frame builds from the derivative recursions (backward
// pass, turn, forward pass) against central differences of the passes.
TYPED_TEST(FamilyTest, AnalyticGradientEqualsNumericOne) {
  using F = typename TypeParam::F;
  constexpr int p = F::kNumWeights;
  for (const Example& ex : {kAir, kGas}) {
    Case<TypeParam> c(ex);
    for (int k : {3, 9, 12}) {
      const std::vector<double> w = grid_row<F>(k);
      SCOPED_TRACE(testing::Message() << ex.file << " grid row " << k);
      POINT pt{};
      for (int i = 0; i < p; ++i) fr::weight_of(pt, F::kSlots[i]) = w[i];
      ASSERT_EQ(fr::nextstep<F>(c.m.get(), &c.fc, &pt, nullptr), 0);
      EXPECT_NEAR(pt.mse, c.mse_at(w.data()), 1e-10 * pt.mse);
      const double deltas[3] = {1e-6, 1e-6, 1e-6};
      for (int relative : {0, 1}) {
        double num[3];
        ASSERT_EQ(F::numeric_gradient(c.m.get(), &c.fc, w.data(), deltas, relative, num), 0);
        for (int i = 0; i < p; ++i) EXPECT_NEAR(pt.grad[i], num[i], 2e-5 * std::fabs(num[i]) + 1e-9) << i;
      }
    }
  }
}

// A family whose kernel runs the derivative passes in loops of its own gives
// the bits of the frame's loop, one fitobs per observation, where the passes
// end well and where they stop (a factor below the floor, cross products
// past their limit, which the unchecked forward loop must find again by the
// checked one).  Its factor lanes on every instruction set the processor
// has give the bits of the checked scalar pass wherever no guard tripped,
// also at weights past the stable region.
TYPED_TEST(FamilyTest, KernelDerivativeLoopsGiveTheBitsOfTheFrame) {
  using F = typename TypeParam::F;
  if constexpr (!requires(fr::Pass & pass, const double* w) { F::backward_pass(pass, w); }) {
    GTEST_SKIP() << "the family runs the frame's loop";
  } else {
    std::vector<double> gaps = example_series(kAir.file);
    gaps[5] = gaps[40] = gaps[143] = std::nan("");
    std::vector<double> alternating = example_series(kGas.file);
    for (std::size_t t = 0; t < alternating.size(); t += 2) alternating[t] = -alternating[t];
    std::vector<std::pair<std::vector<double>, int>> series = {{gaps, 12}, {alternating, 4}};
    for (double scale : {1e74, 1e75, 1e76, 1e77, 1e80, 1e150}) {
      std::vector<double> big = example_series("USAccDeaths.csv");
      for (double& v : big) v *= scale;
      series.emplace_back(big, 12);
    }
    std::vector<double> w;
    for (int k : {3, 12, 19}) {
      const std::vector<double> g = grid_row<F>(k);
      w.insert(w.end(), g.begin(), g.end());
    }
    for (int i = 0; i < F::kNumWeights; ++i) w.push_back(2.7 * w[i]);
    int stopped = 0, lanes[2] = {};  // tripped, compared
    for (const auto& [x, ns] : series) {
      Model m(x, F::kNumWeights);
      if (row_of<TypeParam>().seasonal) m.seasons(ns);
      m->additive = TypeParam::kAdditive;
      ASSERT_EQ(TypeParam::start(m.get()), 0);
      stopped += pass_test::expect_same_passes<F>(m.get(), m->ts.x, m->ts.misflg, m->ts.nobs, m->ts.scodes, w);
      if constexpr (requires { typename TypeParam::Lanes; }) {
        const bool avx = __builtin_cpu_supports("avx"), avx512 = __builtin_cpu_supports("avx512vl");
        for (const int isa : {1, avx ? 2 : 1, avx512 ? 3 : 1}) {
          for (std::size_t k = 0; k < w.size(); k += F::kNumWeights) {
            pass_test::expect_lanes_give_scalar_bits<typename TypeParam::Lanes, F::kNumWeights>(
                m.get(), ns, TypeParam::lane_start(m.get()), &w[k], isa, lanes);
          }
        }
      }
    }
    EXPECT_GT(stopped, 0);
    if constexpr (requires { typename TypeParam::Lanes; }) {
      EXPECT_GT(lanes[0], 0);
      EXPECT_GT(lanes[1], 0);
    }
  }
}

// The backward pass starts at the last usable observation, with the trend
// of the start regression turned backward and its factors, the first one
// at the season of the first observation; with only the first observation
// usable there is nothing to start from.
TYPED_TEST(FamilyTest, StartValuesBeginAtTheLastObservation) {
  const esf::Family& row = row_of<TypeParam>();
  std::vector<double> x = example_series(kAir.file);
  x.back() = std::nan("");
  Model m(x, TypeParam::F::kNumWeights);
  if (row.seasonal) m.seasons(12);
  m->additive = TypeParam::kAdditive;
  ASSERT_EQ(TypeParam::start(m.get(), 3), 0);
  EXPECT_EQ(m->svi.level, x[x.size() - 2]);
  // The start regression: a line, with dummies for the seasons; for the
  // multiplicative form, with seasonal ratios.
  double c = 0.0, trend = 0.0, factors[12];
  const int ns = row.seasonal ? 12 : 0;
  ASSERT_EQ(row.winters && !TypeParam::kAdditive
                ? ztsrsdm(m->ts.x, m->ts.misflg, m->ts.nobs, ns, &c, &trend, factors, nullptr)
                : ztsrdmy(m->ts.x, m->ts.misflg, m->ts.nobs, ns, &c, row.trended ? &trend : nullptr, nullptr, factors,
                          nullptr),
            0);
  if (row.trended) {
    EXPECT_EQ(m->svi.trend, -trend);
  }
  for (int i = 0; row.seasonal && i < 12; ++i) EXPECT_EQ(m->svi.sfactor[(i + 3) % 12], factors[i]) << i;
  Model first({5.0, std::nan(""), std::nan(""), std::nan(""), std::nan("")}, TypeParam::F::kNumWeights);
  if (row.seasonal) first.seasons(4);
  EXPECT_EQ(TypeParam::start(first.get()), -2);
}

// No stable weights within the bounds nearby and no stable grid candidate
// do better than the estimates; the error variance carries nobs / (nobs - p).
TYPED_TEST(FamilyTest, EstimatesAreAMinimumWithinTheBounds) {
  using F = typename TypeParam::F;
  constexpr int p = F::kNumWeights;
  for (const Example& ex : {kAir, kGas}) {
    SCOPED_TRACE(ex.file);
    Case<TypeParam> c(ex);
    const std::size_t outstanding = esf::host::pool_outstanding();
    const int rc = fit<TypeParam>(c.m.get());
    ASSERT_TRUE(rc == 0 || rc == 90) << rc;
    EXPECT_EQ(esf::host::pool_outstanding(), outstanding);
    std::vector<double> w(c.m->pest.parms, c.m->pest.parms + p);
    EXPECT_TRUE(c.stable(w.data()));
    const double best = c.mse_at(w.data());
    const double nobs = static_cast<double>(c.m->ts.nobs - c.m->ts.nmiss);
    EXPECT_NEAR(c.m->pest.mse, best * nobs / (nobs - p), 1e-9 * best);
    for (int i = 0; i < p; ++i) {
      const double* b = fr::bounds_of(c.m->wbnds, F::kSlots[i]);
      EXPECT_TRUE(w[i] >= b[0] && w[i] <= b[1]) << i << " " << w[i];
      EXPECT_FALSE(is_miss(c.m->pest.stderr[i]));
      EXPECT_NEAR(c.m->pest.tvals[i], w[i] / c.m->pest.stderr[i], 1e-12 * std::fabs(c.m->pest.tvals[i]));
      for (double d : {-2e-3, 2e-3}) {
        std::vector<double> v = w;
        v[i] = std::fmin(b[1], std::fmax(b[0], v[i] + d));
        if (c.stable(v.data())) {
          EXPECT_GE(c.mse_at(v.data()), best * (1.0 - 1e-8)) << i << " " << d;
        }
      }
    }
    for (int k = 0; k < fr::kGridRows; ++k) {
      const std::vector<double> g = grid_row<F>(k);
      if (c.stable(g.data())) {
        EXPECT_GE(c.mse_at(g.data()), best * (1.0 - 1e-9)) << k;
      }
    }
  }
}

// Without bounds the search can leave the stability region (without the
// stability test, linear, seasonal and both Winters fits leave it on these
// examples); the stability test keeps every trial, and so the estimates,
// inside it, as the family's own stability routine judges them.
TYPED_TEST(FamilyTest, StabilityTestHoldsAFitWithoutBounds) {
  using F = typename TypeParam::F;
  if constexpr (!F::kHasStability) {
    GTEST_SKIP() << "the family has no stability region";
  } else {
    for (const Example& ex : {kAir, kGas, kDeaths}) {
      SCOPED_TRACE(ex.file);
      Case<TypeParam> c(ex);
      c.m->wbnds.bounds = 0;
      const int rc = fit<TypeParam>(c.m.get());
      ASSERT_TRUE(rc == 0 || rc == 90) << rc;
      if constexpr (fr::StabilityReadsModel<F>) {
        EXPECT_TRUE(F::stable(c.m.get(), c.m->pest.parms));
      } else {
        EXPECT_TRUE(F::stable(c.m->pest.parms));
      }
    }
  }
}

// With kFew usable observations the fit still gives weights, without
// standard errors, and the error variance carries nobs / (nobs - p) only
// when nobs > p; one more observation gives standard errors.
TYPED_TEST(FamilyTest, TooFewObservationsLeaveNoStandardErrors) {
  constexpr int p = TypeParam::F::kNumWeights;
  for (long n : {TypeParam::kFew, TypeParam::kFew + 1}) {
    SCOPED_TRACE(n);
    Case<TypeParam> c(kGas, false, n);
    const int rc = fit<TypeParam>(c.m.get());
    ASSERT_TRUE(rc == 0 || rc == 90) << rc;
    const double mse = c.mse_at(c.m->pest.parms);
    EXPECT_NEAR(c.m->pest.mse, n > p ? mse * static_cast<double>(n) / static_cast<double>(n - p) : mse, 1e-8 * mse);
    for (int i = 0; i < p; ++i) EXPECT_EQ(is_miss(c.m->pest.stderr[i]), n == TypeParam::kFew) << i;
  }
}

// With every prediction past 10000 times the series' scale no grid
// candidate can be evaluated, and the search has no start.
TYPED_TEST(FamilyTest, NoUsableGridCandidateIsNoStart) {
  Case<TypeParam> c(kAir);
  c.m->ts.descstats.norm = 1e-6;
  EXPECT_EQ(fit<TypeParam>(c.m.get()), -8);
}

// Weights fixed by equal bounds are the estimates, with the error variance
// of their pass.
TYPED_TEST(FamilyTest, FixedWeightsAreKept) {
  using F = typename TypeParam::F;
  Case<TypeParam> c(kAir);
  const std::vector<double> w = grid_row<F>(7);
  for (int i = 0; i < F::kNumWeights; ++i) {
    double* b = const_cast<double*>(fr::bounds_of(c.m->wbnds, F::kSlots[i]));
    b[0] = b[1] = w[i];
  }
  c.m->wbnds.wlevflg = c.m->wbnds.wtreflg = c.m->wbnds.wseaflg = c.m->wbnds.wdamflg = 1;
  ASSERT_EQ(fit<TypeParam>(c.m.get()), 0);
  for (int i = 0; i < F::kNumWeights; ++i) EXPECT_EQ(c.m->pest.parms[i], w[i]) << i;
  const double n = static_cast<double>(c.m->ts.nobs);
  EXPECT_NEAR(c.m->pest.mse, c.mse_at(w.data()) * n / (n - F::kNumWeights), 1e-9 * c.m->pest.mse);
}

// The fit method writes the weights, estimates and error variance a direct
// fit finds, under the family's names and labels, and the start values to
// the model description; its forecast method writes the table with the
// family's state columns, the table the forecast command writes for the
// family's name. A cycle shorter than the interval's runs nothing.
TYPED_TEST(FamilyTest, FitFeedsForecastThroughTheLists) {
  using namespace esf::host;
  using F = typename TypeParam::F;
  const esf::Family& row = row_of<TypeParam>();
  const int p = row.nparms;
  const smooth_test::ScratchLibrary lib("FAM", "family_test");
  const fs::path& dir = lib.path;
  const std::vector<double> x = example_series(kGas.file);
  for (int ns : {4, 3}) {
    SCOPED_TRACE(ns);
    if (ns != 4 && !row.seasonal) continue;
    method_test::CallLists l(x, kGas.interval, method_test::date(kGas.year, 1, 1));
    if (row.seasonal) set_integer(l.interval_info(), "NSEASONS", ns);
    if (row.winters && !TypeParam::kAdditive) set_text(l.spec, "CODE", "WINTM");  // CODE defaults to WINTA
    const std::size_t outstanding = pool_outstanding();
    const double fit_rc = method_test::call_fit(esf::method_named(row.fit_method), l);
    const double forecast_rc = method_test::call_forecast(esf::method_named(row.forecast_method), l, "FAM.FC", 0.05, 6);
    EXPECT_EQ(pool_outstanding(), outstanding);
    EXPECT_EQ(fit_rc, ns == 4 ? 0.0 : 999.0);  // codes 0..3 do not fit a cycle of 3
    EXPECT_EQ(forecast_rc, ns == 4 ? 0.0 : 999.0);
    if (ns != 4) continue;

    Case<TypeParam> direct(kGas);
    ASSERT_GE(fit<TypeParam>(direct.m.get()), 0);
    using method_test::names_of, method_test::numbers_of;
    EXPECT_EQ(names_of(l.model),
              (std::vector<std::string>{"MODEL_SPEC", "FITRANGE", "EVALRANGE", "PARMVALS", "ESTIMATES", "FIT_STATS"}));
    const std::vector<std::string> spec = names_of(l.spec);  // CODE given, then what the fit added
    EXPECT_EQ(std::vector<std::string>(spec.end() - 2, spec.end()), (std::vector<std::string>{"SVI", "STARTVALS"}));
    const List estimates = find_list(l.model, "ESTIMATES");
    EXPECT_EQ(names_of(estimates), (std::vector<std::string>{"NAMES", "VALUES", "LABELS", "STDERRS", "TVALS", "NPARMS",
                                                             "SIGMA", "SMOOTHED_STATE", "EVAL_VARIANCE"}));
    const MODELPEST& pest = direct.m->pest;
    EXPECT_EQ(method_test::texts_of(find_list(estimates, "NAMES")), std::vector<std::string>(row.names, row.names + p));
    EXPECT_EQ(numbers_of(find_list(estimates, "VALUES")), std::vector<double>(pest.parms, pest.parms + p));
    EXPECT_EQ(numbers_of(find_list(estimates, "STDERRS")), std::vector<double>(pest.stderr, pest.stderr + p));
    EXPECT_EQ(numbers_of(find_list(estimates, "TVALS")), std::vector<double>(pest.tvals, pest.tvals + p));
    EXPECT_EQ(find_number(estimates, "SIGMA"), pest.mse);
    int k = 0;
    for (const SLIST_ITEM* it : items(find_list(find_list(l.model, "PARMVALS"), "SMOOTHING_WEIGHTS"))) {
      ASSERT_LT(k, row.n_weight_items);
      EXPECT_EQ(item_name(it), row.weight_items[k].name);
      EXPECT_EQ(slgetnv(it, 0), direct.m->pest.parms[row.weight_items[k++].parm]);
    }
    EXPECT_EQ(k, row.n_weight_items);
    k = 0;
    for (const SLIST_ITEM* it : items(find_list(estimates, "LABELS"))) {
      const std::string label(it->data.c.p, it->data.c.len);
      EXPECT_EQ(label,
                row.labels_by_putstvlab ? std::string(row.names[k]) + " Smoothing Weight" : std::string(row.labels[k]));
      ++k;
    }
    EXPECT_EQ(find_number(estimates, "NPARMS"), p);
    EXPECT_EQ(find_number(find_list(estimates, "SMOOTHED_STATE"), "TREND").has_value(), row.trended);
    EXPECT_EQ(find_number(find_list(l.spec, "STARTVALS"), "TREND").has_value(), row.trended);

    const smooth_test::Table t = smooth_test::read_table(dir / "fc.csv");
    std::vector<std::string> names = {"DATE", "ACTUAL", "FORECAST", "U95", "L95", "RESIDUAL", "STD"};
    for (const auto& column : fr::kStateColumns<typename F::Kernel>.column) names.push_back(column.name);
    EXPECT_EQ(t.names, names);
    ASSERT_EQ(t.rows.size(), x.size() + 6);
    for (std::size_t r = 0; r < t.rows.size(); ++r) {
      const auto& v = t.rows[r];
      if (r < x.size()) {
        EXPECT_EQ(v[1], x[r]);
        EXPECT_NEAR(v[5], v[2] - v[1], 1e-9 * std::fabs(v[1]));
      } else {
        EXPECT_TRUE(std::isnan(v[1]) && std::isnan(v[5]));
        EXPECT_NEAR(v[3] - v[2], v[2] - v[4], 1e-9 * std::fabs(v[2]));
      }
    }
    const support::CliOutcome cli =
        support::run_cli(dir, {"forecast", "--model", TypeParam::kCli, "--interval", kGas.interval, "--lead", "6", "-o",
                               "cli.csv", std::string(ESF_SOURCE_DIR) + "/examples/" + kGas.file});
    ASSERT_EQ(cli.status, 0) << cli.err;
    const smooth_test::Table c = smooth_test::read_table(dir / "cli.csv");
    ASSERT_EQ(c.rows.size(), t.rows.size());
    for (std::size_t r = 0; r < t.rows.size(); ++r) {
      for (std::size_t j = 1; j < t.names.size(); ++j) {
        const double want = t.rows[r][j], got = c.rows[r][j];
        EXPECT_TRUE(std::isnan(want) ? std::isnan(got) : std::fabs(got - want) <= 1e-9 * std::fabs(want))
            << r << " " << j;
      }
    }
  }
}

}  // namespace
