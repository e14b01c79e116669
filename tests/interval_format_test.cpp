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

const double kMissing = skMissVal('.');

// zintfmt gives the default format of an interval, zintfmm that of an ID
// value `a`, zintfmp that of a range from `a` to `b`, zintfmd that of the
// duration of one interval; a null name is a null record.
enum Routine { kFmt, kFmm, kFmp, kFmd };

Format format_of(Routine routine, INTERVAL* iv, double a = 0, double b = 0) {
  Outputs out;
  if (routine == kFmt) zintfmt(iv, out.name, &out.namelen, &out.width1, &out.width2);
  if (routine == kFmm) zintfmm(iv, a, out.name, &out.namelen, &out.width1, &out.width2);
  if (routine == kFmp) zintfmp(iv, a, b, out.name, &out.namelen, &out.width1, &out.width2);
  if (routine == kFmd) zintfmd(iv, out.name, &out.namelen, &out.width1, &out.width2);
  EXPECT_EQ(out.name[out.namelen < 0 ? 0 : out.namelen], '#') << "no terminator is written";
  return out.format();
}

struct RoutineCase {
  Routine routine;
  const char* text;
  double a, b;
  Format expected;
};

const RoutineCase kRoutineCases[] = {
    // zintfmt, one row per branch: the shift that turns a quarter or year
    // into months, the DT prefix, the retail and ISO calendars, the widths
    // that grow with the multiplier and shift of a time interval, and the
    // units' fallbacks.
    {kFmt, "QTR", 0, 0, {"YYQC", 6, 4}},
    {kFmt, "DTQTR.3", 0, 0, {"DTMONYY", 7, 5}},
    {kFmt, "YEAR", 0, 0, {"YEAR", 4, 2}},
    {kFmt, "DTYEAR", 0, 0, {"DTYEAR", 4, 2}},
    {kFmt, "YEARV", 0, 0, {"WEEKV", 9, 7}},
    {kFmt, "DTR445MON", 0, 0, {"DTWEEKV", 9, 7}},
    {kFmt, "WEEK.2", 0, 0, {"WEEKDATX", 17, 15}},
    {kFmt, "DTWEEK", 0, 0, {"DTWKDATX", 17, 15}},
    {kFmt, "TTENDAY", 0, 0, {"DTDATE", 9, 7}},
    {kFmt, "SECOND5", 0, 0, {"DATETIME", 16, 16}},
    {kFmt, "MINUTE", 0, 0, {"DATETIME", 13, 13}},
    {kFmt, "MINUTE2.2", 0, 0, {"DATETIME", 16, 16}},
    {kFmt, "DTHOUR", 0, 0, {"DATETIME", 10, 10}},
    {kFmt, "OBS7.", 0, 0, {"F", 6, 4}},
    {kFmt, "DTNONE", 0, 0, {"D", 9, 7}},          // intcode 0 is tested before the units
    {kFmt, "DTOBS", 0, 0, {"DATETIME", 16, 16}},  // OBS in datetime units: no row of its own
    {kFmt, nullptr, 0, 0, {"D", 9, 7}},
    // Values within a span of days of a time interval are times of day,
    // elapsed times by their range, durations by the widths; outside the
    // conditions, or for other intervals, the default format stands.
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

TEST(FormatRoutines, DefaultsTimesOfDayElapsedTimesAndDurations) {
  for (const RoutineCase& c : kRoutineCases) {
    SCOPED_TRACE(::testing::Message() << "routine " << c.routine << " " << (c.text ? c.text : "null") << " " << c.a
                                      << " " << c.b);
    INTERVAL parsed = c.text != nullptr ? interval(c.text) : INTERVAL{};
    EXPECT_EQ(format_of(c.routine, c.text != nullptr ? &parsed : nullptr, c.a, c.b), c.expected);
  }
  // Records that no name gives. Codes outside the table: dates for date
  // units, datetimes otherwise; a time interval in observation units shows
  // no time.
  const struct {
    Routine routine;
    int intcode;
    char units;
    Format expected;
  } records[] = {
      {kFmt, 28, 'd', {"DATE", 9, 7}},     {kFmt, 12, 's', {"DATETIME", 16, 16}}, {kFmt, 28, 'u', {"F", 6, 4}},
      {kFmt, kIntMonth, 'u', {"F", 6, 4}}, {kFmt, kIntCustom, 'o', {"F", 6, 4}},  {kFmm, kIntHour, 'o', {"F", 6, 4}},
  };
  for (const auto& r : records) {
    INTERVAL iv{};
    iv.intcode = static_cast<char>(r.intcode);
    iv.units = r.units;
    iv.intper = 1;
    EXPECT_EQ(format_of(r.routine, &iv, 3600.0), r.expected) << r.intcode << r.units;
  }
}

}  // namespace
