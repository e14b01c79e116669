// Finding a series' interval from its time IDs, and telling when a series'
// dates do not sit where its interval's periods begin.
//
//   TimeUnits units;
//   CsvSeries s = read_series_any_units("air.csv", "", "", &units);
//   Inferred i = infer_interval(loader, s, units);   // i.interval == "MONTH"
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "intervals/interval.h"
#include "runner/loader.h"
#include "runner/row_memo.h"
#include "runner/series_csv.h"

namespace esf::runner {

// Reads a series whose interval is not known yet: numbers as observation
// numbers, else dates and datetimes; *units is kDate when no time ID has a
// time of day. Throws CsvError.
CsvSeries read_series_any_units(const std::string& path, const std::string& id_column, const std::string& var_column,
                                TimeUnits* units);
// The same for rows read by `read`, which parses them in the units it is
// given (a series of a table of many).
CsvSeries read_in_any_units(const std::function<CsvSeries(TimeUnits)>& read, TimeUnits* units);

struct Inferred {
  std::string interval;  // the interval's name, e.g. "MONTH" or "WEEK.2"
  std::string message;   // why no interval fits, naming two rows; empty when one does
};

// The interval that carries every time ID onto the next one in a whole
// number of periods, with as few periods as possible: each pair of
// neighbouring time IDs proposes the interval zintfit finds for it, and the
// proposal that fits every pair with the fewest periods wins. A series of one
// time ID, or of IDs with no interval between them, has none.
Inferred infer_interval(Loader& loader, const CsvSeries& series, TimeUnits units);

// The remark for a series whose time IDs do not all begin a period of
// `interval`: the first such row and the interval that would fit; empty when
// every time ID begins its period.
std::string placement_remark(Loader& loader, const CsvSeries& series, TimeUnits units, INTERVAL interval);

// The module's calendar answers for the rows of the last series placed on
// this thread, in the order they were asked, so that the next series with
// the same time IDs (most series of a batch) takes them instead of asking
// again.  Built-in intervals only: a custom interval's table may change
// between runs.
class CalendarMemo {
 public:
  enum Question { kCount, kBegins, kNumQuestions };
  // The calling thread's memo for `iv`, ready to answer `q` for the rows of
  // a series from its first on.
  static CalendarMemo& rows_of(const INTERVAL& iv, Question q);
  // The answer to `q` for (a, b): the remembered one when the same row of
  // the last series asked the same, else ask().
  template <class Ask>
  double answer(Question q, double a, double b, Ask ask) {
    if (!on_) return ask();
    return answers_[q].at(next_[q]++, {key_bits(a), key_bits(b)}, ask);
  }

 private:
  INTERVAL interval_{};
  bool on_ = false;
  std::array<RowMemo<std::array<std::uint64_t, 2>, double>, kNumQuestions> answers_;
  std::array<std::size_t, kNumQuestions> next_{};
};

// What placing the last series on this thread found, for the next series
// with the same time IDs on the same interval (most series of a batch): the
// period of every row, and the first row that does not begin its period.
// Built-in intervals only, as CalendarMemo.
class PlacementMemo {
 public:
  // The calling thread's memo for `series` on `iv`: what was found for the
  // last series when its time IDs were the same, else nothing yet.
  static PlacementMemo& of(const INTERVAL& iv, const CsvSeries& series);
  // `series` placed by place_series through `calendar`, or in the periods
  // the last series' rows took.
  PlacedSeries place(const CsvSeries& series, const Calendar& calendar);
  // The index of the first row that does not begin its period (the count
  // of rows when every one does): find()'s answer, or the one remembered.
  template <class Find>
  std::size_t first_off(Find find) {
    if (!on_) return find();
    if (!off_known_) {
      first_off_ = find();
      off_known_ = true;
    }
    return first_off_;
  }

 private:
  INTERVAL interval_{};
  bool on_ = false;
  std::vector<std::uint64_t> times_;  // the time IDs' bits
  bool placed_ = false;
  double stdate_ = 0.0;
  std::vector<std::uint32_t> periods_;  // of each row
  std::size_t count_ = 0;               // periods of the series
  bool off_known_ = false;
  std::size_t first_off_ = 0;
};

}  // namespace esf::runner
