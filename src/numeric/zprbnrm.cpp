// The error function and the standard normal distribution: erf and erfc by
// Cody's rational Chebyshev scheme, Phi, the logs of both tails, and the
// distribution function of the inverse Gaussian.
#include <cmath>

#include "numeric/cody_erf.h"
#include "numeric/numeric.h"

namespace {

using namespace esf::cody;

constexpr double kLnSqrt2Pi = 0.9189385332046728;  // ln sqrt(2 pi)
constexpr double kRsqrt2 = 0.7071067811865476;     // 1/sqrt(2)
constexpr double kRsqrtPi = 0.5641895835477563;    // 1/sqrt(pi)
// exp() of anything below this underflows: tails beyond it are 0.
constexpr double kExpLimit = -708.3964185;

// |x| at most this: the small-argument form of erf.
constexpr double kErfSmallMax = 0.46875;
// |x| at most this: the middle form of erfc; above, the asymptotic form.
constexpr double kErfMiddleMax = 4.0;
// |x| above this: erfc is 0 without evaluation.
constexpr double kErfcZeroAbove = 1003.7843389117924;
// |x| at most this: x^2 is negligible beside 1 in the small form.
constexpr double kErfTiny = 4.2e-16;

}  // namespace

extern "C" {

void calerf(double x, double* result, int jint) {
  const double y = std::fabs(x);
  double tail;  // erfc(|x|)

  if (y <= kErfSmallMax) {
    const double ysq = y > kErfTiny ? y * y : 0.0;
    double xnum = kA[4] * ysq;
    double xden = ysq;
    for (int i = 0; i < 3; ++i) {
      xnum = (xnum + kA[i]) * ysq;
      xden = (xden + kB[i]) * ysq;
    }
    const double erf_x = x * (xnum + kA[3]) / (xden + kB[3]);
    *result = jint == 0 ? erf_x : 1.0 - erf_x;
    return;
  }

  if (y > kErfcZeroAbove) {
    tail = 0.0;
  } else if (y > kErfMiddleMax) {
    const double ysq = 1.0 / (y * y);
    if (-y * y < kExpLimit) {
      tail = 0.0;
    } else {
      tail = (kRsqrtPi - large_ratio(ysq)) / y;
      tail = std::exp(-y * y) * tail;
    }
  } else {
    double xnum = kC[8] * y;
    double xden = y;
    for (int i = 0; i < 7; ++i) {
      xnum = (xnum + kC[i]) * y;
      xden = (xden + kD[i]) * y;
    }
    tail = (xnum + kC[7]) / (xden + kD[7]);
    tail = std::exp(-y * y) * tail;
  }

  if (jint == 0) {
    const double erf_y = (0.5 - tail) + 0.5;
    *result = x < 0.0 ? -erf_y : erf_y;
  } else {
    *result = x < 0.0 ? 2.0 - tail : tail;
  }
}

double zferf(double x) {
  double r;
  calerf(x, &r, 0);
  return r;
}

double zferfc(double x) {
  double r;
  calerf(x, &r, 1);
  return r;
}

double zprbnrm(double x) {
  // The lower tail goes through erfc, so that it keeps its relative accuracy;
  // halving by ldexp is exact.
  if (x > 0.0) return std::ldexp(1.0 + zferf(x * kRsqrt2), -1);
  return std::ldexp(zferfc(-x * kRsqrt2), -1);
}

int zlognrm(double x, double* lpl, double* lpr, double* ldens) {
  *ldens = -0.5 * x * x - kLnSqrt2Pi;
  const double ax = std::fabs(x);

  double lt;  // log of the smaller tail
  if (ax >= 5.0) {
    double ratio;
    if (zmillsr(ax, &ratio) != 0) return 1;
    lt = std::log(ratio) + *ldens;
  } else {
    lt = std::log(zferfc(ax * kRsqrt2) / 2.0);
  }

  if (x <= 0.0) {
    *lpl = lt;
    *lpr = zln1px(-std::exp(lt));
  } else {
    *lpr = lt;
    *lpl = zln1px(-std::exp(lt));
  }
  return 0;
}

double zprbigs(double x, double d) {
  if (x == 0.0) return 0.0;
  const double s = std::sqrt(x);
  const double r = std::sqrt(d);
  const double a = r * (1.0 / s + s) * kRsqrt2;

  // E = exp(2d) erfc(a)/2, kept from overflowing for large a.
  double e_term;
  if (a <= kErfMiddleMax) {
    e_term = std::exp(2.0 * d) * zferfc(a) / 2.0;
  } else {
    const double e = 2.0 * d - a * a;
    if (e < kExpLimit) {
      e_term = 0.0;
    } else {
      const double ysq = 1.0 / (a * a);
      e_term = 0.5 * (kRsqrtPi - large_ratio(ysq)) * std::exp(e) / a;
    }
  }
  return zprbnrm((s - 1.0 / s) * r) + e_term;
}

}  // extern "C"
