// Normal mixture: log tail probabilities and density against a direct sum of
// erfc terms, the density against a numerical integral of itself, quantiles
// against bisection of the directly computed distribution function, and the
// record's normalisation, sorting and refusals.

#include <cfloat>
#include <cmath>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "numeric/numeric.h"
#include "primitives/primitives.h"

namespace {

struct Mixture {
  std::vector<double> p, mu, sigma;
};

// The mixture record over the caller's arrays.
NORMAL_MIX_ARG make_arg(Mixture& m, int purpose) {
  NORMAL_MIX_ARG q{};
  q.Purpose = purpose;
  q.n = static_cast<long>(m.p.size());
  q.Proportions = m.p.data();
  q.Mu = m.mu.data();
  q.Sigma = m.sigma.data();
  return q;
}

// Reference distribution function in long double, from the library erfc:
// left tail F(x) and right tail 1 - F(x), each summed from its own small terms.
long double ref_left(const Mixture& m, double x) {
  long double sum = 0, total = 0;
  for (size_t i = 0; i < m.p.size(); ++i) total += m.p[i];
  for (size_t i = 0; i < m.p.size(); ++i) {
    const long double z = (x - m.mu[i]) / static_cast<long double>(m.sigma[i]);
    sum += m.p[i] * 0.5L * std::erfc(-z / std::sqrt(2.0L));
  }
  return sum / total;
}

long double ref_right(const Mixture& m, double x) {
  long double sum = 0, total = 0;
  for (size_t i = 0; i < m.p.size(); ++i) total += m.p[i];
  for (size_t i = 0; i < m.p.size(); ++i) {
    const long double z = (x - m.mu[i]) / static_cast<long double>(m.sigma[i]);
    sum += m.p[i] * 0.5L * std::erfc(z / std::sqrt(2.0L));
  }
  return sum / total;
}

long double ref_density(const Mixture& m, double x) {
  long double sum = 0, total = 0;
  for (size_t i = 0; i < m.p.size(); ++i) total += m.p[i];
  for (size_t i = 0; i < m.p.size(); ++i) {
    const long double z = (x - m.mu[i]) / static_cast<long double>(m.sigma[i]);
    sum += m.p[i] * std::exp(-z * z / 2) / (m.sigma[i] * std::sqrt(2 * 3.14159265358979323846L));
  }
  return sum / total;
}

// Point where the reference left tail reaches p, by bisection.
double bisect_left(const Mixture& m, long double p, double lo, double hi) {
  for (int i = 0; i < 200; ++i) {
    const double mid = 0.5 * (lo + hi);
    if (ref_left(m, mid) < p) lo = mid; else hi = mid;
  }
  return 0.5 * (lo + hi);
}

const Mixture kTwoHumps{{0.3, 0.7}, {-2.0, 3.0}, {1.0, 0.5}};
const Mixture kThree{{1.0, 2.0, 1.0}, {-5.0, 0.0, 4.0}, {2.0, 1.0, 3.0}};
const Mixture kOverlap{{0.5, 0.5}, {0.0, 0.1}, {1.0, 1.0}};
const Mixture kNarrowWide{{0.9, 0.1}, {0.0, 0.0}, {0.01, 10.0}};
// Means far apart, so that the bracket between them is narrowed first.
const Mixture kApart{{0.4, 0.6}, {0.0, 20.0}, {1.0, 2.0}};

struct NamedMixture {
  const char* name;
  const Mixture* m;
};
const NamedMixture kMixtures[] = {
    {"two humps", &kTwoHumps}, {"three", &kThree}, {"overlap", &kOverlap},
    {"narrow and wide", &kNarrowWide}};

TEST(MixtureValues, TailsAndDensityMatchDirectSum) {
  const double points[] = {-30.0, -9.0, -4.0, -2.0, -0.5, 0.0, 0.05, 1.0, 2.9, 3.0, 6.0, 12.0, 40.0};
  for (const auto& nm : kMixtures) {
    for (double x : points) {
      SCOPED_TRACE(std::string(nm.name) + " at " + std::to_string(x));
      Mixture m = *nm.m;
      NORMAL_MIX_ARG q = make_arg(m, 0);
      q.Quantile = x;
      ASSERT_EQ(zmxnorm(&q), 0);
      const long double left = ref_left(*nm.m, x);
      const long double right = ref_right(*nm.m, x);
      const long double dens = ref_density(*nm.m, x);
      // Compared as logarithms where the reference is representable; both
      // tails keep full relative accuracy, however small.
      const std::pair<double, long double> pairs[] = {
          {q.LogLeftPr, left}, {q.LogRightPr, right}, {q.LogDensity, dens}};
      for (const auto& [got, ref] : pairs) {
        if (ref > 1e-4000L) {
          const double lref = static_cast<double>(std::log(ref));
          EXPECT_NEAR(got, lref, 1e-12 * std::fabs(lref) + 1e-13);
        }
      }
      EXPECT_LE(q.LogLeftPr, 0.0);
      EXPECT_LE(q.LogRightPr, 0.0);
    }
  }
}

// Far beyond every mean the log tail stays finite and follows the asymptotic
// series of the normal tail, log Phi(-x) = -x^2/2 - log(x sqrt(2 pi)) + log(1 - 1/x^2 + 3/x^4 - ...).
TEST(MixtureValues, FarTailFollowsAsymptoticSeries) {
  for (double x : {40.0, 100.0, 1000.0}) {
    SCOPED_TRACE(x);
    Mixture m{{1.0}, {0.0}, {1.0}};
    NORMAL_MIX_ARG q = make_arg(m, 0);
    q.Quantile = -x;
    ASSERT_EQ(zmxnorm(&q), 0);
    const double x2 = x * x;
    const double expected = -x2 / 2 - std::log(x * std::sqrt(2 * M_PI)) +
                            std::log1p(-1 / x2 + 3 / (x2 * x2) - 15 / (x2 * x2 * x2));
    EXPECT_NEAR(q.LogLeftPr, expected, 1e-12 * std::fabs(expected));
    EXPECT_EQ(q.LogRightPr, 0.0);
  }
}

// The density integrates to the difference of the left tails (Simpson's rule).
TEST(MixtureValues, DensityIntegratesToProbability) {
  const double ranges[][2] = {{-6.0, -1.0}, {-1.0, 2.5}, {2.5, 4.0}, {-12.0, 12.0}};
  for (const auto& nm : kMixtures) {
    for (const auto& ab : ranges) {
      SCOPED_TRACE(std::string(nm.name) + " on " + std::to_string(ab[0]) + ".." + std::to_string(ab[1]));
      Mixture m = *nm.m;
      NORMAL_MIX_ARG q = make_arg(m, 0);
      auto at = [&](double x) {
        q.Quantile = x;
        EXPECT_EQ(zmxnorm(&q), 0);
        return q;
      };
      const int steps = 60000;
      const double h = (ab[1] - ab[0]) / steps;
      double sum = 0;
      for (int i = 0; i <= steps; ++i) {
        const double w = (i == 0 || i == steps) ? 1 : (i % 2 ? 4 : 2);
        sum += w * std::exp(at(ab[0] + i * h).LogDensity);
      }
      const double integral = sum * h / 3;
      const double fa = std::exp(at(ab[0]).LogLeftPr);
      const double fb = std::exp(at(ab[1]).LogLeftPr);
      EXPECT_NEAR(integral, fb - fa, 1e-9);
    }
  }
}

TEST(MixtureValues, StandardNormalAtZero) {
  Mixture m{{1.0}, {0.0}, {1.0}};
  NORMAL_MIX_ARG q = make_arg(m, 0);
  q.Quantile = 0.0;
  ASSERT_EQ(zmxnorm(&q), 0);
  EXPECT_DOUBLE_EQ(q.LogLeftPr, std::log(0.5));
  EXPECT_DOUBLE_EQ(q.LogRightPr, std::log(0.5));
  EXPECT_EQ(q.LogDensity, -0.9189385332046728);
}

// A zero weight drops its component, and a zero standard deviation acts as
// the floor 1.053671212772351e-08: both give the same bits as the mixture
// written out that way.
TEST(MixtureValues, ZeroWeightAndZeroSigma) {
  struct Case {
    const char* name;
    Mixture given, equivalent;
    double x;
  } cases[] = {
      {"zero weight", {{0.5, 0.0, 0.5}, {0.0, 100.0, 2.0}, {1.0, 1.0, 2.0}}, {{0.5, 0.5}, {0.0, 2.0}, {1.0, 2.0}}, 1.0},
      {"zero sigma", {{1.0, 1.0}, {0.0, 3.0}, {0.0, 1.0}}, {{1.0, 1.0}, {0.0, 3.0}, {1.053671212772351e-08, 1.0}}, 1e-9},
      {"zero sigma, far", {{1.0, 1.0}, {0.0, 3.0}, {0.0, 1.0}}, {{1.0, 1.0}, {0.0, 3.0}, {1.053671212772351e-08, 1.0}}, -2.0},
  };
  for (auto& c : cases) {
    SCOPED_TRACE(c.name);
    NORMAL_MIX_ARG a = make_arg(c.given, 0);
    NORMAL_MIX_ARG b = make_arg(c.equivalent, 0);
    a.Quantile = b.Quantile = c.x;
    ASSERT_EQ(zmxnorm(&a), 0);
    ASSERT_EQ(zmxnorm(&b), 0);
    EXPECT_EQ(a.LogLeftPr, b.LogLeftPr);
    EXPECT_EQ(a.LogRightPr, b.LogRightPr);
    EXPECT_EQ(a.LogDensity, b.LogDensity);
  }
}

TEST(MixtureRecord, NormalisedInPlaceOnce) {
  Mixture m{{3.0, 1.0}, {0.0, 1.0}, {1.0, 1.0}};
  NORMAL_MIX_ARG q = make_arg(m, 0);
  ASSERT_EQ(zmxnorm(&q), 0);
  EXPECT_EQ(m.p[0], 0.75);
  EXPECT_EQ(m.p[1], 0.25);
  EXPECT_EQ(q.State & 1, 1);

  // With the verified bit set the weights are taken as they stand.
  Mixture raw{{3.0, 1.0}, {0.0, 1.0}, {1.0, 1.0}};
  NORMAL_MIX_ARG v = make_arg(raw, 0);
  v.State = 1;
  v.Quantile = 50.0;
  ASSERT_EQ(zmxnorm(&v), 0);
  EXPECT_EQ(raw.p[0], 3.0);
  EXPECT_EQ(raw.p[1], 1.0);
  EXPECT_EQ(v.LogLeftPr, 0.0);  // log 4 capped at 0
}

// Weights so large that their plain sum would overflow are scaled by the largest.
TEST(MixtureRecord, HugeWeightsDoNotOverflow) {
  Mixture m{{DBL_MAX, DBL_MAX / 2}, {0.0, 1.0}, {1.0, 1.0}};
  NORMAL_MIX_ARG q = make_arg(m, 0);
  ASSERT_EQ(zmxnorm(&q), 0);
  EXPECT_NEAR(m.p[0], 2.0 / 3.0, 1e-15);
  EXPECT_NEAR(m.p[1], 1.0 / 3.0, 1e-15);
}

TEST(MixtureRecord, Refusals) {
  struct Case {
    const char* name;
    Mixture m;
    int purpose;
    int expected;
  } cases[] = {
      {"negative weight", {{1.0, 1.0, -1.0}, {0, 1, 2}, {1, 1, 1}}, 0, 2 + 3},
      {"first negative weight counts", {{-1.0, -1.0}, {0, 1}, {1, 1}}, 0, 0 + 2},
      {"negative sigma", {{1.0, 1.0, 1.0}, {0, 1, 2}, {1, -1, 1}}, 0, 1 + 6},
      {"all weights zero", {{0.0, 0.0, 0.0, 0.0}, {0, 1, 2, 3}, {1, 1, 1, 1}}, 0, 40},
      {"both quantile bits", {{1.0}, {0.0}, {1.0}}, 6, 1},
  };
  for (auto& c : cases) {
    SCOPED_TRACE(c.name);
    NORMAL_MIX_ARG q = make_arg(c.m, c.purpose);
    q.Probability = 0.5;
    EXPECT_EQ(zmxnorm(&q), c.expected);
    if (c.expected != 1) {
      EXPECT_EQ(q.State & 1, 0);
    }
  }
}

TEST(MixtureRecord, ShellSortCarriesSigmaAndWeight) {
  Mixture m{{1, 2, 3, 4, 5, 6, 7}, {3.0, -1.0, 7.0, 0.5, -4.0, 7.0, 2.0}, {30, -10, 70, 5, -40, 71, 20}};
  // Sigma is negative for one entry here on purpose: the sort itself doesn't check.
  NORMAL_MIX_ARG q = make_arg(m, 2);
  SortAccordingToTheMeans(&q);
  for (size_t i = 1; i < m.mu.size(); ++i) EXPECT_LE(m.mu[i - 1], m.mu[i]);
  for (size_t i = 0; i < m.mu.size(); ++i) {
    // Each sigma was ten times its mean (71 marks the second 7), and the weights followed.
    EXPECT_NEAR(m.sigma[i], 10 * m.mu[i], 1.0);
  }
  double wsum = 0;
  for (double w : m.p) wsum += w;
  EXPECT_EQ(wsum, 28.0);
  EXPECT_EQ(m.p[0], 5.0);  // the weight of mean -4
}

struct QuantileCase {
  const char* name;
  const Mixture* m;
  int purpose;
  double prob;  // Probability for purpose 2, targetSDF for purpose 4
};

const QuantileCase kQuantiles[] = {
    {"two humps, far left", &kTwoHumps, 2, 1e-8},
    {"two humps, left of first mean", &kTwoHumps, 2, 0.01},
    {"two humps, between", &kTwoHumps, 2, 0.3},
    {"two humps, between near upper", &kTwoHumps, 2, 0.5},
    {"two humps, right of last", &kTwoHumps, 2, 0.99},
    {"two humps, right tail", &kTwoHumps, 4, 1e-10},
    {"two humps, right tail moderate", &kTwoHumps, 4, 0.2},
    {"three, between first pair", &kThree, 2, 0.15},
    {"three, between second pair", &kThree, 2, 0.7},
    {"three, left", &kThree, 4, 0.999},
    {"overlap, middle", &kOverlap, 2, 0.5},
    {"narrow and wide, inside", &kNarrowWide, 2, 0.6},
    {"narrow and wide, tail", &kNarrowWide, 4, 0.01},
    {"apart, gap", &kApart, 2, 0.4},
    {"apart, inside lower", &kApart, 2, 0.3},
    {"apart, inside upper", &kApart, 2, 0.5},
    {"apart, deep in gap", &kApart, 4, 0.6 - 1e-9},
    {"single, upper", nullptr, 2, 0.975},
    {"single, lower", nullptr, 4, 0.999},
};

// The quantile meets its target to the solver's tolerance of 1e-5 in the log
// probability, which bounds its distance from the bisected reference.
TEST(MixtureQuantile, MatchesBisectionOfDirectSum) {
  const Mixture single{{1.0}, {0.0}, {1.0}};
  for (const auto& c : kQuantiles) {
    SCOPED_TRACE(c.name);
    const Mixture& ref = c.m ? *c.m : single;
    Mixture m = ref;
    NORMAL_MIX_ARG q = make_arg(m, c.purpose);
    if (c.purpose == 2) q.Probability = c.prob; else q.targetSDF = c.prob;
    ASSERT_EQ(zmxnorm(&q), 0);
    const double xq = q.Quantile;
    if (c.purpose == 2) {
      EXPECT_NEAR(static_cast<double>(std::log(ref_left(ref, xq))), std::log(c.prob), 1e-5);
    } else {
      EXPECT_NEAR(static_cast<double>(std::log(ref_right(ref, xq))), std::log(c.prob), 1e-5);
    }
    const long double left = c.purpose == 2 ? c.prob : 1.0L - c.prob;
    const double expected = bisect_left(ref, left, -200.0, 200.0);
    // d(log F)/dx bounds how far 1e-5 in log F can move x.
    const double slope = std::min(ref_density(ref, expected) / ref_left(ref, expected),
                                  ref_density(ref, expected) / ref_right(ref, expected));
    EXPECT_NEAR(xq, expected, 1e-5 / slope + 1e-9);
  }
}

TEST(MixtureQuantile, StandardNormal975) {
  Mixture m{{1.0}, {0.0}, {1.0}};
  NORMAL_MIX_ARG q = make_arg(m, 2);
  q.Probability = 0.975;
  ASSERT_EQ(zmxnorm(&q), 0);
  EXPECT_NEAR(q.Quantile, 1.96, 1e-4);
  EXPECT_NEAR(q.Quantile, 1.959963984540054, 1e-5);
}

TEST(MixtureQuantile, DescendingMeansGiveSameQuantileAndComeBackSorted) {
  for (double prob : {0.001, 0.2, 0.5, 0.8, 0.999}) {
    SCOPED_TRACE(prob);
    Mixture up{{0.125, 0.5, 0.375}, {-3.0, 1.0, 5.0}, {1.0, 2.0, 0.5}};
    Mixture down{{0.375, 0.5, 0.125}, {5.0, 1.0, -3.0}, {0.5, 2.0, 1.0}};
    NORMAL_MIX_ARG a = make_arg(up, 2);
    NORMAL_MIX_ARG b = make_arg(down, 2);
    a.Probability = b.Probability = prob;
    ASSERT_EQ(zmxnorm(&a), 0);
    ASSERT_EQ(zmxnorm(&b), 0);
    EXPECT_EQ(a.Quantile, b.Quantile);
    EXPECT_EQ(down.mu, up.mu);
    EXPECT_EQ(down.sigma, up.sigma);
    EXPECT_EQ(down.p, up.p);
  }
}

// The cubic model reproduces a cubic exactly: the point it proposes is the
// root of x^3 + x = 1 on [-1, 2].
TEST(MixtureSolver, CubicModelFindsRootOfACubic) {
  Mixture m{{1.0}, {0.0}, {1.0}};
  NORMAL_MIX_ARG q = make_arg(m, 2);
  q.Shooting = 2;
  q.QTarget = 1.0;
  double x[5] = {-1.0, 2.0, 0.0, -1.0, 2.0};
  double r[5] = {-2.0, 10.0, 0.0, -2.0, 10.0};
  double d[5] = {4.0, 13.0, 0.0, 4.0, 13.0};
  double g = 0.0;
  ASSERT_EQ(SolveApproxF(&q, x, r, d, &g), 0);
  EXPECT_NEAR(g, 0.6823278038280193, 1e-9);

  q.Shooting = 7;
  EXPECT_EQ(SolveApproxF(&q, x, r, d, &g), 1);
}

// The fallback alone: false position on a bracket of the standard normal.
TEST(MixtureSolver, FalsePositionConverges) {
  Mixture m{{1.0}, {0.0}, {1.0}};
  NORMAL_MIX_ARG q = make_arg(m, 2);
  q.Shooting = 1;
  q.QTarget = std::log(0.3);
  double x[5] = {-3.0, 3.0, 0.0, 0.0, 0.0}, r[5], d[5], l[5], rt[5];
  ASSERT_EQ(ComputeF(&q, 0, x, r, d, l, rt), 0);
  ASSERT_EQ(ComputeF(&q, 1, x, r, d, l, rt), 0);
  r[2] = DBL_MAX;
  ASSERT_EQ(SolveWithOutShooting(&q, x, r, d, l, rt), 0);
  EXPECT_NEAR(std::log(0.5 * std::erfc(-q.Quantile / std::sqrt(2.0))), std::log(0.3), 1e-5);
  q.Shooting = 9;
  EXPECT_EQ(ComputeF(&q, 0, x, r, d, l, rt), 1000);
}

TEST(MixtureHelpers, LogSumOfExpProb) {
  struct Case {
    double a, b;
    int flag;
    double expected;
  } cases[] = {
      {-1.0, -1.0, 0, -1.0 + 0.6931471805599453},
      {1000.0, 1000.0, 0, 1000.6931471805599},
      {0.0, -1000.0, 0, 0.0},
      {-9007199254740992.0, -3.0, 0, -3.0},
      {-0.1, -0.2, 1, 0.0},  // log(exp(-.1) + exp(-.2)) is above 0: capped
      {-0.1, -0.2, 0, static_cast<double>(std::log(std::exp(-0.1L) + std::exp(-0.2L)))},
      {-5.0, -7.0, 1, static_cast<double>(std::log(std::exp(-5.0L) + std::exp(-7.0L)))},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::to_string(c.a) + ", " + std::to_string(c.b));
    EXPECT_NEAR(LogSumOfExpProb(c.a, c.b, c.flag), c.expected, 1e-15 * (1 + std::fabs(c.expected)));
    EXPECT_EQ(LogSumOfExpProb(c.a, c.b, c.flag), LogSumOfExpProb(c.b, c.a, c.flag));
  }
}

TEST(MixtureHelpers, DiffNormal) {
  auto phi = [](long double x) { return 0.5L * std::erfc(-x / std::sqrt(2.0L)); };
  const double pairs[][2] = {{1.0, 0.5},   {0.3, 0.29995}, {-2.0, -2.00001}, {9.0, 8.0},
                             {8.00001, 8.0}, {-1.0, 1.0},  {12.0, 11.0}, {0.0, -0.00005}};
  for (const auto& ab : pairs) {
    SCOPED_TRACE(std::to_string(ab[0]) + " - " + std::to_string(ab[1]));
    const double a = ab[0], b = ab[1];
    // The reference difference from the tail that holds it accurately.
    const long double expected = (a > 0 && b > 0) ? phi(-b) - phi(-a) : phi(a) - phi(b);
    const double got = DiffNormal(a, b, a - b);
    EXPECT_NEAR(got, static_cast<double>(expected), 1e-12 * std::fabs(static_cast<double>(expected)) + 1e-300);
  }
}

}  // namespace
