#include "runner/interval_inference.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include <fmt/format.h>

#include "host/host.h"
#include "host/time_text.h"
#include "primitives/primitives.h"

namespace esf::runner {
namespace {

// The calendar routines of the loaded image that inference needs.
struct Routines {
  explicit Routines(Loader& loader)
      : zintfit(Loader::required(loader.routines().zintfit, "zintfit")),
        zintstr(Loader::required(loader.routines().zintstr, "zintstr")),
        zintnx2(Loader::required(loader.routines().zintnx2, "zintnx2")),
        zintck2(Loader::required(loader.routines().zintck2, "zintck2")),
        zintnx3(Loader::required(loader.routines().zintnx3, "zintnx3")) {}
  int (*zintfit)(double, double, char*, INTERVAL*, INTINFO*);
  int (*zintstr)(tchar*, int, INTERVAL*);
  double (*zintnx2)(INTERVAL*, double, double);
  double (*zintck2)(INTERVAL*, double, double);
  double (*zintnx3)(INTERVAL*, double, double, tchar*, INTERVAL*);
};

char units_letter(TimeUnits units) {
  return units == TimeUnits::kDate ? kUnitsDate : units == TimeUnits::kDatetime ? kUnitsDatetime : kUnitsObs;
}

std::string name_of(const INTERVAL& iv) { return std::string(iv.token, static_cast<std::size_t>(iv.tokenlen)); }

// The rows in time order.
std::vector<const CsvRow*> in_order(const CsvSeries& series) {
  std::vector<const CsvRow*> rows;
  rows.reserve(series.rows.size());
  for (const CsvRow& r : series.rows) rows.push_back(&r);
  std::stable_sort(rows.begin(), rows.end(), [](const CsvRow* a, const CsvRow* b) { return a->time < b->time; });
  return rows;
}

// The periods `iv` takes from each time ID to the next, summed; -1 when a
// pair is not a whole number of periods apart with alignment "S", and the
// index of that pair in *bad.
double periods_spanned(Routines& fn, INTERVAL iv, const std::vector<const CsvRow*>& rows, std::size_t* bad) {
  tchar same[2] = {'S', 0};
  double total = 0.0;
  for (std::size_t i = 0; i + 1 < rows.size(); ++i) {
    const double x = rows[i]->time;
    const double y = rows[i + 1]->time;
    const double k = fn.zintck2(&iv, x, y);
    if (esf::is_missing(k) || !(k >= 1.0) || fn.zintnx3(&iv, x, k, same, nullptr) != y) {
      *bad = i;
      return -1.0;
    }
    total += k;
  }
  return total;
}

Inferred infer(Routines& fn, const std::vector<const CsvRow*>& rows, TimeUnits units, const CsvSeries& series) {
  Inferred out;
  if (rows.size() < 2) {
    out.message = fmt::format("{}: one time ID tells no interval; give --interval", series.path);
    return out;
  }
  // Each neighbouring pair proposes the interval that carries one onto the other.
  std::vector<INTERVAL> proposals;
  for (std::size_t i = 0; i + 1 < rows.size(); ++i) {
    if (rows[i]->time == rows[i + 1]->time) {
      out.message = fmt::format("{}: lines {} and {}, column {}: {} and {} are the same time; no interval fits",
                                series.path, rows[i]->line, rows[i + 1]->line, host::quote_input(series.id_column),
                                host::quote_input(rows[i]->id_text), host::quote_input(rows[i + 1]->id_text));
      return out;
    }
    INTERVAL iv{};
    char u = units_letter(units);
    if (fn.zintfit(rows[i]->time, rows[i + 1]->time, &u, &iv, nullptr) != 0) continue;
    const std::string name = name_of(iv);
    if (std::none_of(proposals.begin(), proposals.end(), [&](const INTERVAL& p) { return name_of(p) == name; })) {
      proposals.push_back(iv);
    }
    if (proposals.size() >= 16) break;  // enough to choose from
  }
  double best = -1.0;
  std::size_t first_bad = 0;
  for (const INTERVAL& p : proposals) {
    std::size_t bad = 0;
    const double total = periods_spanned(fn, p, rows, &bad);
    if (total >= 0 && (best < 0 || total < best)) {
      best = total;
      out.interval = name_of(p);
    } else if (total < 0 && &p == &proposals.front()) {
      first_bad = bad;
    }
  }
  if (!out.interval.empty()) return out;
  const CsvRow* a = rows[first_bad];
  const CsvRow* b = rows[first_bad + 1];
  if (proposals.empty()) {
    out.message = fmt::format("{}: no interval carries line {} ({}) onto line {} ({}); give --interval", series.path,
                              a->line, host::quote_input(a->id_text), b->line, host::quote_input(b->id_text));
  } else {
    const std::string first = name_of(proposals.front());
    out.message = fmt::format(
        "{}: no single interval fits the time IDs: lines {} and {} ({} and {}) are not a whole number of {} "
        "apart, as other rows are; give --interval",
        series.path, a->line, b->line, host::quote_input(a->id_text), host::quote_input(b->id_text), first);
  }
  return out;
}

}  // namespace

CsvSeries read_in_any_units(const std::function<CsvSeries(TimeUnits)>& read, TimeUnits* units) {
  CsvSeries s;
  try {
    s = read(TimeUnits::kDatetime);
  } catch (const CsvTimeIdError&) {
    // Not dates: observation numbers, or a message about them.
    *units = TimeUnits::kNumber;
    return read(TimeUnits::kNumber);
  }
  const bool timed = std::any_of(s.rows.begin(), s.rows.end(), [](const CsvRow& r) {
    const auto t = host::read_time_text(r.id_text);
    return t && t->has_time;
  });
  *units = timed ? TimeUnits::kDatetime : TimeUnits::kDate;
  if (!timed) {
    for (CsvRow& r : s.rows) r.time = std::floor(r.time / 86400.0);
  }
  return s;
}

CsvSeries read_series_any_units(const std::string& path, const std::string& id_column, const std::string& var_column,
                                TimeUnits* units) {
  return read_in_any_units([&](TimeUnits u) { return read_series_csv(path, id_column, var_column, u); }, units);
}

namespace {

// Whether `rows` have the time IDs whose bits `times` holds, in the same
// order; when not, `times` takes theirs.
bool same_times(std::vector<std::uint64_t>& times, const std::vector<CsvRow>& rows) {
  if (times.size() == rows.size() && std::equal(rows.begin(), rows.end(), times.begin(),
                                                [](const CsvRow& r, auto t) { return key_bits(r.time) == t; })) {
    return true;
  }
  times.clear();
  for (const CsvRow& r : rows) times.push_back(key_bits(r.time));
  return false;
}

}  // namespace

Inferred infer_interval(Loader& loader, const CsvSeries& series, TimeUnits units) {
  if (!loader.loaded()) loader.load();
  // The interval found for the last series on this thread, for the next
  // series with the same time IDs (most series of a batch).
  struct Found {
    std::vector<std::uint64_t> times;
    TimeUnits units = TimeUnits::kNumber;
    std::string interval;  // empty when none was found
  };
  thread_local Found last;
  if (same_times(last.times, series.rows) && last.units == units && !last.interval.empty()) return {last.interval, {}};
  Routines fn(loader);
  Inferred found = infer(fn, in_order(series), units, series);
  last.units = units;
  last.interval = found.interval;
  return found;
}

std::string placement_remark(Loader& loader, const CsvSeries& series, TimeUnits units, INTERVAL interval) {
  Routines fn(loader);
  const std::size_t first_off = PlacementMemo::of(interval, series).first_off([&] {
    CalendarMemo& memo = CalendarMemo::rows_of(interval, CalendarMemo::kBegins);
    std::size_t i = 0;
    for (const CsvRow& r : series.rows) {
      if (memo.answer(CalendarMemo::kBegins, r.time, 0.0, [&] { return fn.zintnx2(&interval, r.time, 0.0); }) !=
          r.time) {
        break;
      }
      ++i;
    }
    return i;
  });
  if (first_off == series.rows.size()) return {};
  const CsvRow* off = &series.rows[first_off];
  const Inferred fit = infer(fn, in_order(series), units, series);
  std::string text = fmt::format(
      "{}: line {}, column {}: {} does not begin a period of {}; each row is placed in the period that holds it",
      series.path, off->line, host::quote_input(series.id_column), host::quote_input(off->id_text), name_of(interval));
  if (!fit.interval.empty() && fit.interval != name_of(interval)) {
    text += fmt::format(" ({} would fit the time IDs)", fit.interval);
  }
  return text;
}

namespace {

bool same_interval(const INTERVAL& m, const INTERVAL& iv) {
  return m.units == iv.units && m.intcode == iv.intcode && m.intper == iv.intper && m.shiftper == iv.shiftper &&
         m.nweekday == iv.nweekday && std::equal(std::begin(m.weekend), std::end(m.weekend), std::begin(iv.weekend)) &&
         m.tokenlen == iv.tokenlen && std::equal(m.token, m.token + m.tokenlen, iv.token);
}

}  // namespace

PlacementMemo& PlacementMemo::of(const INTERVAL& iv, const CsvSeries& series) {
  thread_local PlacementMemo memo;
  memo.on_ = iv.intcode != kIntCustom;
  if (!same_times(memo.times_, series.rows) || !same_interval(memo.interval_, iv)) {
    memo.interval_ = iv;
    memo.placed_ = false;
    memo.off_known_ = false;
  }
  return memo;
}

PlacedSeries PlacementMemo::place(const CsvSeries& series, const Calendar& calendar) {
  if (on_ && placed_) return place_in_periods(series, stdate_, periods_, count_);
  PlacedSeries placed = place_series(series, calendar, on_ ? &periods_ : nullptr);
  if (on_) {
    stdate_ = placed.stdate;
    count_ = placed.values.size();
    placed_ = true;
  }
  return placed;
}

CalendarMemo& CalendarMemo::rows_of(const INTERVAL& iv, Question q) {
  thread_local CalendarMemo memo;
  if (!same_interval(memo.interval_, iv)) {
    memo.interval_ = iv;
    for (auto& a : memo.answers_) a.clear();
  }
  memo.on_ = iv.intcode != kIntCustom;
  memo.next_[q] = 0;
  return memo;
}

}  // namespace esf::runner
