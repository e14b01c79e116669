// Interval counting (zintck2): a cross-check of thousands of random pairs of
// dates over the whole range against counts computed with std::chrono
// (support/calendar_oracle.h) and walks, the anchors and units it doesn't
// reach, and the refusals (those of advancing too). Custom intervals count by their tables:
// custom_test.cpp.
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
using oracle::fdiv;

constexpr double kDot = esf::kMissing;

// ---- Corner cases and refusals ------------------------------------------------------
//
// Every date interval with its multiples and shifts, the working days, the
// time intervals and the DT forms are checked against std::chrono and walks
// below; these are the units the cross-checks don't reach, and the refusals.
TEST(CountEdges, PlainUnitsAndRefusals) {
  const struct {
    const char* name;
    double x1, x2, count;  // kDot for the missing value
  } cases[] = {
      {"OBS", 3.0, 7.0, 4},
      {"OBS3", 2.0, 3.0, 1},
      {"OBS3.2", 2.0, 3.0, 1},  // the shift plays no part in counting
      {"3", -1.0, 0.0, 1},
      {"NONE", 7.25, 2.5, -5},
      {"MONTH", 100.0, kDot, kDot},
      {"MONTH", esf::missing_letter('I'), 100.0, kDot},  // only a custom interval takes .I
      {"DAY", -138062.0, 0.0, kDot},
      {"DAY", 0.0, 6589336.0, kDot},
      {"DAY", -138061.0, 6589335.0, 6589335.0 + 138061.0},
      {"NONE", 1e153, 0.0, kDot},
      {"SECOND", 1e153, 0.0, kDot},
      {"DTOBS", 1.0, 2.0, kDot},
      {"DTDAY", 1e12, 0.0, kDot},
  };
  for (const auto& c : cases) {
    INTERVAL iv = oracle::interval(c.name);
    EXPECT_TRUE(same(zintck2(&iv, c.x1, c.x2), c.count)) << c.name << " from " << c.x1 << " to " << c.x2;
  }
  INTERVAL hour_on_dates = oracle::interval("HOUR");
  hour_on_dates.units = kUnitsDate;  // date values are taken as midnight datetimes
  EXPECT_EQ(zintck2(&hour_on_dates, 0.0, 1.0), 24.0);
}

// Codes the parser never produces reach the debug output and answer ".",
// counting and advancing alike; a WEEKDAY without working days has no periods.
TEST(CountRefusals, CodesOutsideTheTablesGoToTheDebugOutput) {
  cases::expect_bad_codes_logged([](INTERVAL* iv) { return zintck2(iv, 100.0, 200.0); },
                                 {{'d', 38, "zintck2: invalid intcode=38"},
                                  {'s', 12, "zintck2: bad intcode=12"},
                                  {'d', 22, "zintck2: bad intcode=22"}});
  cases::expect_bad_codes_logged(
      [](INTERVAL* iv) { return zintnx2(iv, 100.0, 1.0); },
      {{'d', 38, "zintnx2: yearbase: bad intcode=38"}, {'s', 12, "zintnx2: bad intcode=12"}});
  INTERVAL no_working_day = oracle::interval("WEEKDAY");
  std::memset(no_working_day.weekend, 1, sizeof no_working_day.weekend);
  EXPECT_TRUE(esf::is_missing(zintck2(&no_working_day, 0.0, 10.0)));
  EXPECT_TRUE(esf::is_missing(zintnx2(&no_working_day, 0.0, 1.0)));
}

// ---- Cross-check against std::chrono ------------------------------------------------

// Index of the base unit of a value, computed with std::chrono; the count
// is then the difference of the floored period numbers of the two indices.
struct Oracle {
  long f;                   // units per interval
  long s;                   // boundaries at indices congruent to s modulo f
  long (*index)(long day);  // base-unit index of a date
};

long day_index(long x) { return x; }
long month_index(long x) { return oracle::month_index(x); }
long tenday_index(long x) {
  const unsigned dd = oracle::mday_of(x);
  return 3 * oracle::month_index(x) + (dd > 10) + (dd > 20);
}
long semimonth_index(long x) { return 2 * oracle::month_index(x) + (oracle::mday_of(x) > 15); }
long isoweek_index(long x) {
  const oracle::IsoWeek iso = oracle::iso_of(x);
  return (iso.week > 52 ? 52 : static_cast<long>(iso.week)) - 1 + 52L * (iso.year - 1960);
}
long retail_index(long x, const int* table) {
  const oracle::IsoWeek iso = oracle::iso_of(x);
  long month = 0;
  while (month < 12 && table[month] < static_cast<int>(iso.week)) ++month;
  return month - 1 + 12L * (iso.year - 1960);
}
long r445_index(long x) { return retail_index(x, r445mon_index); }
long r454_index(long x) { return retail_index(x, r454mon_index); }
long r544_index(long x) { return retail_index(x, r544mon_index); }

