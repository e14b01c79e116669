// Tests of the normal distribution functions and the small numerics.
//
// Reference values: mpmath 1.3.0 at 60 significant digits, each evaluated at
// the exact double that the test passes, rounded to the nearest double.
// Quantiles were found with mpmath.findroot on ln Phi(x) = ln p (lower half)
// or ln Phi(-x) = ln(1 - p) (upper half), so that 1 - p is exact; the log
// tails are ln Phi(x) for x <= 0 and log1p(-Phi(-x)) above.
#include <gtest/gtest.h>

#include <bit>
#include <climits>
#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

#include "numeric/numeric.h"
#include "primitives/primitives.h"

namespace {

struct ArgRef {
  double arg;
  double ref;
};

double rel_err(double got, double ref) {
  if (ref == 0.0) return std::fabs(got);
  return std::fabs(got - ref) / std::fabs(ref);
}

// Phi(x) falls like exp(-x^2/2).  The fixed arithmetic forms x/sqrt(2), its
// square and exp() of the whole exponent in double precision, so one
// rounding of the exponent moves a tail value by about x^2 * 1.1e-16
// relative: the bound grows with x^2 beyond the flat 1e-14.
double tail_tolerance(double x) { return 1e-14 + 2.5e-16 * x * x; }

// ---------------------------------------------------------------------------
// zprobit
// ---------------------------------------------------------------------------

constexpr ArgRef kQuantiles[] = {
    {1e-300, -37.0470962993612},
    {1e-290, -36.420731673207996},
    {1e-280, -35.78342139466302},
    {1e-270, -35.13457108169202},
    {1e-260, -34.473530546165776},
    {1e-250, -33.79958617269484},
    {1e-240, -33.11195190498638},
    {1e-230, -32.409758515589346},
    {1e-220, -31.69204074177796},
    {1e-210, -30.95772174491063},
    {1e-200, -30.20559417957964},
    {1e-190, -29.43429692247552},
    {1e-180, -28.64228617928618},
    {1e-170, -27.827799215194567},
    {1e-160, -26.988808268418403},
    {1e-150, -26.122961190593983},
    {1e-140, -25.22750382094229},
    {1e-130, -24.299176717508363},
    {1e-120, -23.334075067341868},
    {1e-110, -22.327454339592123},
    {1e-100, -21.273453560965326},
    {1e-90, -20.164689059718683},
    {1e-80, -18.991635878820208},
    {1e-70, -17.741643174195335},
    {1e-60, -16.39727821271871},
    {1e-50, -14.933337534788489},
    {1e-40, -13.31092137142517},
    {1e-30, -11.464024688443615},
    {1e-20, -9.262340089798407},
    {3.7e-17, -8.340463343630109},
    {9.99e-17, -8.222202174339422},
    {9.999999999999999e-17, -8.222082216130435},
    {1e-16, -8.222082216130435},
    {1.0000000000000002e-16, -8.222082216130435},
    {2.5e-16, -8.111496746364757},
    {1e-15, -7.941345326170997},
    {1e-14, -7.650628092935269},
    {1e-12, -7.034483825301132},
    {1e-10, -6.361340902404057},
    {1e-08, -5.612001244174789},
    {1e-06, -4.753424308822899},
    {1e-05, -4.264890793922825},
    {0.0001, -3.7190164854556804},
    {0.001, -3.0902323061678136},
    {0.00999, -2.3267232422562443},
    {0.01, -2.326347874040841},
    {0.0100001, -2.3263441220136003},
    {0.025, -1.9599639845400543},
    {0.05, -1.6448536269514726},
    {0.1, -1.2815515655446004},
    {0.2, -0.8416212335729142},
    {0.3, -0.5244005127080408},
    {0.4, -0.2533471031357997},
    {0.45, -0.12566134685507402},
    {0.49, -0.025068908258711057},
    {0.499, -0.002506630899571766},
    {0.4999999, -2.5066282747031063e-07},
    {0.5000001, 2.506628273311648e-07},
    {0.501, 0.002506630899571766},
    {0.51, 0.025068908258711057},
    {0.55, 0.12566134685507416},
    {0.6, 0.2533471031357997},
    {0.7, 0.5244005127080407},
    {0.8, 0.8416212335729144},
    {0.9, 1.2815515655446006},
    {0.95, 1.6448536269514722},
    {0.975, 1.9599639845400538},
    {0.99, 2.3263478740408408},
    {0.9900001, 2.3263516261008337},
    {0.999, 3.090232306167813},
    {0.9999, 3.7190164854557084},
    {0.99999, 4.264890793923841},
    {0.999999, 4.753424308817087},
    {0.9999999, 5.199337582290661},
    {0.99999999, 5.612001243305505},
    {0.999999999, 5.9978070196016375},
    {0.9999999999, 6.361340889697422},
    {0.99999999999, 6.706023143414748},
    {0.999999999999, 7.0344869100478356},
    {0.9999999999999, 7.3487545403000425},
    {0.99999999999999, 7.650730905155643},
    {0.999999999999999, 7.941444487415978},
    {0.9999999999999999, 8.209536151601387},
};

TEST(Zprobit, MatchesHighPrecisionQuantilesFrom1e300To1Minus1e16) {
  for (const ArgRef& c : kQuantiles) {
    SCOPED_TRACE(testing::Message() << "p = " << c.arg);
    const double got = zprobit(c.arg);
    // Relative 1e-14 everywhere except next to p = 0.5, where the quantile
    // tends to 0 while t = sqrt(-2 ln q) - sqrt(2 ln 2) is a difference of
    // two numbers near 1.18: there the error is absolute, a few 1e-16.
    const double tol = std::fmax(1e-14 * std::fabs(c.ref), 1e-15);
    EXPECT_NEAR(got, c.ref, tol);
  }
}

TEST(Zprobit, IsMonotoneAcrossBothBranchesAndTheCentre) {
  double prev = zprobit(1e-300);
  for (double lp = -299.9; lp < -0.31; lp += 0.1) {
    const double x = zprobit(std::pow(10.0, lp));
    ASSERT_GE(x, prev) << "p = 1e" << lp;
    prev = x;
  }
  for (double p = 0.49; p < 1.0; p += 0.001) {
    const double x = zprobit(p);
    ASSERT_GE(x, prev) << "p = " << p;
    prev = x;
  }
}

TEST(Zprobit, DocumentedValues) {
  EXPECT_NEAR(zprobit(0.975), 1.95996398454005, 1e-14);
  EXPECT_NEAR(zprobit(0.001), -3.09023230616781, 1e-14);
  EXPECT_NEAR(zprobit(0.0), -37.64030867301702, 1e-13);
  EXPECT_EQ(zprobit(0.0), -std::sqrt(1416.792837));
  EXPECT_EQ(zprobit(1.0), 7.941345326170997);
}

TEST(Zprobit, HalfIsNegativeZero) {
  const double x = zprobit(0.5);
  EXPECT_EQ(x, 0.0);
  EXPECT_TRUE(std::signbit(x));
}

TEST(Zprobit, NewtonAndRationalBranchesJoinAt1e16) {
  const double at = 1e-16;                              // rational branch
  const double below = std::nextafter(at, 0.0);         // Newton branch
  EXPECT_LT(rel_err(zprobit(below), zprobit(at)), 1e-14);
  // szprobit is the Newton branch by itself; it agrees with the rational
  // branch where both apply.
  EXPECT_LT(rel_err(szprobit(at), zprobit(at)), 1e-14);
  EXPECT_EQ(szprobit(1e-20), zprobit(1e-20));
}

// ---------------------------------------------------------------------------
// erf, erfc and Phi
// ---------------------------------------------------------------------------

struct ErfRef {
  double x;
  double erf;
  double erfc;
};

constexpr ErfRef kErf[] = {
    {-26.0, -1.0, 2.0},
    {-10.0, -1.0, 2.0},
    {-5.0, -0.9999999999984626, 1.9999999999984626},
    {-4.01, -0.9999999858030606, 1.9999999858030606},
    {-4.0, -0.9999999845827421, 1.999999984582742},
    {-3.0, -0.9999779095030014, 1.9999779095030015},
    {-1.0, -0.8427007929497149, 1.8427007929497148},
    {-0.5, -0.5204998778130465, 1.5204998778130465},
    {-0.46875, -0.49261347321793797, 1.492613473217938},
    {-0.2, -0.22270258921047847, 1.2227025892104784},
    {-1e-10, -1.1283791670955126e-10, 1.000000000112838},
    {1e-17, 1.1283791670955127e-17, 1.0},
    {1e-10, 1.1283791670955126e-10, 0.999999999887162},
    {0.2, 0.22270258921047847, 0.7772974107895215},
    {0.46875, 0.49261347321793797, 0.507386526782062},
    {0.47, 0.4937450508860821, 0.5062549491139179},
    {1.0, 0.8427007929497149, 0.15729920705028513},
    {2.0, 0.9953222650189527, 0.004677734981047266},
    {3.0, 0.9999779095030014, 2.209049699858544e-05},
    {3.99, 0.9999999832607886, 1.6739211364520814e-08},
    {4.0, 0.9999999845827421, 1.541725790028002e-08},
    {4.01, 0.9999999858030606, 1.4196939421371052e-08},
    {5.0, 0.9999999999984626, 1.537459794428035e-12},
    {10.0, 1.0, 2.088487583762545e-45},
    {20.0, 1.0, 5.395865611607901e-176},
    {26.5, 1.0, 2.2109076642637343e-307},
};

TEST(Calerf, MatchesHighPrecisionErfAndErfc) {
  for (const ErfRef& c : kErf) {
    SCOPED_TRACE(testing::Message() << "x = " << c.x);
    double erf_x = 0.0;
    double erfc_x = 0.0;
    calerf(c.x, &erf_x, 0);
    calerf(c.x, &erfc_x, 1);
    EXPECT_LE(rel_err(erf_x, c.erf), 1e-15);
    EXPECT_LE(rel_err(erfc_x, c.erfc), 1e-15);
    EXPECT_EQ(zferf(c.x), erf_x);
    EXPECT_EQ(zferfc(c.x), erfc_x);
  }
}

TEST(Calerf, FarArgumentsGiveTheLimits) {
  struct Case {
    double x, erf, erfc;
  };
  constexpr Case kCases[] = {
      {1004.0, 1.0, 0.0},    // beyond 1003.78: tail 0 at once
      {-1004.0, -1.0, 2.0},  // mirrored
      {27.0, 1.0, 0.0},      // -x^2 below the exponent limit
      {-27.0, -1.0, 2.0},
  };
  for (const Case& c : kCases) {
    SCOPED_TRACE(testing::Message() << "x = " << c.x);
    double r = -5.0;
    calerf(c.x, &r, 0);
    EXPECT_EQ(r, c.erf);
    calerf(c.x, &r, 1);
    EXPECT_EQ(r, c.erfc);
  }
}

constexpr ArgRef kPhi[] = {
    {-37.5, 4.605353009581955e-308},
    {-37.0, 5.725571222524577e-300},
    {-35.0, 1.1249107064724062e-268},
    {-30.0, 4.906713927148187e-198},
    {-25.0, 3.056696706382561e-138},
    {-20.0, 2.7536241186062337e-89},
    {-15.0, 3.670966199312751e-51},
    {-10.0, 7.619853024160525e-24},
    {-8.0, 6.220960574271784e-16},
    {-6.0, 9.86587645037698e-10},
    {-5.0, 2.866515718791939e-07},
    {-4.0, 3.1671241833119924e-05},
    {-3.0, 0.0013498980316300946},
    {-2.0, 0.02275013194817921},
    {-1.5, 0.06680720126885807},
    {-1.0, 0.15865525393145705},
    {-0.7, 0.24196365222307303},
    {-0.5, 0.3085375387259869},
    {-0.3, 0.3820885778110474},
    {-0.1, 0.460172162722971},
    {-1e-08, 0.4999999960105772},
    {1e-08, 0.5000000039894228},
    {0.1, 0.539827837277029},
    {0.3, 0.6179114221889527},
    {0.5, 0.6914624612740131},
    {1.0, 0.8413447460685429},
    {2.0, 0.9772498680518208},
    {3.0, 0.9986501019683699},
    {5.0, 0.9999997133484281},
    {8.0, 0.9999999999999993},
};

TEST(Zprbnrm, MatchesHighPrecisionPhi) {
  for (const ArgRef& c : kPhi) {
    SCOPED_TRACE(testing::Message() << "x = " << c.arg);
    EXPECT_LE(rel_err(zprbnrm(c.arg), c.ref), tail_tolerance(c.arg));
  }
}

TEST(Zprbnrm, CentreAndUnderflow) {
  EXPECT_EQ(zprbnrm(0.0), 0.5);
  EXPECT_GT(zprbnrm(-37.0), 0.0);
  EXPECT_EQ(zprbnrm(-38.0), 0.0);  // -x^2/2 is past the exponent limit
  EXPECT_EQ(zprbnrm(40.0), 1.0);
}

// ---------------------------------------------------------------------------
// zlognrm
// ---------------------------------------------------------------------------

struct LogTailRef {
  double x;
  double lpl;  // ln Phi(x)
  double lpr;  // ln(1 - Phi(x))
};

constexpr LogTailRef kLogTails[] = {
    {-38.6, -749.5528608462079, -0.0},
    {-37.0, -689.0305855768906, -5.725571222524577e-300},
    {-20.0, -203.91715537109727, -2.7536241186062337e-89},
    {-10.0, -53.23128515051247, -7.619853024160525e-24},
    {-6.0, -20.736768949974707, -9.865876455243758e-10},
    {-5.0, -15.064998393988725, -2.866516129637636e-07},
    {-4.9, -14.551182689355313, -4.79183391398662e-07},
    {-3.0, -6.607726221510349, -0.0013508099647481938},
    {-1.0, -1.8410216450092636, -0.17275377902344988},
    {-0.1, -0.7761545927302733, -0.6165050101150263},
    {0.1, -0.6165050101150263, -0.7761545927302733},
    {1.0, -0.17275377902344988, -1.8410216450092636},
    {3.0, -0.0013508099647481938, -6.607726221510349},
    {4.9, -4.79183391398662e-07, -14.551182689355313},
    {5.0, -2.866516129637636e-07, -15.064998393988725},
    {6.0, -9.865876455243758e-10, -20.736768949974707},
    {10.0, -7.619853024160525e-24, -53.23128515051247},
    {20.0, -2.7536241186062337e-89, -203.91715537109727},
    {37.0, -5.725571222524577e-300, -689.0305855768906},
};

TEST(Zlognrm, MatchesHighPrecisionLogTails) {
  for (const LogTailRef& c : kLogTails) {
    SCOPED_TRACE(testing::Message() << "x = " << c.x);
    double lpl = 0.0;
    double lpr = 0.0;
    double ldens = 0.0;
    ASSERT_EQ(zlognrm(c.x, &lpl, &lpr, &ldens), 0);
    EXPECT_LE(rel_err(lpl, c.lpl), tail_tolerance(c.x));
    EXPECT_LE(rel_err(lpr, c.lpr), tail_tolerance(c.x));
    EXPECT_NEAR(ldens, -0.5 * c.x * c.x - 0.9189385332046728, 1e-15 * (1.0 + c.x * c.x));
  }
}

TEST(Zlognrm, DocumentedValues) {
  double lpl = 0.0;
  double lpr = 0.0;
  double ldens = 0.0;
  ASSERT_EQ(zlognrm(0.0, &lpl, &lpr, &ldens), 0);
  EXPECT_EQ(lpl, std::log(0.5));
  EXPECT_EQ(lpr, std::log(0.5));

  ASSERT_EQ(zlognrm(-10.0, &lpl, &lpr, &ldens), 0);
  EXPECT_NEAR(lpl, -53.23128515, 1e-8);
  EXPECT_NEAR(lpl, std::log(zprbnrm(-10.0)), 1e-13);

  // Phi(-38.6) underflows, its logarithm does not.
  ASSERT_EQ(zprbnrm(-38.6), 0.0);
  ASSERT_EQ(zlognrm(-38.6, &lpl, &lpr, &ldens), 0);
  EXPECT_TRUE(std::isfinite(lpl));
  EXPECT_LT(lpl, -700.0);
}

// ---------------------------------------------------------------------------
// zprbigs
// ---------------------------------------------------------------------------

struct IgRef {
  double x, d, ref;
};

constexpr IgRef kInverseGaussian[] = {
    {0.5, 1.0, 0.3649755481729599},
    {1.0, 1.0, 0.6681020012231706},
    {2.0, 1.0, 0.8854754259860065},
    {0.1, 3.0, 7.53423180027743e-07},
    {3.0, 0.5, 0.932163671395514},
    {1.0, 20.0, 0.5440652680922194},
    {0.2, 50.0, 9.441863573811567e-37},
    {10.0, 0.01, 0.983355627943212},
    {4.0, 9.0, 0.999998697465363},
};

TEST(Zprbigs, MatchesHighPrecisionInverseGaussianCdf) {
  for (const IgRef& c : kInverseGaussian) {
    SCOPED_TRACE(testing::Message() << "x = " << c.x << ", d = " << c.d);
    // Both terms are exponentials of arguments of size about d(1 + x)^2/x;
    // the bound grows with that exponent as for Phi.
    const double s = std::sqrt(c.x);
    const double a = std::sqrt(c.d) * (1.0 / s + s);
    EXPECT_LE(rel_err(zprbigs(c.x, c.d), c.ref), tail_tolerance(a));
  }
}

TEST(Zprbigs, ZeroAtZeroForAnyShape) {
  for (double d : {0.01, 1.0, 50.0, 1e6}) EXPECT_EQ(zprbigs(0.0, d), 0.0) << d;
}

TEST(Zprbigs, LargeShapeDoesNotOverflow) {
  // exp(2d) alone overflows; the large-argument form keeps E finite.
  const double v = zprbigs(1.0, 400.0);
  EXPECT_TRUE(std::isfinite(v));
  EXPECT_NEAR(v, 0.5, 0.02);
}

// ---------------------------------------------------------------------------
// Small numerics
// ---------------------------------------------------------------------------

constexpr ArgRef kLn1p[] = {
    {-0.5, -0.6931471805599453},
    {-0.03125, -0.0317486983145803},
    {-0.01, -0.010050335853501442},
    {-1e-05, -1.0000050000333337e-05},
    {-1e-20, -1e-20},
    {1e-20, 1e-20},
    {1e-10, 9.999999999500001e-11},
    {1e-05, 9.999950000333332e-06},
    {0.001, 0.0009995003330835331},
    {0.01, 0.009950330853168083},
    {0.03, 0.0295588022415444},
    {0.03125, 0.030771658666753687},
    {0.03126, 0.030781355589435355},
    {0.1, 0.09531017980432487},
    {1.0, 0.6931471805599453},
    {10.0, 2.3978952727983707},
    {10000000000.0, 23.025850930040455},
};

TEST(Zln1px, MatchesHighPrecisionLog1p) {
  for (const ArgRef& c : kLn1p) {
    SCOPED_TRACE(testing::Message() << "z = " << c.arg);
    const double got = zln1px(c.arg);
    if (std::fabs(c.arg) <= 0.03125) {
      EXPECT_LE(rel_err(got, c.ref), 1e-15);  // the series keeps relative accuracy
    } else {
      EXPECT_NEAR(got, c.ref, 1e-15 * std::fmax(1.0, std::fabs(c.ref)));
    }
  }
}

TEST(Zln1px, EdgeValues) {
  EXPECT_EQ(zln1px(0.0), 0.0);
  EXPECT_EQ(zln1px(1e-20), 1e-20);
  EXPECT_EQ(zln1px(0.03126), std::log(0.03126 + 1.0));  // the library branch
  EXPECT_NE(zln1px(0.03125), 0.0);
}

TEST(ZlnSumOfExp, LargeEqualAndFarApartArguments) {
  EXPECT_EQ(zlnSumOfExp(1000.0, 1000.0), 1000.0 + 0.6931471805599453);
  EXPECT_NEAR(zlnSumOfExp(1000.0, 1000.0), 1000.6931471805599, 1e-12);
  EXPECT_EQ(zlnSumOfExp(0.0, -1000.0), 0.0);
  EXPECT_EQ(zlnSumOfExp(-1000.0, 0.0), 0.0);
  EXPECT_NEAR(zlnSumOfExp(std::log(2.0), std::log(3.0)), std::log(5.0), 1e-15);
  EXPECT_EQ(zlnSumOfExp(-3.0, 5.0), zlnSumOfExp(5.0, -3.0));
}

constexpr ArgRef kMills[] = {
    {-12.0, 4.658999149986945e+31},
    {-10.0, 1.2996129473592023e+22},
    {-5.0, 672621.6367228793},
    {-1.0, 3.4770518117036944},
    {0.0, 1.2533141373155003},
    {0.5, 0.8763644564536923},
    {1.0, 0.6556795424187984},
    {3.0, 0.3045902987101033},
    {4.99, 0.1931683511618671},
    {5.0, 0.19280810471531576},
    {7.0, 0.14010418345305023},
    {10.0, 0.09902859647173193},
    {30.0, 0.03329641907249721},
    {100.0, 0.009999000299850106},
    {100000.0, 9.999999999e-06},
};

TEST(Zmillsr, MatchesHighPrecisionMillsRatio) {
  for (const ArgRef& c : kMills) {
    SCOPED_TRACE(testing::Message() << "x = " << c.arg);
    double r = 0.0;
    ASSERT_EQ(zmillsr(c.arg, &r), 0);
    EXPECT_LE(rel_err(r, c.ref), 1e-14);
  }
}

TEST(Zmillsr, DocumentedValues) {
  double r = 0.0;
  ASSERT_EQ(zmillsr(0.0, &r), 0);
  EXPECT_NEAR(r, 1.2533141373155003, 1e-15);
  ASSERT_EQ(zmillsr(5.0, &r), 0);
  EXPECT_NEAR(r, 0.1928081047153158, 1e-16);
  ASSERT_EQ(zmillsr(10.0, &r), 0);
  EXPECT_NEAR(r, 0.09902859647173193, 1e-16);
}

TEST(Zcnfmill, AgreesWithTheDirectFormBelowFive) {
  for (double x : {2.0, 3.0, 4.0, 4.9}) {
    double fraction = 0.0;
    double direct = 0.0;
    ASSERT_EQ(zcnfmill(x, &fraction), 0) << x;
    ASSERT_EQ(zmillsr(x, &direct), 0) << x;
    EXPECT_LE(rel_err(fraction, direct), 1e-14) << x;
  }
}

TEST(Zcnfmill, SlowFractionReportsNoConvergence) {
  // At x = 0.5 the convergents creep; 101 of them are not enough.
  double r = 0.0;
  EXPECT_EQ(zcnfmill(0.5, &r), 1);
  EXPECT_TRUE(std::isfinite(r));
  EXPECT_GT(r, 0.0);
}

TEST(Zisub, PacksTheLowerTriangleByRows) {
  struct Case {
    int i, j;
    long place;
  };
  constexpr Case kCases[] = {
      {0, 0, 0},
      {1, 0, 1},
      {1, 1, 2},
      {2, 1, 4},
      {1, 2, 4},       // either order
      {200, 3, 20103}, // long form above row 180
      {3, 200, 20103},
      {180, 180, 16470},
      {181, 0, 16471},
      {70000, 1, 2450035001L},  // beyond 32 bits
  };
  for (const Case& c : kCases) {
    EXPECT_EQ(zisub(c.i, c.j), c.place) << c.i << "," << c.j;
  }
  // Places run without a gap row by row across the switch at row 180.
  long expected = 0;
  for (int i = 0; i < 400; ++i) {
    for (int j = 0; j <= i; ++j) {
      ASSERT_EQ(zisub(i, j), expected) << i << "," << j;
      ASSERT_EQ(esf::packed_index(j, i), expected);
      ++expected;
    }
  }
}

TEST(MinLmin, SmallerOfTwo) {
  EXPECT_EQ(min(3, -4), -4);
  EXPECT_EQ(min(INT_MIN, INT_MAX), INT_MIN);
  EXPECT_EQ(lmin(5L, 5L), 5L);
  EXPECT_EQ(lmin(LONG_MAX, -1L), -1L);
}

TEST(Zscp, AddsWeightedCrossProducts) {
  double sscp[3] = {0.0, 0.0, 0.0};
  const double data[2] = {2.0, 3.0};
  ASSERT_EQ(zscp(data, 2, 1.0, sscp), 1);
  EXPECT_EQ(sscp[0], 4.0);
  EXPECT_EQ(sscp[1], 6.0);
  EXPECT_EQ(sscp[2], 9.0);
  // Accumulates, with the weight.
  ASSERT_EQ(zscp(data, 2, 0.5, sscp), 1);
  EXPECT_EQ(sscp[0], 6.0);
  EXPECT_EQ(sscp[1], 9.0);
  EXPECT_EQ(sscp[2], 13.5);
}

TEST(Zscp, MatchesElementwiseSumsOverManyRows) {
  constexpr int kNv = 5;
  double sscp[kNv * (kNv + 1) / 2] = {};
  double expected[kNv * (kNv + 1) / 2] = {};
  for (int row = 0; row < 40; ++row) {
    double data[kNv];
    for (int k = 0; k < kNv; ++k) data[k] = (row % 3 == 0 && k == 2) ? 0.0 : std::sin(row * 7.0 + k);
    const double weight = 1.0 + row % 4;
    ASSERT_EQ(zscp(data, kNv, weight, sscp), 1);
    for (int i = 0; i < kNv; ++i) {
      if (data[i] == 0.0) continue;
      for (int j = 0; j <= i; ++j) expected[zisub(i, j)] += data[i] * weight * data[j];
    }
  }
  for (int p = 0; p < kNv * (kNv + 1) / 2; ++p) EXPECT_EQ(sscp[p], expected[p]) << p;
}

TEST(Zscp, RejectsMissingDataAndUnusableWeights) {
  const double before[3] = {1.0, 2.0, 3.0};
  struct Case {
    const char* what;
    double d0, d1, weight;
  };
  const Case kCases[] = {
      {"missing first value", skMissVal('.'), 3.0, 1.0},
      {"special missing second value", 2.0, skMissVal('Z'), 1.0},
      {"zero weight", 2.0, 3.0, 0.0},
      {"missing weight", 2.0, 3.0, skMissVal('A')},
  };
  for (const Case& c : kCases) {
    SCOPED_TRACE(c.what);
    double sscp[3] = {before[0], before[1], before[2]};
    const double data[2] = {c.d0, c.d1};
    EXPECT_EQ(zscp(data, 2, c.weight, sscp), 0);
    for (int p = 0; p < 3; ++p) EXPECT_EQ(std::bit_cast<std::uint64_t>(sscp[p]), std::bit_cast<std::uint64_t>(before[p]));
  }
}

TEST(Zvaxpy, ComputesAndCopies) {
  const double x[5] = {1, 2, 3, 4, 5};
  const double y[5] = {10, 20, 30, 40, 50};
  double z[5] = {};
  zvaxpy(z, x, y, 5, 0.5);  // odd n exercises the tail after the pairs
  for (int i = 0; i < 5; ++i) EXPECT_EQ(z[i], x[i] + 0.5 * y[i]) << i;

  double in_place[3] = {1, 2, 3};
  zvaxpy(in_place, in_place, y, 3, 2.0);
  EXPECT_EQ(in_place[0], 21.0);
  EXPECT_EQ(in_place[2], 63.0);

  double untouched[2] = {7.0, 8.0};
  zvaxpy(untouched, x, y, 0, 3.0);
  EXPECT_EQ(untouched[0], 7.0);
}

TEST(Zvaxpy, ZeroAlphaNeverReadsY) {
  const double x[3] = {1, 2, 3};
  const double bad_y[3] = {std::numeric_limits<double>::quiet_NaN(), skMissVal('.'),
                           std::numeric_limits<double>::infinity()};
  double z[3] = {9, 9, 9};
  zvaxpy(z, x, bad_y, 3, 0.0);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(z[i], x[i]);
  double same[3] = {4, 5, 6};
  zvaxpy(same, same, bad_y, 3, 0.0);
  EXPECT_EQ(same[1], 5.0);
}

TEST(Zmissr, ClassifiesEveryKindOfValue) {
  for (int entry = 0; entry < 28; ++entry) {
    long count = 0;
    EXPECT_EQ(zmissr(qkmissv_table[entry], 100.0, &count), 1) << entry;
    EXPECT_EQ(count, 0);
  }
  struct Case {
    double x;
    int status;
    long count_after;
  };
  constexpr Case kCases[] = {
      {0.0, 0, 0},
      {100.0, 0, 0},   // the limit itself is usable
      {-100.0, 0, 0},
      {100.5, -1, 1},
      {-1e300, -1, 1},
  };
  for (const Case& c : kCases) {
    long count = 0;
    EXPECT_EQ(zmissr(c.x, 100.0, &count), c.status) << c.x;
    EXPECT_EQ(count, c.count_after) << c.x;
    EXPECT_EQ(zmissr(c.x, 100.0, nullptr), c.status) << c.x;
  }
}

TEST(Zmissrn, TheEarlierProblemDecides) {
  struct Case {
    const char* what;
    std::vector<double> x;
    int status;
    long count_after;
  };
  const Case kCases[] = {
      {"large before missing", {1.0, 1e300, skMissVal('.')}, -1, 1},
      {"missing before large", {1.0, skMissVal('B'), 1e300}, 1, 0},
      {"all usable", {1.0, -10.0, 10.0}, 0, 0},
      {"empty", {}, 0, 0},
  };
  for (const Case& c : kCases) {
    long count = 0;
    EXPECT_EQ(zmissrn(c.x.data(), static_cast<int>(c.x.size()), 10.0, &count), c.status) << c.what;
    EXPECT_EQ(count, c.count_after) << c.what;
  }
}

}  // namespace
