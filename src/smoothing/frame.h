// The estimation frame shared by every smoothing family.
//
// A fit minimises the mean squared one-step error e = xhat - x over the
// family's weights by a bounded Gauss-Newton search with Levenberg-Marquardt
// damping, started from the best of 20 fixed grid candidates.  The frame is
// written once, as templates over a family trait; every family gets the same
// loop, the same step rules and the same arithmetic, and differs only where
// its trait says so.
//
//   fit<F>(model)                 the driver (nes1fit, nes2fit, ...):
//     grid<F>                       best of 20 candidates, then evaluated
//     iterate<F> x at most 99       one outer iteration:
//       trystep<F>                    build a trial point within the bounds
//                                     (classify<F>: one bound rule for every
//                                     form),
//         nextstep<F>                 evaluate it: passes, cross products,
//                                     the steps (solve1<F>, solven<F>) and
//                                     the convergence measure
//       improve                       accept it or not; adapt lambda
//     end of fit                    weights, error variance, standard errors
//
// The one-weight form and the two- and three-weight form share the bound
// classifier and the snap; where the forms differ (the one-weight jump over
// zero and its undamped solve, the three-weight pair step, the test at a
// corner) the template says so by the number of weights.
//
// ---------------------------------------------------------------------------
// A family trait F (a struct of static members; see es1fit.h for the
// simple family) supplies:
//
//   Shape
//     static constexpr int kNumWeights;          p, 1 to 3
//     static constexpr Slot kSlots[p];           where weight i lives in POINT
//                                                and WGTBNDS, in the family's
//                                                order (level, trend, then
//                                                damping or seasonal)
//   Grid
//     static constexpr const double* kGrid[p];   candidate k is entry k of
//                                                every table of kGridRows
//                                                (not a cross product)
//     static constexpr double kGridLo[p];        the bounds under which the
//     static constexpr double kGridScale[p];     tables are used unscaled:
//                                                max(lo,-100) == kGridLo[i] and
//                                                min(hi,100) - that == kGridScale[i]
//                                                for every i
//   Stability
//     static constexpr bool kHasStability;
//     static bool stable(const double* w);       the family's z..stb, or
//     static bool stable(const WINMODEL*, const double* w);
//                                                when the test needs the
//                                                model (the number of seasons)
//   Differences between the copies
//     static constexpr GradDivisor kGradDivisor; two- and three-weight solve:
//                                                the gradient divides by nobs
//                                                (linear) or by n (the others)
//     static constexpr bool kJumpOverZero;       one-weight trystep: a trial
//                                                weight near 0 fails without
//                                                bounds and jumps over 0 with
//                                                them (double smoothing)
//     static constexpr MseScaling kMseScaling;   form of nobs / (nobs - p)
//     static long stderr_min_nobs(const WINMODEL&);  nobs from which standard
//                                                errors are computed
//   Passes (the kernel, one observation at a time, on the evaluation's
//   Pass record: the series, its scale and seasons, the working state and
//   its running derivatives, loaded once per evaluation)
//     static int pass_begin(const WINMODEL&, Pass&, const double* w);
//         the state from svi, clear the family's derivative arrays (the frame
//         clears der.level/.trend); may refuse the weights with -9
//     static double missing_value(const Pass&, const double* w, long t);
//         the value that stands in for a missing observation t: the current
//         prediction, so that the observation has no error
//     static int fitobs(Pass&, const double* w, long t, double value,
//                       double* wder);
//         the kernel's z..pnt and z..dpd on `value`; the state goes to
//         pass.smooth, the p prediction derivatives to wder[0..p-1] and the
//         error to wder[p]; 0 or a negative kernel code
//     static int backward_pass(Pass&, const double* w);
//     static int forward_pass(Pass&, const double* w, double* acc,
//                             long* nmiss);
//         optional: the family's own loops over the series, in place of
//         fitobs one observation at a time, with the same results to the
//         bit (forward_pass adds to the cross products acc and counts the
//         missing observations, stopping as the frame's loop stops)
//     static void turn(Pass&, const double* w);
//         between the backward and the forward pass (reversal, centring)
//     static void save_start(const Pass&, WINMODEL*);  startvals from the
//                                                state
//   Grid evaluation and results
//     static int grid_mse(WINMODEL*, const FITCON*, const double* w,
//                         double* mse);           reset from svi, z..smo
//     static void grid_mse_all(WINMODEL*, const FITCON*, const double* w,
//                              const bool* eligible, int* rc, double* mse);
//         optional: all kGridRows candidates (w row-major, p per row) in one
//         pass, each with the bits grid_mse would give it; used instead of
//         grid_mse when present (see GridInOnePass)
//     static int std_errors(double* xpxdiag, double mse, long nobs,
//                           double* parms, double* stderr, double* tvals);
//   Setup (the derivative arrays of the factors of a seasonal family;
//   KernelFamily in family_traits.h gives both from the kernel record)
//     static int fit_setup(WINMODEL*, FITCON*);   0, -2 or -100
//     static void fit_cleanup(WINMODEL*, FITCON*);
//   Diagnostics (reached only through prtflag and opt.numeric)
//     static constexpr Diagnostics kDiagnostics;  the texts of the trace and
//                                                the check (frame_trace.h)
//     static int numeric_gradient(WINMODEL*, const FITCON*, const double* w,
//                                 const double* deltas, int wkflag,
//                                 double* pder);          the family's z..npd
//
// The forecast driver and the table writer are in smoothing/frame_out.h.
// ---------------------------------------------------------------------------
#pragma once

#include <cfloat>
#include <cmath>
#include <concepts>
#include <cstring>

#include "module/host_api.h"
#include "module/win_model.h"
#include "numeric/numeric.h"
#include "primitives/primitives.h"
#include "smoothing/frame_limits.h"
#include "smoothing/pass_kernel.h"

// ---------------------------------------------------------------------------
// Records of the frame
// ---------------------------------------------------------------------------

