// The normal quantile, the inverse of Phi.
//
// For q = min(p, 1 - p) >= 1e-16 a rational function of
// t = sqrt(-2 ln q) - sqrt(2 ln 2) (t is 0 at q = 0.5): t P1(t)/Q1(t) for
// q > 0.01, t P2(1/t)/Q2(1/t) below.  For p < 1e-16 Newton's method on
// ln Phi, whose log tail zlognrm keeps accurate where Phi itself underflows.
#include <cmath>

#include "numeric/numeric.h"

namespace {

// Quantiles of the two ends.  The lower end is -sqrt(2 * 708.3964185), where
// exp() underflows; the upper end is the quantile of a right tail of 1e-15.
constexpr double kExpLimitTwice = 1416.792837;
constexpr double kQuantileOfOne = 7.941345326170997;

// Below this p the Newton branch takes over.
constexpr double kNewtonBelow = 1e-16;
// q above this: the first rational form, in t.
constexpr double kCentralAbove = 0.01;
// sqrt(2 ln 2): the value of sqrt(-2 ln q) at q = 0.5.
constexpr double kSqrt2Ln2 = 1.1774100225154747;

// Coefficients from the highest power to the constant term.
constexpr double kP1[8] = {0.00023850990628812184, 0.007748014532123519, 0.09433047102597236, 0.5906175347671243,
                           2.0524292014826053,     3.926527220876258,    3.827787912267809,   1.4756646266356057};
constexpr double kQ1[8] = {0.00023846672191006805, 0.007472090148248392, 0.08675117268832777, 0.5155497927835685,
                           1.6853868285749263,     3.0193046324086072,   2.757985744718407,   1.0};
constexpr double kP2[9] = {2.2366406817573622e-07, 1.4756630668977935,    2.9349133839409465,
                           2.302486886454419,      0.9208235553699621,    0.1971184884114817,
                           0.021322238814693088,   0.0009933095513250212, 1.3896718225467155e-05};
constexpr double kQ2[8] = {1.0,
                           2.152916059924272,
                           1.8195065884540687,
                           0.7785719242838022,
                           0.1775558927085442,
                           0.020255719894916695,
                           0.000977052221781334,
                           1.389640654034189e-05};

// Horner's rule over coefficients given from the highest power down.
template <int N>
constexpr double horner(const double (&c)[N], double x) {
  double acc = c[0];
  for (int i = 1; i < N; ++i) acc = acc * x + c[i];
  return acc;
}

// Newton's method on ln Phi for the extreme lower tail.
constexpr int kNewtonMaxSteps = 30;
constexpr double kNewtonRelTol = 1e-12;  // |ll - lp| < |lp| * this ends the loop
constexpr double kSmallestUsableP = 2.225073858507202e-306;
// Current log probability before the first step: far from any lp, so the
// first test always passes.
constexpr double kFarLogP = 1.3407807929943e+154;

}  // namespace

extern "C" {

double szprobit(double p) {
  const double lp = std::log(p);
  const double tol = std::fabs(lp) * kNewtonRelTol;
  const double fallback = -std::sqrt(-2.0 * std::log(kSmallestUsableP));

  double x = -std::sqrt(-2.0 * lp);
  double ll = kFarLogP;
  int steps = 0;
  while (std::fabs(ll - lp) >= tol) {
    if (steps == kNewtonMaxSteps) return fallback;
    double lpr;
    double ldens;
    if (zlognrm(x, &ll, &lpr, &ldens) != 0) return fallback;
    ++steps;
    // d ln Phi / dx = phi/Phi = exp(ldens - ll).
    x = x - (ll - lp) * std::exp(ll - ldens);
  }
  return steps >= kNewtonMaxSteps ? fallback : x;
}

double zprobit(double p) {
  if (p == 0.0) return -std::sqrt(kExpLimitTwice);
  if (p == 1.0) return kQuantileOfOne;
  if (p < kNewtonBelow) return szprobit(p);

  const double q = p > 0.5 ? 1.0 - p : p;
  const double t = std::sqrt(-2.0 * std::log(q)) - kSqrt2Ln2;
  double x;
  if (q > kCentralAbove) {
    x = t * horner(kP1, t) / horner(kQ1, t);
  } else {
    const double u = 1.0 / t;
    x = t * horner(kP2, u) / horner(kQ2, u);
  }
  return p <= 0.5 ? -x : x;
}

}  // extern "C"
