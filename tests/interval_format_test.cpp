// Default output formats of intervals: zintfmt, zintfmm, zintfmp, zintfmd.
// Custom intervals take the format of their tables: custom_test.cpp.
#include <cstring>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include "intervals/interval.h"
#include "primitives/primitives.h"
#include "support/calendar_oracle.h"

namespace {

struct Format {
  std::string name;
  int width1;
  int width2;
  bool operator==(const Format&) const = default;
};

std::ostream& operator<<(std::ostream& os, const Format& f) {
  return os << '"' << f.name << "\" " << f.width1 << ' ' << f.width2;
}

// The outputs start out with values that no routine writes, so that a
// routine that leaves one alone is caught.
struct Outputs {
  char name[32];
  short namelen = -7;
  short width1 = -7;
  short width2 = -7;
  Outputs() { std::memset(name, '#', sizeof(name)); }
  Format format() const {
    return Format{std::string(name, static_cast<size_t>(namelen < 0 ? 0 : namelen)), width1, width2};
  }
};

using oracle::interval;

Format fmt(INTERVAL* iv) {
  Outputs out;
  zintfmt(iv, out.name, &out.namelen, &out.width1, &out.width2);
  EXPECT_EQ(out.name[out.namelen < 0 ? 0 : out.namelen], '#') << "no terminator is written";
  return out.format();
}
Format fmt(const char* text) {
  INTERVAL iv = interval(text);
  return fmt(&iv);
}
const double kMissing = skMissVal('.');

// ---- zintfmt ------------------------------------------------------------------

struct NamedFormat {
  const char* text;
  Format expected;
};

// One row per branch: the shift that turns a quarter or year into months,
// the DT prefix, the retail and ISO calendars, the widths that grow with
// the multiplier and shift of a time interval, and the units' fallbacks.
const NamedFormat kDefaultFormats[] = {
    {"QTR", {"YYQC", 6, 4}},          {"DTQTR.3", {"DTMONYY", 7, 5}},
    {"YEAR", {"YEAR", 4, 2}},         {"DTYEAR", {"DTYEAR", 4, 2}},
    {"YEARV", {"WEEKV", 9, 7}},       {"DTR445MON", {"DTWEEKV", 9, 7}},
    {"WEEK.2", {"WEEKDATX", 17, 15}}, {"DTWEEK", {"DTWKDATX", 17, 15}},
    {"TTENDAY", {"DTDATE", 9, 7}},    {"SECOND5", {"DATETIME", 16, 16}},
    {"MINUTE", {"DATETIME", 13, 13}}, {"MINUTE2.2", {"DATETIME", 16, 16}},
    {"DTHOUR", {"DATETIME", 10, 10}}, {"OBS7.", {"F", 6, 4}},
    {"DTNONE", {"D", 9, 7}},          // intcode 0 is tested before the units
    {"DTOBS", {"DATETIME", 16, 16}},  // OBS in datetime units: no row of its own
};

TEST(Zintfmt, DefaultFormatOfEveryInterval) {
  for (const NamedFormat& c : kDefaultFormats) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(fmt(c.text), c.expected);
  }
}

