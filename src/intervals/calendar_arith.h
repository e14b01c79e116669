// Integer calendar arithmetic shared by interval counting and advancing.
//
// Every built-in date interval is reduced to an integer index of its base
// unit (a day, a working day, a third or half of a month, a month, an ISO
// week) and every interval is a run of `f` consecutive indices whose
// boundaries lie at the indices congruent to the shift `s` modulo `f`.
// Counting is the difference of two floored quotients of indices,
// advancing is the inverse: index, quotient, plus n, back to the first
// index of that period, back to a day. The routines here are the single
// copy of that arithmetic; zintck2 and zintnx2 both use them, so that a
// value advanced by n and counted back gives n by construction.
//
// Day numbers count days since 1 January 1960, a Friday; the civil
// conversions are those of common/civil_days.h:
//
//   iso_week_from_days(16437)        //  {2004, 53, 6}: Saturday 1 January 2005
//   month_index(2001, 2)             //  493: (2 - 1) + 12 * (2001 - 1960)
//
// Nothing here allocates, throws or reads a table: the retail calendars
// are two comparisons within a 13-week quarter.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <type_traits>

#include "common/civil_days.h"
#include "intervals/interval.h"
#include "primitives/primitives.h"

// Hidden: these inline routines are the module's own arithmetic, called
// directly (never through the image's symbol table) wherever they are not
// inlined.
namespace calendar __attribute__((visibility("hidden"))) {

  using IndexNumber = std::int64_t;  // index of an interval's base unit (a month, a third of a month, ...)

  // The two kinds a custom interval takes for the ends of its table:
  // ".M" minus infinity, ".I" plus infinity.
  constexpr bool is_table_end(double d) noexcept {
    const int kind = esf::missing_kind(d);
    return kind == esf::missing_kind(esf::missing_letter('I')) || kind == esf::missing_kind(esf::missing_letter('M'));
  }

  static_assert(iso_weekday(kMinDate) == static_cast<int>(floormod(kMinDate + 4, 7)) + 1);
  static_assert(days_from_civil(1582, 1, 1) == kMinDate);
  static_assert(civil_from_days(kMaxDate).year == 20000);

  // ---------------------------------------------------------------------------
  // ISO 8601 weeks: week 1 is the Monday-to-Sunday week that holds 4 January,
  // equivalently the one that holds the year's first Thursday.

  struct IsoWeekDate {
    std::int64_t year;
    int week;  // [1, 53]
    int day;   // [1, 7], 1 Monday
  };

  // The Monday that opens ISO week 1 of an ISO year.
  [[gnu::always_inline]] constexpr DayNumber iso_week1_monday(std::int64_t iso_year) noexcept {
    const DayNumber jan4 = days_from_civil(iso_year, 1, 4);
    return jan4 - (iso_weekday(jan4) - 1);
  }

  [[gnu::always_inline]] constexpr DayNumber days_from_iso_week(std::int64_t iso_year, std::int64_t week,
                                                                std::int64_t day) noexcept {
    return iso_week1_monday(iso_year) + 7 * (week - 1) + (day - 1);
  }

  // Civil year of a day of the fast range and the day's place in that year,
  // 0 on 1 January: the first half of civil_from_days_fast, then the count
  // from 1 March moved to 1 January, without a second conversion.
  struct YearDay {
    std::int64_t year;
    std::uint32_t day_of_year;  // [0, 365]
  };

