// The second of the two units of simple exponential smoothing, beside its kernel (es1subs.h):
// the family's trait on the shared estimation frame (smoothing/frame.h) and
// forecast driver (smoothing/frame_out.h), and the exported drivers that
// instantiate them.
#pragma once

#include "intervals/interval.h"
#include "module/win_model.h"
#include "smoothing/es1subs.h"
#include "smoothing/family_traits.h"
#include "smoothing/frame.h"
#include "smoothing/frame_drivers.h"
#include "smoothing/frame_out.h"

// The exported drivers (smoothing/frame_drivers.h).
ESF_DECLARE_DRIVERS(nes1fit, nes1for)
ESF_DECLARE_TABLE_WRITER(es1out)

namespace es1 {

using namespace smoothing;
using namespace smoothing::frame;

// The trait: the smallest complete one, and the model for the other families.
//
// One weight, the level, tried on level_grid (LevelWeightShape); one state,
// the level.
struct Family : LevelWeightShape, KernelFamily<Family> {
  static constexpr bool kJumpOverZero = false;
  static constexpr MseScaling kMseScaling = MseScaling::scale_then_divide;
  static long stderr_min_nobs(const WINMODEL&) { return 2; }

  // The twenty candidates side by side in one backward and forward pass, in
  // lanes of the given width (es1::smooth_many).
  static void grid_mse_all(WINMODEL* model, const FITCON* fitcon, const double* w,
                           const bool* /*eligible: no stability test*/, int* rc, double* mse, int width = 0) {
    model->smooth = model->svi;
    smooth_many(fitcon->x, fitcon->misflg, model->ts.descstats.norm, fitcon->n, w, kGridRows, model->svi.level, rc, mse,
                width);
  }

  // The derivative passes (DerivativePasses), which leave the trend alone. A
  // missing observation takes the current level as its value, so that the
  // level stays where it is.
  static auto derivative_step(const Pass& pass, const double* w) {
    const double xscale = pass.xscale, wlevel = w[0];
    return level_trend_step<1>([=](double x, double* l, double*, double* xhat, double* e,
                                   auto& guards) { return es1::point(x, xscale, wlevel, l, xhat, e, guards); },
                               [=](double x, double ll, double, double, double* dl, double*, double* dv, auto& guards) {
                                 return es1::point_derivative(x, wlevel, ll, dl, dv, guards);
                               },
                               [](double l, double) { return l; });
  }

  static void turn(Pass&, const double*) {}

  static constexpr auto std_errors = &zes1std;

  // Diagnostics.
  static constexpr Diagnostics kDiagnostics = {"   Level  ", "%8.93f   ", nullptr, nullptr,
                                               " Simple Smoothing Partial Derivative Information    "};
  static int numeric_gradient(WINMODEL* model, const FITCON* fitcon, const double* w, const double* deltas, int wkflag,
                              double* pder) {
    return zes1npd(fitcon->x, fitcon->misflg, model->ts.descstats.norm, fitcon->n, w[0], model->svi.level, deltas[0],
                   wkflag, pder);
  }

  // The kernel record: the grid's whole-series pass (KernelGrid) and the
  // forecast's prediction pass run it.
  using Kernel = es1::Kernel;
  static Kernel kernel(const WINMODEL& model, const double* w, const int*) { return {model.ts.descstats.norm, w[0]}; }
};

}  // namespace es1
