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

// Runs one of the routines on fresh outputs.
template <class Routine>
Format call(Routine routine) {
  Outputs out;
  routine(out.name, &out.namelen, &out.width1, &out.width2);
  return out.format();
}

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
Format fmm(INTERVAL* iv, double idval) {
  return call([&](auto... out) { zintfmm(iv, idval, out...); });
}
Format fmp(INTERVAL* iv, double minval, double maxval) {
  return call([&](auto... out) { zintfmp(iv, minval, maxval, out...); });
}
Format fmd(INTERVAL* iv) {
  return call([&](auto... out) { zintfmd(iv, out...); });
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
    {"QTR", {"YYQC", 6, 4}},
    {"QTR.2", {"MONYY", 7, 5}},
    {"DTQTR.3", {"DTMONYY", 7, 5}},
    {"YEAR", {"YEAR", 4, 2}},
    {"DTYEAR", {"DTYEAR", 4, 2}},
    {"MONTH3.2", {"MONYY", 7, 5}},
    {"YEARV", {"WEEKV", 9, 7}},
    {"DTR445MON", {"DTWEEKV", 9, 7}},
    {"WEEK.2", {"WEEKDATX", 17, 15}},
    {"DTWEEK", {"DTWKDATX", 17, 15}},
    {"SEMIMONTH", {"DATE", 9, 7}},
    {"TTENDAY", {"DTDATE", 9, 7}},
    {"SECOND5", {"DATETIME", 16, 16}},
    {"MINUTE", {"DATETIME", 13, 13}},
    {"MINUTE2.2", {"DATETIME", 16, 16}},
    {"DTHOUR", {"DATETIME", 10, 10}},
    {"OBS7.", {"F", 6, 4}},
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

// ---- zintfmm ------------------------------------------------------------------

// Values within a span of days of a time interval are times of day; outside
// it, or for other intervals, the default format stands.
TEST(Zintfmm, SmallValuesOfTimeIntervalsAreTimesOfDay) {
  const struct {
    const char* text;
    double idval;
    Format expected;
  } cases[] = {
      {"HOUR", 0.0, {"TIME", 10, 8}},
      {"HOUR", 86400.0, {"TIME", 10, 8}},  // the span is closed
      {"HOUR", 86400.5, {"DATETIME", 10, 10}},
      {"HOUR", -1.0, {"DATETIME", 10, 10}},
      {"HOUR", skMissVal('A'), {"DATETIME", 10, 10}},
      {"HOUR2.2", 172801.0, {"TIME", 13, 8}},  // span 1 + 2 * 86400
      {"HOUR2.2", 172801.5, {"DATETIME", 13, 13}},
      {"DAY", 3.0, {"DATE", 9, 7}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(::testing::Message() << c.text << " " << c.idval);
    INTERVAL iv = interval(c.text);
    EXPECT_EQ(fmm(&iv, c.idval), c.expected);
  }
  EXPECT_EQ(fmm(nullptr, 3600.0), (Format{"D", 9, 7}));
  INTERVAL hour_in_obs = interval("HOUR");
  hour_in_obs.units = 'o';
  EXPECT_EQ(fmm(&hour_in_obs, 3600.0), (Format{"F", 6, 4}));
}

// ---- zintfmp ------------------------------------------------------------------

TEST(Zintfmp, ElapsedTimesByTheirRange) {
  const struct {
    const char* text;
    double minval;
    double maxval;
    Format expected;
  } cases[] = {
      {"MINUTE", 0, 90, {"HHMM", 3, 3}},
      // SECOND: minutes and seconds up to 1000 periods, a time beyond.
      {"SECOND", 0, 900, {"MMSS", 5, 5}},
      {"SECOND", 0, 1001, {"TIME", 6, 6}},
      {"SECOND1000", 0, 999000, {"TIME", 8, 8}},  // 277 hours
      {"SECOND", 0, 1e30, {"TIME", 20, 20}},      // widths are capped
      {"MINUTE", 0, 60 * 999.0, {"HHMM", 5, 5}},  // 999 minutes
      {"HOUR", 0, 3600 * 99.0, {"HHMM", 4, 1}},
      {"HOUR", 0, 3600 * 2000.0, {"HOUR", 3, 3}},
      // 1000 hours: log(1000) / 2.302585092994046 is just below 3.
      {"HOUR", 0, 3600 * 1000.0, {"HHMM", 5, 2}},
      {"HOUR", 3600 * 20.0, 3600 * 20.0, {"HHMM", 3, 0}},  // no periods
      // minval at the top of its range: twice the span of a day.
      {"HOUR", 172800.0, 172800.0 + 3600 * 5, {"HHMM", 3, 0}},
      // Outside the condition the default format stands.
      {"dtminute", 0, 90, {"DATETIME", 13, 13}},  // spelled with DT
      {"HOUR", -1, 3600, {"DATETIME", 10, 10}},
      {"HOUR", 172800.5, 180000, {"DATETIME", 10, 10}},
      {"MINUTE", 0, kMissing, {"DATETIME", 13, 13}},
      {"DAY", 0, 90, {"DATE", 9, 7}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(::testing::Message() << c.text << " " << c.minval << ".." << c.maxval);
    INTERVAL iv = interval(c.text);
    EXPECT_EQ(fmp(&iv, c.minval, c.maxval), c.expected);
  }
  EXPECT_EQ(fmp(nullptr, 0, 90), (Format{"D", 9, 7}));
}

// ---- zintfmd ------------------------------------------------------------------

TEST(Zintfmd, DurationOfOneInterval) {
  const NamedFormat cases[] = {
      // Each boundary of the widths, on both sides.
      {"SECOND5", {"MMSS", 5, 5}},
      {"SECOND6", {"MMSS", 6, 5}},
      {"SECOND16", {"TIME", 8, 5}},
      {"SECOND86399", {"TIME", 8, 5}},
      {"SECOND86400", {"DATETIME", 16, 16}},
      {"MINUTE15", {"HHMM", 6, 5}},
      {"MINUTE16", {"HHMM", 7, 5}},
      {"MINUTE61", {"HHMM", 7, 6}},
      {"MINUTE1440", {"DATETIME", 13, 13}},
      {"HOUR4", {"HHMM", 10, 8}},
      {"HOUR5", {"HHMM", 11, 8}},
      {"HOUR24", {"DATETIME", 10, 10}},
      {"DTHOUR", {"DATETIME", 10, 10}},  // its token begins with "D"
      {"MONTH", {"MONYY", 7, 5}},
      {"NONE", {"D", 9, 7}},
  };
  for (const NamedFormat& c : cases) {
    SCOPED_TRACE(c.text);
    INTERVAL iv = interval(c.text);
    EXPECT_EQ(fmd(&iv), c.expected);
  }
  EXPECT_EQ(fmd(nullptr), (Format{"D", 9, 7}));
}

}  // namespace
