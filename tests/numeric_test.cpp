// Tests of the normal distribution functions and the small numerics.
//
// Reference values: mpmath 1.3.0 at 60 significant digits, each evaluated at
// the exact double that the test passes, rounded to the nearest double.
// Quantiles come from mpmath.findroot on ln Phi(x) = ln p (lower half) or
// ln Phi(-x) = ln(1 - p) (upper half, where 1 - p is exact); log tails are
// ln Phi(x) for x <= 0 and log1p(-Phi(-x)) above.
#include "numeric/numeric.h"

#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

#include <gtest/gtest.h>

#include "primitives/primitives.h"

namespace {

struct ArgRef {
  double arg, ref;
};

// A reference of 0 is met only by 0.
double rel_err(double got, double ref) {
  if (ref == 0.0) return got == 0.0 ? 0.0 : std::numeric_limits<double>::infinity();
  return std::fabs(got - ref) / std::fabs(ref);
}

// Phi(x) falls like exp(-x^2/2).  The fixed arithmetic forms x/sqrt(2), its
// square and exp() of the whole exponent in double precision, so one rounding
// of the exponent moves a tail value by about x^2 * 1.1e-16 relative: the
// bound grows with x^2 beyond a flat 1e-14.
double tail_tolerance(double x) { return 1e-14 + 2.5e-16 * x * x; }

constexpr ArgRef kQuantiles[] = {
    {1e-300, -37.0470962993612},
    {1e-20, -9.262340089798407},
    {3.7e-17, -8.340463343630109},
    {9.999999999999999e-17, -8.222082216130435},
    {1e-16, -8.222082216130435},
    {2.5e-16, -8.111496746364757},
    {1e-08, -5.612001244174789},
    {0.001, -3.0902323061678136},
    {0.00999, -2.3267232422562443},
    {0.0100001, -2.3263441220136003},
    {0.3, -0.5244005127080408},
    {0.4999999, -2.5066282747031063e-07},
    {0.5000001, 2.506628273311648e-07},
    {0.975, 1.9599639845400538},
    {0.999999999999999, 7.941444487415978},
    {0.9999999999999999, 8.209536151601387},
};

TEST(Zprobit, MatchesHighPrecisionQuantilesFrom1e300To1Minus1e16) {
  for (const ArgRef& c : kQuantiles) {
    // Relative 1e-14, except next to p = 0.5: there the quantile tends to 0
    // while t = sqrt(-2 ln q) - sqrt(2 ln 2) is a difference of two numbers
    // near 1.18, so the error is absolute, a few 1e-16.
    EXPECT_NEAR(zprobit(c.arg), c.ref, std::fmax(1e-14 * std::fabs(c.ref), 1e-15)) << "p = " << c.arg;
    // The Newton branch on its own, also at 1e-16 where zprobit takes the rational form.
    if (c.arg <= 1e-16) {
      EXPECT_NEAR(szprobit(c.arg), c.ref, 1e-14 * std::fabs(c.ref)) << "p = " << c.arg;
    }
  }
}

TEST(Zprobit, EndsCentreAndDocumentedValues) {
  EXPECT_EQ(zprobit(0.0), -std::sqrt(1416.792837));
  EXPECT_EQ(zprobit(1.0), 7.941345326170997);
  EXPECT_EQ(zprobit(0.5), 0.0);
  EXPECT_TRUE(std::signbit(zprobit(0.5)));
}

struct ErfRef {
  double x, erf, erfc;
};

constexpr ErfRef kErf[] = {
    {-26.0, -1.0, 2.0},
    {-4.0, -0.9999999845827421, 1.999999984582742},
    {-0.46875, -0.49261347321793797, 1.492613473217938},
    {1e-17, 1.1283791670955127e-17, 1.0},
    {0.47, 0.4937450508860821, 0.5062549491139179},
    {2.0, 0.9953222650189527, 0.004677734981047266},
    {3.99, 0.9999999832607886, 1.6739211364520814e-08},
    {4.01, 0.9999999858030606, 1.4196939421371052e-08},
    {26.5, 1.0, 2.2109076642637343e-307},
    // Beyond 26.6, -x^2 is past the exponent limit; beyond 1003.78 the tail
    // is 0 at once.
    {27.0, 1.0, 0.0},
    {-27.0, -1.0, 2.0},
    {1004.0, 1.0, 0.0},
    {-1004.0, -1.0, 2.0},
};

TEST(Calerf, MatchesHighPrecisionErfAndErfc) {
  for (const ErfRef& c : kErf) {
    double erf_x = 0.0;
    double erfc_x = 0.0;
    calerf(c.x, &erf_x, 0);
    calerf(c.x, &erfc_x, 1);
    EXPECT_LE(rel_err(erf_x, c.erf), 1e-15) << "x = " << c.x;
    EXPECT_LE(rel_err(erfc_x, c.erfc), 1e-15) << "x = " << c.x;
  }
}

constexpr ArgRef kPhi[] = {
    {-37.5, 4.605353009581955e-308}, {-20.0, 2.7536241186062337e-89}, {-6.0, 9.86587645037698e-10},
    {-1.0, 0.15865525393145705},     {-1e-08, 0.4999999960105772},    {1e-08, 0.5000000039894228},
    {1.0, 0.8413447460685429},       {8.0, 0.9999999999999993},
};

TEST(Zprbnrm, MatchesHighPrecisionPhiAndUnderflowsPastTheLimit) {
  for (const ArgRef& c : kPhi) {
    EXPECT_LE(rel_err(zprbnrm(c.arg), c.ref), tail_tolerance(c.arg)) << "x = " << c.arg;
  }
  EXPECT_EQ(zprbnrm(0.0), 0.5);
  EXPECT_GT(zprbnrm(-37.0), 0.0);
  EXPECT_EQ(zprbnrm(-38.0), 0.0);
}

struct LogTailRef {
  double x, lpl, lpr;  // ln Phi(x), ln(1 - Phi(x))
};

constexpr LogTailRef kLogTails[] = {
    {-38.6, -749.5528608462079, -0.0},  // Phi underflows, its log does not
    {-37.0, -689.0305855768906, -5.725571222524577e-300},
    {-10.0, -53.23128515051247, -7.619853024160525e-24},
    {-5.0, -15.064998393988725, -2.866516129637636e-07},
    {-4.9, -14.551182689355313, -4.79183391398662e-07},
    {-1.0, -1.8410216450092636, -0.17275377902344988},
    {0.0, -0.6931471805599453, -0.6931471805599453},
};

TEST(Zlognrm, MatchesHighPrecisionLogTailsOnBothSides) {
  for (const LogTailRef& c : kLogTails) {
    for (const double sign : {1.0, -1.0}) {  // Phi(-x) = 1 - Phi(x): the tails swap
      const double x = sign * c.x;
      double lpl = 0.0;
      double lpr = 0.0;
      double ldens = 0.0;
      ASSERT_EQ(zlognrm(x, &lpl, &lpr, &ldens), 0);
      EXPECT_LE(rel_err(lpl, sign > 0 ? c.lpl : c.lpr), tail_tolerance(x)) << "x = " << x;
      EXPECT_LE(rel_err(lpr, sign > 0 ? c.lpr : c.lpl), tail_tolerance(x)) << "x = " << x;
      EXPECT_EQ(ldens, -0.5 * x * x - 0.9189385332046728);
    }
  }
}

struct IgRef {
  double x, d, ref;
};

constexpr IgRef kInverseGaussian[] = {
    {0.5, 1.0, 0.3649755481729599},  {2.0, 1.0, 0.8854754259860065},     {0.1, 3.0, 7.53423180027743e-07},
    {1.0, 20.0, 0.5440652680922194}, {0.2, 50.0, 9.441863573811567e-37}, {10.0, 0.01, 0.983355627943212},
};

TEST(Zprbigs, MatchesHighPrecisionInverseGaussianCdf) {
  for (const IgRef& c : kInverseGaussian) {
    // Both terms are exponentials of arguments about d(1 + x)^2/x in size.
    const double a = std::sqrt(c.d) * (1.0 / std::sqrt(c.x) + std::sqrt(c.x));
    EXPECT_LE(rel_err(zprbigs(c.x, c.d), c.ref), tail_tolerance(a)) << c.x << ", " << c.d;
  }
  for (double d : {0.01, 1.0, 1e6}) EXPECT_EQ(zprbigs(0.0, d), 0.0) << d;
  // exp(2d) alone overflows at d = 400; the large-argument form stays finite.
  EXPECT_NEAR(zprbigs(1.0, 400.0), 0.5, 0.02);
}

constexpr ArgRef kLn1p[] = {
    {-0.5, -0.6931471805599453},         {-0.03125, -0.0317486983145803}, {1e-20, 1e-20},
    {0.01, 0.009950330853168083},        {0.03125, 0.030771658666753687}, {0.03126, 0.030781355589435355},
    {10000000000.0, 23.025850930040455},
};

TEST(Zln1px, MatchesHighPrecisionLog1pAndLogSumOfExp) {
  for (const ArgRef& c : kLn1p) {
    // The series keeps relative accuracy; the library branch is within 1e-15.
    const double tol = std::fabs(c.arg) <= 0.03125 ? 1e-15 * std::fabs(c.ref) : 1e-15 * std::fmax(1.0, c.ref);
    EXPECT_NEAR(zln1px(c.arg), c.ref, tol) << "z = " << c.arg;
  }
  EXPECT_EQ(zln1px(0.0), 0.0);
  // ln(e^a + e^b) for large, equal and far-apart arguments.
  EXPECT_EQ(zlnSumOfExp(1000.0, 1000.0), 1000.0 + 0.6931471805599453);
  EXPECT_EQ(zlnSumOfExp(0.0, -1000.0), 0.0);
  EXPECT_EQ(zlnSumOfExp(-1000.0, 0.0), 0.0);
  EXPECT_NEAR(zlnSumOfExp(std::log(2.0), std::log(3.0)), std::log(5.0), 1e-15);
}

constexpr ArgRef kMills[] = {
    {-12.0, 4.658999149986945e+31}, {-1.0, 3.4770518117036944},  {0.0, 1.2533141373155003},
    {3.0, 0.3045902987101033},      {4.99, 0.1931683511618671},  {5.0, 0.19280810471531576},
    {10.0, 0.09902859647173193},    {100000.0, 9.999999999e-06},
};

TEST(Zmillsr, MatchesHighPrecisionMillsRatio) {
  for (const ArgRef& c : kMills) {
    double r = 0.0;
    ASSERT_EQ(zmillsr(c.arg, &r), 0);
    EXPECT_LE(rel_err(r, c.ref), 1e-14) << "x = " << c.arg;
  }
}

TEST(Zcnfmill, AgreesWithTheDirectFormAndReportsSlowConvergence) {
  for (double x : {2.0, 3.0, 4.9}) {
    double fraction = 0.0;
    double direct = 0.0;
    ASSERT_EQ(zcnfmill(x, &fraction), 0) << x;
    zmillsr(x, &direct);
    EXPECT_LE(rel_err(fraction, direct), 1e-14) << x;
  }
  double r = 0.0;
  EXPECT_EQ(zcnfmill(0.5, &r), 1);  // the convergents creep: 101 are not enough
  EXPECT_GT(r, 0.0);
}

TEST(Zisub, PacksTheLowerTriangleByRows) {
  EXPECT_EQ(zisub(70000, 1), 2450035001L);  // beyond 32 bits
  // Places run without a gap row by row across the switch of widths at row 180.
  long expected = 0;
  for (int i = 0; i < 400; ++i) {
    for (int j = 0; j <= i; ++j, ++expected) {
      ASSERT_EQ(zisub(i, j), expected) << i << "," << j;
      ASSERT_EQ(zisub(j, i), expected) << i << "," << j;
      ASSERT_EQ(esf::packed_index(j, i), expected);
    }
  }
}

// Each row adds weight * x_i * x_j at the packed place of (i, j); a zero
// entry adds nothing to its row. A row with missing data, or a weight that
// is 0 or missing, adds nothing at all.
TEST(Zscp, AddsWeightedCrossProductsInPackedOrder) {
  const double x[3] = {1, 2, 0};
  double acc[6] = {};
  ASSERT_EQ(zscp(x, 3, 3.0, acc), 1);
  ASSERT_EQ(zscp(x, 3, 0.5, acc), 1);
  const std::vector<double> sums = {3.5, 7, 14, 0, 0, 0};
  EXPECT_EQ(std::vector<double>(acc, acc + 6), sums);
  const double dot = skMissVal('.');
  for (const auto& [row, weight] : std::vector<std::pair<std::vector<double>, double>>{
           {{dot, 3, 1}, 1.0}, {{2, 3, skMissVal('Z')}, 1.0}, {{2, 3, 1}, 0.0}, {{2, 3, 1}, skMissVal('A')}}) {
    EXPECT_EQ(zscp(row.data(), 3, weight, acc), 0);
    EXPECT_EQ(std::vector<double>(acc, acc + 6), sums);
  }
}

TEST(Zvaxpy, ComputesCopiesAndNeverReadsYForZeroAlpha) {
  const double x[5] = {1, 2, 3, 4, 5};
  const double y[5] = {10, 20, 30, 40, 50};
  double z[5] = {};
  zvaxpy(z, x, y, 5, 0.5);  // odd n: the tail after the pairs
  for (int i = 0; i < 5; ++i) EXPECT_EQ(z[i], x[i] + 0.5 * y[i]) << i;
  double in_place[3] = {1, 2, 3};
  zvaxpy(in_place, in_place, y, 3, 2.0);
  EXPECT_EQ(in_place[2], 63.0);

  const double bad_y[3] = {std::numeric_limits<double>::quiet_NaN(), skMissVal('.'),
                           std::numeric_limits<double>::infinity()};
  double copy[3] = {9, 9, 9};
  zvaxpy(copy, x, bad_y, 3, 0.0);
  EXPECT_TRUE(copy[0] == 1.0 && copy[1] == 2.0 && copy[2] == 3.0);
  zvaxpy(copy, x, y, 0, 3.0);
  EXPECT_EQ(copy[0], 1.0);
}

// Missing values answer 1 and aren't counted; a value beyond maxval answers
// -1 and is counted; over an array the first problem decides.
TEST(Zmissr, ClassifiesValuesAndCountsTheTooLarge) {
  for (int entry = 0; entry < 28; ++entry) EXPECT_EQ(zmissr(qkmissv_table[entry], 100.0, nullptr), 1) << entry;
  struct Case {
    std::vector<double> x;
    int status;
    long count;
  };
  const Case kCases[] = {
      {{100.0, -100.0, 0.0}, 0, 0},         {{100.5}, -1, 1}, {{-1e300}, -1, 1}, {{1.0, 1e300, skMissVal('.')}, -1, 1},
      {{1.0, skMissVal('B'), 1e300}, 1, 0}, {{}, 0, 0},
  };
  for (const Case& c : kCases) {
    long count = 0;
    EXPECT_EQ(zmissrn(c.x.data(), static_cast<int>(c.x.size()), 100.0, &count), c.status);
    EXPECT_EQ(count, c.count);
  }
}

}  // namespace
