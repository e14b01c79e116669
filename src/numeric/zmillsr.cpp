// The Mills ratio (1 - Phi(x))/phi(x): directly below 5, by its continued
// fraction from 5 up.
#include <cmath>

#include "numeric/numeric.h"

namespace {

constexpr double kLnSqrt2Pi = 0.9189385332046728;  // ln sqrt(2 pi)
// x at or above this: the continued fraction.
constexpr double kFractionFrom = 5.0;
// x below this: the right tail is taken as 1.
constexpr double kTailIsOneBelow = -10.0;
// Two convergents c, c' with |c' - c| <= c' * this end the fraction.
constexpr double kFractionTol = 5.551115123125785e-16;
// The last convergent tested; one more is stored when none converged.
constexpr int kLastTested = 101;

}  // namespace

extern "C" {

int zmillsr(double x, double* ratio) {
  if (x >= kFractionFrom) return zcnfmill(x, ratio);
  // 1/phi(x), times the right tail.
  *ratio = std::exp(0.5 * x * x + kLnSqrt2Pi);
  if (x >= kTailIsOneBelow) *ratio *= zprbnrm(-x);
  return 0;
}

int zcnfmill(double x, double* ratio) {
  // u / (1 + v / (1 + 2v / (1 + 3v / ...))), u = 1/x, v = u^2.  Convergents
  // P(k)/Q(k) with P(k) = P(k-1) + (k-1) v P(k-2), Q likewise.
  const double u = 1.0 / x;
  const double v = u * u;
  double p_prev = 0.0;  // P(k-2)
  double p_cur = u;     // P(k-1)
  double q_prev = 1.0;
  double q_cur = 1.0;
  double c = p_cur / q_cur;  // convergent k - 1
  for (int k = 2;; ++k) {
    const double a = (k - 1) * v;
    const double p_next = p_cur + a * p_prev;
    const double q_next = q_cur + a * q_prev;
    p_prev = p_cur;
    p_cur = p_next;
    q_prev = q_cur;
    q_cur = q_next;
    const double c_next = p_cur / q_cur;
    if (k > kLastTested) {
      *ratio = c_next;
      return 1;
    }
    if (std::fabs(c_next - c) <= c_next * kFractionTol) {
      *ratio = c_next;
      return 0;
    }
    c = c_next;
  }
}

}  // extern "C"
