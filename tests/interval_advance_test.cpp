// Interval advancing (zintnx2), alignment (zintnx3) and sub-intervals
// (zintshft): the properties that tie advancing to counting over thousands
// of random dates, and the corner cases and refusals those don't reach.
// Custom intervals advance by their tables: custom_test.cpp.
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "host/host.h"
#include "intervals/interval.h"
#include "primitives/primitives.h"
#include "support/calendar_oracle.h"
#include "support/interval_cases.h"

namespace {

using cases::d;
using cases::same;

constexpr double kDot = esf::kMissing;

std::string show(double x) {
  if (esf::is_missing(x)) return ".";
  if (std::fabs(x) < 1e7 && x == std::floor(x)) return oracle::date_text(static_cast<long>(x));
  return std::to_string(x);
}

// zintnx2 when `align` is null, else zintnx3 with that alignment.
struct AdvanceCase {
  const char* name;
  double x;
  double n;
  double expect;
  const char* align = nullptr;
};

void run(const std::vector<AdvanceCase>& cases) {
  for (const AdvanceCase& c : cases) {
    INTERVAL iv = oracle::interval(c.name);
    const double got =
        c.align == nullptr ? zintnx2(&iv, c.x, c.n) : zintnx3(&iv, c.x, c.n, const_cast<tchar*>(c.align), nullptr);
    EXPECT_TRUE(same(got, c.expect)) << c.name << " " << (c.align ? c.align : "") << " from " << show(c.x) << " by "
                                     << c.n << ": got " << show(got) << ", expected " << show(c.expect);
  }
}

// ---- zintnx2: corner cases ------------------------------------------------------
//
// Every calendar with its multiples and shifts is tied to counting by the
// properties below, and counting to std::chrono and walks in the counting
// tests. What is left: the rounding of the count, values inside a day or
// second, negative values, plain numbers, and the refusals.
TEST(AdvanceEdges, RoundingFractionsPlainNumbersAndRefusals) {
  run({
      // A count within 1e-12 of a whole number is that number.
      {"MONTH", d(2001, 3, 15), 10.9999999999999, d(2002, 2, 1)},
      {"MONTH", d(2001, 3, 15), 10.99999, d(2002, 1, 1)},
      {"SECOND", 10.5, 3, 13},
      {"HOUR", -1, 0, -3600},
      {"DTDAY", 86399.5, 1, 86400},
      {"DTWEEKDAY", 86400 * 1.5, 0, 0},  // Saturday 2 January 1960 goes back to Friday
      {"OBS3", -1, 0, -3},
      {"OBS3.2", 7, 1, 10},  // the shift is added to the result (counting ignores it)
      {"NONE", 7.5, 2, 9},
      {"NONE", 1e200, 0, 1e200},
      // Refusals.
      {"DAY", static_cast<double>(kMaxDate), 1, kDot},
      {"DAY", static_cast<double>(kMaxDate), 0, static_cast<double>(kMaxDate)},
      {"DAY", static_cast<double>(kMinDate) - 1, 1, kDot},  // the start lies outside too
      {"WEEK", static_cast<double>(kMinDate), 0, kDot},     // its Sunday lies before 1582
      {"YEAR", d(1582, 6, 1), 0, static_cast<double>(kMinDate)},
      {"DAY", 0, 9007199254740992.0, kDot},  // within 2^53, beyond the overflow limit
      {"YEARV1000", 0, 1e12, kDot},
      {"DTOBS", 3, 1, kDot},
  });
  INTERVAL hour_on_dates = oracle::interval("HOUR");
  hour_on_dates.units = kUnitsDate;  // advancing takes no date values for a time interval
  EXPECT_TRUE(esf::is_missing(zintnx2(&hour_on_dates, 3.0, 1.0)));
  const double bad[][2] = {{esf::missing_letter('A'), 1},
                           {esf::missing_letter('I'), 1},
                           {100, 1e300},
                           {100, kDot},
                           {100, -9007199254740994.0},
                           {100, std::nan("")}};
  for (const char* name : {"NONE", "OBS", "SECOND", "WEEKDAY", "MONTH", "YEARV", "DTMONTH"}) {
    INTERVAL iv = oracle::interval(name);
    for (const auto& b : bad)
      EXPECT_TRUE(esf::is_missing(zintnx2(&iv, b[0], b[1]))) << name << " " << b[0] << " " << b[1];
  }
}

// ---- zintnx3 ------------------------------------------------------------------------------

// That "E" gives the last day or second of a period the property below
// checks for every interval; these rows are the other alignments and limits.
TEST(AlignBuiltIn, BeginMiddleEndAndSamePlace) {
  run({
      {"MONTH", d(2001, 2, 15), 0, d(2001, 2, 14), "M"},
      {"MONTH", d(2001, 3, 15), 0, d(2001, 3, 16), "M"},
      {"MONTH", d(2001, 2, 15), 0, d(2001, 2, 28), "END"},  // only the first character counts
      {"MONTH", d(2001, 2, 15), 0, d(2001, 2, 1), "e"},     // and its case matters
      {"MONTH", d(2001, 2, 15), 0, d(2001, 2, 1), "X"},
      {"DTDAY", 86400.0 * 5 + 7, 0, 86400.0 * 5 + 43199, "M"},
      {"MONTH", d(2001, 2, 15), kDot, kDot, "B"},
      {"MONTH", static_cast<double>(kMaxDate), 1, kDot, "E"},
      {"MONTH", d(20000, 12, 1), 0, kDot, "E"},  // the end lies beyond the last date
      {"MONTH", d(20000, 12, 1), 0, d(20000, 12, 1), "B"},
      // The same place in the target interval, clipped to its end.
      {"MONTH", d(2001, 1, 31), 1, d(2001, 2, 28), "S"},  // clipped to the end of February
      {"YEAR", d(2000, 2, 29), 1, d(2001, 2, 28), "S"},
      {"YEAR", d(2000, 2, 29), 4, d(2004, 2, 29), "S"},
      {"TENDAY", d(2001, 3, 31), 1, d(2001, 4, 10), "S"},  // day 11 of an 11-day third
      {"YEARV", d(2004, 12, 29), 1, d(2006, 1, 1), "S"},   // week 53 has no place in ISO 2005
      {"OBS3", 7, 1, 10, "S"},
  });
  // The record of the sub-interval "S" uses is built once, then used.
  INTERVAL year = oracle::interval("YEAR");
  tchar same[] = "S";
  INTERVAL cleared{};
  EXPECT_EQ(zintnx3(&year, d(2001, 2, 15), 1, same, &cleared), d(2002, 2, 15));
  EXPECT_EQ(cleared.intcode, kIntMonth) << "a cleared record is filled for the next call";
  // A given record is taken as it is: weeks into the year, days into the week.
  INTERVAL weeks = oracle::interval("WEEK");
  EXPECT_EQ(zintnx3(&year, d(2001, 2, 15), 1, same, &weeks), d(2002, 2, 14));
  EXPECT_EQ(weeks.intcode, kIntWeek);
}

// ---- zintshft -------------------------------------------------------------------------------

TEST(SubInterval, NextFinerIntervalsOrAClearedRecord) {
  const struct {
    const char* name;
    const char* sub;
  } cases[] = {
      {"NONE", "NONE"},   {"OBS3", "OBS"},        {"MINUTE5.3", "MINUTE"},       {"DAY3", "DAY"},
      {"WEEK2.3", "DAY"}, {"QTR.2", "MONTH"},     {"WEEKDAY67W2", "WEEKDAY67W"}, {"TENDAY2", "TENDAY"},
      {"YEARV", "WEEKV"}, {"DTYEARV", "DTWEEKV"}, {"R454YR", "R454MON"},         {"DTWEEKDAY1W", "DTWEEKDAY1W"},
  };
  for (const auto& c : cases) {
    INTERVAL iv = oracle::interval(c.name);
    INTERVAL sub{};
    EXPECT_EQ(zintshft(&iv, &sub), 0) << c.name;
    const INTERVAL expect = oracle::interval(c.sub);
    // The printed name holds the multiplier and shift.
    EXPECT_EQ(cases::text_of(sub), cases::text_of(expect)) << c.name;
    EXPECT_EQ(sub.units, expect.units) << c.name;
  }
  // Codes without a finer interval clear the record.
  for (const int code : {28, 38, 21, 66}) {
    INTERVAL iv = oracle::interval("MONTH");
    iv.intcode = static_cast<char>(code);
    INTERVAL sub = oracle::interval("DAY");
    EXPECT_EQ(zintshft(&iv, &sub), 2) << code;
    EXPECT_EQ(sub.intcode, 0);
    EXPECT_EQ(sub.units, 0);
  }
}

// ---- Properties over the whole range ------------------------------------------------------

const char* const kPropertyIntervals[] = {
    "DAY",         "DAY3.2",   "WEEK",         "WEEK2.3",    "WEEKV",     "WEEKDAY",    "WEEKDAY17W3.2",
    "WEEKDAY246W", "TENDAY",   "TENDAY3.2",    "SEMIMONTH",  "MONTH",     "MONTH5.3",   "QTR",
    "QTR.3",       "SEMIYEAR", "YEAR",         "YEAR2.14",   "YEARV",     "YEARV3.60",  "R445MON",
    "R454QTR",     "R544YR.5", "DTDAY",        "DTMONTH",    "DTWEEKDAY", "DTYEARV",    "SECOND",
    "MINUTE",      "HOUR4.2",  "MINUTE15.7",   "SECOND10.3", "R445QTR",   "R454MON2",   "YEARV2.53",
    "WEEKDAY2",    "WEEK.2",   "SEMIMONTH2.2", "QTR.2",      "WEEKDAY1W", "WEEKDAY67W", "R544MON",
};

// Advancing by n and counting back gives n; the result is the begin of its
// interval, which counts 0 from every value inside and 1 from the value
// before it (a day, or a second for datetimes); the end and middle lie
// inside; "S" lands in the same interval. With counting checked against
// std::chrono and walks (interval_count_test.cpp) this fixes every begin.
TEST(AdvanceProperties, AdvanceAndCountAreInverse) {
  oracle::Dates dates(1234);
  tchar e[] = "E";
  tchar m[] = "M";
  tchar s[] = "S";
  for (const char* name : kPropertyIntervals) {
    INTERVAL iv = oracle::interval(name);
    const double scale = iv.units == kUnitsDatetime ? 86400.0 : 1.0;
    for (int i = 0; i < 1500; ++i) {
      const double x = dates.inner(60000) * scale + (scale > 1 ? dates.between(0, 86399) : 0);
      const double n = static_cast<double>(dates.between(-40, 40));
      const std::string at = std::string(name) + " from " + show(x / scale) + " by " + std::to_string(n);
      const double begin = zintnx2(&iv, x, n);
      ASSERT_FALSE(esf::is_missing(begin)) << at;
      ASSERT_EQ(zintck2(&iv, x, begin), n) << at;
      ASSERT_EQ(zintnx2(&iv, begin, 0), begin) << at;
      ASSERT_EQ(zintck2(&iv, begin - 1, begin), 1.0) << at;
      const double own_begin = zintnx2(&iv, x, 0);
      ASSERT_LE(own_begin, x) << at;
      ASSERT_EQ(zintck2(&iv, own_begin, x), 0.0) << at;
      const double end = zintnx3(&iv, x, n, e, nullptr);
      ASSERT_EQ(zintck2(&iv, begin, end), 0.0) << at;
      ASSERT_EQ(zintck2(&iv, end, end + 1), 1.0) << at;
      const double middle = zintnx3(&iv, x, n, m, nullptr);
      ASSERT_LE(begin, middle) << at;
      ASSERT_LE(middle, end) << at;
      ASSERT_EQ(zintck2(&iv, x, zintnx3(&iv, x, n, s, nullptr)), n) << at << " S";
    }
  }
}

}  // namespace
