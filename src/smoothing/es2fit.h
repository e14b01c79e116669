// The second of the two units of linear exponential smoothing, beside its kernel (es2subs.h):
// the family's trait on the shared estimation frame (smoothing/frame.h) and
// forecast driver (smoothing/frame_out.h), and the exported drivers that
// instantiate them.
#pragma once

#include "intervals/interval.h"
#include "module/win_model.h"
#include "smoothing/es2subs.h"
#include "smoothing/family_traits.h"
#include "smoothing/frame_drivers.h"

// The exported drivers (smoothing/frame_drivers.h).
ESF_DECLARE_DRIVERS(nes2fit, nes2for)
ESF_DECLARE_TABLE_WRITER(es2out)

namespace es2 {

using namespace smoothing;
using namespace smoothing::frame;

// Two weights, level and trend; two states, level and trend.
struct Family : KernelFamily<Family> {
  static constexpr int kNumWeights = 2;
  static constexpr Slot kSlots[2] = {Slot::level, Slot::trend};

  // Candidate k tries entry k of both tables.
  static constexpr const double* kGrid[2] = {kLevelGrid, kTrendGrid};
  // Default bounds 0.001 .. 0.999 for both: the tables are used as they stand.
  static constexpr double kGridLo[2] = {0.001, 0.001};
  static constexpr double kGridScale[2] = {0.998, 0.998};

  // Stable: 0 < wlevel < 2 and 0 <= wtrend < 4 / wlevel - 2.
  static constexpr bool kHasStability = true;
  static bool stable(const double* w) { return zes2stb(w[0], w[1]) != 0; }

  static constexpr GradDivisor kGradDivisor = GradDivisor::nobs;
  static constexpr MseScaling kMseScaling = MseScaling::scale_then_divide;
  // The error variance divides by nobs - 2; below three observations the
  // standard errors are missing.
  static long stderr_min_nobs(const WINMODEL&) { return 3; }

  // The eligible candidates side by side in one backward and forward pass.
  static void grid_mse_all(WINMODEL* model, const FITCON* fitcon, const double* w, const bool* eligible, int* rc,
                           double* mse, int width = 0) {
    grid_side_by_side<2, es2::smooth_many>(model, fitcon, w, eligible, rc, mse, width);
  }

  // The derivative passes (DerivativePasses). A missing observation takes
  // the prediction L + T as its value: its error is 0 and its state change
  // the step over a missing observation.
  static auto derivative_step(const Pass& pass, const double* w) {
    const double xscale = pass.xscale, wlevel = w[0], wtrend = w[1];
    return level_trend_step<2>(
        [=](double x, double* l, double* t, double* xhat, double* e, auto& guards) {
          return es2::point(x, xscale, wlevel, wtrend, l, t, xhat, e, guards);
        },
        [=](double x, double ll, double cl, double lt, double* dl, double* dt, double* dv, auto& guards) {
          return es2::point_derivative(x, wlevel, wtrend, ll, cl, lt, dl, dt, dv, guards);
        },
        [](double l, double t) { return l + t; });
  }

  // Between the passes the state turns round, and its derivatives with it.
  static void turn(Pass& pass, const double*) { turn_level_trend<2>(pass); }

  static constexpr auto std_errors = &zes2std;

  // Diagnostics.
  static constexpr Diagnostics kDiagnostics = {"   Level     Trend   ",
                                               "%8.93f  %8.93f   ",
                                               nullptr,
                                               nullptr,
                                               " Linear ES Partial Derivative Information           ",
                                               "                  LEVEL    TREND                   "};
  static int numeric_gradient(WINMODEL* model, const FITCON* fitcon, const double* w, const double* deltas, int wkflag,
                              double* pder) {
    double d[2] = {deltas[0], deltas[1]};
    return zes2npd(fitcon->x, fitcon->misflg, model->ts.descstats.norm, fitcon->n, w[0], w[1], model->svi.level,
                   model->svi.trend, d, wkflag, pder);
  }

  // The kernel record: the grid's whole-series pass (KernelGrid) and the
  // forecast's prediction pass run it.
  using Kernel = es2::Kernel;
  static Kernel kernel(const WINMODEL& model, const double* w, const int*) {
    return {{}, model.ts.descstats.norm, w[0], w[1]};
  }
};

}  // namespace es2
