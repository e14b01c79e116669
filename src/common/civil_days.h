// Civil-day arithmetic: day numbers counted from 1 January 1960 (a Friday)
// and the proleptic Gregorian calendar, with the floored division that all
// date arithmetic rests on. A leaf: it includes only the standard library,
// so the calendar routines, the host and the command line share one copy.
//
//   days_from_civil(1960, 1, 1)      //  0
//   days_from_civil(2001, 1, 31)     //  14976
//   civil_from_days(-138061)         //  {1582, 1, 1}
//   weekday_sunday0(0)               //  5 (Friday)
//
// The civil conversions are the closed forms of H. Hinnant's
// "chrono-Compatible Low-Level Date Algorithms"
// (https://howardhinnant.github.io/date_algorithms.html), moved to the 1960
// epoch, and for the years of every date in use the multiply-and-shift forms
// of C. Neri and L. Schneider.
#pragma once

#include <cstdint>
#include <limits>

// Hidden: inline arithmetic, called directly wherever it is not inlined.
namespace calendar __attribute__((visibility("hidden"))) {

  using DayNumber = std::int64_t;  // days since 1 January 1960

  // Datetime values count seconds since 1 January 1960 00:00:00.
  inline constexpr double kSecondsPerDay = 86400.0;

  static_assert(std::numeric_limits<std::int64_t>::digits >= 63, "the day arithmetic assumes 64-bit integers");

  // ---------------------------------------------------------------------------
  // Division toward minus infinity, for a positive divisor d. Day, month and
  // working-day indices and their periods nearly always fit in 32 bits, where
  // a hardware division is several times faster than a 64-bit one; the result
  // is the same either way.

  [[gnu::always_inline]] constexpr bool fits_32(std::int64_t v) noexcept {
    return v > std::numeric_limits<std::int32_t>::min() && v <= std::numeric_limits<std::int32_t>::max();
  }

  [[gnu::always_inline]] constexpr std::int64_t floordiv(std::int64_t n, std::int64_t d) noexcept {
    if (fits_32(n) && fits_32(d)) {
      const auto n32 = static_cast<std::int32_t>(n);
      const auto d32 = static_cast<std::int32_t>(d);
      if (n32 < 0) {
        const std::int32_t q = (-n32) / d32;
        return (-n32) % d32 != 0 ? -(q + 1) : -q;
      }
      return n32 / d32;
    }
    if (n < 0) {
      const std::int64_t q = (-n) / d;
      return (-n) % d != 0 ? -(q + 1) : -q;
    }
    return n / d;
  }

  // Remainder in [0, m - 1], for a positive modulus m.
  [[gnu::always_inline]] constexpr std::int64_t floormod(std::int64_t a, std::int64_t m) noexcept {
    if (fits_32(a) && fits_32(m)) {
      const auto a32 = static_cast<std::int32_t>(a);
      const auto m32 = static_cast<std::int32_t>(m);
      if (a32 < 0) {
        const std::int32_t r = m32 - ((-a32) % m32);  // [1, m]
        return r == m32 ? 0 : r;
      }
      return a32 % m32;
    }
    if (a < 0) {
      const std::int64_t r = m - ((-a) % m);  // [1, m]
      return r == m ? 0 : r;
    }
    return a % m;
  }

  // floor(x) as an integer, for |x| below 2^63: the truncation, one less for
  // a negative value with a fraction. Exact, and a third of the instructions
  // of a floor in doubles followed by a conversion.
  [[gnu::always_inline]] constexpr std::int64_t floor_to_int(double x) noexcept {
    const auto t = static_cast<std::int64_t>(x);
    return t - (x < static_cast<double>(t));
  }

  static_assert(floor_to_int(-0.5) == -1 && floor_to_int(-1.0) == -1 && floor_to_int(-0.0) == 0 &&
                floor_to_int(2.999) == 2 && floor_to_int(-1e-300) == -1);

  // ---------------------------------------------------------------------------
  // The civil (proleptic Gregorian) calendar.

  struct CivilDate {
    std::int64_t year;
    int month;  // [1, 12]
    int day;    // [1, 31]
  };

  constexpr bool is_leap_year(std::int64_t y) noexcept { return y % 4 == 0 && (y % 100 != 0 || y % 400 == 0); }

  constexpr int last_day_of_month(std::int64_t y, int m) noexcept {
    if (m == 2) return is_leap_year(y) ? 29 : 28;
    return (m == 4 || m == 6 || m == 9 || m == 11) ? 30 : 31;
  }

  // Days from 1 March of year 0 (proleptic) to 1 January 1960.
  inline constexpr std::int64_t kEpochShift = 715815;

