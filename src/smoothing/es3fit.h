// The second of the two units of damped-trend exponential smoothing, beside its kernel (es3subs.h):
// the family's trait on the shared estimation frame (smoothing/frame.h) and
// forecast driver (smoothing/frame_out.h), and the exported drivers that
// instantiate them.
#pragma once

#include "intervals/interval.h"
#include "module/win_model.h"
#include "smoothing/es3subs.h"
#include "smoothing/family_traits.h"
#include "smoothing/frame_drivers.h"

// The exported drivers (smoothing/frame_drivers.h).
ESF_DECLARE_DRIVERS(nes3fit, nes3for)
ESF_DECLARE_TABLE_WRITER(es3out)

namespace es3 {

using namespace smoothing;
using namespace smoothing::frame;

// Three weights, level, trend and damping; two states, level and trend.
struct Family : ThreeWeightShape<Slot::damp>, KernelFamily<Family> {
  // Candidate k tries entry k of the three tables.
  static constexpr double kDampGrid[kGridRows] = {0.99, 0.99, 0.99, 0.98, 0.98, 0.98, 0.98, 0.98, 0.98, 0.98,
                                                  0.97, 0.97, 0.97, 0.97, 0.97, 0.9,  0.9,  0.9,  0.9,  0.8};
  static constexpr const double* kGrid[3] = {kLevelGrid, kTrendGrid, kDampGrid};
  // The tables stand as they are under the default bounds: 0.001 .. 0.999
  // for level and trend, 0.9 .. 0.999 for damping (0.999 - 0.9 in doubles).
  // So row 20 tries a damping of 0.8, below its lower bound.
  static constexpr double kGridLo[3] = {0.001, 0.001, 0.9};
  static constexpr double kGridScale[3] = {0.998, 0.998, 0.09899999999999998};

  static bool stable(const double* w) { return zes3stb(w[0], w[1], w[2]) != 0; }
  // Standard errors from four observations on.
  static long stderr_min_nobs(const WINMODEL&) { return 4; }

  // The eligible candidates side by side in one backward and forward pass.
  static void grid_mse_all(WINMODEL* model, const FITCON* fitcon, const double* w, const bool* eligible, int* rc,
                           double* mse, int width = 0) {
    grid_side_by_side<3, es3::smooth_many>(model, fitcon, w, eligible, rc, mse, width);
  }

  // The derivative passes (DerivativePasses). A missing observation takes
  // the prediction L + wdamp * T as its value, so that it has no error.
  static auto derivative_step(const Pass& pass, const double* w) {
    const double xscale = pass.xscale, wlevel = w[0], wtrend = w[1], wdamp = w[2];
    return level_trend_step<3>(
        [=](double x, double* l, double* t, double* xhat, double* e, auto& guards) {
          return es3::point(x, xscale, wlevel, wtrend, wdamp, l, t, xhat, e, guards);
        },
        [=](double x, double ll, double cl, double lt, double* dl, double* dt, double* dv, auto& guards) {
          return es3::point_derivative(x, wlevel, wtrend, wdamp, ll, cl, lt, dl, dt, dv, guards);
        },
        [=](double l, double t) { return l + t * wdamp; });
  }

  // The reversal between the passes: one more damped step back, and the
  // trend turned forward in time, for the state and its derivatives.
  static void turn(Pass& pass, const double* w) {
    SMOOTHVALS& s = pass.smooth;
    WINT_DER& d = pass.der;
    const double wdamp = w[2];
    const double t = s.trend;
    d.level[0] += wdamp * d.trend[0];
    d.level[1] += wdamp * d.trend[1];
    d.level[2] += wdamp * d.trend[2] + t;
    s.level += wdamp * t;
    d.trend[0] = -(wdamp * d.trend[0]);
    d.trend[1] = -(wdamp * d.trend[1]);
    d.trend[2] = -(wdamp * d.trend[2] + t);
    s.trend = -(wdamp * t);
  }

  static constexpr auto std_errors = &zes3std;

  // Diagnostics.
  static constexpr Diagnostics kDiagnostics = {"   Level     Trend  Damping   ",
                                               "%8.93f  %8.93f  %8.93f  ",
                                               "  DDer0    DDer1    Phi  ",
                                               "%7.98f  %7.98f  %5.1f  ",
                                               " Damp-Trend ES  Partial Derivative Information      ",
                                               "                  LEVEL    TREND    DAMPING         "};
  static int numeric_gradient(WINMODEL* model, const FITCON* fitcon, const double* w, const double* deltas, int wkflag,
                              double* pder) {
    double d[3] = {deltas[0], deltas[1], deltas[2]};
    return zes3npd(fitcon->x, fitcon->misflg, model->ts.descstats.norm, fitcon->n, w[0], w[1], w[2], model->svi.level,
                   model->svi.trend, d, wkflag, pder);
  }

  // The kernel record: the grid's whole-series pass (KernelGrid) and the
  // forecast's prediction pass run it.
  using Kernel = es3::Kernel;
  static Kernel kernel(const WINMODEL& model, const double* w, const int*) {
    return {{}, model.ts.descstats.norm, w[0], w[1], w[2]};
  }
};

}  // namespace es3
