// The many-series runner on synthetic series, through run_batch and the
// batch's CSV text as the command line writes it.
//
//   BM_Memory/model/threads    the runner road in memory: the same 1,000
//       series held in memory, Runner::forecast on each (fit and a 12-step
//       forecast with limits), the results kept in memory, as a language
//       binding runs them; module_us comes from a second, clocked pass
//   BM_Forecast/model/threads  1,000 monthly series of 144 points (level,
//       trend, a multiplicative season and noise), fit and a 12-step forecast
//       with limits, every family, 1 and 2 threads
//   BM_Fit/model/threads       the fit alone
//   BM_M3Sizes/threads         3,003 series of the sizes of the M3 competition
//       (645 yearly of 14-20 points, 756 quarterly of 24-44, 1,428 monthly of
//       48-126, 174 others of 71-104 observation numbers), --model auto (every
//       family fitted, the best by AICC, forecast 12 ahead), each series on
//       the interval its time IDs fit
//
// Counters: series/s and us/series are wall time.  The rest are CPU time per
// series, so that a loaded machine does not inflate them: cpu_us (the whole
// process), module_us (inside the module's methods: the fit, and under
// --model auto every candidate family's fit with the forecast method run to
// measure it, then the forecast method that writes the table), read_us (the
// rows read as times and values), fit_us (placing, lists, the fit and its
// report), forecast_us (the forecast methods and the table), write_us (the
// table as CSV text), and overhead_pct, the process's CPU time beyond the
// module's, in percent of the module's.
//
// Run on the project's 2-core machine shared with other builds and test runs
// (load average 11 to 13), Release, 2026-11-24, medians of 5 repetitions;
// wall figures say more about the load than about the runner, CPU figures
// less so:
//   BM_Memory winters, 1 thread: cpu_us 104 (9,600 series per second of one
//     core's CPU), module_us 95, overhead_pct 9.4 (9 us beyond the module)
//   BM_Memory winters, 2 threads: cpu_us 107, overhead_pct 11 (about the
//     CPU per series of one thread: little is lost to contention)
//   BM_Forecast winters, 1 thread: cpu_us 156 (6,400 series per second of
//     one core), module_us 96, write_us 35, read_us 6; overhead_pct 62
//   BM_Forecast winters, 2 threads: cpu_us 162 (the reading thread besides
//     the two that run series; it refills the queue a run of series at a time)
//   BM_M3Sizes: 0.77 s of CPU on 1 thread (2.3 s wall), overhead_pct 53
//     (each candidate family's lists and measures, short series, and each
//     series' interval found from its time IDs: read_us 21)
// The wall rates of 1 and 2 threads cannot be compared on a loaded machine.
// Rerun on an idle machine before comparing them with a target.
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <functional>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <benchmark/benchmark.h>

#include "host/host.h"
#include "runner/batch.h"
#include "runner/batch_text.h"
#include "runner/series_table.h"

