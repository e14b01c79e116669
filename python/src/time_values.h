// numpy's datetime64 ticks and the library's time values, both ways, a
// chunk of values at a time.
//
// numpy counts ticks of a unit (a day, a second, a nanosecond, ...) from 1
// January 1970; the library counts days (a date interval) or seconds (a
// datetime interval) from 1 January 1960, as doubles, with its own missing
// values where numpy has NaT.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <initializer_list>
#include <limits>
#include <stdexcept>
#include <string>
#include <string_view>

#include <pybind11/numpy.h>

#include "intervals/calendar_arith.h"
#include "intervals/interval.h"
#include "primitives/primitives.h"

namespace esf::python {

namespace py = pybind11;

// numpy counts from 1 January 1970, the library from 1 January 1960.
inline constexpr std::int64_t kEpochDays = calendar::days_from_civil(1970, 1, 1);  // 3653
inline constexpr std::int64_t kEpochSeconds = kEpochDays * 86400;                  // 315619200
inline constexpr std::int64_t kNaT = std::numeric_limits<std::int64_t>::min();

// Ticks of a datetime64 unit in one day; 0 for the library's raw numbers.
inline std::int64_t ticks_per_day(std::string_view unit) {
  if (unit == "raw") return 0;
  if (unit == "D") return 1;
  if (unit == "h") return 24;
  if (unit == "m") return 1440;
  if (unit == "s") return 86400;
  if (unit == "ms") return 86400LL * 1000;
  if (unit == "us") return 86400LL * 1000000;
  if (unit == "ns") return 86400LL * 1000000000;
  throw std::invalid_argument("unsupported datetime64 unit '" + std::string(unit) + "'");
}

// Values are converted a chunk at a time into a small buffer, so that each
// conversion runs as its own loop with its divisor known at compile time.
inline constexpr std::size_t kChunk = 512;

// Converts n ticks (or raw values) to the library's values.
using ToLibrary = void (*)(const void* data, std::size_t n, double* out);

template <std::int64_t PerDay>
constexpr std::int64_t floor_ticks(std::int64_t t) {
  const std::int64_t q = t / PerDay;
  return t % PerDay < 0 ? q - 1 : q;
}

// Days since 1960 of datetime64 ticks: the day that holds the instant.
template <std::int64_t PerDay>
void ticks_to_days(const void* data, std::size_t n, double* out) {
  const auto* t = static_cast<const std::int64_t*>(data);
  for (std::size_t i = 0; i < n; ++i) {
    out[i] = t[i] == kNaT ? esf::kMissing : static_cast<double>(floor_ticks<PerDay>(t[i]) + kEpochDays);
  }
}

// Seconds since 1960 of datetime64 ticks, with the fraction of a second.
template <std::int64_t PerDay>
void ticks_to_seconds(const void* data, std::size_t n, double* out) {
  const auto* t = static_cast<const std::int64_t*>(data);
  for (std::size_t i = 0; i < n; ++i) {
    if (t[i] == kNaT) {
      out[i] = esf::kMissing;
    } else if constexpr (PerDay <= 86400) {
      out[i] = static_cast<double>(t[i]) * static_cast<double>(86400 / PerDay) + static_cast<double>(kEpochSeconds);
    } else {
      constexpr std::int64_t kPerSecond = PerDay / 86400;
      const std::int64_t whole = floor_ticks<kPerSecond>(t[i]);
      out[i] = static_cast<double>(whole + kEpochSeconds) +
               static_cast<double>(t[i] - whole * kPerSecond) / static_cast<double>(kPerSecond);
    }
  }
}

// Raw values pass as they are; NaN and infinities become the missing value.
inline void raw_values(const void* data, std::size_t n, double* out) {
  const auto* v = static_cast<const double*>(data);
  for (std::size_t i = 0; i < n; ++i) out[i] = std::isfinite(v[i]) || esf::is_missing(v[i]) ? v[i] : esf::kMissing;
}

template <template <std::int64_t> class Pick>
auto by_unit(std::int64_t per_day) {
  switch (per_day) {
    case 1:
      return Pick<1>::fn;
    case 24:
      return Pick<24>::fn;
    case 1440:
      return Pick<1440>::fn;
    case 86400:
      return Pick<86400>::fn;
    case 86400LL * 1000:
      return Pick<86400LL * 1000>::fn;
    case 86400LL * 1000000:
      return Pick<86400LL * 1000000>::fn;
    default:
      return Pick<86400LL * 1000000000>::fn;
  }
}
template <std::int64_t P>
struct DaysOf {
  static constexpr ToLibrary fn = &ticks_to_days<P>;
};
template <std::int64_t P>
struct SecondsOf {
  static constexpr ToLibrary fn = &ticks_to_seconds<P>;
};

// One operand: its values and how to read them. A length of 1 broadcasts.
class TimeOperand {
 public:
  // `units` is the interval's: days for a date interval, seconds for a
  // datetime one.
  TimeOperand(const py::array& values, std::string_view unit, char units) {
    if (values.ndim() != 1) throw std::invalid_argument("operands are flattened before the call");
    size_ = static_cast<std::size_t>(values.shape(0));
    const std::int64_t per_day = ticks_per_day(unit);
    if (per_day == 0) {
      raw_ = py::array_t<double, py::array::c_style | py::array::forcecast>::ensure(values);
      if (!raw_) throw std::invalid_argument("raw time values must be numbers");
      data_ = raw_.data();
      convert_ = &raw_values;
    } else {
      ticks_ = py::array_t<std::int64_t, py::array::c_style>::ensure(values);
      if (!ticks_) throw std::invalid_argument("datetime64 ticks must be 64-bit integers");
      data_ = ticks_.data();
      convert_ = units == kUnitsDatetime ? by_unit<SecondsOf>(per_day) : by_unit<DaysOf>(per_day);
    }
    if (size_ == 1) convert_(data_, 1, &single_);
  }

