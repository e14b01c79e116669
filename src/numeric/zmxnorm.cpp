// A finite mixture of normal distributions: the logarithms of both tail
// probabilities and of the density at a point, and the quantile of a tail
// probability.
//
// Probabilities are carried as logarithms throughout, so that both tails
// stay accurate far from the means. Each component's smaller tail is taken
// directly (Mills ratio beyond 5 standard deviations, erfc inside), the
// larger one as log(1 - small), and the components are folded together by
// log(exp(a) + exp(b)).
//
// The quantile solver is a safeguarded shooting method. The sorted means
// bracket the answer; a local model of the log probability proposes the
// next point:
//   left of the first mean   Newton on log F from the first component's quantile
//   right of the last mean   Newton on log(1 - F) from the last component's quantile
//   between two means        a root of the cubic Hermite interpolant of log F
// and plain false position takes over when the model gives no point or the
// shooting doesn't settle within 40 rounds.

#include <cfloat>
#include <cmath>

#include "numeric/numeric.h"
#include "primitives/primitives.h"

namespace {

constexpr double kLogZero = -9007199254740992.0;   // stands for log 0
constexpr double kLnSqrt2Pi = 0.9189385332046728;  // ln sqrt(2 pi)
constexpr double kRsqrt2 = 0.7071067811865476;     // 1/sqrt(2)
constexpr double kLn2 = 0.6931471805599453;
constexpr double kMinSigma = 1.053671212772351e-08;     // floor of a standard deviation
constexpr double kMinSlope = 1.053671212772351e-08;     // false position needs a slope above this
constexpr double kNormalDensity0 = 0.3989422804014327;  // 1/sqrt(2 pi)
constexpr double kTolerance = 1e-05;                    // on the working value and on x
constexpr int kMaxRounds = 40;                          // shooting and false position each
constexpr int kMaxNewton = 30;                          // Newton steps on the cubic

constexpr int kVerified = 1;
constexpr int kLeftQuantile = 2;
constexpr int kRightQuantile = 4;

// The five points of the quantile solver, one block of 25 doubles:
// 0 and 1 the pair of the local model, 2 the new point, 3 and 4 the bracket.
constexpr int kPoints = 5;

struct SolverPoints {
  double block[5 * kPoints];
  double* x() { return block; }
  double* r() { return block + kPoints; }
  double* dens() { return block + 2 * kPoints; }
  double* left() { return block + 3 * kPoints; }
  double* right() { return block + 4 * kPoints; }
};

// Point `from` copied to point `to` in all five arrays.
void copy_point(double* x, double* r, double* dens, double* lpl, double* lpr, int from, int to) {
  x[to] = x[from];
  r[to] = r[from];
  dens[to] = dens[from];
  lpl[to] = lpl[from];
  lpr[to] = lpr[from];
}

void set_missing(NORMAL_MIX_ARG* q) {
  q->LogLeftPr = esf::kMissing;
  q->LogRightPr = esf::kMissing;
  q->LogDensity = esf::kMissing;
}

}  // namespace

