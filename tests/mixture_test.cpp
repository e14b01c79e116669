// Normal mixture: log tails and density against a direct sum of erfc terms
// in long double, quantiles against bisection of the direct sum, and the
// record's normalisation, sorting and refusals.

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "numeric/numeric.h"

namespace {

struct Mixture {
  std::vector<double> p, mu, sigma;
};

NORMAL_MIX_ARG make_arg(Mixture& m, int purpose) {
  NORMAL_MIX_ARG q{};
  q.Purpose = purpose;
  q.n = static_cast<long>(m.p.size());
  q.Proportions = m.p.data();
  q.Mu = m.mu.data();
  q.Sigma = m.sigma.data();
  return q;
}

NORMAL_MIX_ARG at(Mixture m, double x) {
  NORMAL_MIX_ARG q = make_arg(m, 0);
  q.Quantile = x;
  EXPECT_EQ(zmxnorm(&q), 0);
  return q;
}

// Left tail, right tail and density of the mixture, each summed from its own terms.
struct Reference {
  long double left = 0, right = 0, dens = 0;
};

Reference reference(const Mixture& m, double x) {
  Reference r;
  long double total = 0;
  for (double w : m.p) total += w;
  for (size_t i = 0; i < m.p.size(); ++i) {
    const long double z = (x - m.mu[i]) / static_cast<long double>(m.sigma[i]);
    const long double w = m.p[i] / total;
    r.left += w * 0.5L * std::erfc(-z / std::sqrt(2.0L));
    r.right += w * 0.5L * std::erfc(z / std::sqrt(2.0L));
    r.dens += w * std::exp(-z * z / 2) / (m.sigma[i] * std::sqrt(2 * 3.14159265358979323846L));
  }
  return r;
}

const Mixture kTwoHumps{{0.3, 0.7}, {-2.0, 3.0}, {1.0, 0.5}};
const Mixture kThree{{1.0, 2.0, 1.0}, {-5.0, 0.0, 4.0}, {2.0, 1.0, 3.0}};
const Mixture kOverlap{{0.5, 0.5}, {0.0, 0.1}, {1.0, 1.0}};
const Mixture kNarrowWide{{0.9, 0.1}, {0.0, 0.0}, {0.01, 10.0}};
const Mixture kApart{{0.4, 0.6}, {0.0, 20.0}, {1.0, 2.0}};  // the bracket is narrowed first
const Mixture kSingle{{1.0}, {0.0}, {1.0}};
const Mixture kDescending{{0.375, 0.5, 0.125}, {5.0, 1.0, -3.0}, {0.5, 2.0, 1.0}};  // a quantile sorts it
const Mixture* const kMixtures[] = {&kTwoHumps, &kThree, &kOverlap, &kNarrowWide, &kApart, &kSingle};

TEST(Mixture, TailsAndDensityMatchDirectSum) {
  for (const Mixture* m : kMixtures) {
    for (double x : {-30.0, -9.0, -4.0, -2.0, -0.5, 0.0, 0.05, 2.9, 3.0, 6.0, 12.0, 40.0}) {
      SCOPED_TRACE(std::to_string(m->mu[0]) + " at " + std::to_string(x));
      const NORMAL_MIX_ARG q = at(*m, x);
      const Reference r = reference(*m, x);
      const std::pair<double, long double> pairs[] = {
          {q.LogLeftPr, r.left}, {q.LogRightPr, r.right}, {q.LogDensity, r.dens}};
      for (const auto& [got, ref] : pairs) {
        const double lref = static_cast<double>(std::log(ref));
        EXPECT_NEAR(got, lref, 1e-12 * std::fabs(lref) + 1e-13);
      }
    }
  }
  // Far out, the asymptotic series of the normal tail.
  for (double x : {40.0, 100.0, 1000.0}) {
    const double x2 = x * x;
    const double expected =
        -x2 / 2 - std::log(x * std::sqrt(2 * M_PI)) + std::log1p(-1 / x2 + 3 / (x2 * x2) - 15 / (x2 * x2 * x2));
    EXPECT_NEAR(at(kSingle, -x).LogLeftPr, expected, 1e-12 * std::fabs(expected)) << x;
  }
  EXPECT_EQ(at(kSingle, 0.0).LogDensity, -0.9189385332046728);  // -ln sqrt(2 pi), to the bit
}

// A zero weight drops its component and a zero sigma acts as 1.053671212772351e-08:
// the same bits as the mixture written out that way.
TEST(Mixture, ZeroWeightAndZeroSigma) {
  struct Case {
    Mixture given, equivalent;
    double x;
  } cases[] = {
      {{{0.5, 0.0, 0.5}, {0.0, 100.0, 2.0}, {1.0, 1.0, 2.0}}, {{0.5, 0.5}, {0.0, 2.0}, {1.0, 2.0}}, 1.0},
      {{{1.0, 1.0}, {0.0, 3.0}, {0.0, 1.0}}, {{1.0, 1.0}, {0.0, 3.0}, {1.053671212772351e-08, 1.0}}, 1e-9},
      {{{1.0, 1.0}, {0.0, 3.0}, {0.0, 1.0}}, {{1.0, 1.0}, {0.0, 3.0}, {1.053671212772351e-08, 1.0}}, -2.0},
  };
  for (auto& c : cases) {
    const NORMAL_MIX_ARG a = at(c.given, c.x);
    const NORMAL_MIX_ARG b = at(c.equivalent, c.x);
    EXPECT_EQ(a.LogLeftPr, b.LogLeftPr) << c.x;
    EXPECT_EQ(a.LogRightPr, b.LogRightPr) << c.x;
    EXPECT_EQ(a.LogDensity, b.LogDensity) << c.x;
  }
}

TEST(Mixture, RecordIsNormalisedInPlaceOnce) {
  Mixture m{{3.0, 1.0}, {0.0, 1.0}, {1.0, 1.0}};
  NORMAL_MIX_ARG q = make_arg(m, 0);
  ASSERT_EQ(zmxnorm(&q), 0);
  EXPECT_EQ(m.p, (std::vector<double>{0.75, 0.25}));
  EXPECT_EQ(q.State & 1, 1);
  // With the verified bit set the weights are taken as they stand.
  Mixture raw{{3.0, 1.0}, {0.0, 1.0}, {1.0, 1.0}};
  NORMAL_MIX_ARG v = make_arg(raw, 0);
  v.State = 1;
  v.Quantile = 50.0;
  ASSERT_EQ(zmxnorm(&v), 0);
  EXPECT_EQ(raw.p, (std::vector<double>{3.0, 1.0}));
  EXPECT_EQ(v.LogLeftPr, 0.0);  // log 4, capped
  // Weights whose plain sum would overflow are scaled by the largest first.
  Mixture huge{{DBL_MAX, DBL_MAX / 2}, {0.0, 1.0}, {1.0, 1.0}};
  NORMAL_MIX_ARG h = make_arg(huge, 0);
  ASSERT_EQ(zmxnorm(&h), 0);
  EXPECT_NEAR(huge.p[0], 2.0 / 3.0, 1e-15);
}

TEST(Mixture, Refusals) {
  struct Case {
    Mixture m;
    int purpose;
    int expected;
  } cases[] = {
      {{{1.0, 1.0, -1.0}, {0, 1, 2}, {1, 1, 1}}, 0, 2 + 3},         // i + n
      {{{-1.0, -1.0}, {0, 1}, {1, 1}}, 0, 0 + 2},                   // the first one counts
      {{{1.0, 1.0, 1.0}, {0, 1, 2}, {1, -1, 1}}, 0, 1 + 6},         // i + 2n
      {{{0.0, 0.0, 0.0, 0.0}, {0, 1, 2, 3}, {1, 1, 1, 1}}, 0, 40},  // 10n
      {{{1.0}, {0.0}, {1.0}}, 6, 1},                                // both quantile bits
  };
  for (auto& c : cases) {
    NORMAL_MIX_ARG q = make_arg(c.m, c.purpose);
    q.Probability = 0.5;
    EXPECT_EQ(zmxnorm(&q), c.expected) << c.expected;
  }
}

// The quantile meets its target to the solver's 1e-5 in the log probability,
// which bounds its distance from the bisected reference.
TEST(Mixture, QuantileMatchesBisection) {
  const struct {
    const Mixture* m;
    int purpose;
    double prob;  // Probability for purpose 2, targetSDF for purpose 4
  } cases[] = {
      {&kTwoHumps, 2, 1e-8},    {&kTwoHumps, 2, 0.01},  {&kTwoHumps, 2, 0.3}, {&kTwoHumps, 2, 0.5},
      {&kTwoHumps, 2, 0.99},    {&kTwoHumps, 4, 1e-10}, {&kTwoHumps, 4, 0.2}, {&kThree, 2, 0.15},
      {&kThree, 2, 0.7},        {&kThree, 4, 0.999},    {&kOverlap, 2, 0.5},  {&kNarrowWide, 2, 0.6},
      {&kNarrowWide, 4, 0.01},  {&kApart, 2, 0.4},      {&kApart, 2, 0.3},    {&kApart, 2, 0.5},
      {&kApart, 4, 0.6 - 1e-9}, {&kSingle, 2, 0.975},   {&kSingle, 4, 0.999}, {&kDescending, 2, 0.001},
      {&kDescending, 2, 0.5},   {&kDescending, 4, 0.2},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::to_string(c.m->mu[0]) + " purpose " + std::to_string(c.purpose) + " p " + std::to_string(c.prob));
    Mixture m = *c.m;
    NORMAL_MIX_ARG q = make_arg(m, c.purpose);
    (c.purpose == 2 ? q.Probability : q.targetSDF) = c.prob;
    ASSERT_EQ(zmxnorm(&q), 0);
    // The record comes back sorted by the means, the same mixture.
    EXPECT_TRUE(std::is_sorted(m.mu.begin(), m.mu.end()));
    EXPECT_NEAR(static_cast<double>(reference(m, 1.0).dens), static_cast<double>(reference(*c.m, 1.0).dens), 1e-15);
    const Reference at_q = reference(*c.m, q.Quantile);
    const long double tail = c.purpose == 2 ? at_q.left : at_q.right;
    EXPECT_NEAR(static_cast<double>(std::log(tail)), std::log(c.prob), 1e-5);
    const long double target = c.purpose == 2 ? c.prob : 1.0L - c.prob;
    double lo = -200, hi = 200;
    for (int i = 0; i < 200; ++i) (reference(*c.m, (lo + hi) / 2).left < target ? lo : hi) = (lo + hi) / 2;
    const Reference r = reference(*c.m, lo);
    const double slope = static_cast<double>(std::min(r.dens / r.left, r.dens / r.right));
    EXPECT_NEAR(q.Quantile, lo, 1e-5 / slope + 1e-9);
  }
}

