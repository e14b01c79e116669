// Advancing by intervals: the start of the interval that lies n intervals
// from the one that holds x. This is the inverse of zintck2 and runs on
// the same indices and periods (calendar_arith.h): index of x, period
// number, plus n, first index of that period, back to a day.

#include <cmath>
#include <cstdint>

#include "intervals/calendar_arith.h"
#include "intervals/date_runs.h"
#include "intervals/interval.h"
#include "module/host_api.h"
#include "primitives/primitives.h"

namespace {

using calendar::DayNumber;

// ISO years whose week 1 could still hold a date within the library's
// limits; a target year outside them is refused before any arithmetic.
constexpr double kFirstIsoYear = 1580.0;
constexpr double kLastIsoYear = 20002.0;

double weekday(const INTERVAL& iv, DayNumber x, std::int64_t n, std::int64_t f, std::int64_t s) {
  if (!calendar::advance_within_limit(n, f)) return esf::kMissing;
  calendar::WorkWeek ww{};
  if (!calendar::make_work_week(iv, &ww)) return esf::kMissing;
  x = calendar::walk_back_to_working_day(ww, x);
  if (f >= 2) {
    // Back to the first working day of the interval that holds x.
    n *= f;
    const std::int64_t g = s == 0 ? 0 : f - s;
    const std::int64_t c = calendar::working_day_number(ww, x);
    const std::int64_t into = (c + g) - calendar::floordiv(c + g, f) * f;  // [0, f - 1]
    x = calendar::step_working_days(ww, x, into, /*backward=*/true);
  }
  // Whole weeks by division, then the rest one working day at a time.
  x += calendar::floordiv(n, ww.nweekday) * 7;
  x = calendar::step_working_days(ww, x, calendar::floormod(n, ww.nweekday), /*backward=*/false);
  return static_cast<double>(x);
}

double daybase(const INTERVAL& iv, DayNumber x, std::int64_t n, std::int64_t f, std::int64_t s) {
  switch (iv.intcode) {
    case kIntWeekday:
      return weekday(iv, x, n, f, s);
    case kIntWeek:  // day -5 is a Sunday
      s -= 5;
      f *= 7;
      break;
    case kIntWeekv:  // day -4 is a Monday
      s -= 4;
      f *= 7;
      break;
    default:
      break;
  }
  if (!calendar::advance_within_limit(n, f)) return esf::kMissing;
  return static_cast<double>(calendar::period_advance(calendar::make_period(f, s), x, n));
}

// Calendar and retail intervals: index of the date, period number plus n,
// first index of that period, its first day. Each kind runs its own copy
// of the arithmetic; with a multiplier of 1 the period is a constant.
double yearbase(int code, DayNumber date, std::int64_t n, std::int64_t f, std::int64_t s) {
  return calendar::with_calendar_code(
      code, [&](auto c) __attribute__((always_inline))->double {
        constexpr calendar::CalendarKind kind = calendar::calendar_kind(decltype(c)::value);
        if constexpr (!kind.valid) {
          xebug("zintnx2: yearbase: bad intcode=%i", code);
          return esf::kMissing;
        } else {
          // |n| below 2^24 moves at most 2^24 * 31 * 12 days a unit of the
          // multiplier: within the limit for any multiplier below 2^20.
          static_assert((std::int64_t{1} << 24) * kind.largest_days * kind.factor * (std::int64_t{1} << 20) <=
                        kAdvanceOverflowLimit);
          const bool small = n > -(std::int64_t{1} << 24) && n < (std::int64_t{1} << 24) && f < (1 << 20);
          if (!small && !calendar::advance_within_limit(n, kind.largest_days * kind.factor * f)) return esf::kMissing;
          const calendar::IndexNumber i = calendar::calendar_index(kind, date);
          const calendar::IndexNumber j =
              f == 1 ? calendar::period_advance(calendar::make_period(kind.factor, s), i, n)
                     : calendar::period_advance(calendar::make_period(kind.factor * f, s), i, n);
          return static_cast<double>(calendar::calendar_index_start(kind, j));
        }
      });
}

// YEARV: years of 52 or 53 ISO weeks that begin on the Monday of week
// s % 52 + 1, in cycles of f years counted from 1960.
double isobase(int code, DayNumber date, std::int64_t n, std::int64_t f, std::int64_t s) {
  if (code != kIntYearv) {
    xebug("zintnx2: isobase: bad intcode=%i", code);
    return esf::kMissing;
  }
  const calendar::IsoWeekDate iso = calendar::iso_week_from_days(date);
  if (f == 1 && s == 0) {
    // Plain YEARV: the first Monday of the ISO year n years on.
    const std::int64_t target = iso.year + n;  // |n| is at most 2^53
    if (target < kFirstIsoYear || target > kLastIsoYear) return esf::kMissing;
    return static_cast<double>(calendar::iso_week1_monday(target));
  }
  // Place of the year in its cycle, and the shift in whole years and weeks;
  // plain YEARV (f = 1, s = 0) needs no division.
  const std::int64_t r = f == 1 ? 0 : calendar::floormod(iso.year - 1960, f);
  const std::int64_t start_week = s == 0 ? 1 : s % 52 + 1;
  std::int64_t cycle_year = iso.year - r + (s == 0 ? 0 : s / 52);
  if (cycle_year > iso.year || (cycle_year == iso.year && iso.week < start_week)) {
    cycle_year -= f;  // the date lies before the shifted start
  }
  const double target_year = static_cast<double>(n) * static_cast<double>(f) + static_cast<double>(cycle_year);
  if (!(target_year >= kFirstIsoYear && target_year <= kLastIsoYear)) return esf::kMissing;
  return static_cast<double>(calendar::days_from_iso_week(static_cast<std::int64_t>(target_year), start_week, 1));
}

// Advancing a day of the range by a whole count, for a built-in date
// interval; the result day, or a missing value when it leaves the limits.
[[gnu::always_inline]] inline double advance_days(const INTERVAL& iv, DayNumber day, std::int64_t count) {
  const int code = iv.intcode;
  const std::int64_t f = calendar::interval_multiplier(iv);
  const std::int64_t s = iv.shiftper;
  double result = 0.0;
  if (code == kIntYearv) {
    result = isobase(code, day, count, f, s);
  } else if (code < kIntMonthFamily) {
    result = daybase(iv, day, count, f, s);
  } else {
    result = yearbase(code, day, count, f, s);
  }
  if (esf::is_missing(result) || result < kMinDate || result > kMaxDate) return esf::kMissing;
  return result;
}

double datenx(const INTERVAL& iv, double x, double n) {
  const bool datetime = iv.units == kUnitsDatetime;
  if (datetime) {
    x = std::floor(x / calendar::kSecondsPerDay);
  } else if (iv.units != kUnitsDate) {
    return esf::kMissing;
  }
  if (!(x >= kMinDate && x <= kMaxDate)) return esf::kMissing;
  const double result = advance_days(iv, static_cast<DayNumber>(x), static_cast<std::int64_t>(n));
  return datetime && !esf::is_missing(result) ? result * calendar::kSecondsPerDay : result;
}

double timenx(const INTERVAL& iv, double x, double n) {
  if (iv.units != kUnitsDatetime) return esf::kMissing;
  const int code = iv.intcode;
  const double unit = calendar::time_unit_seconds(code);  // m
  if (unit == 0.0) {
    xebug("zintnx2: bad intcode=%i", code);
    return esf::kMissing;
  }
  const double f = static_cast<double>(calendar::interval_multiplier(iv)) * unit;
  const double g = iv.shiftper == 0 ? 0.0 : f - unit * iv.shiftper;
  return f * (n + std::floor((x + g) / f)) - g;
}

// Every case but a built-in date interval on a date of the range.
[[gnu::noinline]] double advance_general(const INTERVAL& iv, double x, double n) {
  const int code = iv.intcode;
  if (esf::is_missing(x)) {
    // Only a custom interval moves from the ends of its table, unrounded.
    const bool from_table_end =
        code == kIntCustom && calendar::is_table_end(x) && !esf::is_missing(n) && std::fabs(n) <= kMaxAdvance;
    if (!from_table_end) return esf::kMissing;
  } else {
    if (esf::is_missing(n) || !(std::fabs(n) <= kMaxAdvance)) return esf::kMissing;
    x = std::floor(x + 1e-12);
  }
  n = std::floor(n + 1e-12);

  if (code == kIntNone) return x + n;
  if (code == kIntObs) {
    if (iv.units != kUnitsObs) return esf::kMissing;
    const double per = static_cast<double>(calendar::interval_multiplier(iv));
    if (per == 1.0) return x + n;
    double result = std::floor(x / per) * per + per * n;
    if (iv.shiftper != 0) result += iv.shiftper;
    return result;
  }
  if (code < kIntFirstDate) return timenx(iv, x, n);
  if (code < kIntCustom) return datenx(iv, x, n);
  return calendar::with_custom_record(iv, [&](INTERVALX* ix) { return customINTNX(ix, x, n); });
}

// The results of one advance for the counts first .. first + count - 1:
// start(base + step * n), a day of the range or missing. `base` and `step`
// are the first index of the period that holds x and the indices of a
// period, so that base + step * n is period_advance(..., n) exactly.
template <class Start>
[[gnu::always_inline]] inline void fill_run(calendar::IndexNumber base, std::int64_t step, std::int64_t first,
                                            long count, Start start, double* out) {
  for (long k = 0; k < count; ++k) {
    const DayNumber r = start(base + step * (first + k));
    out[k] = r < kMinDate || r > kMaxDate ? esf::kMissing : static_cast<double>(r);
  }
}

}  // namespace

