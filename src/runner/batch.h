// Many series through one plan, on several threads, with the results handed
// on in the order of the series' keys whatever the thread count.
//
//   SeriesTable table("sales.csv", {{"store", "item"}, "", {}});
//   BatchOptions b;
//   b.threads = 2;
//   run_batch(runner, plan, table, b, [&](SeriesOutcome& o) { ... o.result.table ... });
//
// A series that cannot be read, placed or fitted does not stop the run: its
// outcome carries the reason, and every other series runs.  Each series is
// computed on one thread from its own lists, so its results are the same to
// the bit for any number of threads.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "runner/runner.h"
#include "runner/series_table.h"

namespace esf::runner {

// What became of one series.  New results go at the end.
struct SeriesOutcome {
  std::size_t ordinal = 0;
  std::vector<std::string> key;
  bool ok = false;
  std::string reason;     // why it failed, naming file, line and field where known
  int return_code = 0;    // the method's return code, when a method failed
  ForecastResult result;  // result.fit for a fit; the table too for a forecast
  // With plan.timed, thread CPU seconds spent on this series: reading its rows as times and
  // values (and finding its interval), and running it through the plan.
  double read_seconds = 0.0;
  double run_seconds = 0.0;
  // Text a front end prepared from the outcome on the worker thread
  // (BatchOptions::prepare), written later in key order.
  std::string prepared;
  // The interval the series ran on: the plan's, or the one its time IDs fit
  // when the plan names none (empty when none was found).
  std::string interval;
};

struct BatchOptions {
  int threads = 1;                    // threads that run series (at least 1)
  const SavedModel* saved = nullptr;  // forecast from this model instead of fitting
  // Called on the worker thread as soon as a series is done, before the
  // outcome waits for its turn: the place to turn it into text in parallel.
  std::function<void(SeriesOutcome&)> prepare;
  // Called now and then from the thread that reads the table with the count
  // of series handed on so far.
  std::function<void(std::size_t done)> progress;
  // How far past the next series to be handed on a worker may run (0: 8 per
  // thread): finished series waiting for their turn stay fewer, and memory
  // holds them and the series in flight, however long one series takes.
  std::size_t window = 0;
};

// Runs every series of `table` through `plan` (a fit, or a forecast when
// plan.forecast) and hands each outcome to `take` in key order, from one
// thread at a time.  A plan without an interval runs each series on the
// interval its own time IDs fit (a series they fit none of fails with the
// reason).  Returns the number of series that failed.  Throws
// CsvError when the table itself cannot be read, and whatever `take` throws
// (after the workers have stopped).
std::size_t run_batch(const Runner& runner, const Plan& plan, const SeriesTable& table, const BatchOptions& options,
                      const std::function<void(SeriesOutcome&)>& take);

}  // namespace esf::runner