extern "C" {

// Derivatives of the seasonal factors, allocated by the seasonal drivers.
struct WINT_DER_SEASON {
  long size;        // bytes of one factor array
  double* wlevel;   // d factor[s] / d wlevel, nseasons entries
  double* wtrend;   // d factor[s] / d wtrend (Winters only)
  double* wseason;  // d factor[s] / d wseason
};

// Running derivatives of the state by weight i, in the family's order.
struct WINT_DER {
  double level[3];
  double trend[3];
  WINT_DER_SEASON season;
};

// The per-call context of an estimation, on the driver's stack.
struct FITCON {
  double* x;         // first observation of the fit range
  char* misflg;      // its missing flags
  long n;            // fitrange.nobs
  int* scodes;       // season codes at the fit range (seasonal families)
  double xscale;     // stays 0: the kernels take ts.descstats.norm
  double xmin;       // stays 0
  double xmax;       // stays 0
  int iter;          // outer iteration, 0 during the grid
  int subiter;       // trial count inside the iteration
  int prtflag;       // iteration trace wanted
  double stepstart;  // first step fraction of the next iteration
  double lambda;     // Levenberg-Marquardt damping
  double min_nmiss;  // largest tolerated count of missing observations
  double min_mse;    // best grid mse so far
  WINT_DER derwork;  // running derivatives of the state
  double last_w[3];  // weights of the last evaluation (states in smooth)
};

// Position of a point against the bounds.
struct POINT_WBNDS {
  char dim;      // weights that may move in this trial
  char nextdim;  // weights strictly inside their bounds at this point
  int wlevflg;   // -1 on (or ran into) the lower bound, +1 the upper, 0 inside
  int wtreflg;
  int wseaflg;
  int wdamflg;
  char wlevchn;  // 1 when pinned for this trial: fixed, or already on
  char wtrechn;  //   that same bound at the current point
  char wseachn;
  char wdamchn;
};

// One candidate of the search.
struct POINT {
  double wlevel;
  double wtrend;
  double wseason;
  double wdamp;
  double change;      // length of the step that led here
  long nobs;          // observations used
  long nmiss;         // missing observations; 2^53 until evaluated
  double mse;         // sse / nobs; missing until evaluated
  int rankxpx;        // pivots swept in the full system
  double xpxdiag[4];  // raw diagonal during nextstep, then half the swept one
  double rr[3];       // relative offset with 1, 2, 3 free weights
  double r;           // convergence measure of this point
  char rflag;         // on a bound with the next step pointing outward
  double delta1[3];   // step with 1 weight free
  double delta2[3];   // step with 2 weights free
  double delta[3];    // step with all weights free
  double grad[3];     // gradient of the mean squared error
  double grad_norm;
  double delta_norm1;
  double delta_norm2;
  double delta_norm;
  double dder0;  // carried and printed, never computed
  double dder1;
  double phi;
  POINT_WBNDS wbnds;
};

}  // extern "C"

namespace smoothing::frame {

// ---------------------------------------------------------------------------
// Constants of the frame (fixed by the design)
// ---------------------------------------------------------------------------

inline constexpr double kEps = 1.110223024625157e-16;   // 2^-53
inline constexpr double kEps2 = 1.232595164407832e-32;  // 2^-106
// r <= kConverged ends the search; also the smallest step fraction.
inline constexpr double kConverged = 0.0001;
inline constexpr double kMinStep = 0.0001;
inline constexpr int kMaxIterations = 99;
inline constexpr int kGridRows = 20;
inline constexpr double kUnevaluatedNmiss = 9007199254740992.0;  // 2^53
inline constexpr long kUnevaluatedNmissLong = 9007199254740992L;
inline constexpr double kStartLambda = 0.01;
inline constexpr double kMaxLambda = 1000.0;
inline constexpr double kMinLambda = 0.0001;      // a lambda below this becomes 0
inline constexpr double kGridScaleLimit = 100.0;  // grid scaling clamps bounds to +-this

// The quotient of the three-weight step: num / den when that cannot
// overflow, otherwise 0 for a zero numerator and +-kBig by the sign of the
// quotient.
inline double bounded_divide(double num, double den) noexcept {
  if (std::fabs(den) >= 1.0 || std::fabs(num) < std::fabs(den) * kBig) return num / den;
  if (num == 0.0) return 0.0;
  if (den == 0.0) return num > 0.0 ? kBig : -kBig;
  return num * den > 0.0 ? kBig : -kBig;
}

// The quotient of the offsets and the step cut with p weights: the kernels'
// guarded division with one and two, bounded_divide with three.
template <int P>
inline double divide(double num, double den) noexcept {
  if constexpr (P == 3) {
    return bounded_divide(num, den);
  } else {
    double quo = 0.0;
    guarded_divide(num, den, &quo);
    return quo;
  }
}

// Pivot tolerance factors with one, two and three free weights:
// sweep pivot k when a(k,k) > (xpxdiag[k] + kEps2) * factor.
inline constexpr double kPivotTol1 = 1e-18;
inline constexpr double kPivotTol2 = 1e-12;
inline constexpr double kPivotTol3 = 1e-06;
// Step of the numeric derivative check.
inline constexpr double kCheckDelta = 1e-06;

// ---------------------------------------------------------------------------
// Trait vocabulary
// ---------------------------------------------------------------------------

// Where a weight lives in POINT and WGTBNDS.
enum class Slot { level, trend, season, damp };

// Divisor of the gradient in the two-weight solve.
enum class GradDivisor { nobs, n };

// End of the fit, the error variance with p weights:
//   scale_then_divide:  mse * nobs / (nobs - p)
//   ratio_first:        (nobs / (nobs - p)) * mse
enum class MseScaling { scale_then_divide, ratio_first };

// Where each weight lives: its value in POINT, its position flag and pin in
// POINT_WBNDS, its bounds and fixed flag in WGTBNDS, by Slot.
struct SlotFields {
  double POINT::*weight;
  int POINT_WBNDS::*position;
  char POINT_WBNDS::*pinned;
  double (WGTBNDS::*bounds)[3];
  char WGTBNDS::*fixed;
};
inline constexpr SlotFields kSlotFields[4] = {
    {&POINT::wlevel, &POINT_WBNDS::wlevflg, &POINT_WBNDS::wlevchn, &WGTBNDS::wlevel, &WGTBNDS::wlevflg},
    {&POINT::wtrend, &POINT_WBNDS::wtreflg, &POINT_WBNDS::wtrechn, &WGTBNDS::wtrend, &WGTBNDS::wtreflg},
    {&POINT::wseason, &POINT_WBNDS::wseaflg, &POINT_WBNDS::wseachn, &WGTBNDS::wseason, &WGTBNDS::wseaflg},
    {&POINT::wdamp, &POINT_WBNDS::wdamflg, &POINT_WBNDS::wdamchn, &WGTBNDS::wdamp, &WGTBNDS::wdamflg},
};
inline const SlotFields& fields_of(Slot s) noexcept { return kSlotFields[static_cast<int>(s)]; }

inline double& weight_of(POINT& p, Slot s) noexcept { return p.*fields_of(s).weight; }
inline double weight_of(const POINT& p, Slot s) noexcept { return p.*fields_of(s).weight; }
// The position flag: -1 on (or ran into) the lower bound, +1 the upper, 0 inside.
inline int& position_of(POINT& p, Slot s) noexcept { return p.wbnds.*fields_of(s).position; }
inline int position_of(const POINT& p, Slot s) noexcept { return p.wbnds.*fields_of(s).position; }
// The pin: the weight may not move in this trial.
inline char& pinned_of(POINT& p, Slot s) noexcept { return p.wbnds.*fields_of(s).pinned; }
// Lower bound, upper bound and snap tolerance of a weight.
inline const double* bounds_of(const WGTBNDS& b, Slot s) noexcept { return b.*fields_of(s).bounds; }
// The weight is fixed: its two bounds are equal.
inline bool fixed_of(const WGTBNDS& b, Slot s) noexcept { return b.*fields_of(s).fixed != 0; }

template <class F>
inline void weights_of(const POINT& p, double* w) noexcept {
  for (int i = 0; i < F::kNumWeights; ++i) w[i] = weight_of(p, F::kSlots[i]);
}

// Packed symmetric index, lower triangle by rows (as zisub).
constexpr int pk(int i, int j) noexcept { return static_cast<int>(esf::packed_index(i, j)); }

// ---------------------------------------------------------------------------
// Small pieces shared by every form
// ---------------------------------------------------------------------------

// The relative offset of a residual sum of squares s against sse: the root of
// the share of the error that one more Gauss-Newton step could still explain
// (the cosine of the angle between the error and the model's tangent).
//   sse > 0:  q = 1 - s / sse;  1 for q > 1,  sqrt(q) for q in (0, 1],  else 0
//   else 0.
template <class F>
inline double relative_offset(double s, double sse) noexcept {
  if (!(sse > 0.0)) return 0.0;
  const double q = 1.0 - divide<F::kNumWeights>(s, sse);
  if (q > 1.0) return 1.0;
  if (q > 0.0) return std::sqrt(q);
  return 0.0;
}

// Non-zero when p2 is at least as good as p1: fewer missing observations
// win; with equal counts the lower or equal mean squared error.
inline int improve(const POINT* p1, const POINT* p2) noexcept {
  if (p2->nmiss < p1->nmiss) return 1;
  if (p2->nmiss > p1->nmiss) return 0;
  return p2->mse <= p1->mse;
}

}  // namespace smoothing::frame

