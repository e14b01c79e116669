// Year, week and day of a date under the ISO 8601 and the two simple week
// conventions, the Sunday-based week-year of the season routines, and the
// day-count conventions behind zdatdif.
//
// zidywdd is written against the host's date routines (zidmdyd, zmdy,
// zwekday) and zdatdif, one step after another, so that its answer is the
// host's answer; the counting and advancing fast paths use the equivalent
// closed forms of calendar_arith.h, and the tests hold the two together.

#include <cmath>

#include "host/host_dates.h"
#include "intervals/calendar_arith.h"
#include "intervals/interval.h"
#include "primitives/primitives.h"

namespace {

// ISO day number (1 Monday to 7 Sunday) from a host weekday (1 Sunday to 7
// Saturday) less one.
int iso_day_of(int sunday0) { return sunday0 == 0 ? 7 : sunday0; }

// Leap years in [1, y - 1] for any y, counted with floored division so that
// differences are right on both sides of year 0.
long leap_years_before(long y) {
  return calendar::floordiv(y - 1, 4) - calendar::floordiv(y - 1, 100) + calendar::floordiv(y - 1, 400);
}

}  // namespace

extern "C" int iso_week_days(int yday, int wday) {
  // 382 is 378, a multiple of 7 big enough to keep the left operand of %
  // positive, plus the weekday 4 (Thursday) that every ISO week 1 holds.
  return yday - ((yday - wday + 382) % 7) + 3;
}

extern "C" int zidywdd(double date, tchar* fmt, int /*fmtl*/, double* year, double* week, double* day) {
  *year = -1.0;
  *week = -1.0;
  *day = -1.0;

  int m = 0;
  int d = 0;
  int y = 0;
  // The callers hold the date to the library's limits; a date the host
  // can't split leaves the three results at -1.
  if (zidmdyd(&m, &d, &y, date) != 0) return 0;
  *day = d;
  *year = y;

  const double sdate = zmdy(1.0, 1.0, y);
  const int weekday = static_cast<int>(zwekday(date));  // [1, 7], 1 Sunday
  long difday = 0;                                      // [0, 365] days since 1 January
  zdatdif(sdate, date, 2, &difday, nullptr);

  *day = static_cast<double>((difday + 2) % 7 + 1);
  const char convention = fmt != nullptr ? fmt[0] : '\0';
  if (convention == 'U') {
    // Weeks counted from the year's first Sunday; days 1 Sunday to 7.
    *week = static_cast<double>(difday - weekday + 8) / 7.0;
    *day = weekday;
  } else if (convention == 'W') {
    // Weeks counted from the year's first Monday; days 1 Monday to 7.
    *week = static_cast<double>(difday - ((weekday + 5) % 7) + 7) / 7.0;
    *day = iso_day_of(weekday - 1);
  } else if (convention == 'V') {
    int iso_year = y;
    int isodays = iso_week_days(static_cast<int>(difday), weekday - 1);
    if (isodays < 0) {
      // Before ISO week 1: the last week of the previous ISO year.
      iso_year -= 1;
      isodays = iso_week_days(static_cast<int>(difday) + 365 + isLeapYear(iso_year), weekday - 1);
    } else {
      const int next_year_days = iso_week_days(static_cast<int>(difday) - (365 + isLeapYear(iso_year)), weekday - 1);
      if (next_year_days >= 0) {
        // On or after the Monday of next year's ISO week 1.
        iso_year += 1;
        isodays = next_year_days;
      }
    }
    *week = isodays / 7 + 1;
    *year = iso_year;
    *day = iso_day_of(weekday - 1);
  }
  return 0;
}

extern "C" int zidywdds(double date, int leap_index, double* year, double* week, double* day) {
  *year = esf::kMissing;
  *week = esf::kMissing;
  *day = esf::kMissing;
  const double calendar_year = zyear(date);
  if (esf::is_missing(calendar_year)) return 0;

  int y = static_cast<int>(calendar_year);
  double ds0 = ziddywds(y, 1, 1);
  if (esf::is_missing(ds0)) return 0;
  if (ds0 > date) {
    y -= 1;
    ds0 = ziddywds(y, 1, 1);
  } else {
    const double next = ziddywds(y + 1, 1, 1);
    if (!(next > date)) {
      y += 1;
      ds0 = next;
    }
  }
  if (esf::is_missing(ds0)) return 0;

  INTERVAL plain_week;
  zintic(kIntWeek, &plain_week);
  const double w = zintck2(&plain_week, ds0, date) + 1.0;
  if (esf::is_missing(w)) return 0;

  *year = y;
  if (leap_index == 1 && w >= 52.0) {
    // The last week of a week-year opens the next cycle.
    *year = y + 1;
    *week = 1.0;
  } else if (leap_index == 52 && w >= 52.0) {
    *week = 52.0;
  } else {
    *week = w;
  }
  const long k = static_cast<long>(date - ds0);
  *day = static_cast<double>(k % 7 + 1);
  return 0;
}