  // Two derivations of the same conversions. The general one works on any
  // 64-bit day number; the fast one, in 32-bit unsigned arithmetic, covers
  // every date the library handles with centuries to spare and is the one
  // the interval routines run through millions of times.

  // https://howardhinnant.github.io/date_algorithms.html#days_from_civil
  // The year is taken to start on 1 March, so that the leap day is the last
  // day of the year; a 400-year era holds exactly 146097 days.
  constexpr DayNumber days_from_civil_general(std::int64_t y, int m, int d) noexcept {
    y -= m <= 2;
    const std::int64_t era = (y >= 0 ? y : y - 399) / 400;
    const std::int64_t yoe = y - era * 400;                                    // [0, 399]
    const std::int64_t doy = (153 * (m > 2 ? m - 3 : m + 9) + 2) / 5 + d - 1;  // [0, 365]
    const std::int64_t doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;            // [0, 146096]
    return era * 146097 + doe - kEpochShift;
  }

  // https://howardhinnant.github.io/date_algorithms.html#civil_from_days
  constexpr CivilDate civil_from_days_general(DayNumber x) noexcept {
    const std::int64_t z = x + kEpochShift;
    const std::int64_t era = (z >= 0 ? z : z - 146096) / 146097;
    const std::int64_t doe = z - era * 146097;                                       // [0, 146096]
    const std::int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;  // [0, 399]
    const std::int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);                // [0, 365]
    const std::int64_t mp = (5 * doy + 2) / 153;                                     // [0, 11]
    const int d = static_cast<int>(doy - (153 * mp + 2) / 5 + 1);                    // [1, 31]
    const int m = static_cast<int>(mp < 10 ? mp + 3 : mp - 9);                       // [1, 12]
    return {yoe + era * 400 + (m <= 2), m, d};
  }

  // C. Neri and L. Schneider, "Euclidean affine functions and their
  // application to calendar algorithms", Softw. Pract. Exper. 53 (2023):
  // the same March-based calendar, with every quotient a multiplication and
  // a shift. Adding kFastEras eras keeps all values unsigned.
  inline constexpr std::uint32_t kFastEras = 82;                                // 32800 years
  inline constexpr std::int64_t kFastShift = kEpochShift + 146097 * kFastEras;  // day 0 -> N
  inline constexpr std::int64_t kFastYearShift = 400 * kFastEras;
  // The fast forms hold while 4 * N + 3 and 1461 * year fit in 32 bits.
  inline constexpr DayNumber kFastFirstDay = -kFastShift;
  inline constexpr DayNumber kFastLastDay = 1000000000 - kFastShift;
  inline constexpr std::int64_t kFastFirstYear = -kFastYearShift + 1;
  inline constexpr std::int64_t kFastLastYear = 2900000 - kFastYearShift;

  static_assert(std::numeric_limits<std::uint32_t>::digits >= 32,
                "the fast calendar forms need 32-bit unsigned arithmetic");
  static_assert(4ULL * (kFastLastDay + kFastShift) + 3 <= 0xFFFFFFFFULL);
  static_assert(1461ULL * (kFastLastYear + kFastYearShift) <= 0xFFFFFFFFULL);

  [[gnu::always_inline]] constexpr CivilDate civil_from_days_fast(DayNumber x) noexcept {
    const auto n = static_cast<std::uint32_t>(x + kFastShift);  // days since 1 March of year -32800
    const std::uint32_t n1 = 4 * n + 3;
    const std::uint32_t century = n1 / 146097;             // [0, 7300]
    const std::uint32_t day_of_century = n1 % 146097 / 4;  // [0, 36524]
    const std::uint32_t n2 = 4 * day_of_century + 3;
    const std::uint64_t p2 = std::uint64_t{2939745} * n2;
    const auto year_of_century = static_cast<std::uint32_t>(p2 >> 32);               // [0, 99]
    const std::uint32_t day_of_year = static_cast<std::uint32_t>(p2) / 2939745 / 4;  // [0, 365], 0 on 1 March
    const std::uint32_t n3 = 2141 * day_of_year + 197913;
    const std::uint32_t month = n3 >> 16;             // [3, 14]: March to February
    const std::uint32_t day = (n3 & 0xFFFFU) / 2141;  // [0, 30]
    const std::uint32_t january_or_february = day_of_year >= 306;
    const std::int64_t year = static_cast<std::int64_t>(100 * century + year_of_century) - kFastYearShift;
    return {year + january_or_february, static_cast<int>(january_or_february ? month - 12 : month),
            static_cast<int>(day) + 1};
  }

  [[gnu::always_inline]] constexpr DayNumber days_from_civil_fast(std::int64_t y, int m, int d) noexcept {
    const std::uint32_t january_or_february = m <= 2;
    const auto year = static_cast<std::uint32_t>(y + kFastYearShift) - january_or_february;  // March-based
    const auto month = static_cast<std::uint32_t>(january_or_february ? m + 12 : m);         // [3, 14]
    const std::uint32_t century = year / 100;
    const std::uint32_t year_days = 1461 * year / 4 - century + century / 4;
    const std::uint32_t month_days = (979 * month - 2919) / 32;  // [0, 337]
    return static_cast<DayNumber>(year_days + month_days + static_cast<std::uint32_t>(d - 1)) - kFastShift;
  }

  // Day number of a civil date; any 64-bit year whose days fit.
  [[gnu::always_inline]] constexpr DayNumber days_from_civil(std::int64_t y, int m, int d) noexcept {
    if (y >= kFastFirstYear && y <= kFastLastYear) return days_from_civil_fast(y, m, d);
    return days_from_civil_general(y, m, d);
  }

  // Civil date of a day number.
  [[gnu::always_inline]] constexpr CivilDate civil_from_days(DayNumber x) noexcept {
    if (x >= kFastFirstDay && x <= kFastLastDay) return civil_from_days_fast(x);
    return civil_from_days_general(x);
  }

  // Quotients by 7 of the unsigned values the day arithmetic meets, each one
  // multiplication and one shift. 2454267027 is (2^34 + 5) / 7: for
  // n = 7q + r the product is q + (r + 5n / 2^34) / 7 times 2^34, whose floor
  // is q while 5n < 2^34. For the days of a year, 9363 / 2^16 exceeds 1/7 by
  // 5 / (7 * 2^16), and the floor holds while 5n < 2^16.
  [[gnu::always_inline]] constexpr std::uint32_t div7(std::uint32_t n) noexcept {
    return static_cast<std::uint32_t>((std::uint64_t{n} * 2454267027U) >> 34);
  }
  inline constexpr std::uint32_t kDiv7Limit = 3435973836U;  // 5n < 2^34

  [[gnu::always_inline]] constexpr std::uint32_t div7_small(std::uint32_t n) noexcept { return (n * 9363U) >> 16; }
  inline constexpr std::uint32_t kDiv7SmallLimit = 13107U;  // 5n < 2^16

  static_assert(div7(kDiv7Limit) == kDiv7Limit / 7 && div7(kDiv7Limit - 1) == (kDiv7Limit - 1) / 7 && div7(6) == 0 &&
                div7(7) == 1 && div7(kDiv7Limit / 7 * 7 - 1) == kDiv7Limit / 7 - 1);
  static_assert(div7_small(kDiv7SmallLimit) == kDiv7SmallLimit / 7 && div7_small(13) == 1 && div7_small(14) == 2);

  // floormod(x + a, 7) for a day x of the fast range, where x + kFastShift
  // is a small unsigned number: one multiplication and no sign test.
  [[gnu::always_inline]] constexpr int fast_mod7(DayNumber x, int a) noexcept {
    constexpr std::uint32_t kShiftMod7 = static_cast<std::uint32_t>(kFastShift % 7);
    const std::uint32_t offset = (static_cast<std::uint32_t>(a % 7 + 7) + 7 - kShiftMod7) % 7;
    const std::uint32_t n = static_cast<std::uint32_t>(x + kFastShift) + offset;
    return static_cast<int>(n - 7 * div7(n));
  }
  static_assert(kFastLastDay + kFastShift + 6 < kDiv7Limit);

  // Weekday of a day number: 0 Sunday to 6 Saturday. Day -5 is a Sunday.
  [[gnu::always_inline]] constexpr int weekday_sunday0(DayNumber x) noexcept {
    if (x >= kFastFirstDay && x <= kFastLastDay) [[likely]]
      return fast_mod7(x, 5);
    return static_cast<int>(floormod(x + 5, 7));
  }

  // ISO day of the week: 1 Monday to 7 Sunday. Day -4 is a Monday.
  [[gnu::always_inline]] constexpr int iso_weekday(DayNumber x) noexcept {
    if (x >= kFastFirstDay && x <= kFastLastDay) [[likely]]
      return fast_mod7(x, 4) + 1;
    return static_cast<int>(floormod(x + 4, 7)) + 1;
  }

  static_assert(weekday_sunday0(kFastFirstDay) == static_cast<int>(floormod(kFastFirstDay + 5, 7)));
  static_assert(weekday_sunday0(kFastLastDay) == static_cast<int>(floormod(kFastLastDay + 5, 7)));
  static_assert(iso_weekday(-4) == 1);
  static_assert(days_from_civil(1960, 1, 1) == 0);
  static_assert(weekday_sunday0(0) == 5, "1 January 1960 is a Friday");

}  // namespace calendar
