// Pieces that several family traits share on the
// estimation frame (smoothing/frame.h) and the forecast driver
// (smoothing/frame_out.h):
//
//   kLevelGrid,        the grid tables of level and trend that the families
//   kTrendGrid         with more than one weight share
//   LevelWeightShape   the shape and grid of the one-weight families (simple
//                      and double smoothing): the weight is the level's, the
//                      grid is level_grid, there is no stability test
//   ThreeWeightShape   the shape of the three-weight families (damped trend,
//                      Winters)
//   KernelStates       pass_begin and save_start of every family on the
//                      states of its kernel record
//   FactorDerivativeArrays
//                      fit_setup and fit_cleanup of the seasonal families:
//                      the derivative arrays of their factors
//   LevelTrendStep     the step record of the derivative loops of the
//                      families with a level and a trend (and the simple
//                      family)
//   factor_step        that of a seasonal family
//   DerivativePasses   the derivative passes of every family on its step
//                      record: the family's own loops, and fitobs and
//                      missing_value on the same step
//   turn_level_trend   the turn of the linear and double families (and of
//                      Winters after its normalisation), for the states and
//                      their derivatives
//   grid_side_by_side  grid_mse_all of a trended family from its
//                      side-by-side pass
//   grid_with_factors  that of a seasonal family
//   KernelGrid         grid_mse of every family from its kernel record
//   KernelFamily       all that every family takes from its kernel record
//
// What the seasonal families share about their factors (factor_bytes,
// copy_factors and the season-code check codes_fit) stands in frame_out.h,
// whose prediction pass needs it too.
#pragma once

#include <cstring>
#include <type_traits>

#include "module/win_model.h"
#include "smoothing/frame.h"
#include "smoothing/frame_out.h"
#include "smoothing/trend_kernel.h"

namespace smoothing::frame {

// The level and trend tables of the grid that the families with more than
// one weight share: candidate k tries level kLevelGrid[k] (and trend
// kTrendGrid[k]).
inline constexpr double kLevelGrid[kGridRows] = {0.1, 0.1, 0.2, 0.1, 0.2, 0.3, 0.1, 0.2, 0.3, 0.4,
                                                 0.1, 0.2, 0.3, 0.4, 0.5, 0.1, 0.4, 0.6, 0.9, 0.9};
inline constexpr double kTrendGrid[kGridRows] = {0.01, 0.05, 0.01, 0.1,  0.05, 0.01, 0.15, 0.1, 0.05, 0.01,
                                                 0.25, 0.15, 0.1,  0.05, 0.01, 0.9,  0.6,  0.4, 0.1,  0.9};

// The derivative array of the factors by the weight in slot s (d a
// WINT_DER_SEASON, const or not).
template <class D>
inline auto& factor_derivatives(D& d, Slot s) {
  return s == Slot::level ? d.wlevel : s == Slot::trend ? d.wtrend : d.wseason;
}

// One weight, the level's, tried on level_grid.
struct LevelWeightShape {
  static constexpr int kNumWeights = 1;
  static constexpr Slot kSlots[1] = {Slot::level};

  static constexpr double kGrid[1][kGridRows] = {{0.01, 0.1,   0.15, 0.175, 0.2, 0.225, 0.25, 0.275, 0.3, 0.325,
                                                  0.35, 0.375, 0.4,  0.45,  0.5, 0.6,   0.7,  0.8,   0.9, 0.99}};
  // Default bounds 0.001 .. 0.999: the table is used as it stands.
  static constexpr double kGridLo[1] = {0.001};
  static constexpr double kGridScale[1] = {0.998};

  static constexpr bool kHasStability = false;
  static bool stable(const double*) { return true; }

