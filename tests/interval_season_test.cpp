// Seasonal cycles (zintsea, zintsea2), season codes (zintscd, zintscd2) and
// seasonal dummy rows (zintscy): the table of cycles, the counts derived
// from the dates, the caller's counts, and two properties
// over random starts: the season code of an observation is its place in its
// cycle, computed here from std::chrono's civil calendar, and a week's code
// is its place in its week-year, with the leap-week rules. Custom
// intervals take their seasons from their tables: custom_test.cpp.
#include <array>
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "intervals/interval.h"
#include "primitives/primitives.h"
#include "support/calendar_oracle.h"
#include "support/interval_cases.h"

namespace {

using cases::d;
using cases::text_of;
using oracle::day_of;
using oracle::interval;

constexpr double kDot = esf::kMissing;

bool is_cleared(const INTERVAL& iv) { return iv.intcode == 0 && iv.units == 0 && iv.tokenlen == 0; }

// The record of `name`: the interval it prints as, its units and its token.
void expect_interval(const INTERVAL& got, const char* name) {
  const INTERVAL want = interval(name);
  EXPECT_EQ(text_of(got), text_of(want));
  EXPECT_EQ(got.units, want.units) << name;
  EXPECT_EQ(std::string(got.token, static_cast<std::size_t>(got.tokenlen)), name);
}

// ---- zintsea / zintsea2 ---------------------------------------------------------

struct CycleCase {
  bool second_form;  // zintsea2 rather than zintsea
  const char* name;
  double date;
  int nsin;  // *nseasons on entry (zintsea2 reads it)
  int rc;
  const char* cycle;  // null: a cleared record
  int nseasons;
};

using SeaFn = int (*)(INTERVAL*, double, INTERVAL*, int*);

// The count of seasons of plain intervals is checked with the codes below;
// these rows pin the cycle record, the counts of multiples, the counts
// derived from the dates and the weekly second form.
TEST(SeasonalCycle, CyclesAndCounts) {
  const CycleCase cases[] = {
      {false, "DTHOUR4", 0, 0, 0, "DTDAY", 6},
      {false, "WEEKDAY3", 0, 0, 0, "WEEK", 5},
      {false, "TENDAY", 0, 0, 0, "YEAR", 36},
      {false, "R454MON2", 0, 0, 0, "R454YR", 6},
      {false, "YEAR", 0, 0, 0, "YEAR", 1},
      {false, "OBS3", 0, 0, 1, nullptr, 0},
      // A year isn't a whole number of MONTH5; one MONTH12 fills it exactly.
      {false, "MONTH5", 0, 0, 1, nullptr, 0},
      {false, "MONTH12", d(2001, 5, 5), 0, 0, "YEAR", 1},
      // Two-day steps never both begin and end a Sunday week.
      {false, "DAY2", 0, 0, 1, nullptr, 0},
      // A date that can't be placed tries the cycle that begins at day 0, a
      // Friday: two DAY2 from 1 January to the Sunday after.
      {false, "DAY2", kDot, 0, 0, "WEEK", 1},
      // The second form: observations have a cycle of their own, and a plain
      // week takes the caller's count of 52 or 53 (zintsea doesn't).
      {true, "OBS3", 0, 0, 0, "OBS3", 1},
      {true, "WEEKV", 0, 0, 0, "YEARV", 53},
      {true, "WEEKV", 0, 52, 0, "YEARV", 52},
      {true, "WEEK2", 0, 53, 0, "YEAR", 26},
      {false, "WEEK", 0, 53, 0, "YEAR", 52},
  };
  for (const CycleCase& c : cases) {
    SCOPED_TRACE(std::string(c.second_form ? "zintsea2 of " : "zintsea of ") + c.name);
    INTERVAL iv = interval(c.name);
    INTERVAL cycle;
    std::memset(&cycle, 0x5A, sizeof cycle);  // stale content must not survive
    int ns = c.nsin;
    EXPECT_EQ((c.second_form ? zintsea2 : zintsea)(&iv, c.date, &cycle, &ns), c.rc);
    EXPECT_EQ(ns, c.nseasons);
    if (c.cycle == nullptr) {
      EXPECT_TRUE(is_cleared(cycle)) << "cycle " << text_of(cycle);
    } else {
      expect_interval(cycle, c.cycle);
    }
  }
}

// Refusals clear the cycle and the count, whichever of them was given.
TEST(SeasonalCycle, Refusals) {
  INTERVAL month = interval("MONTH");
  INTERVAL none = interval("NONE");
  INTERVAL cleared{};
  for (SeaFn fn : {zintsea, zintsea2}) {
    for (INTERVAL* iv : {&month, &none, &cleared, static_cast<INTERVAL*>(nullptr)}) {
      INTERVAL cycle = interval("QTR");
      int ns = 7;
      // MONTH has a cycle: only the missing output refuses it.
      EXPECT_EQ(fn(iv, 0, iv == &month ? nullptr : &cycle, &ns), 2);
      EXPECT_EQ(ns, 0);
      EXPECT_EQ(fn(iv, 0, &cycle, nullptr), 2);
      EXPECT_TRUE(is_cleared(cycle));
    }
  }
}

// ---- zintscd: literal cases ------------------------------------------------------

// The codes of intervals from random starts are checked against the
// calendar below; these rows are the caller's counts and the refusals.
TEST(SeasonCodes, CountsAndRefusals) {
  const struct {
    const char* label;
    const char* name;
    double stdate;
    int scode, nsin;
    long n;
    int rc, nsout;
    std::vector<int> codes;
  } cases[] = {
      {"the count asked for is stored", "MONTH", d(2001, 3, 1), 0, -1, 3, 0, 12, {2, 3, 4}},
      // A caller's 0 neither asks nor gives a count: the found one serves.
      {"a count of 0 uses the one found", "QTR", d(2001, 8, 1), 0, 0, 3, 0, 0, {2, 3, 0}},
      // A count smaller than the cycle's wraps the codes early.
      {"a caller's smaller count", "MONTH", d(2001, 3, 1), 0, 3, 4, 0, 3, {2, 0, 1, 2}},
      // scode -2: the cycle is the interval the caller's count of times as
      // long, MONTH5 here, whose periods begin in January 1960.
      {"scode -2, a MONTH5 cycle", "MONTH", d(2001, 3, 1), -2, 5, 5, 0, 5, {4, 0, 1, 2, 3}},
      {"observations count from stdate", "OBS", 7.0, 0, 4, 6, 0, 4, {0, 1, 2, 3, 0, 1}},
      {"observations without a count", "OBS", 7.0, 0, -1, 3, 1, -1, {0, 0, 0}},
      {"a NONE interval is refused", "NONE", 5.0, 0, 4, 3, -1, 4, {-77, -77, -77}},
      {"no cycle, the caller's count from stdate", "MONTH5", d(2001, 3, 1), 0, 3, 4, 0, 3, {0, 1, 2, 0}},
      // A one-season cycle isn't one: with a count, YEAR numbers its years
      // from the start of the cycle that holds stdate.
      {"YEAR with a count", "YEAR", d(2001, 3, 1), 0, 4, 5, 0, 4, {0, 1, 2, 3, 0}},
      {"a missing start date", "MONTH", kDot, 0, 12, 2, -1, 12, {0, 0}},
      // Weeks with a negative scode skip the weekly rules: the first week
      // that starts inside the calendar year is season 0 (5 January 2003
      // opens week 2 of its week-year), and a WEEKV start in ISO week 53
      // takes the code of scode, reduced.
      {"Sunday weeks from 5 January 2003", "WEEK", d(2003, 1, 5), -1, 52, 2, 0, 52, {0, 1}},
      {"ISO week 53 of 2004", "WEEKV", d(2004, 12, 27), -1, 52, 3, 0, 52, {51, 0, 1}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    INTERVAL iv = interval(c.name);
    std::vector<int> codes(static_cast<std::size_t>(c.n) + 1, -77);  // one guard slot
    int ns = c.nsin;
    EXPECT_EQ(zintscd(&iv, c.stdate, c.scode, c.n, codes.data(), &ns), c.rc);
    EXPECT_EQ(ns, c.nsout);
    EXPECT_EQ(codes.back(), -77) << "wrote past n";
    codes.pop_back();
    EXPECT_EQ(codes, c.codes);
  }

  INTERVAL month = interval("MONTH");
  int codes[2] = {9, 9};
  int ns = 12;
  EXPECT_EQ(zintscd(nullptr, 0, 0, 2, codes, &ns), -1);
  EXPECT_EQ(zintscd(&month, 0, 0, 2, nullptr, &ns), -1);
  EXPECT_EQ(codes[0], 9);
}

// ---- Weeks: the week-year and its leap week ----------------------------------------

// Week 1 of a week-year holds 4 January; a WEEK starts on Sunday, a WEEKV on
// Monday (first_weekday 0 or 1).
long week1_start(int y, unsigned first_weekday) {
  const long jan4 = day_of(y, 1, 4);
  return jan4 - static_cast<long>((oracle::weekday_of(jan4) + 7 - first_weekday) % 7);
}

// Place (0-based) of the week that begins on `start` in its week-year.
int week_of_year(long start, unsigned first_weekday) {
  int y = oracle::year_of(start);
  if (start >= week1_start(y + 1, first_weekday)) ++y;
  if (start < week1_start(y, first_weekday)) --y;
  return static_cast<int>((start - week1_start(y, first_weekday)) / 7);
}

TEST(SeasonCodes, PlainWeeksGroupedByTheMultiplier) {
  // WEEK12.84: each observation is a plain week, grouped by twelve within
  // its week-year; a group number past the count takes scode.
  INTERVAL iv = interval("WEEK12.84");
  ASSERT_EQ(iv.shiftper, 83);
  const long start = week1_start(2003, 0);
  const long n = 120;
  std::vector<int> codes(static_cast<std::size_t>(n));
  int ns = 4;
  ASSERT_EQ(zintscd(&iv, static_cast<double>(start), 3, n, codes.data(), &ns), 0);
  for (long t = 0; t < n; ++t) {
    const int group = week_of_year(start + 7 * t, 0) / 12;
    EXPECT_EQ(codes[static_cast<std::size_t>(t)], group >= 4 ? 3 : group) << t;
  }
}

// ---- zintscd2 -----------------------------------------------------------------------

using cases::intervalx;

// zintscd2 numbers within a cycle in place; without one it finds the count
// and keeps it in the record (a count already there stands), and numbers
// the observations from stdate with the caller's count, or all 0 when the
// caller asked for the count. The weekly rules run on the record itself.
TEST(SeasonCodes, SecondFormUsesOrSetsTheCycle) {
  INTERVALX year = intervalx("YEAR");
  const struct {
    const char* name;
    bool cycle_in_place;
    int nseasons;  // in the record
    double stdate;
    int scode, nsin, rc, nsout, kept;
    std::vector<int> codes;
  } cases[] = {
      {"MONTH", true, 12, d(2001, 3, 1), 0, -1, 0, 12, 12, {2, 3, 4, 5}},
      {"MONTH", false, 0, d(2001, 3, 1), 0, 12, 0, 12, 12, {0, 1, 2, 3}},
      {"QTR", false, 0, d(2001, 3, 1), 0, -1, 1, -1, 4, {0, 0, 0, 0}},
      {"MONTH", false, 6, d(2001, 3, 1), 0, 6, 0, 6, 6, {0, 1, 2, 3}},
      {"WEEK", true, 52, static_cast<double>(week1_start(2004, 0) - 7), 52, 52, 0, 52, 52, {52, 0, 1, 2}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(::testing::Message() << c.name << (c.cycle_in_place ? " in a cycle" : ""));
    INTERVALX ix = intervalx(c.name);
    ix.sinterval = c.cycle_in_place ? &year : nullptr;
    ix.nseasons = c.nseasons;
    std::vector<int> codes(4, 9);
    int ns = c.nsin;
    EXPECT_EQ(zintscd2(&ix, c.stdate, c.scode, 4, codes.data(), &ns), c.rc);
    EXPECT_EQ(ns, c.nsout);
    EXPECT_EQ(ix.nseasons, c.kept);
    EXPECT_EQ(codes, c.codes);
  }
  int code = 0;
  int ns = 12;
  EXPECT_EQ(zintscd2(nullptr, 0, 0, 1, &code, &ns), -1);
}

// ---- The property: a code is the place in the cycle ----------------------------------

// Time of day of a datetime value, in seconds.
long second_of_day(double x) {
  const auto s = static_cast<long>(std::floor(x));
  return ((s % 86400) + 86400) % 86400;
}

// Working-day place (0-based) of a day in its Sunday week, for a weekend
// given by flags; a weekend day counts as the working day before it.
int working_place(double day, const std::array<int, 7>& weekend) {
  unsigned w = oracle::weekday_of(static_cast<long>(day));
  while (weekend[w]) w = (w + 6) % 7;
  int place = 0;
  // Working days of the week before w (Sunday first); when the walk crossed
  // Sunday the day belongs to the previous week, which has the same count.
  for (unsigned i = 0; i < w; ++i) place += 1 - weekend[i];
  return place;
}

// Retail month (0-based) of a date from its ISO week and the zero-based
// weeks at which the months of the calendar begin.
int retail_month(double x, const int* first_weeks) {
  const int week = static_cast<int>(oracle::iso_of(static_cast<long>(x)).week);
  int m = 0;
  while (m + 1 < 12 && week > first_weeks[m + 1]) ++m;
  return m;
}

struct PlaceCase {
  const char* name;
  bool datetime;
  int nseasons;
  int (*place)(double x);  // season of the interval that holds x
};

int month0(double x) { return static_cast<int>(oracle::month_of(static_cast<long>(x))) - 1; }
int mday(double x) { return static_cast<int>(oracle::mday_of(static_cast<long>(x))); }
double day_of_dt(double x) { return std::floor(x / 86400.0); }

const std::vector<PlaceCase>& place_cases() {
  static const std::vector<PlaceCase> cases = {
      {"MONTH", false, 12, [](double x) { return month0(x); }},
      {"MONTH4", false, 3, [](double x) { return month0(x) / 4; }},
      {"QTR", false, 4, [](double x) { return month0(x) / 3; }},
      {"QTR.2", false, 4, [](double x) { return ((month0(x) + 11) % 12) / 3; }},
      {"SEMIYEAR", false, 2, [](double x) { return month0(x) / 6; }},
      {"TENDAY4", false, 9, [](double x) { return (3 * month0(x) + (mday(x) > 10) + (mday(x) > 20)) / 4; }},
      {"SEMIMONTH3", false, 8, [](double x) { return (2 * month0(x) + (mday(x) > 15)) / 3; }},
      {"DAY", false, 7, [](double x) { return static_cast<int>(oracle::weekday_of(static_cast<long>(x))); }},
      {"WEEKDAY", false, 5,
       [](double x) {
         return working_place(x, {1, 0, 0, 0, 0, 0, 1});
       }},
      {"WEEKDAY1W", false, 6,
       [](double x) {
         return working_place(x, {1, 0, 0, 0, 0, 0, 0});
       }},
      {"R445MON", false, 12, [](double x) { return retail_month(x, r445mon_index); }},
      {"R454QTR", false, 4, [](double x) { return retail_month(x, r454mon_index) / 3; }},
      {"DTDAY", true, 7,
       [](double x) { return static_cast<int>(oracle::weekday_of(static_cast<long>(day_of_dt(x)))); }},
      {"DTMONTH", true, 12, [](double x) { return month0(day_of_dt(x)); }},
      {"HOUR3", true, 8, [](double x) { return static_cast<int>(second_of_day(x) / 3600 / 3); }},
      {"MINUTE15", true, 4, [](double x) { return static_cast<int>(second_of_day(x) % 3600 / 60 / 15); }},
      {"SECOND20", true, 3, [](double x) { return static_cast<int>(second_of_day(x) % 60 / 20); }},
  };
  return cases;
}

TEST(SeasonCodes, CodeIsThePlaceInTheCycleForRandomDates) {
  oracle::Dates dates(20240611);
  constexpr long kObs = 40;
  for (const PlaceCase& c : place_cases()) {
    SCOPED_TRACE(c.name);
    INTERVAL iv = interval(c.name);
    for (int trial = 0; trial < 150; ++trial) {
      const long day = dates.inner(15000);
      const double stdate =
          c.datetime ? static_cast<double>(day) * 86400.0 + static_cast<double>(dates.between(0, 86399)) : day;
      std::vector<int> codes(kObs);
      int ns = -1;
      ASSERT_EQ(zintscd(&iv, stdate, 0, kObs, codes.data(), &ns), 0) << stdate;
      ASSERT_EQ(ns, c.nseasons);
      for (long t = 0; t < kObs; ++t) {
        // The observation is stdate moved by t intervals; its code is its
        // place in its cycle, whatever the codes before it.
        const double x = t == 0 ? stdate : zintnx2(&iv, stdate, static_cast<double>(t));
        ASSERT_FALSE(esf::is_missing(x));
        ASSERT_EQ(codes[static_cast<std::size_t>(t)], c.place(x))
            << "observation " << t << " of a series from " << stdate;
      }
    }
  }
}

// Weeks from random starts, Sunday and ISO weeks, on dates and datetimes,
// with leap codes 0, 7, 52 and 60: each week's code is its place in its
// week-year, and a 53rd week takes the leap code (0 when it is above the
// count) unless the series ends on it.
TEST(SeasonCodes, WeekCodesForRandomStarts) {
  oracle::Dates dates(77);
  const INTERVAL weeks[] = {interval("WEEK"), interval("WEEKV"), interval("DTWEEK"), interval("DTWEEKV")};
  constexpr long kObs = 120;
  int leap_weeks = 0;
  for (int trial = 0; trial < 400; ++trial) {
    INTERVAL iv = weeks[trial % 4];
    const unsigned first = trial % 2;  // WEEKV weeks start on Monday
    const int scode = std::array{0, 7, 52, 60}[static_cast<std::size_t>(trial / 4 % 4)];
    const long day = trial < 8 ? oracle::kFirstDay + 7 + trial : dates.inner(4000);
    const double stdate = iv.units == kUnitsDatetime ? day * 86400.0 + 3600.0 : static_cast<double>(day);
    const long start = day - static_cast<long>((oracle::weekday_of(day) + 7 - first) % 7);
    std::vector<int> codes(kObs);
    int ns = 52;
    ASSERT_EQ(zintscd(&iv, stdate, scode, kObs, codes.data(), &ns), 0);
    for (long t = 0; t < kObs; ++t) {
      const int k = week_of_year(start + 7 * t, first);
      leap_weeks += k == 52;
      const int want = k < 52 ? k : (t + 1 < kObs && scode <= 52 ? scode : 0);
      ASSERT_EQ(codes[static_cast<std::size_t>(t)], want)
          << cases::text_of(iv) << " " << oracle::date_text(start + 7 * t);
    }
  }
  EXPECT_GT(leap_weeks, 100) << "the starts must reach long years";
}

// ---- zintscy ------------------------------------------------------------------------

TEST(SeasonalDummies, Rows) {
  const struct {
    const char* label;
    int scode;
    int noint;
    std::vector<double> row;
  } cases[] = {
      {"last season is the base", 3, 0, {0, 0, 0}},
      {"season 0", 0, 0, {1, 0, 0}},
      {"last season without intercept", 3, 1, {0, 0, 0, 1}},
      {"code = nseasons isn't a leap week for MONTH", 4, 1, {0, 0, 0, 1}},
  };
  INTERVAL month = interval("MONTH");
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    std::vector<double> row(c.row.size() + 1, -5.0);  // one guard slot
    double partial = 0.25;
    zintscy(&month, c.scode, d(2004, 12, 26), 4, c.noint, row.data(), &partial);
    EXPECT_EQ(row.back(), -5.0) << "wrote past the row";
    row.pop_back();
    EXPECT_EQ(row, c.row);
  }
}

// The share of the leap week in the new year, from 1 January to the next
// Sunday after it in sevenths, goes to the first season; without an
// intercept the rest goes to the leap season.
TEST(SeasonalDummies, LeapWeekShareFromTheCalendar) {
  INTERVAL week = interval("WEEK");
  for (int y : {2004, 2009, 2015, 2020, 1999}) {
    for (int noint : {0, 1}) {
      SCOPED_TRACE(::testing::Message() << y << " noint " << noint);
      const long jan1 = day_of(y + 1, 1, 1);
      const double want = (7.0 - static_cast<double>(oracle::weekday_of(jan1))) / 7.0;
      std::vector<double> row(53, -1.0);
      double partial = kDot;
      zintscy(&week, 52, static_cast<double>(jan1 - 3), 52, noint, row.data(), &partial);
      EXPECT_DOUBLE_EQ(partial, want);
      // 51 dummies with an intercept, 52 without.
      EXPECT_EQ(row[51 + static_cast<size_t>(noint)], -1.0) << "wrote past the row";
      std::vector<double> expect(51 + static_cast<size_t>(noint), 0.0);
      expect[0] = want;
      if (noint != 0) expect[51] = 1.0 - want;
      row.resize(expect.size());
      EXPECT_EQ(row, expect);
    }
  }
}

}  // namespace