// ---------------------------------------------------------------------------
// Day counts.

extern "C" int isLeapYear(int year) { return year % 4 == 0 && (year % 400 == 0 || year % 100 != 0) ? 1 : 0; }

extern "C" int lastDay(int year, int month) {
  switch (month) {
    case 4:
    case 6:
    case 9:
    case 11:
      return 30;
    case 2:
      return isLeapYear(year) ? 29 : 28;
    default:
      return 31;
  }
}

extern "C" long dateOffset(int mm, int dd, int yy) {
  // March-based months: t corrects 31-day months to the real lengths, and
  // January and February count with the year before so that its leap day
  // falls in the right place.
  long t = 0;
  long yp = yy - 1;
  if (mm >= 3) {
    t = static_cast<long>(mm * 0.4 + 2.3);
    yp = yy;
  }
  return static_cast<long>(yy) * 365 + (mm * 31 - 31) + dd + static_cast<long>(yp * 0.25) - t -
         static_cast<long>(yp / 100.0) + static_cast<long>(yp / 400.0);
}

extern "C" long diff_actual(int m1, int d1, int y1, int m2, int d2, int y2) {
  return dateOffset(m2, d2, y2) - dateOffset(m1, d1, y1);
}

extern "C" long diff_30_360(int m1, int d1, int y1, int m2, int d2, int y2) {
  const bool first_end_of_february = m1 == 2 && d1 == lastDay(y1, 2);
  const bool second_end_of_february = m2 == 2 && d2 == lastDay(y2, 2);
  int day1 = d1;
  int day2 = d2;
  if (first_end_of_february && second_end_of_february) {
    day1 = 30;
    day2 = 30;
  } else {
    if (first_end_of_february) day1 = 30;
    if (day2 == 31 && (day1 == 30 || day1 == 31)) day2 = 30;
    if (day1 == 31) day1 = 30;
  }
  return static_cast<long>(y2 - y1) * 360 + static_cast<long>(m2 - m1) * 30 + (day2 - day1);
}

extern "C" void diff_actact(int m1, int d1, int y1, int m2, int d2, int y2, long* pDays, double* pYears) {
  long n365 = 0;  // days that lie in common years
  long n366 = 0;  // days that lie in leap years
  const auto add = [&](int year, long days) { (isLeapYear(year) ? n366 : n365) += days; };
  if (y1 == y2) {
    add(y1, diff_actual(m1, d1, y1, m2, d2, y2));
  } else {
    add(y1, diff_actual(m1, d1, y1, 1, 1, y1 + 1));
    // The whole years between, in closed form: each adds 365 or 366.
    const long whole_years = static_cast<long>(y2) - y1 - 1;
    if (whole_years > 0) {
      const long leap = leap_years_before(y2) - leap_years_before(static_cast<long>(y1) + 1);
      n366 += 366 * leap;
      n365 += 365 * (whole_years - leap);
    }
    add(y2, diff_actual(1, 1, y2, m2, d2, y2));
  }
  if (pDays != nullptr) *pDays = n365 + n366;
  if (pYears != nullptr) *pYears = n365 / 365.0 + n366 / 366.0;
}

extern "C" int zdatdif(double sdate, double edate, int convent, long* pDays, double* pYears) {
  if (convent < 1 || convent > 4) return 1;
  int m1 = 0;
  int d1 = 0;
  int y1 = 0;
  int m2 = 0;
  int d2 = 0;
  int y2 = 0;
  // A date the host can't split has no distance either.
  if (zidmdyd(&m1, &d1, &y1, sdate) != 0 || zidmdyd(&m2, &d2, &y2, edate) != 0) return 1;

  long days = 0;
  double years = 0.0;
  switch (convent) {
    case 1:
      days = diff_30_360(m1, d1, y1, m2, d2, y2);
      years = days / 360.0;
      break;
    case 2:
      if (std::floor(edate) < std::floor(sdate)) {
        diff_actact(m2, d2, y2, m1, d1, y1, &days, &years);
        days = -days;
        years = -years;
      } else {
        diff_actact(m1, d1, y1, m2, d2, y2, &days, &years);
      }
      break;
    case 3:
      days = diff_actual(m1, d1, y1, m2, d2, y2);
      years = days / 360.0;
      break;
    default:
      days = diff_actual(m1, d1, y1, m2, d2, y2);
      years = days / 365.0;
      break;
  }
  if (pDays != nullptr) *pDays = days;
  if (pYears != nullptr) *pYears = years;
  return 0;
}
