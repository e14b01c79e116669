// Dates of a year, week and day: in the ISO 8601 calendar, and in the
// Sunday-based week calendar of the season routines.

#include "host/host_dates.h"
#include "intervals/interval.h"
#include "primitives/primitives.h"

extern "C" double ziddywd(int year, int week, int day) {
  // 4 January always lies in ISO week 1; step back to that week's Monday.
  const double jan4 = ziddmdy(1, 4, year);
  double iso_year = 0.0;
  double iso_week = 0.0;
  double iso_day = 0.0;  // [1, 7], 1 Monday
  char convention[] = "V";
  zidywdd(jan4, convention, 1, &iso_year, &iso_week, &iso_day);
  return jan4 + (1.0 - iso_day) + static_cast<double>(7L * week - 7) + static_cast<double>(day - 1L);
}

// The Sunday that opens the WEEK holding 4 January of `year`.
static double week_year_start(int year) {
  INTERVAL plain_week;
  zintic(kIntWeek, &plain_week);
  return zintnx2(&plain_week, ziddmdy(1, 4, year), 0.0);
}

extern "C" double ziddywds(int year, int week, int day) {
  if (day < 1 || day > 7 || week < 1 || week > 53) return esf::kMissing;
  const double b = week_year_start(year);
  if (esf::is_missing(b)) return b;
  const double r = b + static_cast<double>(7 * week - 7) + static_cast<double>(day - 1);
  if (week == 53) {
    // A week 53 exists only when it ends before the next week-year opens.
    const double next_start = week_year_start(year + 1);
    if (esf::is_missing(next_start) || r > next_start) return esf::kMissing;
  }
  return r;
}