  std::size_t size() const { return size_; }

  // The library's values of elements [first, first + n) into out.
  void fill(std::size_t first, std::size_t n, double* out) const {
    if (size_ == 1) {
      std::fill(out, out + n, single_);
    } else {
      const std::size_t width = convert_ == &raw_values ? sizeof(double) : sizeof(std::int64_t);
      convert_(static_cast<const char*>(data_) + first * width, n, out);
    }
  }

 private:
  py::array_t<double, py::array::c_style | py::array::forcecast> raw_;
  py::array_t<std::int64_t, py::array::c_style> ticks_;
  const void* data_ = nullptr;
  ToLibrary convert_ = nullptr;
  double single_ = 0.0;
  std::size_t size_ = 0;
};

// The length of the result of operands that broadcast against each other.
inline std::size_t result_size(std::initializer_list<std::size_t> sizes) {
  std::size_t n = 1;
  for (std::size_t s : sizes) {
    if (s != 1 && n != 1 && s != n) throw std::invalid_argument("operands do not broadcast");
    if (s != 1) n = s;
  }
  for (std::size_t s : sizes) {
    if (s == 0) return 0;
  }
  return n;
}

// Library values -> datetime64 ticks of PerDay ticks a day. Dates are whole
// days; datetimes keep their fraction of a second down to the unit.
using FromLibrary = void (*)(const double* v, std::size_t n, std::int64_t* out);

[[noreturn]] inline void out_of_range() {
  throw std::overflow_error(
      "a result lies outside the range of the datetime64 unit; convert the input to a coarser unit "
      "(datetime64[s] or [D]) first");
}

template <std::int64_t PerDay>
void days_to_ticks(const double* v, std::size_t n, std::int64_t* out) {
  constexpr double kLimit = 9.2e18 / static_cast<double>(PerDay);
  for (std::size_t i = 0; i < n; ++i) {
    if (esf::is_missing(v[i]) || !std::isfinite(v[i])) {
      out[i] = kNaT;
      continue;
    }
    const double since = v[i] - static_cast<double>(kEpochDays);
    if (std::fabs(since) >= kLimit) out_of_range();
    out[i] = static_cast<std::int64_t>(since) * PerDay;
  }
}

template <std::int64_t PerDay>
void seconds_to_ticks(const double* v, std::size_t n, std::int64_t* out) {
  static_assert(PerDay >= 86400, "datetime results are kept in seconds or finer");
  constexpr std::int64_t kPerSecond = PerDay / 86400;
  constexpr double kLimit = 9.2e18 / static_cast<double>(kPerSecond);
  for (std::size_t i = 0; i < n; ++i) {
    if (esf::is_missing(v[i]) || !std::isfinite(v[i])) {
      out[i] = kNaT;
      continue;
    }
    const double whole = std::floor(v[i]);
    const double since = whole - static_cast<double>(kEpochSeconds);
    if (std::fabs(since) >= kLimit) out_of_range();
    out[i] = static_cast<std::int64_t>(since) * kPerSecond +
             static_cast<std::int64_t>(std::nearbyint((v[i] - whole) * static_cast<double>(kPerSecond)));
  }
}

template <std::int64_t P>
struct TicksOfDays {
  static constexpr FromLibrary fn = &days_to_ticks<P>;
};
template <std::int64_t P>
struct TicksOfSeconds {
  static constexpr FromLibrary fn = &seconds_to_ticks<(P < 86400 ? 86400 : P)>;
};

// The converter from library values of an interval's units to ticks of
// `per_day` ticks a day (datetimes: seconds or finer).
inline FromLibrary to_ticks_of(char units, std::int64_t per_day) {
  return units == kUnitsDatetime ? by_unit<TicksOfSeconds>(per_day) : by_unit<TicksOfDays>(per_day);
}

}  // namespace esf::python