  static constexpr GradDivisor kGradDivisor = GradDivisor::n;  // (two-weight solve only)
};

// Level, trend and a third weight (damping or seasonal) through the
// three-weight step: the gradient divides by n, the error variance is
// (nobs / (nobs - 3)) * mse, and a stability test guards every trial.
template <Slot Third>
struct ThreeWeightShape {
  static constexpr int kNumWeights = 3;
  static constexpr Slot kSlots[3] = {Slot::level, Slot::trend, Third};
  static constexpr bool kHasStability = true;
  static constexpr GradDivisor kGradDivisor = GradDivisor::n;
  static constexpr MseScaling kMseScaling = MseScaling::ratio_first;
};

// The states of F's kernel record (the level[, the trend][, the factors]):
// a pass starts from svi, with the derivatives of the factors cleared, and
// startvals keeps the state between the passes.
template <class F>
struct KernelStates {
  static int pass_begin(const WINMODEL& model, Pass& p, const double*) {
    using K = typename F::Kernel;
    p.smooth.level = model.svi.level;
    if constexpr (pass::Trended<K>) p.smooth.trend = model.svi.trend;
    if constexpr (pass::Seasonal<K>) {
      copy_factors(&model, p.smooth.sfactor, model.svi.sfactor);
      const size_t bytes = factor_bytes(&model);
      if (bytes) {
        for (Slot s : F::kSlots) std::memset(factor_derivatives(p.der.season, s), 0, bytes);
      }
    }
    return kOk;
  }
  static void save_start(const Pass& p, WINMODEL* model) {
    using K = typename F::Kernel;
    model->startvals.level = p.smooth.level;
    if constexpr (pass::Trended<K>) model->startvals.trend = p.smooth.trend;
    if constexpr (pass::Seasonal<K>) copy_factors(model, model->startvals.sfactor, p.smooth.sfactor);
  }
};

// The derivative arrays of the factors of a seasonal family F, one of
// nseasons doubles for each of its weights, requested together and tested
// once.  A model without seasons, or with a season code outside the cycle,
// cannot be estimated.
template <class F>
struct FactorDerivativeArrays {
  static int fit_setup(WINMODEL* model, FITCON* fitcon) {
    if (!codes_fit(fitcon->scodes, fitcon->n - 1, model->ts.nseasons)) return kTooFew;
    WINT_DER_SEASON& d = fitcon->derwork.season;
    d.size = static_cast<long>(factor_bytes(model));
    d.wlevel = d.wtrend = d.wseason = nullptr;
    bool all = true;
    for (Slot s : F::kSlots) {
      double*& a = factor_derivatives(d, s);
      a = static_cast<double*>(host_alloc(d.size, kPoolNumbers));
      all = all && a != nullptr;
    }
    if (xmemdef() != 0 || !all) {
      fit_cleanup(model, fitcon);
      return kNoMemory;
    }
    return kOk;
  }
  static void fit_cleanup(WINMODEL*, FITCON* fitcon) {
    WINT_DER_SEASON& d = fitcon->derwork.season;
    for (double** a : {&d.wlevel, &d.wtrend, &d.wseason}) {
      if (*a) host_free(*a);
      *a = nullptr;
    }
  }
};

// The step record of the derivative loops (pass_kernel.h) of a family whose
// states are a level and a trend, with P weights (the simple family leaves
// the trend as it is): the family's z..pnt and z..dpd on the state and its
// derivatives held by value, through
//   point(value, &level, &trend, &xhat, &e)
//   derive(value, llevel, clevel, ltrend, derlev, dertre, wder)
// with llevel and ltrend the states before the observation and clevel the
// level after it, and missing(level, trend), the prediction that stands in
// for a missing observation. The error goes to wder[P]. No array is
// written, so nothing is saved.
template <int P, class Point, class Derive, class Missing>
struct LevelTrendStep {
  static constexpr int kWeights = P;
  struct State {
    double level;
    double trend;
    double xhat;  // the last prediction of a step that succeeded
    double derlev[P];
    double dertre[P];
  };

  Point point;
  Derive derive;
  Missing missing;