  [[gnu::always_inline]] constexpr YearDay year_day_fast(DayNumber x) noexcept {
    const auto n = static_cast<std::uint32_t>(x + kFastShift);
    const std::uint32_t n1 = 4 * n + 3;
    const std::uint32_t century = n1 / 146097;
    const std::uint32_t day_of_century = n1 % 146097 / 4;
    const std::uint32_t n2 = 4 * day_of_century + 3;
    const std::uint64_t p2 = std::uint64_t{2939745} * n2;
    const auto year_of_century = static_cast<std::uint32_t>(p2 >> 32);
    const std::uint32_t march_day = static_cast<std::uint32_t>(p2) / 2939745 / 4;  // 0 on 1 March
    const std::uint32_t year = 100 * century + year_of_century;                    // March-based
    // From March on the civil year is the March-based one, and 1 January lies
    // 31 + 28 days before 1 March, one more in a leap year: a year divisible
    // by 4 within its century, or a century year whose century is (the shift
    // is whole 400-year eras, so neither test changes).
    const std::uint32_t leap = ((year_of_century != 0 ? year_of_century : century) & 3U) == 0;
    // January and February (a sixth of all days, at random) count from the
    // next 1 January instead, 365 + leap days later: a mask, not a branch.
    const std::uint32_t january_or_february = march_day >= 306;
    return {static_cast<std::int64_t>(year + january_or_february) - kFastYearShift,
            march_day + 59 + leap - ((0U - january_or_february) & (365U + leap))};
  }

  // A week belongs to the ISO year that holds its Thursday.
  [[gnu::always_inline]] constexpr IsoWeekDate iso_week_from_days(DayNumber x) noexcept {
    if (x >= kFastFirstDay + 7 && x <= kFastLastDay - 7) [[likely]] {
      const int day = fast_mod7(x, 4) + 1;
      // The day's own year and the weekday don't wait for each other; the
      // Thursday of the week lies day_of_year - day + 3 days into the year,
      // and only a week that begins or ends in another year (weeks 1, 52 and
      // 53 near the turn of a year) needs the Thursday's own year.
      const YearDay yd = year_day_fast(x);
      const int thursday_day_of_year = static_cast<int>(yd.day_of_year) - day + 4;  // [-3, 368]
      if (thursday_day_of_year >= 0 && thursday_day_of_year < 364) [[likely]] {
        return {yd.year, static_cast<int>(div7_small(static_cast<std::uint32_t>(thursday_day_of_year))) + 1, day};
      }
      const YearDay td = year_day_fast(x - day + 4);
      return {td.year, static_cast<int>(div7_small(td.day_of_year)) + 1, day};
    }
    const int day = iso_weekday(x);
    const DayNumber thursday = x - day + 4;
    const std::int64_t year = civil_from_days(thursday).year;
    const DayNumber jan1 = days_from_civil(year, 1, 1);
    const int week = static_cast<int>((thursday - jan1) / 7) + 1;  // [1, 53]
    return {year, week, day};
  }

  static_assert(iso_week_from_days(days_from_civil(2005, 1, 1)).year == 2004);
  static_assert(iso_week_from_days(days_from_civil(2005, 1, 1)).week == 53);
  static_assert(iso_week_from_days(days_from_civil(2008, 12, 31)).year == 2009);
  static_assert(days_from_iso_week(2009, 1, 1) == days_from_civil(2008, 12, 29));

  // ---------------------------------------------------------------------------
  // Retail calendars: ISO years split into quarters of 13 weeks, each quarter
  // into months of 4-4-5, 4-5-4 or 5-4-4 weeks. A week 53 falls into month 12.
  // `format` is 445, 454 or 544.

  // A quarter of 13 weeks holds three months, so the month of a week is a
  // linear function of the week, floored: zero-based month m of zero-based
  // week k of the year is (3k + b) / 13, where the bias b places the two
  // boundaries inside the quarter (after weeks 4 and 8 for 4-4-5, 4 and 9 for
  // 4-5-4, 5 and 9 for 5-4-4). The first week of month m is its inverse,
  // the least k with (3k + b) / 13 >= m. One multiplication each, no
  // quarter and no comparisons.
  constexpr int retail_bias(int format) noexcept { return format == 445 ? 2 : format == 454 ? 1 : 0; }

  // Zero-based week offset of a retail month [1, 12] within its ISO year.
  [[gnu::always_inline]] constexpr int retail_week_offset(int format, int month) noexcept {
    return static_cast<int>((13U * static_cast<unsigned>(month - 1) + 2U - static_cast<unsigned>(retail_bias(format))) /
                            3U);
  }

