// Calendar arithmetic on whole numpy arrays: one loop per call over the
// module's exported interval routines, with numpy's datetime64 ticks turned
// into the library's day and second numbers on the way in and back on the
// way out.
//
// The Python layer hands every operand over as a contiguous 1-D array of
// either the full length or length 1 (a broadcast scalar), together with
// the unit of its ticks:
//
//   _core.advance("MONTH", ticks, "ns", n, "B", "ns")    // datetime64[ns] in and out
//   _core.count("QTR", a, "D", b, "D")                   // counts as float64, NaN where missing
//
// Unit "raw" means the values are already the library's own numbers
// (float64): days or seconds since 1 January 1960, or observation numbers.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include "bindings.h"
#include "intervals/calendar_arith.h"
#include "intervals/interval.h"
#include "cli/interval_messages.h"
#include "primitives/primitives.h"

namespace py = pybind11;

namespace esf::python {
namespace {

// numpy counts from 1 January 1970, the library from 1 January 1960.
inline constexpr std::int64_t kEpochDays = calendar::days_from_civil(1970, 1, 1);  // 3653
inline constexpr std::int64_t kEpochSeconds = kEpochDays * 86400;                   // 315619200
inline constexpr std::int64_t kNaT = std::numeric_limits<std::int64_t>::min();

// Ticks of a datetime64 unit in one day; 0 for the library's raw numbers.
std::int64_t ticks_per_day(std::string_view unit) {
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
void raw_values(const void* data, std::size_t n, double* out) {
  const auto* v = static_cast<const double*>(data);
  for (std::size_t i = 0; i < n; ++i) out[i] = std::isfinite(v[i]) || esf::is_missing(v[i]) ? v[i] : esf::kMissing;
}

template <template <std::int64_t> class Pick>
auto by_unit(std::int64_t per_day) {
  switch (per_day) {
    case 1: return Pick<1>::fn;
    case 24: return Pick<24>::fn;
    case 1440: return Pick<1440>::fn;
    case 86400: return Pick<86400>::fn;
    case 86400LL * 1000: return Pick<86400LL * 1000>::fn;
    case 86400LL * 1000000: return Pick<86400LL * 1000000>::fn;
    default: return Pick<86400LL * 1000000000>::fn;
  }
}
template <std::int64_t P> struct DaysOf { static constexpr ToLibrary fn = &ticks_to_days<P>; };
template <std::int64_t P> struct SecondsOf { static constexpr ToLibrary fn = &ticks_to_seconds<P>; };

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
std::size_t result_size(std::initializer_list<std::size_t> sizes) {
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

[[noreturn]] void out_of_range() {
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

template <std::int64_t P> struct TicksOfDays { static constexpr FromLibrary fn = &days_to_ticks<P>; };
template <std::int64_t P> struct TicksOfSeconds {
  static constexpr FromLibrary fn = &seconds_to_ticks<(P < 86400 ? 86400 : P)>;
};

const char* units_name(char units) {
  switch (units) {
    case kUnitsDate: return "dates";
    case kUnitsDatetime: return "datetimes";
    case kUnitsObs: return "observation numbers";
    default: return "no time values";
  }
}

// A parsed interval; ValueError with the parser's reason when it doesn't parse.
INTERVAL parse_interval(const std::string& name) {
  INTERVAL iv{};
  std::string text = name;
  const int rc = zintstr(text.data(), static_cast<int>(text.size()), &iv);
  if (rc != 0) throw py::value_error(esf::cli::interval_parse_message(name, rc));
  return iv;
}

// Refuses datetime64 operands for an interval that counts plain numbers.
void check_operand(const INTERVAL& iv, std::string_view unit, const char* name) {
  if (unit != "raw" && iv.units != kUnitsDate && iv.units != kUnitsDatetime) {
    throw py::type_error(std::string(name) + ": the interval " + std::string(iv.token, static_cast<std::size_t>(iv.tokenlen)) +
                         " counts " + units_name(iv.units) + ", not dates; pass numbers");
  }
}

// Built-in intervals are pure arithmetic and run without the interpreter's
// lock; a custom one reads its table through the host, and keeps it.
struct MaybeRelease {
  explicit MaybeRelease(const INTERVAL& iv) {
    if (iv.intcode != kIntCustom) release.emplace();
  }
  std::optional<py::gil_scoped_release> release;
};

// Runs body(first, n) over the result's elements in chunks of kChunk.
template <class Body>
void by_chunks(std::size_t n, Body body) {
  for (std::size_t first = 0; first < n; first += kChunk) body(first, std::min(kChunk, n - first));
}

py::array_t<double> count(const std::string& name, const py::array& x1, const std::string& unit1, const py::array& x2,
                          const std::string& unit2) {
  INTERVAL iv = parse_interval(name);
  check_operand(iv, unit1, "x1");
  check_operand(iv, unit2, "x2");
  const TimeOperand a(x1, unit1, iv.units);
  const TimeOperand b(x2, unit2, iv.units);
  const std::size_t n = result_size({a.size(), b.size()});
  py::array_t<double> out(static_cast<py::ssize_t>(n));
  double* result = out.mutable_data();
  MaybeRelease unlocked(iv);
  double from[kChunk];
  double to[kChunk];
  by_chunks(n, [&](std::size_t first, std::size_t m) {
    a.fill(first, m, from);
    b.fill(first, m, to);
    for (std::size_t j = 0; j < m; ++j) result[first + j] = zintck2(&iv, from[j], to[j]);
  });
  return out;
}

py::array advance(const std::string& name, const py::array& x, const std::string& unit, const py::array& steps,
                  const std::string& align, const std::string& out_unit) {
  INTERVAL iv = parse_interval(name);
  check_operand(iv, unit, "x");
  tchar alignment[2] = {align.empty() ? 'B' : align[0], '\0'};
  const TimeOperand start(x, unit, iv.units);
  const TimeOperand by(steps, "raw", iv.units);
  const std::size_t n = result_size({start.size(), by.size()});
  const std::int64_t per_day = ticks_per_day(out_unit);
  double from[kChunk];
  double count[kChunk];
  double answer[kChunk];
  auto advance_chunk = [&](std::size_t first, std::size_t m, double* into) {
    start.fill(first, m, from);
    by.fill(first, m, count);
    for (std::size_t j = 0; j < m; ++j) into[j] = zintnx3(&iv, from[j], count[j], alignment, nullptr);
  };
  if (per_day == 0) {
    py::array_t<double> out(static_cast<py::ssize_t>(n));
    double* result = out.mutable_data();
    MaybeRelease unlocked(iv);
    by_chunks(n, [&](std::size_t first, std::size_t m) { advance_chunk(first, m, result + first); });
    return out;
  }
  const FromLibrary to_ticks =
      iv.units == kUnitsDatetime ? by_unit<TicksOfSeconds>(per_day) : by_unit<TicksOfDays>(per_day);
  py::array_t<std::int64_t> out(static_cast<py::ssize_t>(n));
  std::int64_t* result = out.mutable_data();
  MaybeRelease unlocked(iv);
  by_chunks(n, [&](std::size_t first, std::size_t m) {
    advance_chunk(first, m, answer);
    to_ticks(answer, m, result + first);
  });
  return out;
}

// Season code of each value: 0 for the first season of the interval's
// cycle; -1 where there is none (a missing value, no cycle).
py::array_t<std::int32_t> season(const std::string& name, const py::array& x, const std::string& unit) {
  INTERVAL iv = parse_interval(name);
  check_operand(iv, unit, "x");
  const TimeOperand at(x, unit, iv.units);
  const std::size_t n = at.size();
  py::array_t<std::int32_t> out(static_cast<py::ssize_t>(n));
  std::int32_t* result = out.mutable_data();
  // A cycle of a fixed length is found once and handed to zintscd2 with
  // every value; any other (one derived from the dates, a custom interval's)
  // is looked for at each value by zintscd.
  INTERVALX with_cycle{};
  static_cast<INTERVAL&>(with_cycle) = iv;
  INTERVALX cycle{};
  int fixed = 0;
  const bool known = iv.intcode != kIntCustom && zintsea(&iv, 0.0, &cycle, &fixed) == 0 && fixed >= 2;
  if (known) {
    with_cycle.sinterval = &cycle;
    with_cycle.nseasons = fixed;
  }
  MaybeRelease unlocked(iv);
  double value[kChunk];
  by_chunks(n, [&](std::size_t first, std::size_t m) {
    at.fill(first, m, value);
    for (std::size_t j = 0; j < m; ++j) {
      int code = 0;
      int nseasons = -1;
      const int rc = esf::is_missing(value[j]) ? -1
                     : known                   ? zintscd2(&with_cycle, value[j], 0, 1, &code, &nseasons)
                                               : zintscd(&iv, value[j], 0, 1, &code, &nseasons);
      result[first + j] = rc == 0 ? code : -1;
    }
  });
  return out;
}

std::string padded_text(const char* text, int len) { return std::string(text, static_cast<std::size_t>(len)); }

// The fields of a parsed interval, its printed name and its seasonal cycle.
py::dict describe(const std::string& name) {
  INTERVAL iv = parse_interval(name);
  py::dict d;
  char printed[64] = {};
  int len = sizeof printed;
  d["name"] = zinti2s(printed, &len, &iv) == 0 ? padded_text(printed, len) : name;
  d["intcode"] = static_cast<int>(iv.intcode);
  d["units"] = std::string(1, iv.units == 0 ? '0' : iv.units);
  d["multiplier"] = iv.intper;
  d["shift"] = iv.shiftper + 1;
  d["nweekday"] = static_cast<int>(iv.nweekday);
  py::list weekend;
  for (int day = 0; day < 7; ++day) {
    if (iv.weekend[day] != 0) weekend.append(day + 1);
  }
  d["weekend"] = py::tuple(weekend);
  INTERVAL cycle{};
  int nseasons = 0;
  if (zintsea(&iv, 0.0, &cycle, &nseasons) == 0) {
    len = sizeof printed;
    d["cycle"] = zinti2s(printed, &len, &cycle) == 0 ? padded_text(printed, len) : std::string();
    d["nseasons"] = nseasons;
  } else {
    d["cycle"] = py::none();
    d["nseasons"] = 0;
  }
  return d;
}

py::dict default_format(const std::string& name) {
  INTERVAL iv = parse_interval(name);
  char text[33] = {};
  short namelen = 0;
  short width = 0;
  short short_width = 0;
  zintfmt(&iv, text, &namelen, &width, &short_width);
  py::dict d;
  d["format"] = padded_text(text, namelen);
  d["width"] = width;
  d["short_width"] = short_width;
  char duration[33] = {};
  zintfmd(&iv, duration, &namelen, &width, &short_width);
  d["duration_format"] = padded_text(duration, namelen);
  d["duration_width"] = width;
  d["duration_short_width"] = short_width;
  return d;
}

}  // namespace

void bind_calendar(py::module_& m) {
  m.def("count", &count, py::arg("interval"), py::arg("x1"), py::arg("unit1"), py::arg("x2"), py::arg("unit2"));
  m.def("advance", &advance, py::arg("interval"), py::arg("x"), py::arg("unit"), py::arg("n"), py::arg("align"),
        py::arg("out_unit"));
  m.def("season", &season, py::arg("interval"), py::arg("x"), py::arg("unit"));
  m.def("describe", &describe, py::arg("interval"));
  m.def("default_format", &default_format, py::arg("interval"));
}

}  // namespace esf::python
