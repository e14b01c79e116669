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
#include <vector>

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include "bindings.h"
#include "cli/interval_messages.h"
#include "host/host.h"
#include "intervals/calendar_arith.h"
#include "intervals/interval.h"
#include "primitives/primitives.h"
#include "time_values.h"

namespace py = pybind11;

namespace esf::python {
namespace {

const char* units_name(char units) {
  switch (units) {
    case kUnitsDate:
      return "dates";
    case kUnitsDatetime:
      return "datetimes";
    case kUnitsObs:
      return "observation numbers";
    default:
      return "no time values";
  }
}

// A parsed interval; ValueError with the parser's reason when it doesn't parse.
INTERVAL parse_interval(const std::string& name) {
  module_loader();
  INTERVAL iv{};
  std::string text = name;
  const int rc = zintstr(text.data(), static_cast<int>(text.size()), &iv);
  if (rc != 0) throw py::value_error(esf::cli::interval_parse_message(name, rc));
  return iv;
}

// Refuses datetime64 operands for an interval that counts plain numbers.
void check_operand(const INTERVAL& iv, std::string_view unit, const char* name) {
  if (unit != "raw" && iv.units != kUnitsDate && iv.units != kUnitsDatetime) {
    throw py::type_error(std::string(name) + ": the interval " +
                         std::string(iv.token, static_cast<std::size_t>(iv.tokenlen)) + " counts " +
                         units_name(iv.units) + ", not dates; pass numbers");
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
  const FromLibrary to_ticks = to_ticks_of(iv.units, per_day);
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

// The interval that carries each x1 onto its x2 in whole periods, with the
// fewest: a name, or None where none does (a missing value, x2 not after x1).
py::list fit(const py::array& x1, const std::string& unit1, const py::array& x2, const std::string& unit2,
             const std::string& units) {
  char u = units.empty() ? kUnitsDate : units[0];
  const TimeOperand a(x1, unit1, u);
  const TimeOperand b(x2, unit2, u);
  const std::size_t n = result_size({a.size(), b.size()});
  std::vector<INTERVAL> found(n);
  std::vector<char> ok(n, 0);
  {
    py::gil_scoped_release unlocked;
    double from[kChunk];
    double to[kChunk];
    by_chunks(n, [&](std::size_t first, std::size_t m) {
      a.fill(first, m, from);
      b.fill(first, m, to);
      for (std::size_t j = 0; j < m; ++j) {
        char units_in = u;
        ok[first + j] = zintfit(from[j], to[j], &units_in, &found[first + j], nullptr) == 0;
      }
    });
  }
  py::list names;
  for (std::size_t i = 0; i < n; ++i) {
    if (ok[i]) {
      names.append(std::string(found[i].token, static_cast<std::size_t>(found[i].tokenlen)));
    } else {
      names.append(py::none());
    }
  }
  return names;
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

// Sets a host option (INTERVALDS: the custom intervals' tables), or clears
// it with None, and starts the calling thread's task afresh so that the
// tables are read again.
void set_option(const std::string& name, const std::optional<std::string>& value) {
  if (value) {
    host::set_option(name, *value);
  } else {
    host::clear_option(name);
  }
  host::end_task();
}

void bind_calendar(py::module_& m) {
  m.def("set_option", &set_option, py::arg("name"), py::arg("value"));
  m.def("count", &count, py::arg("interval"), py::arg("x1"), py::arg("unit1"), py::arg("x2"), py::arg("unit2"));
  m.def("advance", &advance, py::arg("interval"), py::arg("x"), py::arg("unit"), py::arg("n"), py::arg("align"),
        py::arg("out_unit"));
  m.def("fit", &fit, py::arg("x1"), py::arg("unit1"), py::arg("x2"), py::arg("unit2"), py::arg("units"));
  m.def("season", &season, py::arg("interval"), py::arg("x"), py::arg("unit"));
  m.def("describe", &describe, py::arg("interval"));
  m.def("default_format", &default_format, py::arg("interval"));
}

}  // namespace esf::python
