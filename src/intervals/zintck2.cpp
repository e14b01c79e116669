// Counting intervals: how many interval boundaries lie between two time
// values. Every interval is reduced to an integer index of its base unit
// (seconds, days, working days, thirds or halves of months, months, ISO
// weeks), and the count is the difference of two floored quotients of
// those indices (calendar_arith.h). The count isn't elapsed time: from
// 31 January to 1 February it is 1 for MONTH and 0 for QTR2.

#include <cmath>
#include <cstdint>

#include "intervals/calendar_arith.h"
#include "intervals/interval.h"
#include "module/host_api.h"
#include "primitives/primitives.h"

namespace {

using calendar::DayNumber;

// Time intervals on datetime values, in doubles.
double timeck(const INTERVAL& iv, double x1, double x2) {
  const int code = iv.intcode;
  const double unit = calendar::time_unit_seconds(code);  // m: seconds in the base unit
  if (unit == 0.0) {
    xebug("zintck2: bad intcode=%i", code);
    return esf::kMissing;
  }
  const double f = static_cast<double>(calendar::interval_multiplier(iv)) * unit;
  if (f == 1.0) return x2 - x1;
  const double g = iv.shiftper == 0 ? 0.0 : f - unit * iv.shiftper;
  return std::floor((x2 + g) / f) - std::floor((x1 + g) / f);
}

// Working days: each date is walked back to a working day, and the
// working-day numbers are counted like days.
double weekday(const INTERVAL& iv, DayNumber x1, DayNumber x2, std::int64_t f, std::int64_t s) {
  calendar::WorkWeek ww{};
  if (!calendar::make_work_week(iv, &ww)) return esf::kMissing;
  const std::int64_t c1 = calendar::working_day_number(ww, calendar::walk_back_to_working_day(ww, x1));
  const std::int64_t c2 = calendar::working_day_number(ww, calendar::walk_back_to_working_day(ww, x2));
  return static_cast<double>(calendar::period_count(calendar::make_period(f, s), c1, c2));
}

// Day-based intervals: DAY, WEEK (from Sunday), WEEKV (from Monday), WEEKDAY.
double daybase(const INTERVAL& iv, DayNumber x1, DayNumber x2, std::int64_t f, std::int64_t s) {
  switch (iv.intcode) {
    case kIntWeekday:
      return weekday(iv, x1, x2, f, s);
    case kIntWeek:  // day -5 is a Sunday
      f *= 7;
      s -= 5;
      break;
    case kIntWeekv:  // day -4 is a Monday
      f *= 7;
      s -= 4;
      break;
    default:
      break;
  }
  return static_cast<double>(calendar::period_count(calendar::make_period(f, s), x1, x2));
}

// Calendar and retail intervals in month, third-of-month or half-month
// indices. With a multiplier of 1 the period is a constant of the kind, and
// its quotients are multiplications.
double yearbase(int code, DayNumber date1, DayNumber date2, std::int64_t f, std::int64_t s) {
  return calendar::with_calendar_code(
      code, [&](auto c) __attribute__((always_inline))->double {
        constexpr calendar::CalendarKind kind = calendar::calendar_kind(decltype(c)::value);
        if constexpr (!kind.valid) {
          xebug("zintck2: invalid intcode=%i", code);
          return esf::kMissing;
        } else {
          const calendar::IndexNumber i1 = calendar::calendar_index(kind, date1);
          const calendar::IndexNumber i2 = calendar::calendar_index(kind, date2);
          if (f == 1) return static_cast<double>(calendar::period_count(calendar::make_period(kind.factor, s), i1, i2));
          return static_cast<double>(calendar::period_count(calendar::make_period(f * kind.factor, s), i1, i2));
        }
      });
}

// YEARV: ISO weeks, 52 to a year, week 53 counted as week 52. The period
// number floordiv(52 * year + week + g, 52 * f) is that of the year: with
// g = 52 * gq + gr, it is floordiv(year + gq + carry, f), where the carry
// says whether week + gr reaches the next year. Neither date needs a
// division by 52, and plain YEARV none at all.
double isobase(int code, DayNumber date1, DayNumber date2, std::int64_t f, std::int64_t s) {
  if (code != kIntYearv) {
    xebug("zintck2: invalid intcode=%i", code);
    return esf::kMissing;
  }
  const calendar::Period period = calendar::make_period(52 * f, s);
  const std::int64_t gq = period.g / 52;
  const std::int64_t gr = period.g % 52;
  const auto year_number = [gq, gr](DayNumber date) {
    const calendar::IsoWeekDate iso = calendar::iso_week_from_days(date);
    const std::int64_t week = (iso.week > 52 ? 52 : iso.week) - 1;  // [0, 51]
    return iso.year + gq + (week + gr >= 52);
  };
  const std::int64_t y1 = year_number(date1);
  const std::int64_t y2 = year_number(date2);
  if (f == 1) return static_cast<double>(y2 - y1);
  return static_cast<double>(calendar::floordiv(y2 - 1960, f) - calendar::floordiv(y1 - 1960, f));
}

bool within_date_limits(double x) { return x >= kMinDate && x <= kMaxDate; }

// Counting between two days of the library's range, for a built-in date interval.
[[gnu::always_inline]] inline double count_days(const INTERVAL& iv, DayNumber d1, DayNumber d2) {
  const int code = iv.intcode;
  const std::int64_t f = calendar::interval_multiplier(iv);
  const std::int64_t s = iv.shiftper;
  if (code == kIntYearv) return isobase(code, d1, d2, f, s);
  if (code >= kIntMonthFamily) return yearbase(code, d1, d2, f, s);
  return daybase(iv, d1, d2, f, s);
}

double dateck(const INTERVAL& iv, double x1, double x2) {
  if (iv.units == kUnitsDatetime) {
    x1 = std::floor(x1 / calendar::kSecondsPerDay);
    x2 = std::floor(x2 / calendar::kSecondsPerDay);
  } else if (iv.units != kUnitsDate) {
    return esf::kMissing;
  }
  if (!within_date_limits(x1) || !within_date_limits(x2)) return esf::kMissing;
  return count_days(iv, static_cast<DayNumber>(x1), static_cast<DayNumber>(x2));
}

// A missing end passes only for a custom interval, whose table ends are
// ".M" and ".I"; any other value must be of a size that can be floored.
bool usable_end(int code, double x) {
  if (esf::is_missing(x)) return code == kIntCustom && calendar::is_table_end(x);
  return std::fabs(x) <= kMaxTimeValue;
}

// Every case but a built-in date interval on two dates of the range.
[[gnu::noinline]] double count_general(const INTERVAL& iv, double x1, double x2) {
  const int code = iv.intcode;
  if (!usable_end(code, x1) || !usable_end(code, x2)) return esf::kMissing;
  if (!esf::is_missing(x1)) x1 = std::floor(x1);
  if (!esf::is_missing(x2)) x2 = std::floor(x2);

  switch (code) {
    case kIntObs: {
      if (iv.units != kUnitsObs) return esf::kMissing;
      const double per = static_cast<double>(calendar::interval_multiplier(iv));
      return std::floor(x2 / per) - std::floor(x1 / per);
    }
    case kIntCustom:
      return calendar::with_custom_record(iv, [&](INTERVALX* ix) { return customINTCK(ix, x1, x2); });
    case kIntNone:
      return x2 - x1;
    default:
      break;
  }
  if (code >= kIntFirstDate) return dateck(iv, x1, x2);

  // A time interval; date values are taken as datetimes at midnight.
  if (iv.units == kUnitsDate) return timeck(iv, x1 * calendar::kSecondsPerDay, x2 * calendar::kSecondsPerDay);
  if (iv.units == kUnitsDatetime) return timeck(iv, x1, x2);
  return esf::kMissing;
}

}  // namespace

extern "C" double zintck2(struct INTERVAL* istr, double x1, double x2) {
  if (istr == nullptr) return esf::kMissing;
  const INTERVAL& iv = *istr;
  const int code = iv.intcode;
  // The common case, a built-in interval on two dates of the range, goes
  // straight to the arithmetic; a missing value fails the comparisons.
  if (code >= kIntFirstDate && code <= kIntYearv && iv.units == kUnitsDate && x1 >= kMinDate && x1 < kMaxDate + 1.0 &&
      x2 >= kMinDate && x2 < kMaxDate + 1.0) [[likely]] {
    return count_days(iv, calendar::floor_to_int(x1), calendar::floor_to_int(x2));
  }
  return count_general(iv, x1, x2);
}