#include "smoothing/frame_trace.h"

namespace smoothing::frame {

// ---------------------------------------------------------------------------
// nextstep: evaluate a point
// ---------------------------------------------------------------------------

using pass::add_cross_products;

// What the passes of one evaluation read and carry.  The frame loads it from
// the model and the fit control once per evaluation and stores the state and
// its derivatives back once: the passes work on a local record that no store
// to the series, the factors or the derivative arrays can reach, so that the
// state and its derivatives may stay in registers from one observation to
// the next.
struct Pass {
  const double* x;     // the fit range
  const char* misflg;  // its missing flags
  const int* scodes;   // its season codes (seasonal families), else null
  long n;              // observations in the fit range
  double min_nmiss;    // largest tolerated count of missing observations
  double xscale;       // ts.descstats.norm
  int nseasons;        // ts.nseasons
  int additive;        // Winters: 1 additive, 0 multiplicative
  SMOOTHVALS smooth;   // the working state (model->smooth)
  WINT_DER der;        // running derivatives of the state (fitcon->derwork)
};

inline Pass load_pass(const WINMODEL& model, const FITCON& fitcon) noexcept {
  return Pass{fitcon.x,         fitcon.misflg,           fitcon.scodes,     fitcon.n,
              fitcon.min_nmiss, model.ts.descstats.norm, model.ts.nseasons, model.additive,
              model.smooth,     fitcon.derwork};
}

// The family's backward and forward passes with derivatives on `pass`.  Fills
// the packed (p+1)x(p+1) matrix of cross products of (prediction
// derivatives, e) and the count of missing observations of the forward pass.
// Writes model->startvals between the passes.  Inlined into passes, where
// `pass` is a local.
template <class F>
[[gnu::always_inline]] inline int passes_on(WINMODEL* model, Pass& pass, POINT* point, const double* w, double* xpx,
                                            long* nmiss_out) {
  constexpr int p = F::kNumWeights;
  constexpr int nx = (p + 1) * (p + 2) / 2;

  point->mse = kMissing;
  point->nobs = 0;
  point->nmiss = kUnevaluatedNmissLong;
  for (int k = 0; k < nx; ++k) xpx[k] = 0.0;
  for (int k = 0; k < 3; ++k) {
    pass.der.level[k] = 0.0;
    pass.der.trend[k] = 0.0;
  }
  int rc = F::pass_begin(*model, pass, w);
  if (rc < 0) return rc;

  const double* x = pass.x;
  const char* misflg = pass.misflg;
  const long n = pass.n;
  double wder[p + 1] = {};

  // Backward pass: the derivative recursion runs, nothing accumulates.
  if constexpr (requires { F::backward_pass(pass, w); }) {
    rc = F::backward_pass(pass, w);
    if (rc < 0) return rc;
  } else {
    for (long t = n - 1; t >= 0; --t) {
      const double value = misflg[t] ? F::missing_value(pass, w, t) : x[t];
      rc = F::fitobs(pass, w, t, value, wder);
      if (rc < 0) return rc;
    }
  }
  F::turn(pass, w);
  F::save_start(pass, model);

  // Forward pass.  A missing observation has the prediction in its place: its
  // error is 0, yet its derivative row enters the cross products.  The sums
  // build in a local array and go to xpx on every way out.
  double acc[nx] = {};
  long nmiss = 0;
  rc = kOk;
  if constexpr (requires { F::forward_pass(pass, w, acc, &nmiss); }) {
    rc = F::forward_pass(pass, w, acc, &nmiss);
  } else {
    for (long t = 0; t < n; ++t) {
      double value;
      if (misflg[t]) {
        ++nmiss;
        if (static_cast<double>(nmiss) > pass.min_nmiss) {
          rc = kTooFew;
          break;
        }
        value = F::missing_value(pass, w, t);
      } else {
        value = x[t];
      }
      rc = F::fitobs(pass, w, t, value, wder);
      if (rc < 0) break;
      if constexpr (p == 1) {
        acc[0] += wder[0] * wder[0];
        acc[1] += wder[0] * wder[1];
        acc[2] += wder[1] * wder[1];
      } else {
        add_cross_products<p + 1>(wder, acc);
      }
      bool big = false;
      for (int k = 0; k < nx; ++k) big |= std::fabs(acc[k]) > kBig;
      if (big) {
        rc = kOverflow;
        break;
      }
    }
  }
  for (int k = 0; k < nx; ++k) xpx[k] = acc[k];
  if (rc < 0) return rc;
  *nmiss_out = nmiss;
  return kOk;
}

// The passes of one evaluation: the pass state loaded once, and the state
// and its derivatives stored back however the passes end.
template <class F>
int passes(WINMODEL* model, FITCON* fitcon, POINT* point, const double* w, double* xpx, long* nmiss_out) {
  Pass pass = load_pass(*model, *fitcon);
  const int rc = passes_on<F>(model, pass, point, w, xpx, nmiss_out);
  model->smooth = pass.smooth;
  fitcon->derwork = pass.der;
  return rc;
}

// Caps the step v[idx[0..count-1]] at length 1; returns its length after the
// cap.
inline double cap_length(double* v, const int* idx, int count) noexcept {
  double sum = 0.0;
  for (int i = 0; i < count; ++i) sum += v[idx[i]] * v[idx[i]];
  double nrm = std::sqrt(sum);
  if (nrm > 1.0) {
    for (int i = 0; i < count; ++i) v[idx[i]] = v[idx[i]] / nrm;
    nrm = 1.0;
  }
  return nrm;
}

// One weight: solve the 2x2 system of (derivative, error).
template <class F>
int solve1(WINMODEL* /*model*/, FITCON* fitcon, POINT* point, double* xpx, long nmiss) {
  const long n = fitcon->n;
  const long nobs = n - nmiss;
  if (nobs < 1) return kTooFew;
  const double sse = xpx[pk(1, 1)];
  point->mse = sse / static_cast<double>(nobs);
  point->nobs = nobs;
  point->nmiss = nmiss;
  const double g = 2.0 * xpx[pk(0, 1)] / static_cast<double>(n);

  char cc[2] = {'0', '0'};
  double work[2];
  const double tol = (xpx[pk(0, 0)] + kEps2) * kPivotTol1;
  zsweep(xpx, 0, 2, cc, work, tol);
  const bool swept = cc[0] == '1';
  point->rankxpx = swept ? 1 : 0;
  point->r = relative_offset<F>(xpx[pk(1, 1)], sse);

  // e = xhat - x, so the Gauss-Newton step is minus the regression
  // coefficient of e on the derivative.
  double d = swept ? -xpx[pk(0, 1)] : 0.0;
  if (std::fabs(d) > 1.0) d = d / std::fabs(d);
  point->delta[0] = d;
  point->delta_norm = std::fabs(d);
  point->grad[0] = g;
  point->grad_norm = std::fabs(g);
  point->xpxdiag[0] = 0.5 * xpx[pk(0, 0)];
  return kOk;
}

// Three weights, the step with one pair free and the third held: the pair
// the pins leave free when the point came from a pair step (dim 2), else the
// pair its positions leave inside.  A failed pivot under lambda > 0 sweeps
// the ridged pair again, without resetting the flags of the first try.
template <class F>
void solve_pair(const double* xpx, const double* diag, double lambda, double ridge, double sse, POINT* point) {
  constexpr int e = 3;  // row of the error
  const bool by_pins = point->wbnds.dim == 2;
  const int first = by_pins ? pinned_of(*point, F::kSlots[0]) : position_of(*point, F::kSlots[0]);
  const int second = by_pins ? pinned_of(*point, F::kSlots[1]) : position_of(*point, F::kSlots[1]);
  const int a = first == 0 ? 0 : 1;
  const int b = first == 0 && second == 0 ? 1 : 2;
  point->delta2[3 - a - b] = 0.0;

  double sub[6];
  auto build = [&](double scale) {
    sub[pk(0, 0)] = scale * xpx[pk(a, a)];
    sub[pk(1, 1)] = scale * xpx[pk(b, b)];
    sub[pk(0, 1)] = xpx[pk(a, b)];
    sub[pk(0, 2)] = xpx[pk(a, e)];
    sub[pk(1, 2)] = xpx[pk(b, e)];
    sub[pk(2, 2)] = xpx[pk(e, e)];
  };
  const double tol_a = (diag[a] + kEps2) * kPivotTol2;
  const double tol_b = (diag[b] + kEps2) * kPivotTol2;
  char cc[3] = {'0', '0', '0'};
  double work[3];
  build(1.0);
  zsweep(sub, 0, 3, cc, work, tol_a);
  zsweep(sub, 1, 3, cc, work, tol_b);
  if (lambda > 0.0 && (cc[0] == '0' || cc[1] == '0')) {
    build(ridge);
    zsweep(sub, 0, 3, cc, work, tol_a);
    zsweep(sub, 1, 3, cc, work, tol_b);
  }
  point->rr[1] = relative_offset<F>(sub[pk(2, 2)], sse);
  point->delta2[a] = cc[0] == '1' ? -sub[pk(0, 2)] : 0.0;
  point->delta2[b] = cc[1] == '1' ? -sub[pk(1, 2)] : 0.0;
  const int idx[2] = {a, b};
  point->delta_norm2 = cap_length(point->delta2, idx, 2);
}

// Two or three weights, the step with one weight free: the first weight
// strictly inside its bounds (the last when none is).
template <class F>
void solve_single(const double* xpx, const double* diag, double sse, POINT* point) {
  constexpr int p = F::kNumWeights;
  int k = 0;
  while (k < p - 1 && position_of(*point, F::kSlots[k]) != 0) ++k;
  for (int i = 0; i < p; ++i) {
    if (i != k) point->delta1[i] = 0.0;
  }
  double sub[3] = {xpx[pk(k, k)], xpx[pk(k, p)], xpx[pk(p, p)]};
  char cc[2] = {'0', '0'};
  double work[2];
  zsweep(sub, 0, 2, cc, work, (diag[k] + kEps2) * kPivotTol1);
  point->rr[0] = relative_offset<F>(sub[pk(1, 1)], sse);
  double d = cc[0] == '1' ? -sub[pk(0, 1)] : 0.0;
  // The three-weight step measures its length as the root of the sum of
  // squares, as it does for its longer steps; the two-weight step by the
  // absolute value.  They differ only where d * d leaves the range.
  const double len = p == 3 ? std::sqrt(d * d) : std::fabs(d);
  if (len > 1.0) d = d / len;
  point->delta1[k] = d;
  point->delta_norm1 = len > 1.0 ? 1.0 : len;
}

// Two or three weights: the steps with one weight free and (three weights)
// with a pair free while the bounds hold the others, then the full step and
// its Levenberg-Marquardt damped form, each capped at length 1, with the
// relative offsets rr[0..p-1] of 1 to p free weights.
template <class F>
int solven(WINMODEL* model, FITCON* fitcon, POINT* point, double* xpx, long nmiss) {
  constexpr int p = F::kNumWeights;
  constexpr int e = p;  // row of the error
  constexpr double pivot_tol = p == 2 ? kPivotTol2 : kPivotTol3;
  static_assert(p == 2 || p == 3, "two or three weights");
  const long n = fitcon->n;
  const long nobs = n - nmiss;
  if (nobs < 1) return kTooFew;
  const double sse = xpx[pk(e, e)];
  point->mse = sse / static_cast<double>(nobs);
  point->nobs = nobs;
  point->nmiss = nmiss;
  const double gdiv = F::kGradDivisor == GradDivisor::n ? static_cast<double>(n) : static_cast<double>(nobs);
  double diag[p];
  for (int i = 0; i < p; ++i) {
    point->grad[i] = 2.0 * xpx[pk(i, e)] / gdiv;
    diag[i] = xpx[pk(i, i)];
    point->xpxdiag[i] = diag[i];
  }
  const double lambda = fitcon->lambda;
  const double ridge = lambda > 0.0 ? 1.0 + lambda : 1.0;

  // The subset steps: only weights still strictly inside may move.
  if (model->wbnds.bounds) {
    if constexpr (p == 3) {
      if (point->wbnds.nextdim == 2 || point->wbnds.dim == 2) {
        solve_pair<F>(xpx, diag, lambda, ridge, sse, point);
      }
    }
    if (point->wbnds.nextdim < 2) solve_single<F>(xpx, diag, sse, point);
  }

  // The full step.
  double xpx2[(p + 1) * (p + 2) / 2];
  if (lambda > 0.0) std::memcpy(xpx2, xpx, sizeof xpx2);
  char cc[p + 1];
  std::memset(cc, '0', sizeof cc);
  double work[p + 1];
  double tol[p];
  for (int k = 0; k < p; ++k) {
    tol[k] = (diag[k] + kEps2) * pivot_tol;
    zsweep(xpx, k, p + 1, cc, work, tol[k]);
  }
  int rank = 0;
  for (int k = 0; k < p; ++k) rank += cc[k] == '1';
  point->rankxpx = rank;
  point->rr[p - 1] = relative_offset<F>(xpx[pk(e, e)], sse);

  // Damped step: the diagonal raised by 1 + lambda, swept on the pivots that
  // the undamped system accepted.
  const double* step = xpx;
  if (lambda > 0.0) {
    for (int k = 0; k < p; ++k) xpx2[pk(k, k)] *= ridge;
    char cc2[p + 1];
    std::memset(cc2, '0', sizeof cc2);
    for (int k = 0; k < p; ++k) {
      if (cc[k] == '1') zsweep(xpx2, k, p + 1, cc2, work, tol[k]);
    }
    step = xpx2;
  }
  double grad2 = 0.0;
  int all[p];
  for (int k = 0; k < p; ++k) {
    // e = xhat - x, so the step is minus the regression coefficient.
    point->delta[k] = cc[k] == '1' ? -step[pk(k, e)] : 0.0;
    point->xpxdiag[k] = 0.5 * (rank == p ? xpx[pk(k, k)] : step[pk(k, k)]);
    grad2 += point->grad[k] * point->grad[k];
    all[k] = k;
  }
  point->delta_norm = cap_length(point->delta, all, p);
  point->grad_norm = std::sqrt(grad2);
  return kOk;
}

// Evaluates `point`: its error, derivatives, cross products, next steps and
// (one weight) its convergence measure.  Leaves the state at the end of the
// forward pass in model->smooth and the state at time 0 in model->startvals.
// `old_delta` has no influence.  Returns 0, -2, -7 or -9.
template <class F>
int nextstep(WINMODEL* model, FITCON* fitcon, POINT* point, double* /*old_delta*/) {
  constexpr int p = F::kNumWeights;
  static_assert(p >= 1 && p <= 3, "one to three weights");
  double w[p];
  weights_of<F>(*point, w);
  double xpx[(p + 1) * (p + 2) / 2];
  long nmiss = 0;
  int rc = passes<F>(model, fitcon, point, w, xpx, &nmiss);
  std::memcpy(fitcon->last_w, w, sizeof w);
  if (rc < 0) return rc;
  if constexpr (p == 1) {
    rc = solve1<F>(model, fitcon, point, xpx, nmiss);
  } else {
    rc = solven<F>(model, fitcon, point, xpx, nmiss);
  }
  if (rc < 0) return rc;
  if (model->opt.numeric) derivative_check<F>(model, fitcon, point);
  return rc;
}

// ---------------------------------------------------------------------------
// trystep: build a trial point from the current one and evaluate it
// ---------------------------------------------------------------------------

// The bound classifier of every form: the trial current + d of each weight
// against its bounds.  A weight at or past a bound gets the flag -1 (lower)
// or +1 (upper), room the distance from its current value to that bound, and
// a pin when it is fixed or stood on that same bound at `current`; a weight
// strictly inside gets the flag 0, no pin and room d.  nextdim counts the
// weights inside.  Returns dim, the number of weights that may move.
template <class F>
int classify(const WGTBNDS& wb, const POINT& current, POINT* newp, const double* d, double* room) {
  int dim = F::kNumWeights;
  newp->wbnds.nextdim = 0;
  for (int i = 0; i < F::kNumWeights; ++i) {
    const Slot s = F::kSlots[i];
    const double* b = bounds_of(wb, s);
    const double wcur = weight_of(current, s);
    const double t = wcur + d[i];
    int& flg = position_of(*newp, s);
    char& chn = pinned_of(*newp, s);
    if (t <= b[0]) {
      flg = -1;
      room[i] = wcur - b[0];
      chn = fixed_of(wb, s) || position_of(current, s) == -1;
    } else if (t >= b[1]) {
      flg = 1;
      room[i] = b[1] - wcur;
      chn = fixed_of(wb, s) || position_of(current, s) == 1;
    } else {
      flg = 0;
      chn = 0;
      room[i] = d[i];
      ++newp->wbnds.nextdim;
    }
    if (chn) --dim;
  }
  return dim;
}

// A weight within its tolerance of a bound lands on the bound.
inline double snap(const double* b, double w) noexcept {
  if (w - b[0] < b[2]) w = b[0];
  if (b[1] - w < b[2]) w = b[1];
  return w;
}

// One weight.  A trial that overshoots a bound lands on it; a point on a bound
// whose next step still points outward gets rflag, and a second such trial
// ends the search with r = 0.
template <class F, class Evaluate>
int trystep1(WINMODEL* model, FITCON* fitcon, const POINT* current, double stepsize, POINT* newp, Evaluate evaluate) {
  const Slot s = F::kSlots[0];
  const WGTBNDS& wb = model->wbnds;
  const double wcur = weight_of(*current, s);
  double d = stepsize * current->delta[0];
  double change = std::fabs(d);

  if (!wb.bounds) {
    const double wnew = wcur + d;
    if (F::kJumpOverZero && std::fabs(wnew) < kTiny) return kOverflow;
    weight_of(*newp, s) = wnew;
    newp->change = change;
    newp->wbnds.dim = 1;
    const int rc = evaluate(newp);
    ++fitcon->subiter;
    return rc;
  }

  const double* b = bounds_of(wb, s);
  const double trial = wcur + d;
  double room = 0.0;
  const int dim = classify<F>(wb, *current, newp, &d, &room);
  const int flg = position_of(*newp, s);
  if (flg != 0) d = (flg < 0 ? b[0] : b[1]) - wcur;
  if (dim == 1) change = std::fabs(d);
  if (dim == 0 && current->rflag == 1) {
    // The weight stands on its bound and stays there: the search ends.
    *newp = *current;
    newp->r = 0.0;
    return kOk;
  }
  if (F::kJumpOverZero && std::fabs(trial) < kTiny) {
    // The prediction divides by the weight: step over zero instead.
    d = 2.0 * d;
    change = std::fabs(d);
  }
  weight_of(*newp, s) = snap(b, wcur + d);
  newp->change = change;
  newp->wbnds.dim = static_cast<char>(dim);
  const int rc = evaluate(newp);
  if (rc < 0) return rc;

  if (newp->wbnds.nextdim == 0) {
    const double next = newp->delta[0];
    const bool back_inside = pinned_of(*newp, s) == 0 && ((flg == -1 && next > kEps) || (flg == 1 && next < -kEps));
    if (!back_inside) {
      newp->rflag = 1;
      if (current->rflag == 1) newp->r = 0.0;
    }
  }
  ++fitcon->subiter;
  return kOk;
}

// Two or three weights.  The full step is tried first; while the bounds pin
// weights it falls back on the step of the weights left free (three
// weights: the pair step, then the single step).  The chosen step shrinks
// along its direction until the first weight meets its bound, and weights
// within their tolerance of a bound snap onto it.
template <class F, class Evaluate>
int trystepn(WINMODEL* model, FITCON* fitcon, const POINT* current, double stepsize, POINT* newp, Evaluate evaluate) {
  constexpr int p = F::kNumWeights;
  static_assert(p == 2 || p == 3, "two or three weights");
  const WGTBNDS& wb = model->wbnds;
  double d[p];
  for (int i = 0; i < p; ++i) d[i] = stepsize * current->delta[i];

  if (!wb.bounds) {
    double sum = 0.0;
    for (int i = 0; i < p; ++i) {
      weight_of(*newp, F::kSlots[i]) = weight_of(*current, F::kSlots[i]) + d[i];
      sum += d[i] * d[i];
    }
    newp->change = std::sqrt(sum);
    newp->wbnds.dim = p;
    const int rc = evaluate(newp);
    newp->r = newp->rr[p - 1];
    ++fitcon->subiter;
    return rc;
  }

  double room[p];
  int dim = classify<F>(wb, *current, newp, d, room);
  if (p == 3 && dim < 3) {
    for (int i = 0; i < p; ++i) d[i] = stepsize * current->delta2[i];
    dim = classify<F>(wb, *current, newp, d, room);
  }
  if (dim < 2) {
    for (int i = 0; i < p; ++i) d[i] = stepsize * current->delta1[i];
    dim = classify<F>(wb, *current, newp, d, room);
    if (dim == 0 && current->rflag == 1) {
      // A corner the search has accepted already: stay there.
      *newp = *current;
      newp->r = 0.0;
      return kOk;
    }
  }

  // Cut the step at the first bound along its direction.  A weight with no
  // room (fraction 0) is passed over, except the second weight, whose zero
  // fraction stands and gives a zero step.
  double frac[p];
  for (int i = 0; i < p; ++i) {
    frac[i] = pinned_of(*newp, F::kSlots[i]) ? kBig : std::fabs(divide<p>(room[i], d[i]));
  }
  double cut = frac[1];
  if (frac[0] != 0.0 && frac[0] <= frac[1]) cut = frac[0];
  if (p == 3 && frac[p - 1] != 0.0 && frac[p - 1] < cut) cut = frac[p - 1];
  if (cut >= kBig) return kOverflow;

  double sum = 0.0;
  int inside = 0;
  for (int i = 0; i < p; ++i) {
    const Slot s = F::kSlots[i];
    const double step = pinned_of(*newp, s) ? 0.0 : d[i] * cut;
    sum += step * step;
    weight_of(*newp, s) = snap(bounds_of(wb, s), weight_of(*current, s) + step);
  }
  newp->change = std::sqrt(sum);
  newp->wbnds.dim = static_cast<char>(dim);
  for (int i = 0; i < p; ++i) {
    const Slot s = F::kSlots[i];
    const double* b = bounds_of(wb, s);
    const double w = weight_of(*newp, s);
    if (w > b[0] && w < b[1]) {
      position_of(*newp, s) = 0;
      ++inside;
    }
  }
  newp->wbnds.nextdim = static_cast<char>(inside);

  const int rc = evaluate(newp);
  if (rc < 0) return rc;
  newp->r = dim == 0 ? 0.0 : newp->rr[dim - 1];

  // Every weight on a bound: does the single step lead back inside?  Two
  // weights: any flagged weight whose step points inside keeps the search
  // going, else it ends.  Three weights: only unpinned weights count, each
  // with a margin of kEps; when none leads back the point gets rflag and r
  // from the single step, and a second such corner ends the search.
  if (inside == 0) {
    bool back_inside = false;
    for (int i = 0; i < p; ++i) {
      const Slot s = F::kSlots[i];
      const int flg = position_of(*newp, s);
      const double step1 = newp->delta1[i];
      if constexpr (p == 2) {
        back_inside |= (flg == -1 && step1 > 0.0) || (flg == 1 && step1 < 0.0);
      } else if (!pinned_of(*newp, s)) {
        back_inside |= flg < 0 ? step1 > kEps : step1 < -kEps;
      }
    }
    if (!back_inside) {
      if constexpr (p == 2) {
        newp->r = 0.0;
      } else {
        newp->rflag = 1;
        newp->r = current->rflag == 1 ? 0.0 : newp->rr[0];
      }
    }
  }
  ++fitcon->subiter;
  return kOk;
}

// Builds the trial point `newp` from `current` with step fraction `stepsize`
// and evaluates it.  Returns 0 or a negative code; the driver counts any
// non-zero result as a failed trial.  The caller zeroes `newp` once at the
// start of each outer iteration, not between trials.
template <class F>
int trystep(WINMODEL* model, FITCON* fitcon, POINT* current, double stepsize, POINT* newp) {
  auto evaluate = [model, fitcon](POINT* point) { return nextstep<F>(model, fitcon, point, nullptr); };
  if constexpr (F::kNumWeights == 1) {
    return trystep1<F>(model, fitcon, current, stepsize, newp, evaluate);
  } else {
    return trystepn<F>(model, fitcon, current, stepsize, newp, evaluate);
  }
}

// ---------------------------------------------------------------------------
// iterate, grid, the driver
// ---------------------------------------------------------------------------

// A family may evaluate all grid candidates in one pass over the series:
//   static void grid_mse_all(WINMODEL*, const FITCON*, const double* w,
//                            const bool* eligible, int* rc, double* mse);
// with w holding kGridRows rows of p weights, filling rc[k] and mse[k] for
// each eligible row exactly as grid_mse would.
template <class F>
concept GridInOnePass = requires(WINMODEL* m, const FITCON* f, const double* w, const bool* use, int* rc, double* mse) {
  F::grid_mse_all(m, f, w, use, rc, mse);
};

// The eligible grid candidates (w: kGridRows rows of p weights) one after
// another by grid_mse: rc[k] and mse[k], 0 and missing where not eligible.
template <class F>
inline void grid_one_by_one(WINMODEL* model, const FITCON* fitcon, const double* w, const bool* eligible, int* rc,
                            double* mse) {
  for (int k = 0; k < kGridRows; ++k) {
    mse[k] = kMissing;
    rc[k] = eligible[k] ? F::grid_mse(model, fitcon, w + F::kNumWeights * k, &mse[k]) : kOk;
  }
}

// A stability test that reads the model, as the seasonal families' tests
// read the number of seasons.
template <class F>
concept StabilityReadsModel = requires(const WINMODEL* m, const double* w) {
  { F::stable(m, w) } -> std::convertible_to<bool>;
};

template <class F>
inline bool rejected_by_stability(const WINMODEL* model, const double* w) {
  if constexpr (F::kHasStability && StabilityReadsModel<F>) {
    return model->wbnds.stability && !F::stable(model, w);
  } else if constexpr (F::kHasStability) {
    return model->wbnds.stability && !F::stable(w);
  } else {
    (void)model;
    (void)w;
    return false;
  }
}

// One outer iteration.  Returns 0, or 90 when the step fraction has fallen to
// kMinStep without an acceptable trial.
template <class F>
int iterate(WINMODEL* model, int iter, FITCON* fitcon, POINT* current) {
  fitcon->iter = iter;
  fitcon->subiter = 0;
  double stepsize = fitcon->stepstart;
  POINT newp;
  std::memset(&newp, 0, sizeof newp);

  for (;;) {
    const int rc = trystep<F>(model, fitcon, current, stepsize, &newp);
    if (fitcon->prtflag) trace_row<F>(model, fitcon, &newp, stepsize);
    bool failed = rc != 0;
    if (!failed) {
      double w[F::kNumWeights];
      weights_of<F>(newp, w);
      failed = rejected_by_stability<F>(model, w);
    }
    if (!failed) break;
    if (stepsize <= kMinStep) return kNotConverged;
    ++fitcon->subiter;
    stepsize *= 0.5;
  }

  if (improve(current, &newp)) {
    *current = newp;
    fitcon->stepstart = 1.0;
    if (stepsize == 1.0) {
      // Only a full step that improves lowers lambda.
      fitcon->lambda /= 10.0;
      if (fitcon->lambda < kMinLambda) fitcon->lambda = 0.0;
      return kOk;
    }
  } else {
    fitcon->stepstart *= 0.5;
    if (fitcon->stepstart <= kMinStep) return kNotConverged;
  }
  // A reduced step or no improvement raises lambda.
  if (fitcon->lambda == 0.0) {
    fitcon->lambda = kStartLambda;
  } else {
    fitcon->lambda = fitcon->lambda * 10.0;
    if (fitcon->lambda > kMaxLambda) fitcon->lambda = kMaxLambda;
  }
  return kOk;
}

// The best of the family's 20 grid candidates, evaluated by nextstep into
// `point`.  Returns 0, or -8 when no candidate gives a usable start.
template <class F>
int grid(WINMODEL* model, FITCON* fitcon, POINT* point) {
  constexpr int p = F::kNumWeights;
  const WGTBNDS& wb = model->wbnds;

  // Scale the tables into the bounds unless the bounds are off or are the
  // defaults the tables were made for.
  double lower[p];
  double span[p];
  bool scale = wb.bounds != 0;
  if (scale) {
    bool defaults = true;
    for (int i = 0; i < p; ++i) {
      const double* b = bounds_of(wb, F::kSlots[i]);
      lower[i] = std::fmax(b[0], -kGridScaleLimit);
      span[i] = std::fmin(b[1], kGridScaleLimit) - lower[i];
      if (!(lower[i] == F::kGridLo[i] && span[i] == F::kGridScale[i])) defaults = false;
    }
    scale = !defaults;
  }

  // The candidates, and which of them the stability test lets through.
  double candidates[kGridRows][p];
  bool eligible[kGridRows];
  for (int k = 0; k < kGridRows; ++k) {
    for (int i = 0; i < p; ++i) {
      const Slot s = F::kSlots[i];
      if (!scale) {
        candidates[k][i] = F::kGrid[i][k];
      } else if (fixed_of(wb, s)) {
        candidates[k][i] = bounds_of(wb, s)[0];
      } else {
        candidates[k][i] = span[i] * F::kGrid[i][k] + lower[i];
      }
    }
    eligible[k] = !rejected_by_stability<F>(model, candidates[k]);
  }

  // Each eligible candidate evaluated from svi by the whole-series routine.
  int results[kGridRows];
  double mses[kGridRows];
  if constexpr (GridInOnePass<F>) {
    F::grid_mse_all(model, fitcon, &candidates[0][0], eligible, results, mses);
  } else {
    grid_one_by_one<F>(model, fitcon, &candidates[0][0], eligible, results, mses);
  }

  // The strictly lowest mse wins; the first of equals stays.
  double best = fitcon->min_mse;
  int best_row = -1;
  for (int k = 0; k < kGridRows; ++k) {
    if (eligible[k] && results[k] >= 0 && mses[k] < best) {
      best = mses[k];
      best_row = k;
    }
  }
  fitcon->min_mse = best;

  if (best_row >= 0) {
    for (int i = 0; i < p; ++i) weight_of(*point, F::kSlots[i]) = candidates[best_row][i];
  }

  int nfixed = 0;
  for (int i = 0; i < p; ++i) {
    const Slot s = F::kSlots[i];
    const bool fixed = fixed_of(wb, s);
    position_of(*point, s) = fixed ? -1 : 0;
    pinned_of(*point, s) = fixed ? 1 : 0;
    nfixed += fixed;
  }
  point->wbnds.dim = static_cast<char>(p - nfixed);
  point->wbnds.nextdim = static_cast<char>(p - nfixed);

  const int rc = nextstep<F>(model, fitcon, point, nullptr);
  if (best < kTiny) return kOk;  // an exact fit: r decides the rest
  if (rc < 0) return kNoGridStart;
  const int dim = point->wbnds.dim;
  if constexpr (p == 1) {
    if (dim == 0) point->r = 0.0;
  } else {
    point->r = dim == 0 ? 0.0 : point->rr[dim - 1];
  }
  if (fitcon->prtflag) trace_row<F>(model, fitcon, point, 1.0);
  if (best >= kBig) return kNoGridStart;
  return kOk;
}

// Weights, error variance and standard errors from the final point.
template <class F>
void store_estimates(WINMODEL* model, const POINT& point) {
  constexpr int p = F::kNumWeights;
  MODELPEST& pest = model->pest;
  POINT final_point = point;  // std_errors takes a writable xpxdiag
  for (int i = 0; i < p; ++i) pest.parms[i] = weight_of(final_point, F::kSlots[i]);
  const long nobs = final_point.nobs;
  if (nobs < p + 1) {
    pest.mse = final_point.mse;
  } else if constexpr (F::kMseScaling == MseScaling::ratio_first) {
    pest.mse = (static_cast<double>(nobs) / static_cast<double>(nobs - p)) * final_point.mse;
  } else {
    pest.mse = final_point.mse * static_cast<double>(nobs) / static_cast<double>(nobs - p);
  }
  if (nobs >= F::stderr_min_nobs(*model)) {
    F::std_errors(final_point.xpxdiag, pest.mse, nobs, pest.parms, pest.stderr, pest.tvals);
  } else {
    for (int i = 0; i < p; ++i) {
      pest.stderr[i] = kMissing;
      pest.tvals[i] = kMissing;
    }
  }
}

// The fit control of an estimation over the model's fit range, before the
// family's own setup: the data, the first step's size and lambda, and no
// point evaluated yet.
inline FITCON fit_control(const WINMODEL* model) {
  FITCON fitcon;
  std::memset(&fitcon, 0, sizeof fitcon);
  fitcon.x = model->ts.x + model->fitrange.start;
  fitcon.misflg = model->ts.misflg + model->fitrange.start;
  fitcon.n = model->fitrange.nobs;
  fitcon.scodes = model->ts.scodes ? model->ts.scodes + model->fitrange.start : nullptr;
  fitcon.stepstart = 1.0;
  fitcon.lambda = kStartLambda;
  fitcon.min_nmiss = kUnevaluatedNmiss;
  fitcon.min_mse = DBL_MAX;
  for (double& w : fitcon.last_w) w = kMissing;  // nothing evaluated yet
  return fitcon;
}

// The estimation driver.  Returns 0 (converged), 90 (weights usable, the
// convergence test not met), -8 (no usable grid start) or a negative setup
// code.  The estimate is left in model->pest, the end state of the last
// evaluated point in model->smooth and its time-0 state in model->startvals.
template <class F>
int fit(WINMODEL* model) {
  constexpr int p = F::kNumWeights;
  FITCON fitcon = fit_control(model);
  fitcon.prtflag = model->opt.trace != 0 ? 1 : 0;
  double xnorm2 = DBL_MAX;

  int rc = F::fit_setup(model, &fitcon);
  if (rc < 0) return rc;

  POINT point;
  std::memset(&point, 0, sizeof point);
  if (grid<F>(model, &fitcon, &point) != 0) {
    F::fit_cleanup(model, &fitcon);
    return kNoGridStart;
  }

  rc = kOk;
  int how = FITEND_CONVERGED;
  int iterations = 0;
  if (!(point.r <= kConverged)) {
    const double norm = model->ts.descstats.norm;
    if (norm < kBig) xnorm2 = norm * norm;
    how = FITEND_ITERATION_LIMIT;
    for (int iter = 1; iter <= kMaxIterations; ++iter) {
      iterations = iter;
      double before[p];
      weights_of<F>(point, before);
      if (iterate<F>(model, iter, &fitcon, &point) == kNotConverged) {
        rc = kNotConverged;
        how = FITEND_STALLED;
        break;
      }
      if (point.r <= kConverged) {
        how = FITEND_CONVERGED;
        break;
      }
      // An exact fit: nothing left to explain and nothing moving.
      double change = 0.0;
      for (int i = 0; i < p; ++i) {
        change = std::fmax(change, std::fabs(weight_of(point, F::kSlots[i]) - before[i]));
      }
      if (point.mse / xnorm2 <= kEps2 && change <= kEps && point.grad_norm <= kEps) {
        how = FITEND_EXACT;
        break;
      }
    }
    // The last trial evaluated may have been rejected, leaving its states in
    // smooth and startvals, and the derivative check leaves those of its
    // numeric passes.  Unless the last evaluation was of the returned weights
    // themselves, one more pass at them, on a copy of the point so that the
    // estimates stay those of the search, makes the end state and the time-0
    // state those of the returned weights.
    double w[p];
    weights_of<F>(point, w);
    if (model->opt.numeric || std::memcmp(w, fitcon.last_w, sizeof w) != 0) {
      POINT again = point;
      nextstep<F>(model, &fitcon, &again, nullptr);
    }
  }

  store_estimates<F>(model, point);
  if (rc == kOk && point.r > kConverged) rc = kNotConverged;
  model->fitend.how = how;
  model->fitend.rc = rc;
  model->fitend.iterations = iterations;
  model->fitend.r = point.r;
  model->fitend.nparms = p;
  for (int i = 0; i < p; ++i) {
    const Slot slot = F::kSlots[i];
    const double* b = bounds_of(model->wbnds, slot);
    const double w = model->pest.parms[i];
    int& where = model->fitend.position[i];
    if (fixed_of(model->wbnds, slot)) {
      where = WEIGHT_FIXED;
    } else if (!model->wbnds.bounds) {
      where = WEIGHT_INSIDE;
    } else if (w == b[0]) {
      where = WEIGHT_ON_LOWER;
    } else if (w == b[1]) {
      where = WEIGHT_ON_UPPER;
    } else {
      where = w < b[0] || w > b[1] ? WEIGHT_OUTSIDE : WEIGHT_INSIDE;
    }
  }
  F::fit_cleanup(model, &fitcon);
  return rc;
}

}  // namespace smoothing::frame