  // Retail month [1, 12] of an ISO week [1, 53].
  [[gnu::always_inline]] constexpr int retail_month_of_week(int format, int week) noexcept {
    const int k = (week > 52 ? 52 : week) - 1;  // [0, 51]
    return static_cast<int>((3U * static_cast<unsigned>(k) + static_cast<unsigned>(retail_bias(format))) / 13U) + 1;
  }

  // The closed forms against the months written out week by week.
  constexpr bool retail_forms_hold() noexcept {
    constexpr int kFormats[3] = {445, 454, 544};
    for (const int format : kFormats) {
      const int lengths[3] = {format / 100, format / 10 % 10, format % 10};
      int week = 1;
      for (int month = 1; month <= 12; ++month) {
        if (retail_week_offset(format, month) != week - 1) return false;
        for (int w = 0; w < lengths[(month - 1) % 3]; ++w, ++week) {
          if (retail_month_of_week(format, week) != month) return false;
        }
      }
      if (week != 53 || retail_month_of_week(format, 53) != 12) return false;
    }
    return true;
  }
  static_assert(retail_forms_hold());

  // The Monday that opens a retail month of an ISO year.
  [[gnu::always_inline]] constexpr DayNumber retail_month_start(int format, std::int64_t iso_year, int month) noexcept {
    return days_from_iso_week(iso_year, retail_week_offset(format, month) + 1, 1);
  }

  static_assert(retail_week_offset(445, 12) == 47 && retail_week_offset(454, 12) == 48);
  static_assert(retail_month_of_week(544, 5) == 1 && retail_month_of_week(544, 6) == 2);

  // ---------------------------------------------------------------------------
  // Indices of the calendar intervals, counted from January 1960.

  [[gnu::always_inline]] constexpr IndexNumber month_index(std::int64_t year, int month) noexcept {
    return (month - 1) + 12 * (year - 1960);
  }

  constexpr IndexNumber tenday_index(const CivilDate& c) noexcept {
    return 3 * month_index(c.year, c.month) + (c.day > 10) + (c.day > 20);
  }

  constexpr IndexNumber semimonth_index(const CivilDate& c) noexcept {
    return 2 * month_index(c.year, c.month) + (c.day > 15);
  }

  // An index split into a year (counted from 1960) and the unit within the
  // year, for `per_year` units to a year. Indices of the next million years
  // either way are biased to unsigned 32-bit values, so that the quotient and
  // remainder are a multiplication each and need no sign test.
  struct IndexSplit {
    std::int64_t year;
    int unit;  // [0, per_year - 1]
  };

  inline constexpr std::int64_t kSplitBiasYears = 1000000;

  template <int per_year>
  [[gnu::always_inline]] constexpr IndexSplit split_index(IndexNumber j) noexcept {
    constexpr std::int64_t kBias = per_year * kSplitBiasYears;
    static_assert(2 * kBias <= 0xFFFFFFFFLL);
    if (j >= -kBias && j < kBias) [[likely]] {
      const auto u = static_cast<std::uint32_t>(j + kBias);
      return {static_cast<std::int64_t>(u / per_year) - kSplitBiasYears + 1960, static_cast<int>(u % per_year)};
    }
    return {floordiv(j, per_year) + 1960, static_cast<int>(floormod(j, per_year))};
  }

  // First days of the index units: a month, a third and a half of a month.
  [[gnu::always_inline]] constexpr DayNumber month_index_start(IndexNumber j) noexcept {
    const IndexSplit s = split_index<12>(j);
    return days_from_civil(s.year, s.unit + 1, 1);
  }

  [[gnu::always_inline]] constexpr DayNumber tenday_index_start(IndexNumber j) noexcept {
    const IndexSplit s = split_index<36>(j);
    return days_from_civil(s.year, s.unit / 3 + 1, 1 + 10 * (s.unit % 3));
  }

  [[gnu::always_inline]] constexpr DayNumber semimonth_index_start(IndexNumber j) noexcept {
    const IndexSplit s = split_index<24>(j);
    return days_from_civil(s.year, s.unit / 2 + 1, s.unit % 2 == 0 ? 1 : 16);
  }

