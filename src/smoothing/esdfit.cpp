// Double exponential smoothing on the shared estimation frame and forecast
// driver: the family's trait and the three exported drivers.
#include "smoothing/esdfit.h"

#include <cmath>

#include "smoothing/esdsubs.h"
#include "smoothing/frame.h"
#include "smoothing/frame_out.h"
#include "smoothing/trend_kernel.h"

namespace {

using namespace smoothing;
using namespace smoothing::frame;

// One weight for both states, level and trend. The prediction divides the
// trend by the weight, so a weight at 0 cannot be evaluated.
struct DoubleFamily : FamilyDefaults {
  static constexpr int kNumWeights = 1;
  static constexpr Slot kSlots[1] = {Slot::level};

  // level_grid, shared with simple smoothing.
  static constexpr double kGrid[1][kGridRows] = {{0.01, 0.1, 0.15, 0.175, 0.2, 0.225, 0.25,
                                                  0.275, 0.3, 0.325, 0.35, 0.375, 0.4, 0.45,
                                                  0.5, 0.6, 0.7, 0.8, 0.9, 0.99}};
  static constexpr double kGridLo[1] = {0.001};
  static constexpr double kGridScale[1] = {0.998};

  static constexpr bool kHasStability = false;
  static bool stable(const double*) { return true; }

  static constexpr GradDivisor kGradDivisor = GradDivisor::n;  // (two-weight solve only)
  // A trial weight near 0 fails without bounds, and jumps over 0 with them.
  static constexpr bool kJumpOverZero = true;
  static constexpr MseScaling kMseScaling = MseScaling::scale_then_divide;
  // The standard errors need more than two observations.
  static long stderr_min_nobs(const WINMODEL&) { return 3; }



  static int grid_mse(WINMODEL* model, const FITCON* fitcon, const double* w, double* mse) {
    model->smooth = model->svi;
    return zesdsmo(fitcon->x, fitcon->misflg, model->ts.descstats.norm, fitcon->n, w[0],
                   &model->smooth.level, &model->smooth.trend, mse, nullptr, nullptr);
  }

  // The eligible candidates side by side in one backward and forward pass.
  static void grid_mse_all(WINMODEL* model, const FITCON* fitcon, const double* w,
                           const bool* eligible, int* rc, double* mse) {
    model->smooth = model->svi;
    trend::evaluate_eligible<1>(w, eligible, kGridRows, rc, mse,
                                [&](const double* lanes, int count, int* lane_rc, double* lane_mse) {
                                  esd::smooth_many(fitcon->x, fitcon->misflg,
                                                  model->ts.descstats.norm, fitcon->n, lanes,
                                                  count, model->svi.level, model->svi.trend,
                                                  lane_rc, lane_mse);
                                });
  }

  static int pass_begin(WINMODEL* model, FITCON*, const double* w) {
    if (std::fabs(w[0]) < kTiny) return kOverflow;
    model->smooth.level = model->svi.level;
    model->smooth.trend = model->svi.trend;
    return kOk;
  }

  // A missing observation takes the prediction L + T / w as its value,
  // without a step of the state first.
  static double missing_value(const WINMODEL* model, const FITCON*, const double* w, long) {
    return model->smooth.level + model->smooth.trend / w[0];
  }

  static int fitobs(WINMODEL* model, FITCON* fitcon, const double* w, long, double value,
                    double* wder) {
    SMOOTHVALS& s = model->smooth;
    const double llevel = s.level;
    const double ltrend = s.trend;
    double xhat = 0.0;
    double e = 0.0;
    int rc = esd::point(value, model->ts.descstats.norm, w[0], &s.level, &s.trend, &xhat, &e);
    if (rc < 0) return rc;
    rc = esd::point_derivative(value, w[0], llevel, s.level, ltrend, &fitcon->derwork.level[0],
                               &fitcon->derwork.trend[0], wder);
    if (rc < 0) return rc;
    s.xhat = xhat;
    wder[1] = e;
    return kOk;
  }

  // Between the passes the state and its derivatives turn round.
  static void turn(WINMODEL* model, FITCON* fitcon, const double*) {
    SMOOTHVALS& s = model->smooth;
    WINT_DER& d = fitcon->derwork;
    s.level = s.level + s.trend;
    s.trend = -s.trend;
    d.level[0] += d.trend[0];
    d.trend[0] = -d.trend[0];
  }
  static void save_start(WINMODEL* model) {
    model->startvals.level = model->smooth.level;
    model->startvals.trend = model->smooth.trend;
  }

  static int std_errors(double* xpxdiag, double mse, long nobs, double* parms, double* stderr,
                        double* tvals) {
    return zesdstd(xpxdiag, mse, nobs, parms, stderr, tvals);
  }

  // Diagnostics.
  static constexpr const char* kTraceWeightHeading = "   Level  ";
  static constexpr const char* kTraceWeightFormat = "%8.93f   ";
  static constexpr const char* kTraceExtraHeading = nullptr;
  static constexpr const char* kTraceExtraFormat = nullptr;
  static constexpr const char* kCheckTitle = " Double Smoothing Partial Derivative Information    ";
  static constexpr const char* kCheckHeading = nullptr;
  static int numeric_gradient(WINMODEL* model, const FITCON* fitcon, const double* w,
                              const double* deltas, int wkflag, double* pder) {
    return zesdnpd(fitcon->x, fitcon->misflg, model->ts.descstats.norm, fitcon->n, w[0],
                   model->svi.level, model->svi.trend, deltas[0], wkflag, pder);
  }

  // Forecast.
  static constexpr int kRowDoubles = 8;
  static constexpr OutputColumn kStateColumns[2] = {{"LEVEL", kMsgLevel}, {"TREND", kMsgTrend}};

  static void forecast_start(WINMODEL* model, int startflg) {
    const SMOOTHVALS& from = startflg == 0 ? model->svi : model->startvals;
    model->smooth.level = from.level;
    model->smooth.trend = from.trend;
  }

  static int predict(WINMODEL* model, const double* w, long end, int startflg) {
    return zesdprd(model->ts.x + model->fitrange.start, model->ts.misflg + model->fitrange.start,
                   model->ts.descstats.norm, model->fitrange.nobs, w[0], &model->smooth.level,
                   &model->smooth.trend, 0, end, model->lead, model->pest.mse, model->cl,
                   startflg, &model->stats.mse, model->out.strptr);
  }
};

}  // namespace

extern "C" {

int nesdfit(WINMODEL* model) { return fit<DoubleFamily>(model); }

int nesdfor(WINMODEL* model, int startflg) { return forecast<DoubleFamily>(model, startflg); }

int esdout(DATASET* out, INTERVAL* intv, u_sname* varname, u_slabel* label, u_sname* timeid,
           double stdate, char* align, long nobs, double cl) {
  return write_family_table<DoubleFamily>(out, intv, varname, label, timeid, stdate, align, nobs,
                                          cl);
}

}  // extern "C"