namespace {

namespace fs = std::filesystem;
namespace runner = esf::runner;

double process_cpu_seconds() {
  timespec ts{};
  ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
  return static_cast<double>(ts.tv_sec) + 1e-9 * static_cast<double>(ts.tv_nsec);
}

std::string month_text(int year, int month) {
  return std::to_string(year) + (month < 10 ? "-0" : "-") + std::to_string(month) + "-01";
}

// A long table "id,date,value" in the temporary directory, removed at exit.
fs::path write_table(const char* name, const std::function<void(std::ostream&)>& rows) {
  static std::vector<fs::path> written;
  fs::path p =
      fs::temp_directory_path() / ("esf_runner_bench_" + std::string(name) + std::to_string(::getpid()) + ".csv");
  std::ofstream out(p);
  out << "id,date,value\n";
  rows(out);
  if (written.empty())
    std::atexit([] {
      for (const fs::path& f : written) fs::remove(f);
    });
  written.push_back(p);
  return p;
}

// 1,000 monthly series of 144 points, written once per process.
const fs::path& monthly_table() {
  static const fs::path path = write_table("monthly", [](std::ostream& out) {
    std::mt19937_64 rng(42);
    std::normal_distribution<double> noise(0.0, 0.03);
    std::uniform_real_distribution<double> u(0.0, 1.0);
    for (int s = 0; s < 1000; ++s) {
      const double level = 100.0 + 100.0 * u(rng), trend = 0.5 * u(rng), amplitude = 0.1 + 0.2 * u(rng);
      for (int i = 0; i < 144; ++i) {
        const double v =
            (level + trend * i) * (1.0 + amplitude * std::sin(2.0 * M_PI * (i % 12) / 12.0)) * (1.0 + noise(rng));
        out << 's' << s << ',' << month_text(2000 + i / 12, i % 12 + 1) << ',' << v << '\n';
      }
    }
  });
  return path;
}

// 3,003 series of the M3 competition's counts and lengths.
const fs::path& m3_table() {
  static const fs::path path = write_table("m3", [](std::ostream& out) {
    std::mt19937_64 rng(3003);
    std::normal_distribution<double> noise(0.0, 0.04);
    std::uniform_real_distribution<double> u(0.0, 1.0);
    struct Kind {
      const char* name;
      int count, shortest, longest, cycle;
    };
    for (const Kind& k : {Kind{"Y", 645, 14, 20, 1}, Kind{"Q", 756, 24, 44, 4}, Kind{"M", 1428, 48, 126, 12},
                          Kind{"O", 174, 71, 104, 1}}) {
      for (int s = 0; s < k.count; ++s) {
        const int n = k.shortest + static_cast<int>(u(rng) * (k.longest - k.shortest + 1));
        const double level = 1000.0 + 5000.0 * u(rng), trend = 20.0 * (u(rng) - 0.3), amplitude = 0.2 * u(rng);
        for (int i = 0; i < n; ++i) {
          const double season = k.cycle > 1 ? 1.0 + amplitude * std::sin(2.0 * M_PI * (i % k.cycle) / k.cycle) : 1.0;
          const double v = std::max(1.0, (level + trend * i) * season * (1.0 + noise(rng)));
          out << k.name << s << ',';
          if (k.cycle == 12) out << month_text(1980 + i / 12, i % 12 + 1);
          if (k.cycle == 4) out << month_text(1980 + i / 4, 3 * (i % 4) + 1);
          if (k.cycle == 1 && k.name[0] == 'Y') out << month_text(1960 + i, 1);
          if (k.cycle == 1 && k.name[0] == 'O') out << i + 1;
          out << ',' << v << '\n';
        }
      }
    }
  });
  return path;
}

runner::Loader& loader() {
  static runner::Loader l;
  l.load(ESF_MODULE);
  return l;
}

const char* kModels[] = {"simple", "double", "linear", "damped", "seasonal", "winters", "winters-additive"};

// The counters of every run: series/s and us/series over wall time, cpu_us,
// and, when the module's own time is known, module_us and overhead_pct.
// Returns the series as a divisor.
double rate_counters(benchmark::State& state, std::size_t series, double cpu, double module) {
  state.counters["series/s"] = benchmark::Counter(static_cast<double>(series), benchmark::Counter::kIsRate);
  state.counters["us/series"] =
      benchmark::Counter(static_cast<double>(series) * 1e-6, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
  const double n = static_cast<double>(std::max<std::size_t>(series, 1));
  state.counters["cpu_us"] = 1e6 * cpu / n;
  if (module > 0) {
    state.counters["module_us"] = 1e6 * module / n;
    state.counters["overhead_pct"] = 100.0 * (cpu - module) / module;
  }
  return n;
}

void run(benchmark::State& state, const char* model, const char* interval, const fs::path& file, int threads,
         bool forecast) {
  const runner::Runner r(loader());
  runner::ModelOptions o;
  o.model = model;
  o.interval = interval;
  o.lead = 12;
  runner::Plan plan = r.plan(o, forecast);
  plan.timed = true;
  const runner::SeriesTable table(file.string(), {{"id"}, "", {}});
  runner::BatchOptions b;
  b.threads = threads;
  // The table as CSV text, on the worker thread as the command line makes it.
  std::mutex mutex;
  std::once_flag columns_made;
  std::vector<std::string> columns;
  double write = 0;
  b.prepare = [&](runner::SeriesOutcome& out) {
    if (!out.ok || !forecast) return;
    const double t0 = runner::thread_cpu_seconds();
    std::call_once(columns_made, [&] { columns = runner::output_columns(out.result.table, plan); });
    out.prepared = runner::table_csv(out, runner::column_map(out, columns), o.lead, false);
    const double t = runner::thread_cpu_seconds() - t0;
    std::lock_guard lock(mutex);
    write += t;
  };
  double read = 0, fit = 0, fc = 0, module = 0, cpu = 0;
  std::size_t series = 0, failed = 0, bytes = 0;
  for (auto _ : state) {
    const double cpu0 = process_cpu_seconds();
    failed += runner::run_batch(r, plan, table, b, [&](runner::SeriesOutcome& out) {
      read += out.read_seconds;
      fit += forecast ? out.result.fit_seconds : out.run_seconds;
      fc += out.result.forecast_seconds;
      module += out.result.module_seconds;
      bytes += out.prepared.size();
      ++series;
    });
    cpu += process_cpu_seconds() - cpu0;
  }
  if (failed > 0) state.counters["failed"] = static_cast<double>(failed);
  const double n = rate_counters(state, series, cpu, module);
  state.counters["read_us"] = 1e6 * read / n;
  state.counters["fit_us"] = 1e6 * fit / n;
  if (forecast) {
    state.counters["forecast_us"] = 1e6 * fc / n;
    state.counters["write_us"] = 1e6 * write / n;
  }
}

// Runs job(s) for s in [0, n) on `threads` threads, each taking the next
// series as it finishes one, as a binding that holds its series in memory
// does; a thread's host task ends with it.
template <class Job>
void on_threads(std::size_t n, int threads, Job job) {
  std::atomic<std::size_t> next{0};
  auto work = [&] {
    for (std::size_t s = next++; s < n; s = next++) job(s);
  };
  std::vector<std::thread> pool;
  for (int t = 1; t < threads; ++t) {
    pool.emplace_back([&] {
      work();
      esf::host::end_task();
    });
  }
  work();
  for (std::thread& t : pool) t.join();
}

// The runner road in memory: the monthly series read once into memory, then
// Runner::forecast on each, the results kept in memory.  Each iteration runs
// the series twice: untimed for the runner's CPU time, then with the stage
// clocks for the module's own fit and forecast, so that the clock readings do
// not count as runner overhead.
void BM_Memory(benchmark::State& state) {
  const char* model = kModels[state.range(0)];
  const int threads = static_cast<int>(state.range(1));
  const runner::Runner r(loader());
  runner::ModelOptions o;
  o.model = model;
  o.interval = "MONTH";
  o.lead = 12;
  runner::Plan plan = r.plan(o, true);
  runner::Plan timed = plan;
  timed.timed = true;
  static const std::vector<runner::CsvSeries> series = [&] {
    std::vector<runner::CsvSeries> all;
    const runner::SeriesTable table(monthly_table().string(), {{"id"}, "", {}});
    table.read([&](runner::RawSeries&& raw) {
      all.push_back(runner::parse_raw_series(raw, table.shape().path, runner::TimeUnits::kDate));
    });
    return all;
  }();
  std::vector<runner::ForecastResult> results(series.size());
  std::vector<double> module(series.size());
  double cpu = 0, module_total = 0;
  std::size_t done = 0;
  for (auto _ : state) {
    const double cpu0 = process_cpu_seconds();
    on_threads(series.size(), threads, [&](std::size_t s) { results[s] = r.forecast(plan, series[s]); });
    cpu += process_cpu_seconds() - cpu0;
    done += series.size();
    state.PauseTiming();
    on_threads(series.size(), threads, [&](std::size_t s) { module[s] = r.forecast(timed, series[s]).module_seconds; });
    for (double m : module) module_total += m;
    state.ResumeTiming();
  }
  rate_counters(state, done, cpu, module_total);
}

void BM_Forecast(benchmark::State& state) {
  run(state, kModels[state.range(0)], "MONTH", monthly_table(), static_cast<int>(state.range(1)), true);
}
void BM_Fit(benchmark::State& state) {
  run(state, kModels[state.range(0)], "MONTH", monthly_table(), static_cast<int>(state.range(1)), false);
}
void BM_M3Sizes(benchmark::State& state) {
  run(state, runner::kAutoModel, "", m3_table(), static_cast<int>(state.range(0)), true);
}

void families(benchmark::internal::Benchmark* b) {
  for (int m = 0; m < 7; ++m) {
    for (int threads : {1, 2}) b->Args({m, threads});
  }
  b->ArgNames({"model", "threads"})->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(2);
}

BENCHMARK(BM_Memory)->Apply(families);
BENCHMARK(BM_Forecast)->Apply(families);
BENCHMARK(BM_Fit)->Apply(families);
BENCHMARK(BM_M3Sizes)->ArgName("threads")->Arg(1)->Arg(2)->Unit(benchmark::kSecond)->UseRealTime()->Iterations(1);

}  // namespace