  static_assert(month_index_start(-12 * kSplitBiasYears - 1) == days_from_civil(1960 - kSplitBiasYears - 1, 12, 1));
  static_assert(month_index_start(-1) == days_from_civil(1959, 12, 1));
  static_assert(tenday_index_start(-1) == days_from_civil(1959, 12, 21));
  static_assert(semimonth_index_start(-1) == days_from_civil(1959, 12, 16));
  static_assert(month_index_start(12 * kSplitBiasYears) == days_from_civil(1960 + kSplitBiasYears, 1, 1));

  // Retail month index from the ISO year and the retail month; the index
  // counts retail months from the first one of ISO year 1960.
  [[gnu::always_inline]] constexpr IndexNumber retail_month_index(int format, DayNumber x) noexcept {
    const IsoWeekDate iso = iso_week_from_days(x);
    return month_index(iso.year, retail_month_of_week(format, iso.week));
  }

  [[gnu::always_inline]] constexpr DayNumber retail_index_start(int format, IndexNumber j) noexcept {
    const IndexSplit s = split_index<12>(j);
    return retail_month_start(format, s.year, s.unit + 1);
  }

  // YEARV index: ISO weeks from week 1 of 1960, 52 to a year, a week 53
  // counted as week 52.
  constexpr IndexNumber iso_week_index(const IsoWeekDate& iso) noexcept {
    return (iso.week > 52 ? 52 : iso.week) - 1 + 52 * (iso.year - 1960);
  }

  // ---------------------------------------------------------------------------
  // A periodic partition of indices: periods of f units whose boundaries lie
  // at the indices congruent to s modulo f. g = 0 when s is 0, else f - s,
  // so that floordiv(index + g, f) numbers the periods.

  struct Period {
    std::int64_t f;  // [1, ...] units per period
    std::int64_t g;  // offset that moves the boundaries onto index 0
  };

  [[gnu::always_inline]] constexpr Period make_period(std::int64_t f, std::int64_t s) noexcept {
    return {f, s == 0 ? 0 : f - s};
  }

  // floordiv(i, p.f) for an advance, where the quotient lies on the path to
  // the result: the periods of the common intervals (a week, a quarter, a
  // year of months or of ISO weeks) divide by a constant, which the compiler
  // does with a multiplication instead of a hardware division. A count's two
  // quotients are independent and overlap, and stay a plain division.
  [[gnu::always_inline]] constexpr std::int64_t period_quotient(Period p, IndexNumber i) noexcept {
    switch (p.f) {
      case 3:
        return floordiv(i, 3);
      case 7:
        return floordiv(i, 7);
      case 12:
        return floordiv(i, 12);
      case 52:
        return floordiv(i, 52);
      default:
        return floordiv(i, p.f);
    }
  }

  // Number of boundaries passed going from index i1 to index i2.
  [[gnu::always_inline]] constexpr std::int64_t period_count(Period p, IndexNumber i1, IndexNumber i2) noexcept {
    if (p.f == 1) return i2 - i1;
    return floordiv(i2 + p.g, p.f) - floordiv(i1 + p.g, p.f);
  }

  // First index of the period n periods after the one that holds i.
  [[gnu::always_inline]] constexpr IndexNumber period_advance(Period p, IndexNumber i, std::int64_t n) noexcept {
    if (p.f == 1) return i + n;
    return p.f * (period_quotient(p, i + p.g) + n) - p.g;
  }

  // Whether an advance of n periods of `period_days` days each stays within
  // the exact integers of a double.
  // For whole numbers, floor(limit / |n|) >= p exactly when |n| * p <= limit,
  // which needs no division.
  constexpr bool advance_within_limit(std::int64_t n, std::int64_t period_days) noexcept {
    if (n == 0) return true;
    const std::int64_t magnitude = n < 0 ? -n : n;
    std::int64_t span = 0;
    if (__builtin_mul_overflow(magnitude, period_days, &span)) return false;
    return span <= kAdvanceOverflowLimit;
  }

