// Interval fitting (zintfit), season-aware counting and advancing
// (zintck3, zintnx_seas, zintck_seas, zintyrse) and interval multiples
// (zintmult, zintrsimp, zintsea_set): the literal cases, then properties
// over random dates on the library's whole range.
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "intervals/interval.h"
#include "support/calendar_oracle.h"
#include "support/interval_cases.h"

namespace {

using cases::d;
using cases::text_of;

char kDate[] = "d";
char kTime[] = "s";
char kObs[] = "o";
char kSame[] = "S";

using cases::intervalx;
using cases::token_of;

// What zintfit answers: the interval's name, or its result when it fails
// (units it can't fit leave NONE).
std::string fitted(double d1, double d2, char* units) {
  INTERVAL iv{};
  const int rc = zintfit(d1, d2, units, &iv, nullptr);
  if (rc == 1 && (iv.units != kUnitsNone || iv.intper != 1)) return "not NONE";
  return rc == 0 ? token_of(iv) : std::to_string(rc);
}

TEST(IntervalFit, LiteralCases) {
  const double kDot = esf::kMissing;
  const struct {
    double d1, d2;
    char* units;
    const char* want;
  } rows[] = {
      {d(2001, 1, 1), d(2001, 1, 1), kDate, "3"},
      {kDot, d(2001, 1, 1), kDate, "2"},
      {d(2001, 5, 4), d(2001, 5, 7), kDate, "WEEKDAY"},  // Friday to Monday
      {d(2001, 5, 5), d(2001, 5, 8), kDate, "DAY3.2"},   // Saturday to Tuesday
      {d(2001, 5, 8), d(2001, 5, 15), kDate, "WEEK.3"},  // Tuesday to Tuesday
      {d(2001, 2, 1), d(2001, 5, 1), kDate, "QTR.2"},
      {d(2000, 1, 1), d(2002, 1, 1), kDate, "YEAR2"},
      {d(2001, 1, 31), d(2001, 2, 28), kDate, "MONTH"},
      {d(2001, 3, 1), d(2001, 3, 11), kDate, "TENDAY"},
      {d(2001, 3, 1), d(2001, 3, 16), kDate, "SEMIMONTH"},
      {d(2001, 1, 1) * 86400.0, d(2001, 2, 1) * 86400.0, kTime, "DTMONTH"},
      {3700.0, 3790.0, kTime, "DTSECOND90.11"},
      {5.0, 8.0, kObs, "OBS3.3"},
      {1.0, 2.0, const_cast<char*>("x"), "1"},
  };
  // (The calendar command's fits show the cycle and the format a fit fills
  // in.)
  for (const auto& r : rows) EXPECT_EQ(fitted(r.d1, r.d2, r.units), r.want) << r.d1 << " " << r.d2;
}

// Advancing a random date by a random interval with alignment "S" and
// fitting the two dates gives an interval that makes the same step, and
// whose printed name parses back to it.
TEST(IntervalFit, FitsEveryStepOverTheRange) {
  const char* names[] = {"DAY",      "DAY5",      "WEEKDAY",   "WEEK",    "WEEK.4",   "WEEK3",  "WEEKV",
                         "TENDAY",   "TENDAY2.2", "SEMIMONTH", "MONTH",   "MONTH5.3", "QTR",    "QTR.3",
                         "SEMIYEAR", "YEAR",      "YEAR3.7",   "R445MON", "R454QTR",  "R544YR", "YEARV"};
  const char* time_names[] = {"DTDAY", "DTMONTH", "HOUR", "HOUR5.2", "MINUTE", "MINUTE7", "SECOND", "SECOND90"};
  std::mt19937_64 rng(20240611);
  std::uniform_int_distribution<long> day(oracle::kFirstDay, oracle::kLastDay - 4000);
  std::uniform_int_distribution<int> steps(1, 3);
  std::uniform_real_distribution<double> second(0.0, 86400.0);
  int checked = 0;
  for (int trial = 0; trial < 6000; ++trial) {
    const bool time = trial % 3 == 0;
    const char* name = time ? time_names[trial / 3 % std::size(time_names)] : names[trial / 3 % std::size(names)];
    INTERVAL iv = oracle::interval(name);
    const double x = time ? day(rng) * 86400.0 + std::floor(second(rng)) : static_cast<double>(day(rng));
    const double y = zintnx3(&iv, x, steps(rng), kSame, nullptr);
    if (esf::is_missing(y) || std::floor(y) <= std::floor(x)) continue;
    SCOPED_TRACE(std::string(name) + " from " + std::to_string(x) + " to " + std::to_string(y));
    INTERVAL fit{};
    ASSERT_EQ(zintfit(x, y, time ? kTime : kDate, &fit, nullptr), 0);
    EXPECT_EQ(zintnx3(&fit, x, 1.0, kSame, nullptr), y) << text_of(fit);
    const cases::Parsed back = cases::parse(std::string(fit.token, static_cast<size_t>(fit.tokenlen)));
    ASSERT_EQ(back.rc, 0) << text_of(fit);
    EXPECT_TRUE(cases::same_interval(back.iv, fit)) << text_of(fit) << " reads back as " << text_of(back.iv);
    ++checked;
  }
  EXPECT_GT(checked, 5000);
}

// ---- Season-aware counting and advancing -----------------------------------------

TEST(SeasonAware, LiteralCases) {
  // zintyrse: week-year 2004 runs from Sunday 4 January 2004 (the week of
  // 4 January) to Saturday 1 January 2005.
  int year = 0;
  double next = 0.0;
  EXPECT_EQ(zintyrse(d(2005, 1, 1), &year, &next), d(2004, 1, 4));
  EXPECT_EQ(year, 2004);
  EXPECT_EQ(next, d(2005, 1, 2));
  EXPECT_EQ(zintyrse(d(2005, 1, 2), &year, &next), d(2005, 1, 2));
  EXPECT_EQ(year, 2005);

  INTERVALX year_x = intervalx("YEAR");
  INTERVALX weekday = intervalx("WEEKDAY");
  // 1 January 2000 is a Saturday: the YEAR aligned to working days starts
  // on Monday 3 January.
  EXPECT_EQ(zintnx_seas(&year_x, d(2000, 6, 1), 0.0, &weekday), d(2000, 1, 3));
  // WEEK2 aligned to a weekend of Sunday only: weeks begin on Monday.
  INTERVALX week2 = intervalx("WEEK2");
  INTERVALX sunday_off = intervalx("WEEKDAY1W");
  const double monday = zintnx_seas(&week2, d(2001, 5, 9), 0.0, &sunday_off);
  EXPECT_EQ(oracle::weekday_of(static_cast<long>(monday)), 1u);
  // A YEAR aligned to weeks begins on the first Sunday week of its week-year.
  INTERVALX week = intervalx("WEEK");
  EXPECT_EQ(zintnx_seas(&year_x, d(2004, 7, 1), 1.0, &week), d(2005, 1, 2));
  EXPECT_EQ(zintck_seas(&year_x, d(2004, 7, 1), d(2006, 7, 1), &week), 2.0);
  // A cycle of 53 weeks has no leap week to fold: plain weeks.
  INTERVALX week53 = intervalx("WEEK");
  week53.nseasons = 53;
  EXPECT_EQ(zintnx_seas(&week53, d(2004, 12, 26), 1.0, nullptr), d(2005, 1, 2));
  EXPECT_EQ(zintnx_seas(&week, d(2004, 12, 26), 1.0, nullptr), d(2005, 1, 9));
  // zintck3 counts whole steps with alignment "S": 31 January to 30 March
  // is one month (28 February), not two (31 March lies beyond).
  INTERVALX month = intervalx("MONTH");
  EXPECT_EQ(zintck3(&month, d(2001, 1, 31), d(2001, 3, 30)), 1.0);
  EXPECT_EQ(zintck3(&month, d(2001, 1, 31), d(2001, 3, 31)), 2.0);
}

// A weekly count in a 52-week cycle undoes its advance; zintck3 counts back
// the steps of zintnx3. (Where the season doesn't matter the season-aware
// routines hand over to the plain ones.)
TEST(SeasonAware, CountsUndoAdvancesOverTheRange) {
  const char* names[] = {"DAY", "WEEKDAY", "TENDAY", "SEMIMONTH", "MONTH", "MONTH2.2", "QTR", "YEAR", "R445MON"};
  std::mt19937_64 rng(7);
  std::uniform_int_distribution<long> day(oracle::kFirstDay + 800, oracle::kLastDay - 800);
  std::uniform_int_distribution<int> steps(-60, 60);
  INTERVALX week = intervalx("WEEK");
  for (int trial = 0; trial < 4000; ++trial) {
    INTERVALX iv = intervalx(names[trial % std::size(names)]);
    const double x = static_cast<double>(day(rng));
    const int n = steps(rng);
    SCOPED_TRACE(std::string(iv.token) + " " + std::to_string(x) + " " + std::to_string(n));
    const double target = zintnx3(&iv, x, n, kSame, nullptr);
    if (n >= 0 && !esf::is_missing(target)) {
      ASSERT_EQ(zintck3(&iv, x, target), n);
    }

    // Weeks 52 and 53 count as week 1 of the next week-year, so the count
    // undoes the advance between the weeks 1 to 51 of their years.
    const double w = zintnx2(&week, x, 0.0);
    const double moved = zintnx_seas(&week, w, n, nullptr);
    double y0 = 0, w0 = 0, y1 = 0, w1 = 0, dd = 0;
    zidywdds(w, 53, &y0, &w0, &dd);
    zidywdds(moved, 53, &y1, &w1, &dd);
    if (w0 < 52 && w1 < 52) {
      ASSERT_EQ(zintck_seas(&week, w, moved, nullptr), n) << oracle::date_text(static_cast<long>(moved));
    }
    // A whole cycle keeps the week number in its week-year.
    zidywdds(w, 1, &y0, &w0, &dd);
    zidywdds(zintnx_seas(&week, w, 52.0, nullptr), 1, &y1, &w1, &dd);
    ASSERT_EQ(y1, y0 + 1);
    ASSERT_EQ(w1, w0);
  }
}

// ---- Multiples and cycles ---------------------------------------------------------

TEST(IntervalMultiple, LiteralCases) {
  const struct {
    const char* name;
    int times;
    int flag;
    const char* want;
  } rows[] = {
      {"MONTH", 3, 0x11, "QTR"},    {"R445MON", 12, 0x11, "R445YR"}, {"WEEK", 52, 0x11, "YEAR"},
      {"MONTH", 5, 0x11, "MONTH5"}, {"WEEKV", 53, 0x11, "YEARV"},    {"WEEK", 52, 5, "WEEK52"},
      {"MONTH", 12, 8, "MONTH12"},  {"HOUR", 24, 0x11, "DTDAY"},     {"DAY", 7, 0x01, "WEEK.6"},
  };
  for (const auto& r : rows) {
    INTERVALX iv = intervalx(r.name);
    INTERVALX out{};
    ASSERT_EQ(zintmult(&iv, r.times, &out, r.flag), 0);
    EXPECT_EQ(token_of(out), r.want) << r.name << " x " << r.times << " flag " << r.flag;
  }
  EXPECT_EQ(zintmult(nullptr, 3, nullptr, 0x11), 2);

  const struct {
    const char* name;
    const char* want;
    int rc;
  } simp[] = {{"WEEKV104", "YEARV2.", 0},  {"R544MON6", "R544QTR2.", 0}, {"R445QTR8", "R445YR2.", 0},
              {"R454QTR3", "R454QTR3", 0}, {"YEARV", "YEARV", 0},        {"MONTH12", "MONTH12", 1}};
  for (const auto& s : simp) {
    INTERVALX iv = intervalx(s.name);
    EXPECT_EQ(zintrsimp(&iv), s.rc) << s.name;
    EXPECT_EQ(token_of(iv), s.want);
  }

  // zintsea_set: the caller's count and cycle must agree; the cycle is
  // written to the record's own.
  const struct {
    const char* name;
    int ns;
    const char* cycle;
    int rc, nseasons;
    const char* made;
  } set[] = {{"MONTH", 12, "YEAR", 0, 12, "YEAR"},  {"MONTH", 6, "YEAR", 2, 0, nullptr},
             {"OBS", 5, "OBS4", 2, 0, nullptr},     {"MONTH", 0, "year", 0, 12, nullptr},
             {"MONTH", 4, nullptr, 0, 4, "MONTH4"}, {"MONTH", 0, "WEEK", 1, 0, nullptr},
             {"QTR", 0, nullptr, 0, 4, "YEAR"}};
  for (const auto& s : set) {
    SCOPED_TRACE(::testing::Message() << s.name << " " << s.ns);
    INTERVALX iv = intervalx(s.name);
    INTERVALX cycle{};
    iv.sinterval = &cycle;
    INTERVALX named = s.cycle != nullptr ? intervalx(s.cycle) : INTERVALX{};
    int ns = s.ns;
    EXPECT_EQ(zintsea_set(&iv, d(2001, 3, 1), &named, &ns), s.rc);
    if (s.rc == 0) {
      EXPECT_EQ(iv.nseasons, s.nseasons);
    }
    if (s.made != nullptr) {
      EXPECT_EQ(token_of(cycle), s.made);
    }
  }
}

// A multiple spans exactly its count of the interval's periods, and the
// multiple's cycle holds that many fewer seasons.
TEST(IntervalMultiple, SpansItsCountOverTheRange) {
  const struct {
    const char* name;
    int ns;
    std::vector<int> divisors;
  } bases[] = {{"MONTH", 12, {2, 3, 4, 6}},
               {"HOUR", 24, {2, 3, 4, 6, 8, 12}},
               {"SEMIMONTH", 24, {2, 3, 6}},
               {"TENDAY", 36, {3, 9}},
               {"QTR", 4, {2}},
               {"WEEK", 52, {2, 4, 13}},
               {"MINUTE", 60, {5, 15, 30}}};
  std::mt19937_64 rng(11);
  std::uniform_int_distribution<long> day(oracle::kFirstDay, oracle::kLastDay - 400);
  for (const auto& b : bases) {
    for (const int k : b.divisors) {
      INTERVALX iv = intervalx(b.name);
      INTERVALX cycle{};
      INTERVALX out{};
      out.sinterval = &cycle;
      ASSERT_EQ(zintmult(&iv, k, &out, 0x11), 0);
      SCOPED_TRACE(std::string(b.name) + " x " + std::to_string(k) + " = " + text_of(out));
      EXPECT_EQ(out.nseasons, b.ns / k);
      // The same multiple with the interval's own cycle: divided into
      // fewer seasons, or (flag 2) stretched k times with as many seasons.
      for (const int flag : {0x10, 0x12}) {
        INTERVALX own{};
        INTERVALX again{};
        again.sinterval = &own;
        ASSERT_EQ(zintmult(&iv, k, &again, flag), 0);
        INTERVAL standard{};
        int ns = 0;
        zintsea2(&iv, 0.0, &standard, &ns);
        EXPECT_EQ(again.nseasons, flag == 0x12 ? ns : ns / k) << flag;
        EXPECT_EQ(own.intper, flag == 0x12 ? standard.intper * k : standard.intper) << flag;
      }
      const double scale = out.units == kUnitsDatetime ? 86400.0 : 1.0;
      for (int trial = 0; trial < 100; ++trial) {
        const double x = static_cast<double>(day(rng)) * scale;
        const double start = zintnx2(&out, x, 0.0);
        ASSERT_EQ(zintck2(&iv, start, zintnx2(&out, start, 1.0)), k);
      }
    }
  }
}

}  // namespace