long period_of(const Oracle& o, long x) { return fdiv(o.index(x) - o.s, o.f); }

// Working days counted from Friday 1 January 1960: the working days in
// (0, x] for x >= 0, less those in (x, 0] for x < 0, after a weekend day
// has been walked back to the working day before it. Bit w of kWeekend is
// set when weekday w (0 Sunday) is off.
template <unsigned kWeekend>
long working_index(long x) {
  const auto off = [](long y) { return (kWeekend >> oracle::weekday_of(y) & 1u) != 0; };
  while (off(x)) --x;
  long per_week = 0;
  for (int w = 0; w < 7; ++w) per_week += (kWeekend >> w & 1u) == 0;
  const auto working_in = [&](long lo, long hi) {  // working days in (lo, hi], lo <= hi
    const long weeks = (hi - lo) / 7;
    long n = weeks * per_week;
    for (long y = lo + 7 * weeks + 1; y <= hi; ++y) n += !off(y);
    return n;
  };
  return x >= 0 ? working_in(0, x) : -working_in(x, 0);
}

struct CrossCase {
  const char* name;
  Oracle oracle;
};

// Each date interval counts dates and, with the prefix DT, the days that
// datetimes fall on; a time interval counts seconds (its index is the
// second itself).
TEST(CountCrossCheck, IntervalsAgreeWithChronoAndWalks) {
  const CrossCase cases[] = {
      {"DAY", {1, 0, day_index}},
      {"DAY3.2", {3, 1, day_index}},
      {"WEEK", {7, -5, day_index}},  // Sunday is day -5
      {"WEEK2.3", {14, -3, day_index}},
      {"WEEKV3.4", {21, -1, day_index}},
      {"TENDAY3.2", {3, 1, tenday_index}},
      {"SEMIMONTH", {1, 0, semimonth_index}},
      {"MONTH", {1, 0, month_index}},
      {"MONTH5.3", {5, 2, month_index}},
      {"QTR", {3, 0, month_index}},
      {"QTR.2", {3, 1, month_index}},
      {"YEAR", {12, 0, month_index}},
      {"YEAR3.14", {36, 13, month_index}},
      {"YEARV", {52, 0, isoweek_index}},
      {"YEARV2.60", {104, 59, isoweek_index}},
      {"YEARV3.10", {156, 9, isoweek_index}},  // the shift carries two whole years
      {"YEARV4.200", {208, 199, isoweek_index}},
      {"R445MON", {1, 0, r445_index}},
      {"R445MON5.3", {5, 2, r445_index}},
      {"R454QTR", {3, 0, r454_index}},
      {"R544YR.4", {12, 3, r544_index}},
      // Working days, walked (Sunday is bit 0).
      {"WEEKDAY", {1, 0, working_index<0b1000001>}},
      {"WEEKDAY67W", {1, 0, working_index<0b1100000>}},
      {"WEEKDAY1W", {1, 0, working_index<0b0000001>}},
      {"WEEKDAY3.2", {3, 1, working_index<0b1000001>}},
      {"WEEKDAY246W4.4", {4, 3, working_index<0b0101010>}},
      // Seconds.
      {"SECOND", {1, 0, day_index}},
      {"MINUTE", {60, 0, day_index}},
      {"HOUR", {3600, 0, day_index}},
      {"HOUR4.2", {14400, 3600, day_index}},
      {"MINUTE15.7", {900, 360, day_index}},
  };
  oracle::Dates dates(2001);
  for (const CrossCase& c : cases) {
    INTERVAL iv = oracle::interval(c.name);
    const bool seconds = iv.units == kUnitsDatetime;
    INTERVAL on_datetimes = seconds ? iv : oracle::interval((std::string("DT") + c.name).c_str());
    const long unit = seconds ? 86400 : 1;
    const long window = seconds ? 200000 : 400;
    for (int i = 0; i < 3000; ++i) {
      const long x1 = dates.any() * unit + dates.between(0, unit - 1);
      const long x2 = i % 3 == 0 ? dates.any() * unit : x1 + dates.between(-window, window);
      if (x2 < oracle::kFirstDay * unit || x2 >= (oracle::kLastDay + 1) * unit) continue;
      const double expect = static_cast<double>(period_of(c.oracle, x2) - period_of(c.oracle, x1));
      const std::string at = std::string(c.name) + " " + std::to_string(x1) + " to " + std::to_string(x2);
      ASSERT_EQ(zintck2(&iv, x1 + (seconds ? 0.5 : 0.0), x2 + (seconds ? 0.25 : 0.0)), expect) << at;
      if (!seconds) {
        const double t1 = x1 * 86400.0 + dates.between(0, 86399);
        const double t2 = x2 * 86400.0 + dates.between(0, 86399);
        ASSERT_EQ(zintck2(&on_datetimes, t1, t2), expect) << "DT" << at;
      }
    }
  }
}

}  // namespace