TEST(Mixture, LogSumOfExpProbAndDiffNormal) {
  const struct {
    double a, b;
    int flag;
    long double expected;
  } sums[] = {
      {-1.0, -1.0, 0, -1.0L + std::log(2.0L)},
      {1000.0, 1000.0, 0, 1000.0L + std::log(2.0L)},
      {0.0, -1000.0, 0, 0.0L},
      {-9007199254740992.0, -3.0, 0, -3.0L},
      {-0.1, -0.2, 1, 0.0L},  // above 0: capped
      {-0.1, -0.2, 0, std::log(std::exp(-0.1L) + std::exp(-0.2L))},
  };
  for (const auto& c : sums) {
    EXPECT_NEAR(LogSumOfExpProb(c.a, c.b, c.flag), static_cast<double>(c.expected), 1e-15 * (1 + std::fabs(c.a)));
    EXPECT_EQ(LogSumOfExpProb(c.a, c.b, c.flag), LogSumOfExpProb(c.b, c.a, c.flag));
  }
  auto phi = [](long double x) { return 0.5L * std::erfc(-x / std::sqrt(2.0L)); };
  const double pairs[][2] = {{1.0, 0.5},     {0.3, 0.29995}, {-2.0, -2.00001}, {9.0, 8.0},
                             {8.00001, 8.0}, {-1.0, 1.0},    {12.0, 11.0},     {0.0, -0.00005}};
  for (const auto& ab : pairs) {
    const double a = ab[0], b = ab[1];
    const double expected = static_cast<double>((a > 0 && b > 0) ? phi(-b) - phi(-a) : phi(a) - phi(b));
    EXPECT_NEAR(DiffNormal(a, b, a - b), expected, 1e-12 * std::fabs(expected)) << a << " - " << b;
  }
}

}  // namespace