  // ---------------------------------------------------------------------------
  // Working days. `weekend_mask` has bit w set when weekday w (0 Sunday to
  // 6 Saturday) is a weekend day; `nweekday` is the number of working days in
  // a week. Working-day numbers count per block of seven days that starts on
  // a Friday (day 0): the working days among the days that follow that
  // Friday, read from Saturday onward.

  struct WorkWeek {
    unsigned weekend_mask;  // [0, 0x7E]: never all seven days
    std::int64_t nweekday;  // [1, 7]
  };

  [[gnu::always_inline]] constexpr bool is_weekend(const WorkWeek& ww, int weekday) noexcept {
    return ((ww.weekend_mask >> weekday) & 1U) != 0;
  }

  // A day in a weekend stands for the working day before it. The weekend
  // days that end at x are the run of ones from bit w + 7 downward in the
  // mask written out twice; shifted to the top of a word, their number is
  // the count of leading ones, so a random date costs no mispredicted loop.
  [[gnu::always_inline]] constexpr DayNumber walk_back_to_working_day(const WorkWeek& ww, DayNumber x) noexcept {
    const int w = weekday_sunday0(x);
    const std::uint32_t twice = ww.weekend_mask | (ww.weekend_mask << 7);  // bit i: weekday i % 7
    const std::uint32_t top = twice << (24 - w);                           // bit w + 7 -> bit 31
    // The mask never holds all seven days, so a zero lies within 7 bits.
    return x - std::countl_one(top);
  }

  [[gnu::always_inline]] constexpr std::int64_t working_day_number(const WorkWeek& ww, DayNumber x) noexcept {
    std::int64_t block = 0;
    unsigned past = 0;  // [0, 6] days after the block's Friday
    if (x >= kFastFirstDay && x <= kFastLastDay) [[likely]] {
      // Biased by whole weeks to a small unsigned number: no sign test, and
      // both the quotient and the remainder are multiplications.
      constexpr std::int64_t kWeekBias = (kFastShift + 6) / 7;
      const auto u = static_cast<std::uint32_t>(x + 7 * kWeekBias);
      block = static_cast<std::int64_t>(u / 7) - kWeekBias;
      past = u % 7;
    } else {
      block = floordiv(x, 7);
      past = static_cast<unsigned>(floormod(x, 7));
    }
    // Bit j of the rotated mask: weekend flag of the j-th day after Friday.
    const unsigned from_saturday = ((ww.weekend_mask >> 6) & 1U) | ((ww.weekend_mask & 0x3FU) << 1);
    // Set bits of a 6-bit value, without a library call on CPUs that have no
    // population-count instruction in the baseline instruction set.
    unsigned v = from_saturday & ((1U << past) - 1U);
    v = v - ((v >> 1) & 0x55U);
    v = (v & 0x33U) + ((v >> 2) & 0x33U);
    const unsigned weekend_days = (v + (v >> 4)) & 0x0FU;  // [0, 6]
    return ww.nweekday * block + (past - weekend_days);
  }

  // Moves k >= 0 working days forward from a working day, or back when
  // `backward`: whole weeks first, then single days that skip the weekend.
  constexpr DayNumber step_working_days(const WorkWeek& ww, DayNumber x, std::int64_t k, bool backward) noexcept {
    const std::int64_t weeks = floordiv(k, ww.nweekday);
    std::int64_t rest = floormod(k, ww.nweekday);  // [0, nweekday - 1]
    x += backward ? -7 * weeks : 7 * weeks;
    int w = weekday_sunday0(x);
    while (rest > 0) {
      if (backward) {
        --x;
        w = w == 0 ? 6 : w - 1;
      } else {
        ++x;
        w = w == 6 ? 0 : w + 1;
      }
      if (!is_weekend(ww, w)) --rest;
    }
    return x;
  }

  // ---------------------------------------------------------------------------
  // Interval kinds as the arithmetic sees them.

  // Multiplier of a record: readers take a value below 1 as 1.
  constexpr std::int64_t interval_multiplier(const INTERVAL& iv) noexcept { return iv.intper < 1 ? 1 : iv.intper; }

