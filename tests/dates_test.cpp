// Date primitives: the host's date routines, the shared civil and ISO-week
// arithmetic, year/week/day conversions, retail calendars and day counts.
// Expectations come from std::chrono (support/calendar_oracle.h), from
// literal tables, and from round trips over the whole date range.
#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>

#include <gtest/gtest.h>

#include "host/host_dates.h"
#include "intervals/calendar_arith.h"
#include "intervals/date_runs.h"
#include "intervals/interval.h"
#include "primitives/primitives.h"
#include "support/calendar_oracle.h"

namespace {

using oracle::day_of;

tchar kFmtV[] = "V";
tchar kFmtU[] = "U";
tchar kFmtW[] = "W";
tchar kFmtX[] = "X";

struct YearWeekDay {
  double year;
  double week;
  double day;
};

YearWeekDay ywd(double date, tchar* fmt) {
  YearWeekDay r{};
  EXPECT_EQ(zidywdd(date, fmt, 1, &r.year, &r.week, &r.day), 0);
  return r;
}

// ---- The civil-day core -------------------------------------------------------

// Within the library's dates the conversions are checked against
// std::chrono below; beyond them, and across the switch between the 32-bit
// and 64-bit forms, a day converts back to itself and the next day follows.
TEST(CivilCore, RoundTripsBeyondTheLibrarysDates) {
  for (const calendar::DayNumber far : {-40000000000L, -12695770L, 987304232L, 300000000000L}) {
    for (calendar::DayNumber x = far - 800; x <= far + 800; ++x) {
      const calendar::CivilDate c = calendar::civil_from_days(x);
      ASSERT_EQ(calendar::days_from_civil(c.year, c.month, c.day), x);
      const calendar::CivilDate next = calendar::civil_from_days(x + 1);
      ASSERT_TRUE(next.day == c.day + 1 || next.day == 1) << x;
    }
  }
}

// Against the textbook correction of C's truncation (oracle::fdiv), on
// both sides of 32 bits, where the 64-bit division takes over, with exact
// multiples among them.
TEST(CivilCore, FloorDivisionAndRemainder) {
  for (const std::int64_t n : {6L, 0L, -1L, -7L, -8L, -2147483648L, 2147483647L, 5000000000L, -6000000000L}) {
    for (const std::int64_t d : {7L, 3000000000L, 2147483648L}) {
      const long q = oracle::fdiv(n, d);
      EXPECT_EQ(calendar::floordiv(n, d), q) << n << "/" << d;
      EXPECT_EQ(calendar::floormod(n, d), n - q * d) << n << "%" << d;
    }
  }
}

// ISO weeks of every third day of the range, through the core, zidywdd
// and back through ziddywd, against std::chrono.
TEST(CivilCore, IsoWeeksAgreeWithChrono) {
  for (long x = oracle::kFirstDay; x <= oracle::kLastDay; x += 3) {
    const calendar::IsoWeekDate iso = calendar::iso_week_from_days(x);
    const oracle::IsoWeek expect = oracle::iso_of(x);
    ASSERT_EQ(iso.year, expect.year) << x;
    ASSERT_EQ(iso.week, static_cast<int>(expect.week)) << x;
    ASSERT_EQ(iso.day, static_cast<int>(expect.day)) << x;
    ASSERT_EQ(calendar::days_from_iso_week(iso.year, iso.week, iso.day), x);
    const YearWeekDay r = ywd(static_cast<double>(x), kFmtV);
    ASSERT_EQ(r.year, expect.year) << oracle::date_text(x);
    ASSERT_EQ(r.week, expect.week) << oracle::date_text(x);
    ASSERT_EQ(r.day, expect.day) << oracle::date_text(x);
    ASSERT_EQ(ziddywd(iso.year, iso.week, iso.day), static_cast<double>(x)) << oracle::date_text(x);
  }
}

// ---- Host date routines -----------------------------------------------------------

// Days past the end of their month: the whole-range test below.
TEST(HostDates, TriplesThatNameNoDateAreMissing) {
  const struct {
    double m, d, y;
  } cases[] = {
      {13, 1, 2001}, {0, 1, 2001}, {1, 0, 2001}, {1, 1.5, 2001}, {1, 1, 2001.25}, {esf::kMissing, 1, 2001},
      {1, 1, 1e300},
  };
  for (const auto& c : cases) {
    EXPECT_TRUE(esf::is_missing(zmdy(c.m, c.d, c.y))) << c.m << "/" << c.d << "/" << c.y;
  }
}

TEST(HostDates, UnsplittableDatesFail) {
  int m = 7, d = 7, y = 7;
  for (const double bad : {esf::kMissing, esf::missing_letter('I'), 1e300, -1e300, std::nan("")}) {
    EXPECT_NE(zidmdyd(&m, &d, &y, bad), 0);
    EXPECT_EQ(m, 0);
    EXPECT_TRUE(esf::is_missing(zwekday(bad)));
    EXPECT_TRUE(esf::is_missing(zyear(bad)));
  }
}

TEST(HostDates, TimeOfDay) {
  const struct {
    double datetime, seconds;
  } cases[] = {
      {0.0, 0.0}, {86399.5, 86399.5}, {86400.0, 0.0}, {3 * 86400.0 + 5.25, 5.25}, {-1.0, 86399.0}, {-86400.0, 0.0},
  };
  for (const auto& c : cases) EXPECT_EQ(ztimprt(c.datetime), c.seconds) << c.datetime;
  EXPECT_TRUE(esf::is_missing(ztimprt(esf::kMissing)));
}

// Every day of the library's range agrees with std::chrono; a fraction of
// a day stays in the day.
TEST(HostDates, WholeRangeAgreesWithChrono) {
  EXPECT_EQ(ziddmdy(1, 1, 1582), static_cast<double>(kMinDate));
  EXPECT_EQ(ziddmdy(12, 26, 20000), static_cast<double>(kMaxDate));
  for (long x = oracle::kFirstDay; x <= oracle::kLastDay; ++x) {
    const auto ymd = oracle::ymd_of(x);
    int m = 0, d = 0, y = 0;
    ASSERT_EQ(zidmdyd(&m, &d, &y, static_cast<double>(x) + ((x & 1) != 0 ? 0.75 : 0.0)), 0);
    ASSERT_EQ(y, static_cast<int>(ymd.year())) << x;
    ASSERT_EQ(static_cast<unsigned>(m), static_cast<unsigned>(ymd.month())) << x;
    ASSERT_EQ(static_cast<unsigned>(d), static_cast<unsigned>(ymd.day())) << x;
    ASSERT_EQ(ziddmdy(m, d, y), static_cast<double>(x));
    if (oracle::mday_of(x + 1) == 1) {
      ASSERT_TRUE(esf::is_missing(ziddmdy(m, d + 1, y))) << x;
    }
    if (x % 5 == 0) {
      ASSERT_EQ(zmdy(m, d, y), static_cast<double>(x));
      ASSERT_EQ(zwekday(x), oracle::weekday_of(x) + 1.0) << x;
      ASSERT_EQ(zyear(x), static_cast<double>(y));
    }
  }
}

// ---- zidywdd ------------------------------------------------------------------------

// "U" counts weeks from the year's first Sunday and "W" from its first
// Monday, as a real quotient; the whole part is the strftime %U and %W.
TEST(Zidywdd, SundayMondayAndOtherWeeks) {
  oracle::Dates dates(7);
  for (int i = 0; i < 20000; ++i) {
    const long x = dates.any();
    const long yday = oracle::yday_of(x);
    const long wday = oracle::weekday_of(x);  // 0 Sunday
    const YearWeekDay u = ywd(static_cast<double>(x), kFmtU);
    EXPECT_EQ(u.week, static_cast<double>(yday - wday + 7) / 7.0) << oracle::date_text(x);
    EXPECT_EQ(std::floor(u.week), static_cast<double>((yday + 7 - wday) / 7));
    EXPECT_EQ(u.day, wday + 1.0);
    EXPECT_EQ(u.year, oracle::year_of(x));
    const YearWeekDay w = ywd(static_cast<double>(x), kFmtW);
    EXPECT_EQ(std::floor(w.week), static_cast<double>((yday + 7 - (wday + 6) % 7) / 7)) << oracle::date_text(x);
    EXPECT_EQ(w.day, wday == 0 ? 7.0 : static_cast<double>(wday));
  }
  // Another convention gives the calendar year and a shifted day.
  const long x = day_of(2001, 1, 3);  // the third day of the year
  const YearWeekDay r = ywd(static_cast<double>(x), kFmtX);
  EXPECT_EQ(r.year, 2001.0);
  EXPECT_EQ(r.week, -1.0);
  EXPECT_EQ(r.day, (2 + 2) % 7 + 1.0);
}

// ---- ziddywds ---------------------------------------------------------------

// Week 1 is the Sunday-to-Saturday week that holds 4 January; week 53
// exists only in a year whose next week-year opens 371 days later, and
// its first day passes even when it equals that opening.
TEST(Ziddywds, WeekYearsAgreeWithChronoAndBadWeeksAreRefused) {
  for (int y = 1583; y <= 19999; ++y) {
    const long jan4 = day_of(y, 1, 4);
    const long start = jan4 - static_cast<long>(oracle::weekday_of(jan4));
    ASSERT_EQ(ziddywds(y, 1, 1), static_cast<double>(start)) << y;
    ASSERT_EQ(ziddywds(y, 2, 3), static_cast<double>(start + 9)) << y;
    const long next_jan4 = day_of(y + 1, 1, 4);
    const long next_start = next_jan4 - static_cast<long>(oracle::weekday_of(next_jan4));
    const bool long_year = next_start - start == 371;
    ASSERT_EQ(esf::is_missing(ziddywds(y, 53, 7)), !long_year) << y;
    ASSERT_FALSE(esf::is_missing(ziddywds(y, 53, 1))) << y;
    ASSERT_EQ(esf::is_missing(ziddywds(y, 53, 2)), !long_year) << y;
  }
  // Days and weeks outside the calendar are refused.
  const struct { int week, day; } bad[] = {{0, 1}, {1, 8}, {1, 0}, {54, 1}, {-1, 3}};
  for (const auto& c : bad) EXPECT_TRUE(esf::is_missing(ziddywds(2000, c.week, c.day))) << c.week << "/" << c.day;
}

// ---- zidywdds ---------------------------------------------------------------------------

// The week-year and week of a date from the openings of the week-years: a
// leap index of 53 keeps a 53rd week, 52 folds it into week 52, and 1 makes
// the last week of a week-year (52 or 53) week 1 of the next.
TEST(Zidywdds, AgreesWithTheWeekYearOpenings) {
  oracle::Dates dates(4);
  for (int i = 0; i < 20000; ++i) {
    const long x = dates.inner(800);
    double year = 0, week = 0, day = 0;
    zidywdds(static_cast<double>(x), 53, &year, &week, &day);
    const double start = ziddywds(static_cast<int>(year), 1, 1);
    EXPECT_LE(start, x);
    EXPECT_GT(ziddywds(static_cast<int>(year) + 1, 1, 1), x);
    const double w = std::floor((x - start) / 7.0) + 1;
    EXPECT_EQ(week, w) << oracle::date_text(x);
    EXPECT_EQ(day, oracle::weekday_of(x) + 1.0);
    const double y = year;
    zidywdds(static_cast<double>(x), 52, &year, &week, &day);
    EXPECT_EQ(year, y);
    EXPECT_EQ(week, std::min(w, 52.0)) << oracle::date_text(x);
    zidywdds(static_cast<double>(x), 1, &year, &week, &day);
    EXPECT_EQ(year, w >= 52 ? y + 1 : y) << oracle::date_text(x);
    EXPECT_EQ(week, w >= 52 ? 1 : w);
  }
  // A missing date gives missing results.
  double year = 0, week = 0, day = 0;
  EXPECT_EQ(zidywdds(esf::kMissing, 1, &year, &week, &day), 0);
  EXPECT_TRUE(esf::is_missing(year) && esf::is_missing(week) && esf::is_missing(day));
}

// ---- zidmdydf -----------------------------------------------------------------------------

// Retail dates are checked against ISO weeks below; format 0 is the civil
// calendar, and other formats and missing dates are refused.
TEST(Zidmdydf, CivilFormatAndRefusals) {
  int m = 0, d = 0, y = 0;
  EXPECT_EQ(zidmdydf(&m, &d, &y, static_cast<double>(day_of(2001, 1, 31)), 0), 0);
  EXPECT_EQ(y * 10000 + m * 100 + d, 20010131);
  EXPECT_EQ(zidmdydf(&m, &d, &y, 100.0, 7), -2);
  EXPECT_NE(zidmdydf(&m, &d, &y, esf::kMissing, 445), 0);
  EXPECT_NE(zidmdydf(&m, &d, &y, esf::kMissing, 0), 0);
}

TEST(Zidmdydf, RetailMonthsAgreeWithIsoWeeksAndTables) {
  const struct {
    int format;
    const int* table;
  } calendars[] = {{445, r445mon_index}, {454, r454mon_index}, {544, r544mon_index}};
  oracle::Dates dates(11);
  for (int i = 0; i < 20000; ++i) {
    const long x = dates.any();
    const oracle::IsoWeek iso = oracle::iso_of(x);
    for (const auto& cal : calendars) {
      int m = 0, d = 0, y = 0;
      ASSERT_EQ(zidmdydf(&m, &d, &y, static_cast<double>(x), cal.format), 0);
      EXPECT_EQ(y, iso.year);
      ASSERT_GE(m, 1);
      ASSERT_LE(m, 12);
      // The month opens at or before the date's week and the next one after it;
      // the days run on through a 53rd week (to day 42 of month 12).
      EXPECT_LE(cal.table[m - 1], static_cast<int>(iso.week) - 1);
      if (m < 12) {
        EXPECT_GT(cal.table[m], static_cast<int>(iso.week) - 1);
      }
      EXPECT_EQ(d, (static_cast<int>(iso.week) - 1 - cal.table[m - 1]) * 7 + static_cast<int>(iso.day));
    }
  }
}

// ---- zdatdif and the day counts ------------------------------------------------------------------

TEST(DayCounts, LeapYearsAndMonthEndsAgreeWithChrono) {
  namespace chr = std::chrono;
  for (int y = 1582; y <= 20000; ++y) {
    ASSERT_EQ(isLeapYear(y) != 0, chr::year{y}.is_leap()) << y;
    for (unsigned m = 1; m <= 12; ++m) {
      const chr::year_month_day_last last{chr::year{y} / chr::month{m} / chr::last};
      ASSERT_EQ(lastDay(y, static_cast<int>(m)), static_cast<int>(static_cast<unsigned>(last.day()))) << y << "-" << m;
    }
  }
}

TEST(DayCounts, ThirtyThreeSixty) {
  const struct {
    int m1, d1, y1, m2, d2, y2;
    long days;
  } cases[] = {
      {2, 28, 2001, 3, 31, 2001, 30},  // end of February counts as 30, and so does the 31st
      {2, 29, 2000, 3, 31, 2000, 30},  {2, 28, 2001, 2, 28, 2002, 360},  // both ends of February
      {1, 31, 2001, 3, 1, 2001, 31},   {1, 30, 2001, 3, 31, 2001, 60},  {1, 15, 2001, 3, 31, 2001, 76},
      {2, 28, 2000, 3, 31, 2000, 33},  // 28 February 2000 isn't the end of that February
      {3, 31, 2001, 2, 28, 2001, -32},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(diff_30_360(c.m1, c.d1, c.y1, c.m2, c.d2, c.y2), c.days)
        << c.y1 << "-" << c.m1 << "-" << c.d1 << " to " << c.y2 << "-" << c.m2 << "-" << c.d2;
    long days = 0;
    double years = 0;
    EXPECT_EQ(zdatdif(day_of(c.y1, c.m1, c.d1), day_of(c.y2, c.m2, c.d2), 1, &days, &years), 0);
    EXPECT_EQ(days, c.days);
    EXPECT_EQ(years, c.days / 360.0);
  }
}

// Actual days, split into days of common and of leap years by walking the
// span one day at a time.
TEST(DayCounts, ActualConventionsAgreeWithChrono) {
  oracle::Dates dates(5);
  for (int i = 0; i < 2000; ++i) {
    const long a = dates.any();
    const long b = i % 2 == 0 ? dates.between(a - 2000, a + 2000) : dates.any();
    const long expect = b - a;
    long days = 0;
    double years = 0;
    ASSERT_EQ(zdatdif(a, b, 3, &days, &years), 0);
    EXPECT_EQ(days, expect);
    EXPECT_EQ(years, expect / 360.0);
    ASSERT_EQ(zdatdif(a, b, 4, &days, &years), 0);
    EXPECT_EQ(days, expect);
    EXPECT_EQ(years, expect / 365.0);
    if (i % 2 == 0) {
      const long lo = a < b ? a : b;
      const long hi = a < b ? b : a;
      long n365 = 0, n366 = 0;
      for (long x = lo; x < hi; ++x) (isLeapYear(oracle::year_of(x)) ? n366 : n365) += 1;
      const double span_years = n365 / 365.0 + n366 / 366.0;
      ASSERT_EQ(zdatdif(a, b, 2, &days, &years), 0);
      EXPECT_EQ(days, expect);
      EXPECT_EQ(years, a <= b ? span_years : -span_years) << oracle::date_text(a) << " " << oracle::date_text(b);
    }
  }
}

TEST(DayCounts, UnknownConventionWritesNothingAndEmptySpans) {
  long days = 12345;
  double years = 6.5;
  EXPECT_EQ(zdatdif(0.0, 100.0, 5, &days, &years), 1);
  EXPECT_EQ(zdatdif(0.0, 100.0, 0, &days, &years), 1);
  EXPECT_EQ(days, 12345);
  EXPECT_EQ(years, 6.5);
  EXPECT_EQ(zdatdif(0.0, 100.0, 3, nullptr, nullptr), 0);  // either pointer may be null
  ASSERT_EQ(zdatdif(100.0, 100.0, 2, &days, &years), 0);
  EXPECT_EQ(days, 0);
  EXPECT_EQ(years, 0.0);
}

// The dates of a run of rows are those of zintnx3 row by row, bit for bit,
// for every alignment, from dates inside the range and near both its ends,
// where some rows leave it; the kinds not computed together (ISO years,
// working days, datetimes, times, observations) take the routine itself.
TEST(RowDates, RunsAreTheRowsOneByOne) {
  oracle::Dates dates(99);
  for (const char* name : {"DAY",          "DAY3.2",  "WEEK",     "WEEK2.3",  "WEEKV",    "WEEKDAY", "TENDAY3.2",
                           "SEMIMONTH2.2", "MONTH",   "MONTH5.3", "QTR.3",    "SEMIYEAR", "YEAR",    "YEAR2.14",
                           "YEARV",        "R445MON", "R454QTR",  "R544YR.5", "DTMONTH",  "HOUR4.2", "OBS"}) {
    INTERVAL iv = oracle::interval(name);
    for (const double x : {static_cast<double>(dates.inner(60000)), kMinDate + 0.5, kMaxDate - 30.0}) {
      for (tchar align : {'B', 'E', 'M', 'S'}) {
        const long first = dates.between(0, 3);
        double run[40];
        calendar::aligned_run(&iv, x, first, 40, &align, run);
        for (long k = 0; k < 40; ++k) {
          const double one = zintnx3(&iv, x, static_cast<double>(first + k), &align, nullptr);
          ASSERT_EQ(std::bit_cast<std::uint64_t>(run[k]), std::bit_cast<std::uint64_t>(one))
              << name << " " << align << " from " << x << " row " << first + k;
        }
      }
    }
  }
}

}  // namespace