bool calendar::advance_run(const INTERVAL& iv, double x, long first, long count, double* out) noexcept {
  const int code = iv.intcode;
  const double day = x + 1e-12;
  // The counts stay small enough for the plain arithmetic of the entry.
  constexpr long kSmall = 1L << 24;
  if (code < kIntFirstDate || code >= kIntYearv || code == kIntWeekday || iv.units != kUnitsDate ||
      !(day >= kMinDate) || !(day < kMaxDate + 1.0) || first < 0 || count < 0 || count > kSmall - first) {
    return false;
  }
  if (count == 0) return true;
  const DayNumber date = calendar::floor_to_int(day);
  const std::int64_t last = first + count - 1;
  const std::int64_t f = calendar::interval_multiplier(iv);
  std::int64_t s = iv.shiftper;
  if (code < kIntMonthFamily) {
    std::int64_t days = f;
    if (code == kIntWeek || code == kIntWeekv) {
      s -= code == kIntWeek ? 5 : 4;
      days *= 7;
    }
    if (!calendar::advance_within_limit(first, days) || !calendar::advance_within_limit(last, days)) return false;
    const calendar::Period p = calendar::make_period(days, s);
    fill_run(
        calendar::period_advance(p, date, 0), p.f, first, count, [](DayNumber d) { return d; }, out);
    return true;
  }
  return calendar::with_calendar_code(
      code, [&](auto c) __attribute__((always_inline))->bool {
        constexpr calendar::CalendarKind kind = calendar::calendar_kind(decltype(c)::value);
        if constexpr (!kind.valid) {
          return false;
        } else {
          if (f >= (1 << 20)) return false;
          const calendar::Period p = calendar::make_period(kind.factor * f, s);
          const calendar::IndexNumber base = calendar::period_advance(p, calendar::calendar_index(kind, date), 0);
          fill_run(
              base, p.f, first, count, [&](calendar::IndexNumber j) { return calendar::calendar_index_start(kind, j); },
              out);
          return true;
        }
      });
}

extern "C" double zintnx2(struct INTERVAL* istr, double x, double n) {
  if (istr == nullptr) return esf::kMissing;
  const INTERVAL& iv = *istr;
  const int code = iv.intcode;
  // The common case, a built-in interval on a date of the range, goes
  // straight to the arithmetic; a missing value fails the comparisons.
  const double day = x + 1e-12;
  if (code >= kIntFirstDate && code <= kIntYearv && iv.units == kUnitsDate && day >= kMinDate && day < kMaxDate + 1.0 &&
      n >= -kMaxAdvance && n <= kMaxAdvance) [[likely]] {
    return advance_days(iv, calendar::floor_to_int(day), calendar::floor_to_int(n + 1e-12));
  }
  return advance_general(iv, x, n);
}