  // Seconds in the base unit of a time interval, 0 for any other code.
  constexpr int time_unit_seconds(int intcode) noexcept {
    switch (intcode) {
      case kIntSecond:
        return 1;
      case kIntMinute:
        return 60;
      case kIntHour:
        return 3600;
      default:
        return 0;
    }
  }

  // The base unit of the intervals that count in month-based indices.
  enum class IndexUnit { kMonth, kTenDay, kSemiMonth, kRetailMonth };

  struct CalendarKind {
    bool valid;  // false for a code outside the calendar and retail intervals
    IndexUnit unit;
    int format;  // 445, 454 or 544 for retail kinds, else 0
    int factor;  // index units in one interval of multiplier 1
    int units_per_year;
    int largest_days;  // most days one index unit spans
  };

  constexpr CalendarKind calendar_kind(int intcode) noexcept {
    switch (intcode) {
      case kIntTenday:
        return {true, IndexUnit::kTenDay, 0, 1, 36, 11};
      case kIntSemimonth:
        return {true, IndexUnit::kSemiMonth, 0, 1, 24, 16};
      case kIntMonth:
        return {true, IndexUnit::kMonth, 0, 1, 12, 31};
      case kIntQtr:
        return {true, IndexUnit::kMonth, 0, 3, 12, 31};
      case kIntSemiyear:
        return {true, IndexUnit::kMonth, 0, 6, 12, 31};
      case kIntYear:
        return {true, IndexUnit::kMonth, 0, 12, 12, 31};
      case kIntR445Mon:
        return {true, IndexUnit::kRetailMonth, 445, 1, 12, 31};
      case kIntR454Mon:
        return {true, IndexUnit::kRetailMonth, 454, 1, 12, 31};
      case kIntR544Mon:
        return {true, IndexUnit::kRetailMonth, 544, 1, 12, 31};
      case kIntR445Qtr:
        return {true, IndexUnit::kRetailMonth, 445, 3, 12, 31};
      case kIntR454Qtr:
        return {true, IndexUnit::kRetailMonth, 454, 3, 12, 31};
      case kIntR544Qtr:
        return {true, IndexUnit::kRetailMonth, 544, 3, 12, 31};
      case kIntR445Yr:
        return {true, IndexUnit::kRetailMonth, 445, 12, 12, 31};
      case kIntR454Yr:
        return {true, IndexUnit::kRetailMonth, 454, 12, 12, 31};
      case kIntR544Yr:
        return {true, IndexUnit::kRetailMonth, 544, 12, 12, 31};
      default:
        return {false, IndexUnit::kMonth, 0, 1, 12, 31};
    }
  }

  // Index of the unit of `kind` that holds day x.
  [[gnu::always_inline]] constexpr IndexNumber calendar_index(const CalendarKind& kind, DayNumber x) noexcept {
    switch (kind.unit) {
      case IndexUnit::kTenDay:
        return tenday_index(civil_from_days(x));
      case IndexUnit::kSemiMonth:
        return semimonth_index(civil_from_days(x));
      case IndexUnit::kRetailMonth:
        return retail_month_index(kind.format, x);
      case IndexUnit::kMonth:
        break;
    }
    const CivilDate c = civil_from_days(x);
    return month_index(c.year, c.month);
  }

  // First day of index unit j of `kind`.
  [[gnu::always_inline]] constexpr DayNumber calendar_index_start(const CalendarKind& kind, IndexNumber j) noexcept {
    switch (kind.unit) {
      case IndexUnit::kTenDay:
        return tenday_index_start(j);
      case IndexUnit::kSemiMonth:
        return semimonth_index_start(j);
      case IndexUnit::kRetailMonth:
        return retail_index_start(kind.format, j);
      case IndexUnit::kMonth:
        break;
    }
    return month_index_start(j);
  }

