// Interval advancing (zintnx2), alignment (zintnx3) and sub-intervals
// (zintshft): the properties that tie advancing to counting over thousands
// of random dates, cross-checks against std::chrono and a working-day walk,
// the corner cases and refusals those don't reach, and the custom seam.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "host/host.h"
#include "intervals/interval.h"
#include "primitives/primitives.h"
#include "support/calendar_oracle.h"
#include "support/interval_cases.h"

// ---- A stand-in for the custom-interval routines -----------------------------
//
// Periods of a pretend table: ten days each from day 0, "begin" and "end"
// computed here, so that the custom branches of zintnx2 and zintnx3 can be
// told apart from the built-in ones.
namespace fake_custom {
int calls = 0;
int references = 0;
double last_x = 0;
CINTC_INFO* const kInfo = reinterpret_cast<CINTC_INFO*>(&references);

double take(INTERVALX* ix, double x) {
  ++calls;
  last_x = x;
  ix->cinfo = kInfo;
  ++references;
  return 0.0;
}
}  // namespace fake_custom

extern "C" double customINTNX(INTERVALX* ix, double x, double n) {
  fake_custom::take(ix, x);
  if (esf::is_missing(x)) return n < 0 ? esf::missing_letter('M') : esf::missing_letter('I');
  return (std::floor(x / 10.0) + n) * 10.0;
}

extern "C" double customINTNXE(INTERVALX* ix, double x, double n) {
  fake_custom::take(ix, x);
  if (esf::is_missing(x)) return esf::missing_letter('I');
  return (std::floor(x / 10.0) + n) * 10.0 + 9.0;
}

extern "C" void zcintcReleaseRef(CINTC_INFO* cinfo) {
  if (cinfo == fake_custom::kInfo) --fake_custom::references;
}

namespace {

using cases::custom_record;
using cases::d;
using cases::same;
using oracle::fdiv;

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
    const double got = c.align == nullptr ? zintnx2(&iv, c.x, c.n)
                                          : zintnx3(&iv, c.x, c.n, const_cast<tchar*>(c.align), nullptr);
    EXPECT_TRUE(same(got, c.expect)) << c.name << " " << (c.align ? c.align : "") << " from " << show(c.x) << " by "
                                     << c.n << ": got " << show(got) << ", expected " << show(c.expect);
  }
}

// ---- zintnx2: corner cases ------------------------------------------------------
//
// Every calendar with its multiples and shifts is tied to counting by the
// properties below (and counting to std::chrono in the counting tests);
// plain calendars and working days are checked against std::chrono and a
// walk here. What is left: the rounding of the count, values inside a day
// or second, negative values, and plain numbers.
TEST(AdvanceEdges, RoundingFractionsAndPlainNumbers) {
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
  });
  INTERVAL hour_on_dates = oracle::interval("HOUR");
  hour_on_dates.units = kUnitsDate;  // advancing takes no date values for a time interval
  EXPECT_TRUE(esf::is_missing(zintnx2(&hour_on_dates, 3.0, 1.0)));
}

// ---- zintnx2: refusals ------------------------------------------------------------

TEST(AdvanceRefusals, MissingValuesCountsAndLimits) {
  for (const char* name : {"NONE", "OBS", "SECOND", "WEEKDAY", "MONTH", "YEARV", "DTMONTH"}) {
    INTERVAL iv = oracle::interval(name);
    EXPECT_TRUE(esf::is_missing(zintnx2(&iv, esf::missing_letter('A'), 1))) << name;
    EXPECT_TRUE(esf::is_missing(zintnx2(&iv, esf::missing_letter('I'), 1))) << name;
    EXPECT_TRUE(esf::is_missing(zintnx2(&iv, 100, 1e300))) << name;
    EXPECT_TRUE(esf::is_missing(zintnx2(&iv, 100, kDot))) << name;
    EXPECT_TRUE(esf::is_missing(zintnx2(&iv, 100, -9007199254740994.0))) << name;
    EXPECT_TRUE(esf::is_missing(zintnx2(&iv, 100, std::nan("")))) << name;
  }
  run({
      {"DAY", static_cast<double>(kMaxDate), 1, kDot},
      {"DAY", static_cast<double>(kMaxDate), 0, static_cast<double>(kMaxDate)},
      {"DAY", static_cast<double>(kMinDate) - 1, 1, kDot},  // the start lies outside too
      {"WEEK", static_cast<double>(kMinDate), 0, kDot},  // its Sunday lies before 1582
      {"YEAR", d(1582, 6, 1), 0, static_cast<double>(kMinDate)},
      {"DAY", 0, 9007199254740992.0, kDot},   // within 2^53, beyond the overflow limit
      {"WEEKDAY", 0, -9007199254740992.0, kDot},
      {"YEARV1000", 0, 1e12, kDot},
      {"TENDAY", 0, 1e15, kDot},
      {"DTOBS", 3, 1, kDot},
  });
}

