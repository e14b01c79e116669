// Logarithms that stay accurate near 1: ln(1 + z) and ln(exp(a) + exp(b)).
#include <cmath>

#include "numeric/numeric.h"

namespace {

// |z| at most this: ln(1 + z) = 2 atanh(s/2) with s = z/(1 + z/2), by a
// rational function in s^2; above, the library's log.
constexpr double kSeriesMax = 0.03125;
constexpr double kLn2 = 0.6931471805599453;

}  // namespace

extern "C" {

double zln1px(double z) {
  if (std::fabs(z) <= kSeriesMax) {
    const double s = z / (0.5 * z + 1.0);
    const double s2 = s * s;
    return s + s * s2 * (-0.0023812878804825234 * s2 + 0.08333333333333427) / (-0.178575454351365 * s2 + 1.0);
  }
  return std::log(z + 1.0);
}

double zlnSumOfExp(double x1, double x2) {
  if (x1 == x2) return x1 + kLn2;
  const double hi = x1 > x2 ? x1 : x2;
  const double lo = x1 > x2 ? x2 : x1;
  return hi + zln1px(std::exp(lo - hi));
}

}  // extern "C"