  // Runs fn(std::integral_constant<int, code>{}) for a calendar or retail
  // interval code, so that each kind gets its own copy of the arithmetic with
  // its unit, format and factor as constants; any other code runs fn with 0,
  // whose kind is not valid.
  template <class Fn>
  [[gnu::always_inline]] inline auto with_calendar_code(int code, Fn&& fn) {
    switch (code) {
      case kIntTenday:
        return fn(std::integral_constant<int, kIntTenday>{});
      case kIntSemimonth:
        return fn(std::integral_constant<int, kIntSemimonth>{});
      case kIntMonth:
        return fn(std::integral_constant<int, kIntMonth>{});
      case kIntQtr:
        return fn(std::integral_constant<int, kIntQtr>{});
      case kIntSemiyear:
        return fn(std::integral_constant<int, kIntSemiyear>{});
      case kIntYear:
        return fn(std::integral_constant<int, kIntYear>{});
      case kIntR445Mon:
        return fn(std::integral_constant<int, kIntR445Mon>{});
      case kIntR454Mon:
        return fn(std::integral_constant<int, kIntR454Mon>{});
      case kIntR544Mon:
        return fn(std::integral_constant<int, kIntR544Mon>{});
      case kIntR445Qtr:
        return fn(std::integral_constant<int, kIntR445Qtr>{});
      case kIntR454Qtr:
        return fn(std::integral_constant<int, kIntR454Qtr>{});
      case kIntR544Qtr:
        return fn(std::integral_constant<int, kIntR544Qtr>{});
      case kIntR445Yr:
        return fn(std::integral_constant<int, kIntR445Yr>{});
      case kIntR454Yr:
        return fn(std::integral_constant<int, kIntR454Yr>{});
      case kIntR544Yr:
        return fn(std::integral_constant<int, kIntR544Yr>{});
      default:
        return fn(std::integral_constant<int, 0>{});
    }
  }

  // The weekend of a WEEKDAY record, or false when the record has no working
  // day (all seven flags set or a working-day count outside 1 to 7), which
  // would leave the working-day walks without an end.
  // The seven flags are read as one word: a byte's top bit is set when the
  // byte is nonzero, and one multiplication gathers the seven top bits.
  [[gnu::always_inline]] inline unsigned weekend_flags_mask(const INTERVAL& iv) noexcept {
    static_assert(offsetof(INTERVAL, weekend) == offsetof(INTERVAL, nweekday) + 1 && sizeof iv.weekend == 7);
    if constexpr (std::endian::native == std::endian::little) {
      std::uint64_t v = 0;
      std::memcpy(&v, &iv.nweekday, sizeof v);  // byte 0 nweekday, bytes 1 to 7 the flags
      constexpr std::uint64_t kLow7 = 0x7F7F7F7F7F7F7F7FULL;
      const std::uint64_t nonzero = ((((v & kLow7) + kLow7) | v) >> 7) & 0x0101010101010101ULL;
      // Bit 8k of the flags moves to bit 56 + k; no two partial products meet.
      return static_cast<unsigned>(((nonzero >> 8) * 0x0102040810204000ULL) >> 56) & 0x7FU;
    } else {
      unsigned mask = 0;
      for (int w = 0; w < 7; ++w) {
        if (iv.weekend[w] != 0) mask |= 1U << w;
      }
      return mask;
    }
  }

  inline bool make_work_week(const INTERVAL& iv, WorkWeek* ww) noexcept {
    const unsigned mask = weekend_flags_mask(iv);
    if (mask == 0x7FU || iv.nweekday < 1 || iv.nweekday > 7) return false;
    *ww = {mask, iv.nweekday};
    return true;
  }

  // The default weekend: five working days, Sunday and Saturday off.
  constexpr bool is_default_weekend(const INTERVAL& iv) noexcept {
    for (int w = 0; w < 7; ++w) {
      if ((iv.weekend[w] != 0) != (w == 0 || w == 6)) return false;
    }
    return iv.nweekday == 5;
  }

  // Runs `call` on a cleared INTERVALX that holds a copy of `iv`, and gives
  // up the custom table reference that the call may have left in it.
  template <class Call>
  double with_custom_record(const INTERVAL& iv, Call call) {
    INTERVALX ix{};
    static_cast<INTERVAL&>(ix) = iv;
    const double result = call(&ix);
    if (ix.cinfo != nullptr) zcintcReleaseRef(ix.cinfo);
    return result;
  }

}  // namespace calendar