TEST(AdvanceRefusals, CodesOutsideTheTablesGoToTheDebugOutput) {
  cases::expect_bad_codes_logged([](INTERVAL* iv) { return zintnx2(iv, 100.0, 1.0); },
                                 {{'d', 38, "zintnx2: yearbase: bad intcode=38"},
                                  {'d', 43, "zintnx2: yearbase: bad intcode=43"},
                                  {'s', 12, "zintnx2: bad intcode=12"}});
  INTERVAL no_working_day = oracle::interval("WEEKDAY");
  std::memset(no_working_day.weekend, 1, sizeof no_working_day.weekend);
  EXPECT_TRUE(esf::is_missing(zintnx2(&no_working_day, 0.0, 1.0)));
}

// ---- zintnx3 ------------------------------------------------------------------------------

TEST(AlignBuiltIn, BeginMiddleEndAndSamePlace) {
  run({
      {"MONTH", d(2001, 2, 15), 0, d(2001, 2, 28), "E"},
      {"MONTH", d(2001, 2, 15), 0, d(2001, 2, 14), "M"},
      {"MONTH", d(2001, 3, 15), 0, d(2001, 3, 16), "M"},
      {"MONTH", d(2001, 2, 15), 0, d(2001, 2, 28), "END"},  // only the first character counts
      {"MONTH", d(2001, 2, 15), 0, d(2001, 2, 1), "e"},     // and its case matters
      {"MONTH", d(2001, 2, 15), 0, d(2001, 2, 1), "X"},
      {"DTDAY", 86400.0 * 5 + 7, 0, 86400.0 * 6 - 1, "E"},  // the last second of the day
      {"DTDAY", 86400.0 * 5 + 7, 0, 86400.0 * 5 + 43199, "M"},
      {"HOUR", 3700, 0, 7199, "E"},
      {"MONTH", d(2001, 2, 15), kDot, kDot, "B"},
      {"MONTH", static_cast<double>(kMaxDate), 1, kDot, "E"},
      {"MONTH", d(20000, 12, 1), 0, kDot, "E"},  // the end lies beyond the last date
      {"MONTH", d(20000, 12, 1), 0, d(20000, 12, 1), "B"},
      // The same place in the target interval, clipped to its end.
      {"MONTH", d(2001, 1, 31), 1, d(2001, 2, 28), "S"},  // clipped to the end of February
      {"QTR", d(2001, 3, 31), 1, d(2001, 6, 30), "S"},
      {"YEAR", d(2000, 2, 29), 1, d(2001, 2, 28), "S"},
      {"YEAR", d(2000, 2, 29), 4, d(2004, 2, 29), "S"},
      {"TENDAY", d(2001, 3, 31), 1, d(2001, 4, 10), "S"},  // day 11 of an 11-day third
      {"SEMIMONTH", d(2001, 1, 31), 2, d(2001, 2, 28), "S"},
      {"YEARV", d(2004, 12, 29), 1, d(2006, 1, 1), "S"},  // week 53 has no place in ISO 2005
      {"DTMONTH", d(2001, 1, 31) * 86400 + 36900, 1, d(2001, 2, 28) * 86400 + 36900, "S"},
      {"HOUR", 3700, 2, 10900, "S"},
      {"OBS3", 7, 1, 10, "S"},
      {"NONE", 7.5, 1, 8.5, "S"},
  });
}