  double missing_value(const State& s, long) const noexcept { return missing(s.level, s.trend); }
  template <class Guards = CheckedGuards>
  [[gnu::always_inline]] int step(State& s, long, double value, double* wder,
                                  Guards&& guards = Guards{}) const noexcept {
#if defined(__x86_64__)
    // The derivatives of the level go into the step as scalars: left to
    // itself, the compiler carries them from step to step in the pairs it
    // builds for the cross products, a shuffle more on the recursion's path.
    for (int i = 0; i < P; ++i) asm("" : "+x"(s.derlev[i]));
#endif
    const double llevel = s.level;
    const double ltrend = s.trend;
    double xhat = 0.0;
    double e = 0.0;
    int rc = point(value, &s.level, &s.trend, &xhat, &e, guards);
    if (rc < 0) return rc;
    rc = derive(value, llevel, s.level, ltrend, s.derlev, s.dertre, wder, guards);
    if (rc < 0) return rc;
    s.xhat = xhat;
    wder[P] = e;
    return kOk;
  }
  static long saved() noexcept { return 0; }
  static void save(double*) noexcept {}
  static void restore(const double*) noexcept {}
};

template <int P, class Point, class Derive, class Missing>
LevelTrendStep<P, Point, Derive, Missing> level_trend_step(Point point, Derive derive, Missing missing) {
  return {point, derive, missing};
}

// The step record S (a pass::FactorStep) of a seasonal family F for the
// weights w: the factors of the pass and their derivative arrays by F's
// weights.
template <class F, class S>
inline S factor_step(const Pass& p, const double* w) {
  S step{p.scodes, p.nseasons, p.xscale, {}, p.smooth.sfactor, {}};
  for (int i = 0; i < S::kWeights; ++i) {
    step.w[i] = w[i];
    step.dersea[i] = factor_derivatives(p.der.season, F::kSlots[i]);
  }
  return step;
}

// The derivative passes of a family F from the step record of its own loops
// (pass_kernel.h: a LevelTrendStep, a pass::FactorStep), which F gives for
// the weights of an evaluation as
//   static auto derivative_step(const Pass&, const double* w);
// or, where the record's type depends on the model (the Winters forms),
// hands to fn as
//   template <class Fn> static auto with_derivative_step(const Pass&, const double* w, Fn fn);
// The step's state (the level[, the trend], the last prediction and their
// derivatives by each weight) is loaded from the pass record and stored
// back: missing_value and fitobs for the frame's loops, one observation at
// a time, and derivative_pass for the family's own loops over the series
// (OwnDerivativeLoops), which keep the state and its derivatives in
// registers.
template <class F>
struct DerivativePasses : pass::OwnDerivativeLoops<F> {
  template <class Fn>
  static auto on_step(const Pass& p, const double* w, Fn fn) {
    if constexpr (requires { F::derivative_step(p, w); }) {
      const auto step = F::derivative_step(p, w);
      return fn(step);
    } else {
      return F::with_derivative_step(p, w, fn);
    }
  }
  template <class Step>
  static typename Step::State state_of(const Pass& p) {
    typename Step::State st{};
    st.level = p.smooth.level;
    st.xhat = p.smooth.xhat;
    for (int i = 0; i < Step::kWeights; ++i) st.derlev[i] = p.der.level[i];
    if constexpr (requires { st.trend; }) {
      st.trend = p.smooth.trend;
      for (int i = 0; i < Step::kWeights; ++i) st.dertre[i] = p.der.trend[i];
    }
    return st;
  }
  template <class Step>
  static void store(Pass& p, const typename Step::State& st) {
    p.smooth.level = st.level;
    p.smooth.xhat = st.xhat;
    for (int i = 0; i < Step::kWeights; ++i) p.der.level[i] = st.derlev[i];
    if constexpr (requires { st.trend; }) {
      p.smooth.trend = st.trend;
      for (int i = 0; i < Step::kWeights; ++i) p.der.trend[i] = st.dertre[i];
    }
  }

