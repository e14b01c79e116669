// Interval comparison: a table of pairs over the relations zintc states
// (the same, a fixed multiple, a varying multiple, not multiples, shifted,
// unrelated calendars, different weekends), custom intervals and the
// refusals on the debug output, and a property over a grid of names:
// wherever zintc says that one interval nests in another, every boundary
// of the coarser one is a boundary of the finer one, and a fixed multiple k
// counts k finer intervals between two coarser boundaries.

#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "host/host.h"
#include "intervals/interval.h"
#include "primitives/primitives.h"
#include "support/interval_cases.h"

namespace {

double compare_names(const char* a, const char* b) {
  INTERVAL ia = oracle::interval(a);
  INTERVAL ib = oracle::interval(b);
  return zintc(&ia, &ib);
}

struct PairCase {
  const char* a;
  const char* b;
  const char* expected;
};

// Fixed multiples of two or more between names of the grid below are also
// checked there, by counting; the table keeps one of each kind and pins
// the answers the grid can't: varying multiples, 0, and the missing kinds.
TEST(IntervalCompare, TableOfPairs) {
  const PairCase cases[] = {
      // Calendar months and their multiples.
      {"MONTH", "MONTH", "0"},
      {"MONTH2", "MONTH3", ".M"},
      {"QTR.2", "QTR", ".S"},
      {"TENDAY", "MONTH", "-3"},
      {"TENDAY", "SEMIMONTH", ".B"},
      // Time against time and days.
      {"HOUR6.2", "DAY", ".S"},
      // Varying multiples.
      {"MONTH", "DAY", "1"},
      {"MONTH", "DAY2", "."},
      {"MONTH", "HOUR7", "."},
      // Weeks against days and each other.
      {"WEEK", "DAY2", ".M"},
      {"WEEK2", "DAY7", ".S"},
      {"WEEK", "WEEKV", ".S"},
      {"SECOND", "WEEKV", "-604800"},
      {"YEARV", "SECOND", "1"},
      {"HOUR2.2", "WEEKV", ".S"},
      {"HOUR5", "DTWEEKV", ".E"},  // DAY5 against WEEKV is .M, which the time rule turns into .E
      {"HOUR56", "DTWEEK.2", ".S"},
      // Unrelated calendars.
      {"YEAR", "WEEK", ".B"},
      {"OBS", "DAY", ".B"},
      {"OBS", "OBS2", "-2"},
      // Retail calendars.
      {"R445QTR", "R454QTR", "0"},
      {"R445MON", "R454MON", ".M"},
      {"R445MON", "WEEKV", "1"},
      {"WEEKV2", "R445MON", ".M"},
      {"R445MON", "WEEK", ".S"},
      {"DAY7.4", "R445YR", "-1"},
      {"SECOND", "R445MON", "-1"},
      {"R445YR", "YEARV", "0"},
      // ISO years.
      {"YEARV", "WEEKV2", ".M"},
      {"YEARV", "WEEK.2", "1"},
      // Working days.
      {"WEEKDAY", "DAY", "1"},
      {"WEEKDAY5", "DAY", "7"},
      {"WEEKDAY", "WEEK", ".S"},
      {"WEEKDAY", "WEEKV", "-5"},
      {"WEEKDAY5.2", "WEEK.2", "0"},
      {"WEEKDAY5.2", "WEEK2.2", "-2"},
      {"WEEKDAY2", "WEEK.2", ".M"},
      {"WEEKDAY17W", "WEEKDAY", "0"},
      {"WEEKDAY", "WEEKDAY1W", ".W"},
      {"WEEKDAY123456W", "DAY7.2", "0"},  // Saturdays alone: weeks from Saturday
      {"WEEKDAY", "R445MON", "-1"},
      {"WEEKDAY1W2.2", "R445MON", ".S"},
      {"WEEKDAY12W", "R445MON", ".B"},
      {"WEEKDAY", "MONTH", ".B"},
  };
  for (const PairCase& c : cases) {
    EXPECT_EQ(cases::show(compare_names(c.a, c.b)), c.expected) << c.a << " and " << c.b;
  }
}

TEST(IntervalCompare, CustomIntervalsAndCodesOutsideTheTable) {
  struct Case {
    int a_code;
    int b_code;
    const char* message;
  } cases[] = {
      {28, kIntMonth, "zintc: forgot A code: 28"},
      {kIntMonth, kIntNone, "zintc: forgot a B code: 0"},
      {kIntR445Mon, 43, "zintc: forgot a B code: 43"},
  };
  esf::host::capture_output(true);
  esf::host::take_log();
  for (const Case& c : cases) {
    INTERVAL a = oracle::interval("MONTH");
    INTERVAL b = oracle::interval("MONTH");
    a.intcode = static_cast<char>(c.a_code);
    b.intcode = static_cast<char>(c.b_code);
    EXPECT_EQ(cases::show(zintc(&a, &b)), ".") << c.message;
    EXPECT_NE(esf::host::take_log().find(c.message), std::string::npos) << c.message;
  }
  // Custom intervals are the same when their names are, whatever the case,
  // and have no relation to others; a custom b is no error.
  INTERVAL a = cases::custom_record();
  INTERVAL b = cases::custom_record();
  std::memcpy(b.token, "mYcAl", 5);
  EXPECT_EQ(cases::show(zintc(&a, &b)), "0");
  b.tokenlen = 4;
  EXPECT_EQ(cases::show(zintc(&a, &b)), ".");
  std::memcpy(b.token, "OTHER", 5);
  b.tokenlen = 5;
  EXPECT_EQ(cases::show(zintc(&a, &b)), ".");
  INTERVAL month = oracle::interval("MONTH");
  EXPECT_EQ(cases::show(zintc(&a, &month)), ".");
  EXPECT_EQ(cases::show(zintc(&month, &a)), ".");
  // Nor is a time interval shifted off the day's start against the weeks.
  INTERVAL weekv = oracle::interval("WEEKV");
  INTERVAL minutes = oracle::interval("MINUTE2.2");
  EXPECT_EQ(cases::show(zintc(&weekv, &minutes)), ".S");
  EXPECT_EQ(esf::host::take_log(), "");
  esf::host::capture_output(false);
}

// ---- The nesting property ---------------------------------------------------

bool is_time_name(const std::string& name) {
  return name.rfind("SECOND", 0) == 0 || name.rfind("MINUTE", 0) == 0 || name.rfind("HOUR", 0) == 0;
}

bool is_time_code(int code) { return code == kIntSecond || code == kIntMinute || code == kIntHour; }

bool is_month_family(int code) {
  return code == kIntTenday || code == kIntSemimonth || code == kIntMonth || code == kIntQtr || code == kIntSemiyear ||
         code == kIntYear;
}

// Pairs whose answer rests on a simplification that the calendars don't
// bear out, so that the nesting doesn't hold:
//  - a time interval against a TENDAY counts the TENDAY as ten days;
//  - a time interval of more than a day against a WEEK takes the WEEK's
//    shift in days from day 0, not from its Sunday;
//  - a shifted time interval against a calendar interval: the shift isn't
//    looked at;
//  - a WEEKDAY that doesn't span whole weeks holds a varying number of
//    DAY intervals (1) whatever the DAY's length, and time intervals are
//    compared by way of a DAY;
//  - two WEEKDAY intervals with different weekends, one spanning whole
//    weeks: the WEEK between them is built from the boundary's weekday
//    given as the text shift, one day before the boundary.
bool exempt(const INTERVAL& a, const INTERVAL& b, double r) {
  for (int turn = 0; turn < 2; ++turn) {
    const INTERVAL& x = turn == 0 ? a : b;
    const INTERVAL& y = turn == 0 ? b : a;
    if (is_time_code(x.intcode)) {
      const long unit = x.intcode == kIntSecond ? 1 : x.intcode == kIntMinute ? 60 : 3600;
      const bool over_a_day = static_cast<long>(x.intper) * unit > 86400;
      if (y.intcode == kIntTenday) return true;
      if (y.intcode == kIntWeek && over_a_day) return true;
      if (x.shiftper != 0 && is_month_family(y.intcode)) return true;
      if (y.intcode == kIntWeekday && std::fabs(r) == 1.0) return true;
    }
    if (x.intcode == kIntWeekday && y.intcode == kIntDay && std::fabs(r) == 1.0) return true;
    if (x.intcode == kIntWeekday && y.intcode == kIntWeekday &&
        std::memcmp(x.weekend, y.weekend, sizeof x.weekend) != 0) {
      const bool x_weeks = x.intper % x.nweekday == 0;
      const bool y_weeks = y.intper % y.nweekday == 0;
      if (x_weeks != y_weeks) return true;
    }
  }
  return false;
}

bool is_boundary(INTERVAL* iv, double x) { return zintnx2(iv, x, 0.0) == x; }

// Boundaries of `coarse` over a run of periods from `start`: each is a
// boundary of `fine`, and with a fixed multiple k, k fine intervals lie
// between two of them.
void check_nesting(INTERVAL* coarse, INTERVAL* fine, double start, int periods, double k, const std::string& what) {
  const double first = zintnx2(coarse, start, 0.0);
  ASSERT_FALSE(esf::is_missing(first)) << what;
  double previous = first;
  for (int i = 1; i <= periods; ++i) {
    const double x = zintnx2(coarse, first, i);
    ASSERT_FALSE(esf::is_missing(x)) << what;
    if (!is_boundary(fine, x)) {
      ADD_FAILURE() << what << ": coarse boundary " << x << " isn't a fine boundary";
      return;
    }
    if (k > 1.0) {
      const double count = zintck2(fine, previous, x);
      if (count != k) {
        ADD_FAILURE() << what << ": " << count << " fine intervals from " << previous << " to " << x;
        return;
      }
    }
    previous = x;
  }
}

TEST(IntervalCompare, NestedIntervalsShareBoundaries) {
  const std::vector<std::string> dates = {
      "DAY",        "DAY2",         "DAY7",         "DAY7.2",      "DAY7.4",      "DAY14.3",        "WEEK",
      "WEEK.2",     "WEEK2",        "WEEK2.3",      "WEEKV",       "WEEKV2",      "TENDAY",         "TENDAY3",
      "SEMIMONTH",  "SEMIMONTH2.2", "MONTH",        "MONTH2",      "MONTH3",      "MONTH3.2",       "QTR",
      "QTR.2",      "SEMIYEAR",     "YEAR",         "YEAR2",       "YEARV",       "YEARV2",         "R445MON",
      "R445MON3",   "R454MON",      "R445QTR",      "R454QTR",     "R544QTR",     "R445YR",         "R454YR",
      "WEEKDAY",    "WEEKDAY2",     "WEEKDAY2.2",   "WEEKDAY5",    "WEEKDAY5.2",  "WEEKDAY10.2",    "WEEKDAY17W",
      "WEEKDAY1W",  "WEEKDAY1W6",   "WEEKDAY1W3.2", "WEEKDAY67W",  "WEEKDAY67W5", "WEEKDAY123456W", "WEEKDAY123456W7",
      "WEEKDAY12W", "WEEKDAY12W2",  "WEEKDAY1W2",   "WEEKDAY1W2.2"};
  const std::vector<std::string> times = {"SECOND", "SECOND30", "MINUTE", "MINUTE15", "HOUR",
                                          "HOUR6",  "HOUR6.2",  "HOUR8",  "HOUR48",   "HOUR168"};
  std::vector<std::string> names = dates;
  names.insert(names.end(), times.begin(), times.end());

  const double start_day = cases::d(2001, 6, 15);
  int nested = 0;
  int exempted = 0;
  for (const std::string& an : names) {
    for (const std::string& bn : names) {
      // A time interval meets a date interval on datetime values.
      const bool mixed = is_time_name(an) != is_time_name(bn);
      const std::string a_text = mixed && !is_time_name(an) ? "DT" + an : an;
      const std::string b_text = mixed && !is_time_name(bn) ? "DT" + bn : bn;
      INTERVAL a = oracle::interval(a_text.c_str());
      INTERVAL b = oracle::interval(b_text.c_str());
      const double r = zintc(&a, &b);
      if (esf::is_missing(r)) continue;
      if (exempt(a, b, r)) {
        ++exempted;
        continue;
      }
      ++nested;
      const bool seconds = a.units == kUnitsDatetime;
      const double start = seconds ? start_day * 86400.0 : start_day;
      const int periods = (is_time_name(an) && is_time_name(bn)) ? 200 : 60;
      const std::string what = a_text + " and " + b_text + " (" + cases::show(r) + ")";
      if (r >= 0.0) check_nesting(&a, &b, start, periods, r, what);
      if (r <= 0.0) check_nesting(&b, &a, start, periods, -r, what);
    }
  }
  // The grid holds many nested pairs of every kind.
  EXPECT_GT(nested, 300);
  EXPECT_LT(exempted, nested / 4);
}

}  // namespace
