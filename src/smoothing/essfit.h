// The second of the two units of seasonal exponential smoothing, beside its kernel (esssubs.h):
// the family's trait on the shared estimation frame (smoothing/frame.h) and
// forecast driver (smoothing/frame_out.h), and the exported drivers that
// instantiate them.
#pragma once

#include <cstring>

#include "intervals/interval.h"
#include "module/host_api.h"
#include "module/win_model.h"
#include "smoothing/esssubs.h"
#include "smoothing/family_traits.h"
#include "smoothing/frame.h"
#include "smoothing/frame_drivers.h"
#include "smoothing/frame_out.h"
#include "smoothing/trend_kernel.h"

// The exported drivers (smoothing/frame_drivers.h).
ESF_DECLARE_DRIVERS(nessfit, nessfor)

// Returns the two arrays of factor derivatives to the current pool; a null
// is passed over.
extern "C" ESF_EXPORT void nessfitfree(double* dwlevel, double* dwseason);

namespace ess {

// The trait.  The family carries an array of factors besides the level.  Each
// pass starts from a copy of the factors of svi, runs the derivative
// recursions of every factor in two arrays of nseasons doubles (by wlevel and
// by wseason), and centres the factors, with their derivatives, once at the
// start of the series, between the backward and the forward pass.

using namespace smoothing;
using namespace smoothing::frame;

// Returns the scratch copies of the derivative check to the pool.
inline void mfree(double* sfactor, int* scodes) {
  if (sfactor) host_free(sfactor);
  if (scodes) host_free(scodes);
}

// Two weights, level and seasonal; the states are the level and the factors.
struct Family : KernelFamily<Family> {
  static constexpr int kNumWeights = 2;
  static constexpr Slot kSlots[2] = {Slot::level, Slot::season};

  // Candidate k tries entry k of both tables.
  static constexpr double kSeasonGrid[kGridRows] = {0.5, 0.4, 0.5, 0.3, 0.4, 0.5, 0.2, 0.3, 0.4, 0.5,
                                                    0.1, 0.2, 0.3, 0.4, 0.5, 0.9, 0.9, 0.9, 0.9, 0.1};
  static constexpr const double* kGrid[2] = {kLevelGrid, kSeasonGrid};
  // Default bounds 0.001 .. 0.999 for both: the tables stand as they are.
  static constexpr double kGridLo[2] = {0.001, 0.001};
  static constexpr double kGridScale[2] = {0.998, 0.998};

  // The stability region depends on the number of seasons.
  static constexpr bool kHasStability = true;
  static bool stable(const WINMODEL* model, const double* w) { return zessstb(model->ts.nseasons, w[0], w[1]) != 0; }

  static constexpr GradDivisor kGradDivisor = GradDivisor::n;
  // pest.mse = (nobs / (nobs - 2)) * mse from three observations on.
  static constexpr MseScaling kMseScaling = MseScaling::ratio_first;
  // The factors count here though not in the divisor of the mse: standard
  // errors need more observations than seasons plus one.
  static long stderr_min_nobs(const WINMODEL& model) { return model.ts.nseasons + 2L; }

  // The eligible candidates side by side in one backward and forward pass,
  // when their factors fit on the stack; else one whole-series pass each.
  static void grid_mse_all(WINMODEL* model, const FITCON* fitcon, const double* w, const bool* eligible, int* rc,
                           double* mse, int width = 0) {
    grid_with_factors<Family, kGridRows * 64>(
        model, fitcon, w, eligible, rc, mse,
        [&](const double* lane_w, int count, int* lane_rc, double* lane_mse, double* work) {
          ess::smooth_many(fitcon->x, fitcon->misflg, model->ts.descstats.norm, fitcon->n, model->ts.nseasons, lane_w,
                           count, model->svi.level, model->svi.sfactor, fitcon->scodes, work, lane_rc, lane_mse, width);
        });
  }

  // The derivative passes (DerivativePasses) on the kernel's step record; a
  // missing observation takes the prediction, level plus its season's
  // factor, as its value: no error, and the state stays where it is.
  static DerivativeStep derivative_step(const Pass& pass, const double* w) {
    return factor_step<Family, DerivativeStep>(pass, w);
  }

  // Between the passes the factors are centred, at the start of the series.
  static void turn(Pass& pass, const double*) {
    WINT_DER& d = pass.der;
    ess::centre(pass.nseasons, &pass.smooth.level, pass.smooth.sfactor, d.level, d.season.wlevel, d.season.wseason);
  }

  static constexpr auto std_errors = &zessstd;

  // Diagnostics.
  static constexpr Diagnostics kDiagnostics = {"   Level     Seasonal  ",
                                               "%8.93f  %8.93f  ",
                                               nullptr,
                                               nullptr,
                                               " Seasonal Smoothing Partial Derivative Information  ",
                                               "                  LEVEL    SEASON                   "};
  // essders: the numeric derivatives run on copies of the start factors and
  // of the season codes.
  static int numeric_gradient(WINMODEL* model, const FITCON* fitcon, const double* w, const double* deltas, int wkflag,
                              double* pder) {
    const long n = fitcon->n;
    double* sfactor = static_cast<double*>(host_alloc(factor_bytes(model), VM_NUMBERS));
    int* scodes = static_cast<int*>(host_alloc(n * static_cast<long>(sizeof(int)), VM_NUMBERS));
    if (xmemdef() != 0 || sfactor == nullptr || scodes == nullptr) {
      mfree(sfactor, scodes);
      return kNoMemory;
    }
    copy_factors(model, sfactor, model->svi.sfactor);
    std::memcpy(scodes, fitcon->scodes, static_cast<size_t>(n) * sizeof(int));
    double steps[2] = {deltas[0], deltas[1]};
    const int rc = zessnpd(fitcon->x, fitcon->misflg, model->ts.descstats.norm, n, model->ts.nseasons, w[0], w[1],
                           model->svi.level, sfactor, scodes, steps, wkflag, pder);
    mfree(sfactor, scodes);
    return rc;
  }

  // The kernel record: the grid's whole-series pass (KernelGrid) and the
  // forecast's prediction pass run it.
  using Kernel = ess::Kernel;
  static Kernel kernel(const WINMODEL& model, const double* w, const int* scodes) {
    return {model.ts.descstats.norm, w[0], w[1], model.ts.nseasons, scodes};
  }
};

}  // namespace ess