extern "C" {

double LogSumOfExpProb(double x1, double x2, int flag) {
  double s;
  if (x1 == x2) {
    s = x1 + kLn2;
  } else {
    const double large = x1 > x2 ? x1 : x2;
    const double small = x1 > x2 ? x2 : x1;
    s = large + zln1px(std::exp(small - large));
  }
  if (flag == 1 && s > 0.0) s = 0.0;
  return s;
}

double DiffNormal(double a, double b, double PreciseDelta) {
  if (std::fabs(a - b) < 0.0001) {
    // Taylor series of Phi about b up to the fifth power of d = a - b.
    const double d = PreciseDelta;
    const double b2 = b * b;
    return std::exp(-b2 / 2.0) * kNormalDensity0 * d *
           (1.0 + d * (-b / 2.0 + d * ((b2 - 1.0) / 6.0 +
                                       d * (b / 8.0 - b2 * b / 24.0 + d * (b2 * b2 / 120.0 - 0.05 * b2 + 0.025)))));
  }
  // Both in the right tail: difference of the small upper tails.
  if (a > 0.0 && b > 0.0) return zprbnrm(-b) - zprbnrm(-a);
  return zprbnrm(a) - zprbnrm(b);
}

void SortAccordingToTheMeans(NORMAL_MIX_ARG* q) {
  double* mu = q->Mu;
  double* sigma = q->Sigma;
  double* p = q->Proportions;
  const long n = q->n;
  for (long gap = n / 2; gap > 0; gap /= 2) {
    for (long i = gap; i < n; ++i) {
      for (long j = i; j >= gap && !(mu[j] > mu[j - gap]); j -= gap) {
        const double tm = mu[j];
        mu[j] = mu[j - gap];
        mu[j - gap] = tm;
        const double ts = sigma[j];
        sigma[j] = sigma[j - gap];
        sigma[j - gap] = ts;
        const double tp = p[j];
        p[j] = p[j - gap];
        p[j - gap] = tp;
      }
    }
  }
}

int VerifyQ(NORMAL_MIX_ARG* q) {
  const long n = q->n;
  double* p = q->Proportions;
  double m = 0.0;
  for (long i = 0; i < n; ++i) {
    if (p[i] < 0.0) return static_cast<int>(i + n);
    if (i == 0 || p[i] > m) m = p[i];
  }
  if (!(m > 0.0)) return static_cast<int>(10 * n);
  // Scale by the largest weight only when the plain sum could overflow.
  if (m < DBL_MAX / static_cast<double>(n)) m = 1.0;
  double sum = 0.0;
  for (long i = 0; i < n; ++i) {
    p[i] /= m;
    if (q->Sigma[i] < 0.0) return static_cast<int>(i + 2 * n);
    sum += p[i];
  }
  if (!(sum > 0.0)) return static_cast<int>(10 * n);
  for (long i = 0; i < n; ++i) p[i] /= sum;
  if ((q->Purpose & (kLeftQuantile | kRightQuantile)) != 0) SortAccordingToTheMeans(q);
  q->State |= kVerified;
  return 0;
}

int ComputeTheProbOrTheDens(NORMAL_MIX_ARG* q) {
  double lpl = kLogZero;
  double lpr = kLogZero;
  double ldens = kLogZero;
  for (long i = 0; i < q->n; ++i) {
    const double w = q->Proportions[i];
    if (!(w > 0.0)) continue;
    const double s = q->Sigma[i] < kMinSigma ? kMinSigma : q->Sigma[i];
    const double z = (q->Quantile - q->Mu[i]) / s;
    const double az = std::fabs(z);
    double ld = -0.5 * z * z - kLnSqrt2Pi;
    double small;  // log of the component's smaller tail
    if (az >= 5.0) {
      double ratio;
      if (zmillsr(az, &ratio) != 0) {
        set_missing(q);
        return 1;
      }
      small = std::log(ratio) + ld;
    } else {
      small = std::log(zferfc(az * kRsqrt2) / 2.0);
    }
    double left;
    double right;
    if (z <= 0.0) {
      left = small;
      right = zln1px(-std::exp(small));
    } else {
      right = small;
      left = zln1px(-std::exp(small));
    }
    const double lw = std::log(w);
    left += lw;
    right += lw;
    ld += lw - std::log(s);
    lpl = LogSumOfExpProb(lpl, left, 1);
    lpr = LogSumOfExpProb(lpr, right, 1);
    ldens = LogSumOfExpProb(ldens, ld, 0);
  }
  q->LogLeftPr = lpl;
  q->LogRightPr = lpr;
  q->LogDensity = ldens;
  return 0;
}

int ComputeF(NORMAL_MIX_ARG* q, int i, double* x, double* r, double* Dens, double* LogLeftPr, double* LogRightPr) {
  q->Quantile = x[i];
  const int status = ComputeTheProbOrTheDens(q);
  if (status != 0) return status;
  LogLeftPr[i] = q->LogLeftPr;
  LogRightPr[i] = q->LogRightPr;
  Dens[i] = q->LogDensity;
  switch (q->Shooting) {
    case 1:
      r[i] = LogLeftPr[i];
      return 0;
    case 2:
      // The derivative of log F: density over probability.
      r[i] = LogLeftPr[i];
      Dens[i] = std::exp(Dens[i] - r[i]);
      return 0;
    case 3:
      r[i] = LogRightPr[i];
      return 0;
    default:
      return 1000;
  }
}

int SolveApproxF(NORMAL_MIX_ARG* q, double* x, double* r, double* Dens, double* iGamma) {
  const double target = q->QTarget;
  switch (q->Shooting) {
    case 1: {
      // Newton on log F from point 0, slope exp(Dens - r); never past point 1.
      double g = x[0] + (target - r[0]) * std::exp(r[0] - Dens[0]);
      if (g > x[1]) g = x[1];
      *iGamma = g;
      return 0;
    }
    case 3: {
      // Newton on log(1 - F) from point 1; never before point 0.
      double g = x[1] - std::exp(r[1] - Dens[1]) * (target - r[1]);
      if (g < x[0]) g = x[0];
      *iGamma = g;
      return 0;
    }
    case 2:
      break;
    default:
      return 1;
  }

  // G(x) is h^2 (H(x) - target), H the cubic Hermite interpolant of log F
  // through points 0 and 1 with the derivatives in Dens.
  const double x0 = x[0];
  const double x1 = x[1];
  const double d0 = Dens[0];
  const double d1 = Dens[1];
  const double h = x1 - x0;
  const double h2 = h * h;
  const double c = 6.0 * ((d0 + d1) / 3.0 + (r[0] - r[1]) / h);
  const double tail = h2 * (r[1] - d1 * h / 3.0) - target * h2;
  auto G = [&](double t) {
    const double u = t - x0;
    const double v = t - x1;
    return (d0 * v * v * v + d1 * u * u * u) / 3.0 + (u / 2.0 - v / 6.0) * v * v * c + tail;
  };
  auto dG = [&](double t) {
    const double u = t - x0;
    const double v = t - x1;
    return d0 * v * v + d1 * u * u + c * u * v;
  };

  // Start from the end on the proper side of the cubic's first stationary
  // point: where G is still positive there, the root lies before it.
  double start = x0;
  const double disc = c * c - 4.0 * d0 * d1;
  if (disc > 0.0) {
    double stationary[2];
    int count = 0;
    const double sq = std::sqrt(disc);
    double w[2];
    int nw = 0;
    if (d1 != 0.0) {
      w[nw++] = (-c + sq) / (2.0 * d1);
      w[nw++] = (-c - sq) / (2.0 * d1);
    } else if (c != 0.0) {
      w[nw++] = -d0 / c;
    }
    for (int k = 0; k < nw; ++k) {
      if (w[k] != 1.0) stationary[count++] = (x0 - w[k] * x1) / (1.0 - w[k]);
    }
    if (count > 0) {
      double sp = stationary[0];
      if (count == 2 && stationary[1] < sp) sp = stationary[1];
      start = G(sp) > 0.0 ? x0 : x1;
    }
  }

  double t = start;
  *iGamma = t;
  for (int attempt = 0; attempt < 2; ++attempt) {
    bool outside = false;
    for (int step = 0; step < kMaxNewton; ++step) {
      const double next = t - G(t) / dG(t);
      if (!(next >= x0 && next <= x1)) {
        outside = true;
        break;
      }
      const double size = std::fabs(next - t);
      const double ax = std::fabs(next);
      t = next;
      if (size < 1e-07 * (ax > 0.001 ? ax : 0.001)) break;
    }
    if (!outside) {
      // Held within the bracket of points 3 and 4.
      const double lo = x[3] < x[4] ? x[3] : x[4];
      const double hi = x[3] < x[4] ? x[4] : x[3];
      if (t < lo) t = lo;
      if (t > hi) t = hi;
      *iGamma = t;
      return 0;
    }
    if (attempt == 0) {
      t = start == x0 ? x1 : x0;
      *iGamma = t;
    }
  }
  return 1;
}

void ResetBracket(NORMAL_MIX_ARG* q, double* x, double* r, double* LogLeftPr, double* LogRightPr, double* Dens) {
  switch (q->Shooting) {
    case 1:
      copy_point(x, r, Dens, LogLeftPr, LogRightPr, 2, 0);
      break;
    case 3:
      copy_point(x, r, Dens, LogLeftPr, LogRightPr, 2, 1);
      break;
    case 2: {
      // A zero difference counts as positive.
      const bool pos3 = q->QTarget - r[3] >= 0.0;
      const bool pos2 = q->QTarget - r[2] >= 0.0;
      copy_point(x, r, Dens, LogLeftPr, LogRightPr, 2, pos3 == pos2 ? 3 : 4);
      copy_point(x, r, Dens, LogLeftPr, LogRightPr, 3, 0);
      copy_point(x, r, Dens, LogLeftPr, LogRightPr, 4, 1);
      break;
    }
    default:
      break;
  }
}

int SolveWithOutShooting(NORMAL_MIX_ARG* q, double* x, double* r, double* Dens, double* LogLeftPr, double* LogRightPr) {
  const double target = q->QTarget;
  for (int round = 0; round < kMaxRounds; ++round) {
    if (std::fabs(r[2] - target) < kTolerance || std::fabs(x[0] - x[1]) < kTolerance) break;
    if (std::fabs(r[1] - r[0]) > kMinSlope) {
      x[2] = x[0] + (x[1] - x[0]) * (target - r[0]) / (r[1] - r[0]);
    } else {
      x[2] = (x[0] + x[1]) / 2.0;
    }
    const int status = ComputeF(q, 2, x, r, Dens, LogLeftPr, LogRightPr);
    if (status != 0) return status;
    copy_point(x, r, Dens, LogLeftPr, LogRightPr, 2, r[2] < target ? 0 : 1);
  }
  return std::fabs(r[2] - target) < kTolerance ? 0 : 1;
}

int ComputeTheQuantile(NORMAL_MIX_ARG* q) {
  SolverPoints pts{};
  double* x = pts.x();
  double* r = pts.r();
  double* dens = pts.dens();
  double* lpl = pts.left();
  double* lpr = pts.right();
  // No evaluation at point 2 yet: its working value can't meet the target.
  r[2] = DBL_MAX;

  double lp;  // log left probability of the target
  double ls;  // log right probability of the target
  if (q->Purpose == kLeftQuantile) {
    lp = std::log(q->Probability);
    ls = zln1px(-q->Probability);
  } else if (q->Purpose == kRightQuantile) {
    lp = zln1px(-q->targetSDF);
    ls = std::log(q->targetSDF);
  } else {
    return 1;
  }
  if (q->n < 1) return 1;

  // The first mean whose left probability exceeds the target: point 4,
  // with the mean before it as point 3.
  q->Shooting = 1;
  const long n = q->n;
  long index = 0;
  for (; index < n; ++index) {
    if (index > 0) copy_point(x, r, dens, lpl, lpr, 4, 3);
    x[4] = q->Mu[index];
    const int status = ComputeF(q, 4, x, r, dens, lpl, lpr);
    if (status != 0) return status;
    if (r[4] > lp) break;
  }

  int status;
  if (index == 0) {
    // Left of the first mean: start from the first component's quantile.
    q->QTarget = lp;
    copy_point(x, r, dens, lpl, lpr, 4, 1);
    x[0] = q->Purpose == kLeftQuantile ? zprobit(q->Probability) * q->Sigma[0] + q->Mu[0]
                                       : q->Mu[0] - zprobit(q->targetSDF) * q->Sigma[0];
    status = ComputeF(q, 0, x, r, dens, lpl, lpr);
    if (status != 0) return status;
  } else if (index == n) {
    // Right of the last mean: the working value is the log right probability.
    q->Shooting = 3;
    q->QTarget = ls;
    copy_point(x, r, dens, lpl, lpr, 4, 0);
    r[0] = lpr[0];
    const long last = n - 1;
    x[1] = q->Purpose == kLeftQuantile ? zprobit(q->Probability) * q->Sigma[last] + q->Mu[last]
                                       : q->Mu[last] - zprobit(q->targetSDF) * q->Sigma[last];
    status = ComputeF(q, 1, x, r, dens, lpl, lpr);
    if (status != 0) return status;
  } else {
    // Between two means: the working value is log F, Dens its derivative.
    q->Shooting = 2;
    q->QTarget = lp;
    dens[3] = std::exp(dens[3] - r[3]);
    dens[4] = std::exp(dens[4] - r[4]);
    // Narrow the bracket to five standard deviations of either mean.
    const double right_of_lower = x[3] + 5.0 * q->Sigma[index - 1];
    if (right_of_lower < x[4]) {
      x[2] = right_of_lower;
      status = ComputeF(q, 2, x, r, dens, lpl, lpr);
      if (status != 0) return status;
      copy_point(x, r, dens, lpl, lpr, 2, r[2] > q->QTarget ? 4 : 3);
    }
    const double left_of_upper = x[4] - 5.0 * q->Sigma[index];
    if (left_of_upper > x[3]) {
      x[2] = left_of_upper;
      status = ComputeF(q, 2, x, r, dens, lpl, lpr);
      if (status != 0) return status;
      copy_point(x, r, dens, lpl, lpr, 2, r[2] > q->QTarget ? 4 : 3);
    }
    r[2] = DBL_MAX;
    copy_point(x, r, dens, lpl, lpr, 3, 0);
    copy_point(x, r, dens, lpl, lpr, 4, 1);
  }

  double previous = DBL_MAX;
  bool shot = true;
  for (int round = 0; round < kMaxRounds; ++round) {
    double gamma = x[2];
    if (SolveApproxF(q, x, r, dens, &gamma) != 0) {
      q->Quantile = gamma;
      shot = false;
      break;
    }
    x[2] = gamma;
    status = ComputeF(q, 2, x, r, dens, lpl, lpr);
    if (status != 0) return status;
    if (std::fabs(r[2] - q->QTarget) < kTolerance && std::fabs(x[2] - previous) < kTolerance) {
      q->Quantile = x[2];
      return 0;
    }
    previous = x[2];
    ResetBracket(q, x, r, lpl, lpr, dens);
  }
  if (shot) q->Quantile = x[2];
  return SolveWithOutShooting(q, x, r, dens, lpl, lpr);
}

int zmxnorm(NORMAL_MIX_ARG* q) {
  if ((q->State & kVerified) == 0) {
    const int status = VerifyQ(q);
    if (status != 0) return status;
  }
  if ((q->Purpose & (kLeftQuantile | kRightQuantile)) != 0) return ComputeTheQuantile(q);
  return ComputeTheProbOrTheDens(q);
}

}  // extern "C"
