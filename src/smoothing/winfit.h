// The second of the two units of Winters smoothing, beside its kernel (winsubs.h):
// the family's trait on the shared estimation frame (smoothing/frame.h) and
// forecast driver (smoothing/frame_out.h), and the exported drivers that
// instantiate them.
#pragma once

#include <cstring>

#include "intervals/interval.h"
#include "module/host_api.h"
#include "module/win_model.h"
#include "smoothing/family_traits.h"
#include "smoothing/frame.h"
#include "smoothing/frame_drivers.h"
#include "smoothing/frame_out.h"
#include "smoothing/trend_kernel.h"
#include "smoothing/winsubs.h"

// The exported drivers (smoothing/frame_drivers.h).
ESF_DECLARE_DRIVERS(nwinfit, nwinfor)
ESF_DECLARE_TABLE_WRITER(winout)

// Returns the three arrays of factor derivatives to the pool; a null is
// passed over.
extern "C" ESF_EXPORT void nwinfitfree(double* dwlevel, double* dwtrend, double* dwseason);

namespace win {

using namespace smoothing;
using namespace smoothing::frame;

// The trait, for both forms.  Three weights (level, trend, seasonal) through
// the three-weight step; states level, trend and one factor per season.  The
// factors are not among the estimated parameters, so the cross products stay
// 4 by 4 whatever the number of seasons: the factors only carry derivatives
// of their own, one array of nseasons doubles per weight in
// fitcon->derwork.season.
//
// Each evaluation starts from the state at the end of the series (svi), runs
// backward to the first observation, normalises the factors there (mean 0
// or 1, level and trend absorbing the difference, with their derivatives),
// turns round and runs forward.

struct Family : ThreeWeightShape<Slot::season>, KernelFamily<Family> {
  // Candidate k tries entry k of the three tables.
  static constexpr double kSeasonGrid[kGridRows] = {0.2, 0.4, 0.4, 0.2, 0.2, 0.2, 0.4, 0.4, 0.4, 0.4,
                                                    0.6, 0.2, 0.2, 0.2, 0.2, 0.8, 0.6, 0.4, 0.4, 0.6};
  static constexpr const double* kGrid[3] = {kLevelGrid, kTrendGrid, kSeasonGrid};
  // The tables stand as they are under the default bounds 0.001 .. 0.999.
  static constexpr double kGridLo[3] = {0.001, 0.001, 0.001};
  static constexpr double kGridScale[3] = {0.998, 0.998, 0.998};

  static bool stable(const WINMODEL* model, const double* w) {
    return zwinstb(model->ts.nseasons, model->additive, w[0], w[1], w[2]) != 0;
  }
  // Standard errors only with two observations more than there are seasons.
  static long stderr_min_nobs(const WINMODEL& model) { return model.ts.nseasons + 2L; }

  // The eligible candidates side by side in one backward and forward pass,
  // when their factor copies fit on the stack; otherwise one by one.
  static void grid_mse_all(WINMODEL* model, const FITCON* fitcon, const double* w, const bool* eligible, int* rc,
                           double* mse) {
    grid_with_factors<Family, 4096>(model, fitcon, w, eligible, rc, mse,
                                    [&](const double* lanes, int count, int* lane_rc, double* lane_mse, double* work) {
                                      smooth_many(fitcon->x, fitcon->misflg, model->ts.descstats.norm, fitcon->n,
                                                  model->ts.nseasons, model->additive, lanes, count, model->svi.level,
                                                  model->svi.trend, model->svi.sfactor, fitcon->scodes, work, lane_rc,
                                                  lane_mse);
                                    });
  }

  // The derivative passes (DerivativePasses) on the kernel's step record of
  // the model's form; a missing observation takes the prediction as its
  // value, so that it has no error.
  template <class Fn>
  static auto with_derivative_step(const Pass& pass, const double* w, Fn fn) {
    return pass.additive ? fn(factor_step<Family, DerivativeStep<true>>(pass, w))
                         : fn(factor_step<Family, DerivativeStep<false>>(pass, w));
  }

  // At the first observation: normalise (trend still backward), then take
  // one more trend step back and turn the trend forward in time.
  static void turn(Pass& pass, const double*) {
    SMOOTHVALS& s = pass.smooth;
    WINT_DER& d = pass.der;
    zwinnmd(pass.nseasons, pass.additive, &s.level, &s.trend, s.sfactor, d.level, d.trend, d.season.wlevel,
            d.season.wtrend, d.season.wseason);
    turn_level_trend<3>(pass);
  }

  static constexpr auto std_errors = &zwinstd;

  // Diagnostics.
  static constexpr Diagnostics kDiagnostics = {"   Level     Trend  Seasonal  ",
                                               "%8.93f  %8.93f  %8.93f  ",
                                               nullptr,
                                               nullptr,
                                               " Winter's Method Partial Derivative Information     ",
                                               "                  LEVEL    TREND    SEASON          "};
  static const char* check_subtitle(const WINMODEL* model) {
    return model->additive ? "     Additive Model                                 "
                           : "     Multiplicative Model                           ";
  }
  static int numeric_gradient(WINMODEL* model, const FITCON* fitcon, const double* w, const double* deltas, int wkflag,
                              double* pder) {
    double dl[3] = {deltas[0], deltas[1], deltas[2]};
    return zwinnpd(fitcon->x, fitcon->misflg, model->ts.descstats.norm, fitcon->n, model->ts.nseasons, model->additive,
                   w[0], w[1], w[2], model->svi.level, model->svi.trend, model->svi.sfactor, fitcon->scodes, dl, wkflag,
                   pder);
  }

  // The kernel record, in the model's form: the grid's whole-series pass
  // (KernelGrid) and the forecast's prediction pass run it.
  using Kernel = win::Kernel;
  static Kernel kernel(const WINMODEL& model, const double* w, const int* scodes) {
    return {model.ts.descstats.norm, model.additive, w[0], w[1], w[2], model.ts.nseasons, scodes};
  }
};

}  // namespace win
