// The constrained Gauss-Newton step of the three-weight families.
//
// nextstep (second half) turns the cross products of the three prediction
// derivatives and the error into three candidate steps:
//
//   delta   all weights free, Levenberg-Marquardt damped when lambda > 0,
//   delta2  one pair free (the pair the bounds leave movable),
//   delta1  one weight free,
//
// each capped at length 1, and the relative offsets rr[0..2] that tell how
// much of the error one more step with 1, 2 or 3 free weights could explain.
//
// trystep tries delta first. A weight that the step pushes against a bound
// it already stands on (or a fixed weight) is pinned; with a pin the step
// falls back to delta2, and with two pins to delta1. The chosen step is cut
// along its own direction so that the first weight to meet a bound lands on
// it, and weights within their tolerance of a bound snap onto it.
#include "smoothing/step3.h"

#include <cmath>
#include <cstring>

#include "smoothing/frame.h"

namespace step3 {

namespace {

using smoothing::kBig;
using smoothing::kOk;
using smoothing::kOverflow;
using smoothing::kTooFew;
using smoothing::frame::bounds_of;
using smoothing::frame::fixed_of;
using smoothing::frame::kEps;
using smoothing::frame::kEps2;
using smoothing::frame::kPivotTol1;
using smoothing::frame::kPivotTol2;
using smoothing::frame::kPivotTol3;
using smoothing::frame::pinned_of;
using smoothing::frame::pk;
using smoothing::frame::position_of;
using smoothing::frame::Slot;
using smoothing::frame::weight_of;

constexpr int kWeights = 3;
constexpr int kError = 3;  // row of the error in the 4x4 cross products

// Where the three weights live, in the family's order.
struct Slots {
  Slot s[kWeights];
};

Slots slots_of(Third third) {
  return {{Slot::level, Slot::trend, third == Third::damp ? Slot::damp : Slot::season}};
}

// The relative offset of a residual sum of squares s against sse:
//   sse > 0:  q = 1 - s / sse;  1 for q > 1,  sqrt(q) for 0 < q <= 1,  else 0
//   sse <= 0: 0.
double relative_offset(double s, double sse) {
  if (!(sse > 0.0)) return 0.0;
  const double q = 1.0 - divide(s, sse);
  if (q > 1.0) return 1.0;
  if (q > 0.0) return std::sqrt(q);
  return 0.0;
}

// Caps a step at length 1; returns its length after the cap.
double cap_length(double* v, const int* idx, int count) {
  double sum = 0.0;
  for (int i = 0; i < count; ++i) sum += v[idx[i]] * v[idx[i]];
  double nrm = std::sqrt(sum);
  if (nrm > 1.0) {
    for (int i = 0; i < count; ++i) v[idx[i]] = v[idx[i]] / nrm;
    nrm = 1.0;
  }
  return nrm;
}

// The step with the pair (a, b) free, the third weight held.
void solve_pair(const double* xpx, const double* xpxdiag, double lambda, double ridge,
                double sse, POINT* point) {
  const POINT_WBNDS& wb = point->wbnds;
  const bool by_pins = wb.dim == 2;
  const int first = by_pins ? wb.wlevchn : wb.wlevflg;
  const int second = by_pins ? wb.wtrechn : wb.wtreflg;
  int a = 0;
  int b = 1;
  if (first == 0 && second == 0) {
    a = 0;
    b = 1;
  } else if (first == 0) {
    a = 0;
    b = 2;
  } else {
    a = 1;
    b = 2;
  }
  point->delta2[3 - a - b] = 0.0;

  double sub[6];
  auto build = [&](double scale) {
    sub[pk(0, 0)] = scale * xpx[pk(a, a)];
    sub[pk(1, 1)] = scale * xpx[pk(b, b)];
    sub[pk(0, 1)] = xpx[pk(a, b)];
    sub[pk(0, 2)] = xpx[pk(a, kError)];
    sub[pk(1, 2)] = xpx[pk(b, kError)];
    sub[pk(2, 2)] = xpx[pk(kError, kError)];
  };
  const double tol_a = (xpxdiag[a] + kEps2) * kPivotTol2;
  const double tol_b = (xpxdiag[b] + kEps2) * kPivotTol2;
  char cc[3] = {'0', '0', '0'};
  double work[3];
  build(1.0);
  zsweep(sub, 0, 3, cc, work, tol_a);
  zsweep(sub, 1, 3, cc, work, tol_b);
  if (lambda > 0.0 && (cc[0] == '0' || cc[1] == '0')) {
    // A pivot failed: try again on the ridged pair, without resetting the
    // flags of the first try.
    build(ridge);
    zsweep(sub, 0, 3, cc, work, tol_a);
    zsweep(sub, 1, 3, cc, work, tol_b);
  }
  point->rr[1] = relative_offset(sub[pk(2, 2)], sse);
  point->delta2[a] = cc[0] == '1' ? -sub[pk(0, 2)] : 0.0;
  point->delta2[b] = cc[1] == '1' ? -sub[pk(1, 2)] : 0.0;
  const int idx[2] = {a, b};
  point->delta_norm2 = cap_length(point->delta2, idx, 2);
}

// The step with one weight free: the first that isn't on a bound.
void solve_single(const double* xpx, const double* xpxdiag, double sse, POINT* point) {
  const POINT_WBNDS& wb = point->wbnds;
  const int k = wb.wlevflg == 0 ? 0 : (wb.wtreflg == 0 ? 1 : 2);
  for (int i = 0; i < kWeights; ++i) {
    if (i != k) point->delta1[i] = 0.0;
  }
  double sub[3] = {xpx[pk(k, k)], xpx[pk(k, kError)], xpx[pk(kError, kError)]};
  char cc[2] = {'0', '0'};
  double work[2];
  zsweep(sub, 0, 2, cc, work, (xpxdiag[k] + kEps2) * kPivotTol1);
  point->rr[0] = relative_offset(sub[pk(1, 1)], sse);
  point->delta1[k] = cc[0] == '1' ? -sub[pk(0, 1)] : 0.0;
  const int idx[1] = {k};
  point->delta_norm1 = cap_length(point->delta1, idx, 1);
}

// The probe of a step d against the box: flags, pins and the room each
// weight has along d. Returns dim, the number of weights that may move.
int probe(const WGTBNDS& bounds, const Slots& sl, POINT* current, const double* d,
          double* room, POINT* newp) {
  int dim = kWeights;
  for (int i = 0; i < kWeights; ++i) {
    const Slot s = sl.s[i];
    const double* b = bounds_of(bounds, s);
    const double w = weight_of(*current, s);
    const double t = w + d[i];
    int& flg = position_of(*newp, s);
    char& chn = pinned_of(*newp, s);
    if (t <= b[0]) {
      flg = -1;
      room[i] = w - b[0];
      chn = fixed_of(bounds, s) || position_of(*current, s) == -1;
    } else if (t >= b[1]) {
      flg = 1;
      room[i] = b[1] - w;
      chn = fixed_of(bounds, s) || position_of(*current, s) == 1;
    } else {
      flg = 0;
      chn = 0;
      room[i] = d[i];
    }
    if (chn) --dim;
  }
  return dim;
}

}  // namespace

double divide(double num, double den) {
  if (std::fabs(den) >= 1.0 || std::fabs(num) < std::fabs(den) * kBig) return num / den;
  if (num == 0.0) return 0.0;
  if (den == 0.0) return num > 0.0 ? kBig : -kBig;
  return num * den > 0.0 ? kBig : -kBig;
}

int nextstep(WINMODEL* model, FITCON* fitcon, POINT* point, double* xpx, long n, long nmiss,
             Third /*third*/) {
  const long nobs = n - nmiss;
  if (nobs < 1) return kTooFew;
  const double sse = xpx[pk(kError, kError)];
  point->mse = sse / static_cast<double>(nobs);
  point->nobs = nobs;
  point->nmiss = nmiss;

  double xpxdiag[kWeights];
  for (int k = 0; k < kWeights; ++k) {
    point->grad[k] = (xpx[pk(k, kError)] * 2.0) / static_cast<double>(n);
    xpxdiag[k] = xpx[pk(k, k)];
    point->xpxdiag[k] = xpxdiag[k];
  }
  const double lambda = fitcon->lambda;
  const double ridge = lambda > 0.0 ? 1.0 + lambda : 1.0;

  if (model->wbnds.bounds) {
    if (point->wbnds.nextdim == 2 || point->wbnds.dim == 2) {
      solve_pair(xpx, xpxdiag, lambda, ridge, sse, point);
    }
    if (point->wbnds.nextdim < 2) solve_single(xpx, xpxdiag, sse, point);
  }

  // All three weights free.
  double xpx2[10];
  if (lambda > 0.0) std::memcpy(xpx2, xpx, sizeof xpx2);
  char cc[4] = {'0', '0', '0', '0'};
  double work[4];
  double tol[kWeights];
  for (int k = 0; k < kWeights; ++k) {
    tol[k] = (xpxdiag[k] + kEps2) * kPivotTol3;
    zsweep(xpx, k, 4, cc, work, tol[k]);
  }
  const int rank = (cc[0] == '1') + (cc[1] == '1') + (cc[2] == '1');
  point->rankxpx = rank;
  point->rr[2] = relative_offset(xpx[pk(kError, kError)], sse);

  const double* xx = xpx;
  if (lambda > 0.0) {
    // Levenberg-Marquardt: the diagonal raised by 1 + lambda, swept on the
    // pivots that the undamped system accepted.
    char cc2[4] = {'0', '0', '0', '0'};
    for (int k = 0; k < kWeights; ++k) xpx2[pk(k, k)] *= ridge;
    for (int k = 0; k < kWeights; ++k) {
      if (cc[k] == '1') zsweep(xpx2, k, 4, cc2, work, tol[k]);
    }
    xx = xpx2;
  }
  for (int k = 0; k < kWeights; ++k) {
    // e = xhat - x, so the step is minus the regression coefficient.
    point->delta[k] = cc[k] == '1' ? -xx[pk(k, kError)] : 0.0;
    point->xpxdiag[k] = rank == 3 ? xpx[pk(k, k)] * 0.5 : xx[pk(k, k)] * 0.5;
  }
  const int all[3] = {0, 1, 2};
  point->delta_norm = cap_length(point->delta, all, 3);
  point->grad_norm = std::sqrt(point->grad[0] * point->grad[0] + point->grad[1] * point->grad[1] +
                               point->grad[2] * point->grad[2]);
  return kOk;
}

int trystep(WINMODEL* model, FITCON* fitcon, POINT* current, double stepsize, POINT* newp,
            Third third, NextStepFn evaluate) {
  const WGTBNDS& bounds = model->wbnds;
  const Slots sl = slots_of(third);
  double d[kWeights];
  for (int i = 0; i < kWeights; ++i) d[i] = stepsize * current->delta[i];

  if (!bounds.bounds) {
    double sum = 0.0;
    for (int i = 0; i < kWeights; ++i) {
      weight_of(*newp, sl.s[i]) = weight_of(*current, sl.s[i]) + d[i];
      sum += d[i] * d[i];
    }
    newp->change = std::sqrt(sum);
    newp->wbnds.dim = kWeights;
    const int rc = evaluate(model, fitcon, newp, nullptr);
    newp->r = newp->rr[2];
    ++fitcon->subiter;
    return rc;
  }

  // Probe the full step, then the pair step, then the single step.
  double room[kWeights];
  int dim = probe(bounds, sl, current, d, room, newp);
  if (dim != kWeights) {
    for (int i = 0; i < kWeights; ++i) d[i] = stepsize * current->delta2[i];
    dim = probe(bounds, sl, current, d, room, newp);
    if (dim < 2) {
      for (int i = 0; i < kWeights; ++i) d[i] = stepsize * current->delta1[i];
      dim = probe(bounds, sl, current, d, room, newp);
      if (dim == 0 && current->rflag == 1) {
        // A corner the search has accepted already: stay there.
        *newp = *current;
        newp->r = 0.0;
        return kOk;
      }
    }
  }

  // Cut the step at the first bound along its direction. A weight with no
  // room (fraction 0) is passed over, except the trend weight, whose zero
  // fraction stands and gives a zero step.
  double frac[kWeights];
  for (int i = 0; i < kWeights; ++i) {
    frac[i] = pinned_of(*newp, sl.s[i]) ? kBig : std::fabs(divide(room[i], d[i]));
  }
  double scalar = frac[1];
  if (frac[0] != 0.0 && frac[0] <= frac[1]) scalar = frac[0];
  if (frac[2] != 0.0 && frac[2] < scalar) scalar = frac[2];
  if (scalar >= kBig) return kOverflow;

  double sum = 0.0;
  for (int i = 0; i < kWeights; ++i) {
    const Slot s = sl.s[i];
    const double step = pinned_of(*newp, s) ? 0.0 : d[i] * scalar;
    sum += step * step;
    const double* b = bounds_of(bounds, s);
    double w = weight_of(*current, s) + step;
    if (w - b[0] < b[2]) w = b[0];
    if (b[1] - w < b[2]) w = b[1];
    weight_of(*newp, s) = w;
  }
  newp->change = std::sqrt(sum);
  newp->wbnds.dim = static_cast<char>(dim);
  int inside = 0;
  for (int i = 0; i < kWeights; ++i) {
    const Slot s = sl.s[i];
    const double* b = bounds_of(bounds, s);
    const double w = weight_of(*newp, s);
    if (w > b[0] && w < b[1]) {
      position_of(*newp, s) = 0;
      ++inside;
    }
  }
  newp->wbnds.nextdim = static_cast<char>(inside);

  const int rc = evaluate(model, fitcon, newp, nullptr);
  if (rc < 0) return rc;
  newp->r = dim == 0 ? 0.0 : newp->rr[dim - 1];

  if (inside == 0) {
    // Every weight on a bound: does the single step lead back inside?
    int back_inside = 0;
    for (int i = 0; i < kWeights; ++i) {
      const Slot s = sl.s[i];
      if (pinned_of(*newp, s)) continue;
      const double step1 = newp->delta1[i];
      if (position_of(*newp, s) < 0 ? step1 > kEps : step1 < -kEps) ++back_inside;
    }
    if (back_inside == 0) {
      newp->rflag = 1;
      newp->r = current->rflag == 1 ? 0.0 : newp->rr[0];
    }
  }
  ++fitcon->subiter;
  return kOk;
}

}  // namespace step3
