// Coefficients of W. J. Cody's rational Chebyshev approximations for the
// error function (Math. Comp. 23 (1969) 631-637; routine CALERF of SPECFUN),
// shared by the error function and the inverse Gaussian tail.
#pragma once

namespace esf::cody {

// erf(x) = x A(x^2)/B(x^2) for |x| <= 0.46875.
inline constexpr double kA[5] = {3.16112374387056560e00, 1.13864154151050156e02, 3.77485237685302021e02,
                                 3.20937758913846947e03, 1.85777706184603153e-1};
inline constexpr double kB[4] = {2.36012909523441209e01, 2.44024637934444173e02, 1.28261652607737228e03,
                                 2.84423683343917062e03};

// erfc(x) = exp(-x^2) C(x)/D(x) for 0.46875 < x <= 4.
inline constexpr double kC[9] = {5.64188496988670089e-1, 8.88314979438837594e00, 6.61191906371416295e01,
                                 2.98635138197400131e02, 8.81952221241769090e02, 1.71204761263407058e03,
                                 2.05107837782607147e03, 1.23033935479799725e03, 2.15311535474403846e-8};
inline constexpr double kD[8] = {1.57449261107098347e01, 1.17693950891312499e02, 5.37181101862009858e02,
                                 1.62138957456669019e03, 3.29079923573345963e03, 4.36261909014324716e03,
                                 3.43936767414372164e03, 1.23033935480374942e03};

// erfc(x) = exp(-x^2)/x (1/sqrt(pi) - z N(z)/D(z)), z = 1/x^2, for x > 4.
inline constexpr double kP[6] = {3.05326634961232344e-1, 3.60344899949804439e-1, 1.25781726111229246e-1,
                                 1.60837851487422766e-2, 6.58749161529837803e-4, 1.63153871373020978e-2};
inline constexpr double kQ[5] = {2.56852019228982242e00, 1.87295284992346725e00, 5.27905102951428412e-1,
                                 6.05183413124413191e-2, 2.33520497626869185e-3};

// z N(z)/D(z) of the large-argument form, in Cody's order of evaluation.
inline double large_ratio(double ysq) {
  double xnum = kP[5] * ysq;
  double xden = ysq;
  for (int i = 0; i < 4; ++i) {
    xnum = (xnum + kP[i]) * ysq;
    xden = (xden + kQ[i]) * ysq;
  }
  return ysq * (xnum + kP[4]) / (xden + kQ[4]);
}

}  // namespace esf::cody
