// The second of the two units of double exponential smoothing, beside its kernel (esdsubs.h):
// the family's trait on the shared estimation frame (smoothing/frame.h) and
// forecast driver (smoothing/frame_out.h), and the exported drivers that
// instantiate them.
#pragma once

#include <cmath>

#include "intervals/interval.h"
#include "module/win_model.h"
#include "smoothing/esdsubs.h"
#include "smoothing/family_traits.h"
#include "smoothing/frame_drivers.h"

// The exported drivers (smoothing/frame_drivers.h).
ESF_DECLARE_DRIVERS(nesdfit, nesdfor)
ESF_DECLARE_TABLE_WRITER(esdout)

namespace esd {

using namespace smoothing;
using namespace smoothing::frame;

// One weight for both states, level and trend, with the shape and grid of
// simple smoothing. The prediction divides the trend by the weight, so a
// weight at 0 cannot be evaluated.
struct Family : LevelWeightShape, KernelFamily<Family> {
  // A trial weight near 0 fails without bounds, and jumps over 0 with them.
  static constexpr bool kJumpOverZero = true;
  static constexpr MseScaling kMseScaling = MseScaling::scale_then_divide;
  // The standard errors need more than two observations.
  static long stderr_min_nobs(const WINMODEL&) { return 3; }

  // The eligible candidates side by side in one backward and forward pass.
  static void grid_mse_all(WINMODEL* model, const FITCON* fitcon, const double* w, const bool* eligible, int* rc,
                           double* mse, int width = 0) {
    grid_side_by_side<1, esd::smooth_many>(model, fitcon, w, eligible, rc, mse, width);
  }

  // A weight of 0 cannot start a pass.
  static int pass_begin(const WINMODEL& model, Pass& pass, const double* w) {
    if (std::fabs(w[0]) < kTiny) return kOverflow;
    return KernelFamily<Family>::pass_begin(model, pass, w);
  }

  // The derivative passes (DerivativePasses). A missing observation takes
  // the prediction L + T / w as its value, without a step of the state
  // first.
  static auto derivative_step(const Pass& pass, const double* w) {
    const double xscale = pass.xscale, weight = w[0];
    return level_trend_step<1>(
        [=](double x, double* l, double* t, double* xhat, double* e, auto& guards) {
          return esd::point(x, xscale, weight, l, t, xhat, e, guards);
        },
        [=](double x, double ll, double cl, double lt, double* dl, double* dt, double* dv, auto& guards) {
          return esd::point_derivative(x, weight, ll, cl, lt, dl, dt, dv, guards);
        },
        [=](double l, double t) { return l + t / weight; });
  }

  // Between the passes the state and its derivatives turn round.
  static void turn(Pass& pass, const double*) { turn_level_trend<1>(pass); }

  static constexpr auto std_errors = &zesdstd;

  // Diagnostics.
  static constexpr Diagnostics kDiagnostics = {"   Level  ", "%8.93f   ", nullptr, nullptr,
                                               " Double Smoothing Partial Derivative Information    "};
  static int numeric_gradient(WINMODEL* model, const FITCON* fitcon, const double* w, const double* deltas, int wkflag,
                              double* pder) {
    return zesdnpd(fitcon->x, fitcon->misflg, model->ts.descstats.norm, fitcon->n, w[0], model->svi.level,
                   model->svi.trend, deltas[0], wkflag, pder);
  }

  // The kernel record: the grid's whole-series pass (KernelGrid) and the
  // forecast's prediction pass run it.
  using Kernel = esd::Kernel;
  static Kernel kernel(const WINMODEL& model, const double* w, const int*) {
    return {{}, model.ts.descstats.norm, w[0]};
  }
};

}  // namespace esd