TEST(AlignBuiltIn, SubIntervalRecordIsBuiltOnceAndThenUsed) {
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

// ---- Custom intervals through the seam --------------------------------------------------

TEST(AdvanceCustom, TableEndsPassUnrounded) {
  INTERVAL iv = custom_record();
  fake_custom::calls = 0;
  EXPECT_EQ(zintnx2(&iv, 25.7, 1), 30.0);
  EXPECT_EQ(fake_custom::last_x, 25.0);
  const double plus_infinity = esf::missing_letter('I');
  EXPECT_EQ(esf::missing_kind(zintnx2(&iv, plus_infinity, 1)), esf::missing_kind(plus_infinity));
  EXPECT_EQ(esf::missing_kind(fake_custom::last_x), esf::missing_kind(plus_infinity));
  EXPECT_EQ(fake_custom::calls, 2);
  EXPECT_TRUE(esf::is_missing(zintnx2(&iv, esf::missing_letter('A'), 1)));
  EXPECT_TRUE(esf::is_missing(zintnx2(&iv, plus_infinity, kDot)));
  EXPECT_TRUE(esf::is_missing(zintnx2(&iv, plus_infinity, 1e300)));
  EXPECT_EQ(fake_custom::calls, 2);
  EXPECT_EQ(fake_custom::references, 0);
}

TEST(AdvanceCustom, AlignmentUsesTheTableEnd) {
  INTERVAL iv = custom_record();
  tchar b[] = "B";
  tchar e[] = "E";
  tchar m[] = "M";
  tchar s[] = "S";
  EXPECT_EQ(zintnx3(&iv, 25, 1, b, nullptr), 30.0);
  EXPECT_EQ(zintnx3(&iv, 25, 1, e, nullptr), 39.0);
  EXPECT_EQ(zintnx3(&iv, 25, 1, m, nullptr), 34.0);
  EXPECT_EQ(zintnx3(&iv, 25, 1, s, nullptr), 30.0);  // no same alignment: the begin
  // The period before the table begins at minus infinity: it has an end
  // but no middle.
  const double minus_infinity = esf::missing_letter('M');
  const double plus_infinity = esf::missing_letter('I');
  EXPECT_EQ(esf::missing_kind(zintnx3(&iv, minus_infinity, -1, b, nullptr)), esf::missing_kind(minus_infinity));
  EXPECT_EQ(esf::missing_kind(zintnx3(&iv, minus_infinity, -1, e, nullptr)), esf::missing_kind(plus_infinity));
  EXPECT_EQ(esf::missing_kind(zintnx3(&iv, minus_infinity, -1, m, nullptr)), esf::missing_kind(kDot));
  EXPECT_EQ(fake_custom::references, 0);
}

// ---- zintshft -------------------------------------------------------------------------------

TEST(SubInterval, NextFinerIntervals) {
  const struct {
    const char* name;
    const char* sub;
  } cases[] = {
      {"NONE", "NONE"},         {"OBS3", "OBS"},         {"MINUTE5.3", "MINUTE"},  {"DAY3", "DAY"},
      {"WEEK2.3", "DAY"},       {"WEEKV", "DAY"},        {"WEEKDAY67W2", "WEEKDAY67W"},
      {"TENDAY2", "TENDAY"},    {"QTR.2", "MONTH"},      {"YEAR.7", "MONTH"},      {"R445QTR", "R445MON"},
      {"R454YR", "R454MON"},    {"YEARV", "WEEKV"},      {"DTYEARV", "DTWEEKV"},   {"DTMONTH3", "DTMONTH"},
      {"DTWEEKDAY1W", "DTWEEKDAY1W"},
  };
  for (const auto& c : cases) {
    INTERVAL iv = oracle::interval(c.name);
    INTERVAL sub{};
    EXPECT_EQ(zintshft(&iv, &sub), 0) << c.name;
    const INTERVAL expect = oracle::interval(c.sub);
    EXPECT_EQ(cases::text_of(sub), cases::text_of(expect)) << c.name;
    EXPECT_EQ(sub.units, expect.units) << c.name;
    EXPECT_EQ(sub.intper, 1) << c.name;
    EXPECT_EQ(sub.shiftper, 0) << c.name;
  }
}

TEST(SubInterval, CodesWithoutOneClearTheRecord) {
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
    "DAY",      "DAY3.2",    "WEEK",      "WEEK2.3",  "WEEKV",   "WEEKDAY",    "WEEKDAY17W3.2", "WEEKDAY246W",
    "TENDAY",   "TENDAY3.2", "SEMIMONTH", "MONTH",    "MONTH5.3", "QTR",       "QTR.3",         "SEMIYEAR",
    "YEAR",     "YEAR2.14",  "YEARV",     "YEARV3.60", "R445MON", "R454QTR",    "R544YR.5",      "DTDAY",
    "DTMONTH",  "DTWEEKDAY", "DTYEARV",   "SECOND",   "MINUTE",  "HOUR4.2",    "MINUTE15.7",    "SECOND10.3",
    "R445QTR", "R454MON2",  "YEARV2.53", "WEEKDAY2", "WEEK.2",  "SEMIMONTH2.2",
};

// Advancing by n and counting back gives n; the result is the begin of its
// interval, which counts 0 from every value inside and 1 from the value
// before it (a day, or a second for datetimes); the end and middle lie
// inside; "S" lands in the same interval.
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

// ---- Cross-check against std::chrono --------------------------------------------------------

TEST(AdvanceCrossCheck, CalendarIntervalsAgreeWithChrono) {
  namespace chr = std::chrono;
  oracle::Dates dates(555);
  INTERVAL month = oracle::interval("MONTH");
  INTERVAL qtr = oracle::interval("QTR.2");
  INTERVAL semiyear = oracle::interval("SEMIYEAR");
  INTERVAL year = oracle::interval("YEAR");
  INTERVAL week = oracle::interval("WEEK");
  INTERVAL weekv = oracle::interval("WEEKV");
  INTERVAL yearv = oracle::interval("YEARV");
  INTERVAL tenday = oracle::interval("TENDAY");
  INTERVAL r445 = oracle::interval("R445MON");
  INTERVAL dtmonth = oracle::interval("DTMONTH");
  for (int i = 0; i < 20000; ++i) {
    const long x = dates.inner(8000);  // room for 20 years either way
    const long n = dates.between(-20, 20);
    const chr::sys_days day = oracle::sys_of(x);
    const chr::year_month_day ymd{day};
    const std::string at = oracle::date_text(x) + " by " + std::to_string(n);

    const chr::year_month ym = ymd.year() / ymd.month();
    const auto first_of = [](chr::year_month target) {
      return static_cast<double>((chr::sys_days{target / 1} - oracle::kEpoch).count());
    };
    ASSERT_EQ(zintnx2(&month, x, n), first_of(ym + chr::months{n})) << at;
    // Quarters from February: back to the last of February, May, August, November.
    const unsigned into_qtr = (static_cast<unsigned>(ymd.month()) + 10) % 3;
    ASSERT_EQ(zintnx2(&qtr, x, n), first_of(ym - chr::months{into_qtr} + chr::months{3 * n})) << at;
    const unsigned into_half = (static_cast<unsigned>(ymd.month()) - 1) % 6;
    ASSERT_EQ(zintnx2(&semiyear, x, n), first_of(ym - chr::months{into_half} + chr::months{6 * n})) << at;
    ASSERT_EQ(zintnx2(&year, x, n), first_of(chr::year_month{ymd.year() + chr::years{n}, chr::January})) << at;
    const chr::sys_days sunday = day - (chr::weekday{day} - chr::Sunday);
    ASSERT_EQ(zintnx2(&week, x, n), static_cast<double>((sunday + chr::weeks{n} - oracle::kEpoch).count())) << at;
    const chr::sys_days monday = day - (chr::weekday{day} - chr::Monday);
    ASSERT_EQ(zintnx2(&weekv, x, n), static_cast<double>((monday + chr::weeks{n} - oracle::kEpoch).count())) << at;
    const oracle::IsoWeek iso = oracle::iso_of(x);
    ASSERT_EQ(zintnx2(&yearv, x, n),
              static_cast<double>((oracle::iso_week1_monday(iso.year + static_cast<int>(n)) - oracle::kEpoch).count()))
        << at;
    // Thirds of months: number them, move, and turn back into a date.
    const unsigned dd = static_cast<unsigned>(ymd.day());
    const long third = 3 * oracle::month_index(x) + (dd > 10) + (dd > 20) + n;
    ASSERT_EQ(zintnx2(&tenday, x, n), oracle::month_start(fdiv(third, 3)) + 10.0 * (third - 3 * fdiv(third, 3))) << at;
    // Retail months: the ISO week's month in the week table, moved, back to its first Monday.
    long retail = 0;
    while (retail < 12 && r445mon_index[retail] < static_cast<int>(iso.week)) ++retail;
    const long target = (iso.year - 1960) * 12L + retail - 1 + n;
    const int target_year = static_cast<int>(fdiv(target, 12)) + 1960;
    const long target_month = target - 12 * fdiv(target, 12);
    ASSERT_EQ(zintnx2(&r445, x, n),
              static_cast<double>(oracle::iso_day_of(target_year, r445mon_index[target_month] + 1, 1)))
        << at;
    ASSERT_EQ(zintnx2(&dtmonth, x * 86400.0 + 4000, n), first_of(ym + chr::months{n}) * 86400.0) << at;
  }
}

// Working days: a walk one day at a time with std::chrono's weekdays.
TEST(AdvanceCrossCheck, WorkingDaysAgreeWithAWalk) {
  namespace chr = std::chrono;
  const struct {
    const char* name;
    unsigned weekend_mask;  // bit w: weekday w (0 Sunday) is off
  } cases[] = {{"WEEKDAY", 0x41}, {"WEEKDAY67W", 0x60}, {"WEEKDAY1W", 0x01}, {"WEEKDAY23456W", 0x3E}};
  oracle::Dates dates(8);
  for (const auto& c : cases) {
    INTERVAL iv = oracle::interval(c.name);
    const auto off = [&](long x) { return ((c.weekend_mask >> oracle::weekday_of(x)) & 1U) != 0; };
    for (int i = 0; i < 3000; ++i) {
      long x = dates.inner(200);
      const long n = dates.between(-25, 25);
      const long start = x;
      while (off(x)) --x;
      for (long k = 0; k < (n < 0 ? -n : n); ++k) {
        do {
          x += n < 0 ? -1 : 1;
        } while (off(x));
      }
      ASSERT_EQ(zintnx2(&iv, start, n), static_cast<double>(x)) << c.name << " " << oracle::date_text(start) << " by " << n;
    }
  }
}

}  // namespace
