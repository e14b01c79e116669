// The host's date routines: conversions between date values (days since
// 1 January 1960) and calendar fields in the proleptic Gregorian calendar.
// The arithmetic is the closed-form civil-day conversion of the calendar
// library, so that the module's own fast paths and these routines agree
// on every date.

#include "host/host_dates.h"

#include <cmath>
#include <cstdint>

#include "common/civil_days.h"
#include "primitives/primitives.h"

namespace {

// Dates are split only while their year fits an int with room to spare:
// about a billion years either way.
constexpr double kSplitLimit = 365.0 * 1.0e9;

// Whether a double holds a whole number that fits an int.
bool whole_int(double v, int* out) {
  if (!(v >= -2147483648.0 && v <= 2147483647.0)) return false;  // also rejects NaN
  if (std::floor(v) != v) return false;
  *out = static_cast<int>(v);
  return true;
}

double date_of(int month, int day, int year) {
  if (month < 1 || month > 12) return esf::kMissing;
  if (day < 1 || day > calendar::last_day_of_month(year, month)) return esf::kMissing;
  return static_cast<double>(calendar::days_from_civil(year, month, day));
}

bool splittable(double date) {
  return !esf::is_missing(date) && std::fabs(date) <= kSplitLimit;  // also rejects NaN
}

}  // namespace

extern "C" double zmdy(double month, double day, double year) {
  int m = 0;
  int d = 0;
  int y = 0;
  if (!whole_int(month, &m) || !whole_int(day, &d) || !whole_int(year, &y)) {
    return esf::kMissing;
  }
  return date_of(m, d, y);
}

extern "C" double ziddmdy(int month, int day, int year) { return date_of(month, day, year); }

extern "C" int zidmdyd(int* m, int* d, int* y, double date) {
  if (!splittable(date)) {
    *m = 0;
    *d = 0;
    *y = 0;
    return 1;
  }
  const calendar::CivilDate c = calendar::civil_from_days(static_cast<calendar::DayNumber>(std::floor(date)));
  *m = c.month;
  *d = c.day;
  *y = static_cast<int>(c.year);
  return 0;
}

extern "C" double zwekday(double date) {
  if (!splittable(date)) return esf::kMissing;
  return calendar::weekday_sunday0(static_cast<calendar::DayNumber>(std::floor(date))) + 1.0;
}

extern "C" double zyear(double date) {
  if (!splittable(date)) return esf::kMissing;
  return static_cast<double>(calendar::civil_from_days(static_cast<calendar::DayNumber>(std::floor(date))).year);
}

extern "C" double ztimprt(double datetime) {
  if (esf::is_missing(datetime) || !std::isfinite(datetime)) return esf::kMissing;
  return datetime - std::floor(datetime / calendar::kSecondsPerDay) * calendar::kSecondsPerDay;
}
