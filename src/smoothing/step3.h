// The constrained Gauss-Newton step of the three-weight families (damped
// trend and Winters).
//
// The estimation frame evaluates a point by running the family's backward
// and forward passes, which gather the cross products of the three
// derivatives of the one-step prediction and of the error e = xhat - x in a
// packed symmetric 4x4 matrix (lower triangle by rows, see zisub): rows 0..2
// are the weights in the family's order (level, trend, third weight) and
// row 3 is the error. `step3::nextstep` turns that matrix into the three
// candidate steps of the point:
//   delta  - all three weights free (Levenberg-Marquardt damped when
//            fitcon->lambda > 0),
//   delta2 - one pair of weights free,
//   delta1 - a single weight free,
// each capped at length 1, and the relative offsets rr[0..2] that measure
// convergence with 1, 2 and 3 free weights.
//
// `step3::trystep` builds a trial point from the current one: it probes the
// full step against the box bounds, falls back to the pair step and then to
// the single step while weights are pinned on a bound, cuts the step at the
// first bound it meets, snaps onto bounds within their tolerance, evaluates
// the trial through the frame's own nextstep and sets the convergence
// measure `r` of the trial.
//
// The third weight is `wdamp` (flag `wdamflg`, pin `wdamchn`, bounds
// `wbnds.wdamp`) for the damped-trend family and `wseason` (`wseaflg`,
// `wseachn`, `wbnds.wseason`) for Winters.
#pragma once

struct WINMODEL;
struct FITCON;
struct POINT;

namespace step3 {

enum class Third : int {
  damp = 0,    // damped trend: wdamp
  season = 1,  // Winters: wseason
};

// The frame's evaluation of a point: the family's passes followed by
// step3::nextstep. Returns 0 or a negative kernel code (-2, -7, -9).
using NextStepFn = int (*)(WINMODEL* model, FITCON* fitcon, POINT* point,
                           double* old_delta);

// Second half of the frame's nextstep, after the family's passes.
// `xpx` is the packed 4x4 cross-product matrix (10 doubles); it is swept in
// place. `n` is the length of the fit range and `nmiss` the number of
// missing observations met by the forward pass. Fills mse, nobs, nmiss,
// grad, grad_norm, xpxdiag, rankxpx, rr, delta, delta1, delta2 and their
// norms in `point`. Returns 0, or -2 when no observation was used.
int nextstep(WINMODEL* model, FITCON* fitcon, POINT* point, double* xpx,
             long n, long nmiss, Third third);

// Makes the trial `newp` from `current` with the step fraction `stepsize`
// and evaluates it with `evaluate`. The caller zeroes `newp` once at the
// start of each outer iteration, not between trials. Returns 0, the
// negative code of `evaluate`, or -9 when no weight can move.
int trystep(WINMODEL* model, FITCON* fitcon, POINT* current, double stepsize,
            POINT* newp, Third third, NextStepFn evaluate);

// Guarded quotient: num / den when that cannot overflow, otherwise 0 for a
// zero numerator and +-1.3407807929943e+154 by the sign of the quotient.
double divide(double num, double den);

}  // namespace step3