TEST(Zintfmt, RecordsWithoutAName) {
  EXPECT_EQ(fmt(static_cast<INTERVAL*>(nullptr)), (Format{"D", 9, 7}));
  INTERVAL cleared{};
  EXPECT_EQ(fmt(&cleared), (Format{"D", 9, 7}));

  // Codes outside the table: dates for date units, datetimes otherwise.
  struct Case {
    int intcode;
    char units;
    Format expected;
  };
  const Case cases[] = {
      {28, 'd', {"DATE", 9, 7}},     {12, 's', {"DATETIME", 16, 16}}, {28, 'u', {"F", 6, 4}},
      {kIntMonth, 'u', {"F", 6, 4}}, {kIntCustom, 'o', {"F", 6, 4}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(::testing::Message() << c.intcode << c.units);
    INTERVAL iv{};
    iv.intcode = static_cast<char>(c.intcode);
    iv.units = c.units;
    iv.intper = 1;
    EXPECT_EQ(fmt(&iv), c.expected);
  }
}

// ---- zintfmm, zintfmp, zintfmd ----------------------------------------------------

// zintfmm formats an ID value `a`, zintfmp a range from `a` to `b`, zintfmd
// the duration of one interval; a null name is a null record.
enum Routine { kFmm, kFmp, kFmd };

struct RoutineCase {
  Routine routine;
  const char* text;
  double a, b;
  Format expected;
};

// Values within a span of days of a time interval are times of day, elapsed
// times by their range, durations by the widths; outside the conditions,
// or for other intervals, the default format stands.
const RoutineCase kRoutineCases[] = {
    {kFmm, "HOUR", 0.0, 0, {"TIME", 10, 8}},
    {kFmm, "HOUR", 86400.0, 0, {"TIME", 10, 8}},  // the span is closed
    {kFmm, "HOUR", 86400.5, 0, {"DATETIME", 10, 10}},
    {kFmm, "HOUR", -1.0, 0, {"DATETIME", 10, 10}},
    {kFmm, "HOUR", skMissVal('A'), 0, {"DATETIME", 10, 10}},
    {kFmm, "HOUR2.2", 172801.0, 0, {"TIME", 13, 8}},  // span 1 + 2 * 86400
    {kFmm, "HOUR2.2", 172801.5, 0, {"DATETIME", 13, 13}},
    {kFmm, "DAY", 3.0, 0, {"DATE", 9, 7}},
    {kFmm, nullptr, 3600.0, 0, {"D", 9, 7}},
    {kFmp, "MINUTE", 0, 90, {"HHMM", 3, 3}},
    // SECOND: minutes and seconds up to 1000 periods, a time beyond.
    {kFmp, "SECOND", 0, 900, {"MMSS", 5, 5}},
    {kFmp, "SECOND", 0, 1001, {"TIME", 6, 6}},
    {kFmp, "SECOND1000", 0, 999000, {"TIME", 8, 8}},  // 277 hours
    {kFmp, "SECOND", 0, 1e30, {"TIME", 20, 20}},      // widths are capped
    {kFmp, "MINUTE", 0, 60 * 999.0, {"HHMM", 5, 5}},  // 999 minutes
    {kFmp, "HOUR", 0, 3600 * 99.0, {"HHMM", 4, 1}},
    {kFmp, "HOUR", 0, 3600 * 2000.0, {"HOUR", 3, 3}},
    // 1000 hours: log(1000) / 2.302585092994046 is just below 3.
    {kFmp, "HOUR", 0, 3600 * 1000.0, {"HHMM", 5, 2}},
    {kFmp, "HOUR", 3600 * 20.0, 3600 * 20.0, {"HHMM", 3, 0}},  // no periods
    // minval at the top of its range: twice the span of a day.
    {kFmp, "HOUR", 172800.0, 172800.0 + 3600 * 5, {"HHMM", 3, 0}},
    {kFmp, "dtminute", 0, 90, {"DATETIME", 13, 13}},  // spelled with DT
    {kFmp, "HOUR", -1, 3600, {"DATETIME", 10, 10}},
    {kFmp, "HOUR", 172800.5, 180000, {"DATETIME", 10, 10}},
    {kFmp, "MINUTE", 0, kMissing, {"DATETIME", 13, 13}},
    {kFmp, nullptr, 0, 90, {"D", 9, 7}},
    // Each boundary of the widths of a duration, on both sides.
    {kFmd, "SECOND5", 0, 0, {"MMSS", 5, 5}},
    {kFmd, "SECOND6", 0, 0, {"MMSS", 6, 5}},
    {kFmd, "SECOND16", 0, 0, {"TIME", 8, 5}},
    {kFmd, "SECOND86399", 0, 0, {"TIME", 8, 5}},
    {kFmd, "SECOND86400", 0, 0, {"DATETIME", 16, 16}},
    {kFmd, "MINUTE15", 0, 0, {"HHMM", 6, 5}},
    {kFmd, "MINUTE16", 0, 0, {"HHMM", 7, 5}},
    {kFmd, "MINUTE61", 0, 0, {"HHMM", 7, 6}},
    {kFmd, "MINUTE1440", 0, 0, {"DATETIME", 13, 13}},
    {kFmd, "HOUR4", 0, 0, {"HHMM", 10, 8}},
    {kFmd, "HOUR5", 0, 0, {"HHMM", 11, 8}},
    {kFmd, "HOUR24", 0, 0, {"DATETIME", 10, 10}},
    {kFmd, "DTHOUR", 0, 0, {"DATETIME", 10, 10}},  // its token begins with "D"
    {kFmd, "MONTH", 0, 0, {"MONYY", 7, 5}},
    {kFmd, "NONE", 0, 0, {"D", 9, 7}},
    {kFmd, nullptr, 0, 0, {"D", 9, 7}},
};

TEST(FormatRoutines, TimesOfDayElapsedTimesAndDurations) {
  for (const RoutineCase& c : kRoutineCases) {
    SCOPED_TRACE(::testing::Message() << "routine " << c.routine << " " << (c.text ? c.text : "null") << " " << c.a
                                      << " " << c.b);
    INTERVAL parsed = c.text != nullptr ? interval(c.text) : INTERVAL{};
    INTERVAL* iv = c.text != nullptr ? &parsed : nullptr;
    Outputs out;
    if (c.routine == kFmm) zintfmm(iv, c.a, out.name, &out.namelen, &out.width1, &out.width2);
    if (c.routine == kFmp) zintfmp(iv, c.a, c.b, out.name, &out.namelen, &out.width1, &out.width2);
    if (c.routine == kFmd) zintfmd(iv, out.name, &out.namelen, &out.width1, &out.width2);
    EXPECT_EQ(out.format(), c.expected);
  }
  INTERVAL hour_in_obs = interval("HOUR");
  hour_in_obs.units = 'o';
  Outputs out;
  zintfmm(&hour_in_obs, 3600.0, out.name, &out.namelen, &out.width1, &out.width2);
  EXPECT_EQ(out.format(), (Format{"F", 6, 4}));
}

}  // namespace
