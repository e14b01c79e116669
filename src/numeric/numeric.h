// Numeric basics of the module: the normal distribution and its tails, the
// Mills ratio, logarithms that stay accurate near 1, packed symmetric
// matrices and the check of a value against the computable range.
//
// Algorithms:
//   erf/erfc: W. J. Cody, "Rational Chebyshev approximations for the error
//     function", Math. Comp. 23 (1969), the CALERF scheme of SPECFUN.
//   normal quantile: rational approximations in t = sqrt(-2 ln q) - sqrt(2 ln 2)
//     for q >= 1e-16, Newton's method on ln Phi below that.
//   Mills ratio: the continued fraction u/(1+v/(1+2v/(1+3v/...))), u = 1/x,
//     v = u^2, for x >= 5.
//
// Packed symmetric storage: the lower triangle by rows, so element (i, j)
// with i >= j sits at place j + i*(i+1)/2:
//
//   row 0: (0,0)                 -> 0
//   row 1: (1,0) (1,1)           -> 1 2
//   row 2: (2,0) (2,1) (2,2)     -> 3 4 5
//
// Every routine declared here is exported by name with C linkage.
#pragma once

#include "module/export.h"

#ifdef __cplusplus
extern "C" {
#endif

// Normal distribution functions.
ESF_EXPORT void calerf(double x, double* result, int jint);  // jint 0: erf, 1: erfc
ESF_EXPORT double zferf(double x);
ESF_EXPORT double zferfc(double x);
ESF_EXPORT double zprbnrm(double x);
ESF_EXPORT double zprobit(double p);
ESF_EXPORT double szprobit(double p);
ESF_EXPORT int zlognrm(double x, double* lpl, double* lpr, double* ldens);
ESF_EXPORT double zprbigs(double x, double d);

// Small numerics.
ESF_EXPORT double zln1px(double z);
ESF_EXPORT double zlnSumOfExp(double x1, double x2);
ESF_EXPORT int zmillsr(double x, double* ratio);
ESF_EXPORT int zcnfmill(double x, double* ratio);
ESF_EXPORT long zisub(int i, int j);
ESF_EXPORT int zscp(const double* data, int nv, double weight, double* sscp);
ESF_EXPORT void zvaxpy(double* z, const double* x, const double* y, int n, double alpha);
ESF_EXPORT int zmissr(double x, double maxval, long* count);
ESF_EXPORT int zmissrn(const double* x, int n, double maxval, long* count);
ESF_EXPORT int min(int a, int b);
ESF_EXPORT long lmin(long a, long b);

// Finite mixture of normal distributions: log tail probabilities and log
// density at a point, or the quantile of a tail probability. Exported for
// the host; no routine of the module calls it.
struct NORMAL_MIX_ARG {
  int State;                                      // bit 1: the record has been verified (normalised, sorted)
  int Purpose;                                    // 2: quantile of Probability, 4: of targetSDF, 0: values at Quantile
  int Shooting;                                   // solver regime: 1 left tail, 2 between means, 3 right tail
  double InitialGuess;                            // not read
  double Quantile;                                // in: the point; out: the quantile
  double QTarget;                                 // the solver's target for its working value
  double Probability;                             // left tail probability (Purpose 2)
  double targetSDF;                               // right tail probability (Purpose 4)
  double LogRatio;                                // not read
  long n;                                         // number of components
  double Right, Left, LeftSupport, RightSupport;  // not read
  double* Proportions;                            // n weights, normalised in place
  double* Mu;                                     // n means, sorted in place for a quantile
  double* Sigma;                                  // n standard deviations
  double LogLeftPr;                               // log P(X <= Quantile)
  double LogRightPr;                              // log P(X > Quantile)
  double LogDensity;                              // log density at Quantile
};

// 0, or 1 (a Mills ratio failed, Purpose has both bits, the solver failed),
// 1000 (no Shooting regime), i + n (Proportions[i] < 0), i + 2n (Sigma[i] < 0),
// 10n (no positive proportion).
ESF_EXPORT int zmxnorm(struct NORMAL_MIX_ARG* q);
ESF_EXPORT int VerifyQ(struct NORMAL_MIX_ARG* q);
ESF_EXPORT void SortAccordingToTheMeans(struct NORMAL_MIX_ARG* q);
ESF_EXPORT int ComputeTheProbOrTheDens(struct NORMAL_MIX_ARG* q);
ESF_EXPORT int ComputeTheQuantile(struct NORMAL_MIX_ARG* q);
ESF_EXPORT int ComputeF(struct NORMAL_MIX_ARG* q, int i, double* x, double* r, double* Dens, double* LogLeftPr,
                        double* LogRightPr);
ESF_EXPORT int SolveApproxF(struct NORMAL_MIX_ARG* q, double* x, double* r, double* Dens, double* iGamma);
ESF_EXPORT void ResetBracket(struct NORMAL_MIX_ARG* q, double* x, double* r, double* LogLeftPr, double* LogRightPr,
                             double* Dens);
ESF_EXPORT int SolveWithOutShooting(struct NORMAL_MIX_ARG* q, double* x, double* r, double* Dens, double* LogLeftPr,
                                    double* LogRightPr);
ESF_EXPORT double LogSumOfExpProb(double x1, double x2, int flag);
ESF_EXPORT double DiffNormal(double a, double b, double PreciseDelta);

#ifdef __cplusplus
}  // extern "C"

namespace esf {

// Place of element (i, j) of a packed symmetric matrix, lower triangle by
// rows; the same answer as zisub, inline for inner loops.
constexpr long packed_index(int i, int j) noexcept {
  const long hi = i > j ? i : j;
  const long lo = i > j ? j : i;
  return lo + hi * (hi + 1) / 2;
}

}  // namespace esf
#endif  // __cplusplus