  static double missing_value(const Pass& p, const double* w, long t) {
    return on_step(p, w, [&]<class Step>(const Step& step) { return step.missing_value(state_of<Step>(p), t); });
  }
  static int fitobs(Pass& p, const double* w, long t, double value, double* wder) {
    return on_step(p, w, [&]<class Step>(const Step& step) {
      auto st = state_of<Step>(p);
      const int rc = step.step(st, t, value, wder);
      store<Step>(p, st);
      return rc;
    });
  }
  template <class Run>
  static int derivative_pass(Pass& p, const double* w, Run run) {
    const pass::DerivativeSeries series{p.x, p.misflg, p.n, p.min_nmiss};
    return on_step(p, w, [&]<class Step>(const Step& step) {
      auto st = state_of<Step>(p);
      const int rc = run(step, series, st);
      store<Step>(p, st);
      return rc;
    });
  }
};

// The turn between the passes of the linear and double families (P weights),
// and of Winters after its normalisation, applied to the state and its
// derivatives: the level steps forward by the trend and the trend points
// forward in time.
template <int P>
inline void turn_level_trend(Pass& pass) {
  SMOOTHVALS& s = pass.smooth;
  WINT_DER& d = pass.der;
  s.level += s.trend;
  for (int i = 0; i < P; ++i) d.level[i] += d.trend[i];
  s.trend = -s.trend;
  for (int i = 0; i < P; ++i) d.trend[i] = -d.trend[i];
}

// grid_mse_all of a trended family with P weights: the eligible candidates
// side by side in one backward and forward pass from svi, through
// Many(x, misflg, xscale, n, w, count, level, trend, rc, mse, width), the
// family's smooth_many, in lanes of the given width.
template <int P, auto Many>
inline void grid_side_by_side(WINMODEL* model, const FITCON* fitcon, const double* w, const bool* eligible, int* rc,
                              double* mse, int width) {
  model->smooth = model->svi;
  trend::evaluate_eligible<P>(w, eligible, kGridRows, rc, mse,
                              [&](const double* lanes, int count, int* lane_rc, double* lane_mse) {
                                Many(fitcon->x, fitcon->misflg, model->ts.descstats.norm, fitcon->n, lanes, count,
                                     model->svi.level, model->svi.trend, lane_rc, lane_mse, width);
                              });
}

// grid_mse_all of a seasonal family F: the eligible candidates side by side
// in one backward and forward pass from svi, through
//   many(lane_w, count, lane_rc, lane_mse, work),
// the family's smooth_many with the candidates' factors in work, when those
// of all kGridRows candidates fit in kWork doubles; else one by one.
template <class F, int kWork, class Many>
inline void grid_with_factors(WINMODEL* model, const FITCON* fitcon, const double* w, const bool* eligible, int* rc,
                              double* mse, Many many) {
  const int ns = model->ts.nseasons;
  if (ns < 1 || ns > kWork / kGridRows) {
    grid_one_by_one<F>(model, fitcon, w, eligible, rc, mse);
    return;
  }
  F::reset_from_svi(model);
  double work[kWork];
  trend::evaluate_eligible<F::kNumWeights>(w, eligible, kGridRows, rc, mse,
                                           [&](const double* lane_w, int count, int* lane_rc, double* lane_mse) {
                                             many(lane_w, count, lane_rc, lane_mse, work);
                                           });
}

// grid_mse of a family F (a base of F) from its kernel record: the
// whole-series pass (z..smo) from svi, which leaves its state in
// model->smooth.  reset_from_svi: the states the kernel has from svi, as the
// forecast's backcast starts.
template <class F>
struct KernelGrid {
  static void reset_from_svi(WINMODEL* model) { forecast_start<typename F::Kernel>(model, 0); }
  static int grid_mse(WINMODEL* model, const FITCON* fitcon, const double* w, double* mse) {
    using K = typename F::Kernel;
    reset_from_svi(model);
    typename K::State s = state_of<K>(model->smooth);
    const int rc = pass::smooth(F::kernel(*model, w, fitcon->scodes), fitcon->x, fitcon->misflg, fitcon->n, s, mse,
                                nullptr, nullptr);
    keep_state<K>(s, model->smooth);
    return rc;
  }
};

// What every family F takes from its kernel record (a base of F): its
// states (KernelStates), the derivative arrays of its factors where it has
// factors (FactorDerivativeArrays), its derivative passes (DerivativePasses)
// and grid_mse (KernelGrid).
template <class F>
struct KernelFamily : KernelStates<F>, DerivativePasses<F>, KernelGrid<F> {
  static int fit_setup(WINMODEL* model, FITCON* fitcon) {
    if constexpr (pass::Seasonal<typename F::Kernel>) return FactorDerivativeArrays<F>::fit_setup(model, fitcon);
    return kOk;
  }
  static void fit_cleanup(WINMODEL* model, FITCON* fitcon) {
    if constexpr (pass::Seasonal<typename F::Kernel>) FactorDerivativeArrays<F>::fit_cleanup(model, fitcon);
  }
};

}  // namespace smoothing::frame
