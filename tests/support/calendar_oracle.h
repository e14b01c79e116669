// An independent calendar for the tests of the date and interval routines:
// everything here is computed with std::chrono's civil calendar
// (year_month_day, sys_days, weekday) and plain loops, never with the
// library's own arithmetic, so that a fault in one isn't mirrored by the
// other.
#pragma once

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "intervals/interval.h"

namespace oracle {

namespace chr = std::chrono;

inline constexpr chr::sys_days kEpoch{chr::year{1960} / chr::January / 1};

// The library's date limits, written out as dates.
inline const long kFirstDay = (chr::sys_days{chr::year{1582} / 1 / 1} - kEpoch).count();
inline const long kLastDay = (chr::sys_days{chr::year{20000} / 12 / 26} - kEpoch).count();

inline long day_of(int y, unsigned m, unsigned d) {
  return (chr::sys_days{chr::year{y} / chr::month{m} / chr::day{d}} - kEpoch).count();
}

inline chr::sys_days sys_of(long x) { return kEpoch + chr::days{x}; }

inline chr::year_month_day ymd_of(long x) { return chr::year_month_day{sys_of(x)}; }

inline int year_of(long x) { return static_cast<int>(ymd_of(x).year()); }
inline unsigned month_of(long x) { return static_cast<unsigned>(ymd_of(x).month()); }
inline unsigned mday_of(long x) { return static_cast<unsigned>(ymd_of(x).day()); }

// 0 Sunday to 6 Saturday.
inline unsigned weekday_of(long x) { return chr::weekday{sys_of(x)}.c_encoding(); }

// Days since 1 January of the date's year.
inline long yday_of(long x) { return (sys_of(x) - chr::sys_days{ymd_of(x).year() / chr::January / 1}).count(); }

// ISO 8601: week 1 is the week (Monday to Sunday) that holds 4 January.
struct IsoWeek {
  int year;
  unsigned week;
  unsigned day;  // 1 Monday .. 7 Sunday
};

inline chr::sys_days iso_week1_monday(int y) {
  const chr::sys_days jan4{chr::year{y} / chr::January / 4};
  return jan4 - (chr::weekday{jan4} - chr::Monday);
}

inline IsoWeek iso_of(long x) {
  const chr::sys_days d = sys_of(x);
  int y = year_of(x);
  if (d >= iso_week1_monday(y + 1)) {
    ++y;
  } else if (d < iso_week1_monday(y)) {
    --y;
  }
  return {y, static_cast<unsigned>((d - iso_week1_monday(y)).count() / 7 + 1), chr::weekday{d}.iso_encoding()};
}

// Months since January 1960.
inline long month_index(long x) {
  const chr::year_month_day ymd = ymd_of(x);
  return (static_cast<int>(ymd.year()) - 1960) * 12L + static_cast<unsigned>(ymd.month()) - 1;
}

// Floor of a / b for b > 0, by the textbook correction of C's truncation.
inline long fdiv(long a, long b) {
  long q = a / b;
  if ((a % b != 0) && (a < 0)) --q;
  return q;
}

// ---- Random dates -----------------------------------------------------------

class Dates {
 public:
  explicit Dates(std::uint64_t seed) : gen_(seed) {}
  long any() { return std::uniform_int_distribution<long>(kFirstDay, kLastDay)(gen_); }
  // A date far enough from the limits that moving by `margin` days stays inside.
  long inner(long margin) { return std::uniform_int_distribution<long>(kFirstDay + margin, kLastDay - margin)(gen_); }
  long between(long lo, long hi) { return std::uniform_int_distribution<long>(lo, hi)(gen_); }

 private:
  std::mt19937_64 gen_;
};

// ---- Interval records ---------------------------------------------------------

inline INTERVAL interval(const char* name) {
  INTERVAL iv{};
  const int rc = zintstr(const_cast<tchar*>(name), -1, &iv);
  EXPECT_EQ(rc, 0) << "parsing " << name;
  return iv;
}

inline std::string date_text(long x) {
  const chr::year_month_day ymd = ymd_of(x);
  char buf[32];
  std::snprintf(buf, sizeof buf, "%d-%02u-%02u", static_cast<int>(ymd.year()), static_cast<unsigned>(ymd.month()),
                static_cast<unsigned>(ymd.day()));
  return buf;
}

}  // namespace oracle
