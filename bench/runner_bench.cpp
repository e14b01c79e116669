// The many-series runner on synthetic monthly series (144 points: level,
// trend, a multiplicative season and noise), every family, one and two
// threads: series per second and microseconds per series, and where a
// series' time goes.
//
// Counters of BM_Forecast: read_us (reading the rows as times and values),
// fit_us (placing them, building the lists, the fit method and reading its
// answers), forecast_us (the forecast method and its table in memory),
// write_us (the table as CSV text), summed over the series of a run and
// divided by their number; per-stage sums are thread time, so on two
// threads they exceed the wall time per series.  BM_Fit runs the fit alone.
// "us/series" is wall time per series (shown with an "s" suffix).
//
// Run on the project's 2-core machine while six other builds and test runs
// shared it (the single-thread runs got about a quarter of a core: 414 ms of
// CPU in 1,590 ms of wall time for 1,000 Winters series), Release, fit and a
// 12-step forecast with limits, per series, wall time:
//   simple            1 thread 604 us   2 threads 490 us
//   damped            1 thread 897 us   2 threads 642 us
//   seasonal          1 thread 912 us   2 threads 584 us
//   winters           1 thread 1590 us  2 threads 1090 us  (fit 953, forecast 98,
//                     read 37, write 397 us of thread time on 1 thread)
//   winters-additive  1 thread 1280 us  2 threads 1117 us
// These figures say more about the load than about the runner; rerun on an
// idle machine before comparing them with a target.
#include <benchmark/benchmark.h>

#include <unistd.h>

#include <chrono>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>

#include "host/host.h"
#include "runner/batch.h"

namespace {

namespace fs = std::filesystem;
namespace runner = esf::runner;

constexpr int kSeries = 1000;
constexpr int kPoints = 144;

// The table, written once per process.
const fs::path& table_file() {
  static const fs::path path = [] {
    fs::path p = fs::temp_directory_path() / ("esf_runner_bench_" + std::to_string(::getpid()) + ".csv");
    std::ofstream out(p);
    out << "id,date,value\n";
    std::mt19937_64 rng(42);
    std::normal_distribution<double> noise(0.0, 0.03);
    std::uniform_real_distribution<double> u(0.0, 1.0);
    for (int s = 0; s < kSeries; ++s) {
      const double level = 100.0 + 100.0 * u(rng), trend = 0.5 * u(rng), amplitude = 0.1 + 0.2 * u(rng);
      for (int i = 0; i < kPoints; ++i) {
        const double v = (level + trend * i) * (1.0 + amplitude * std::sin(2.0 * M_PI * (i % 12) / 12.0)) *
                         (1.0 + noise(rng));
        out << 's' << s << ',' << 2000 + i / 12 << '-' << (i % 12 < 9 ? "0" : "") << i % 12 + 1 << "-01," << v
            << '\n';
      }
    }
    std::atexit([] { fs::remove(table_file()); });
    return p;
  }();
  return path;
}

runner::Loader& loader() {
  static runner::Loader l;
  l.load(ESF_MODULE);
  return l;
}

const char* kModels[] = {"simple", "double", "linear", "damped", "seasonal", "winters", "winters-additive"};

void run(benchmark::State& state, bool forecast) {
  const char* model = kModels[state.range(0)];
  const int threads = static_cast<int>(state.range(1));
  const runner::Runner r(loader());
  runner::ModelOptions o;
  o.model = model;
  o.interval = "MONTH";
  o.lead = 12;
  const runner::Plan plan = r.plan(o, forecast);
  const runner::SeriesTable table(table_file().string(), {{"id"}, "", {}});
  runner::BatchOptions b;
  b.threads = threads;
  double read = 0, fit = 0, fc = 0, write = 0;
  std::size_t series = 0, failed = 0;
  std::string sink;
  for (auto _ : state) {
    failed += runner::run_batch(r, plan, table, b, [&](runner::SeriesOutcome& out) {
      read += out.read_seconds;
      fit += forecast ? out.result.fit_seconds : out.run_seconds;
      fc += out.result.forecast_seconds;
      const auto t0 = std::chrono::steady_clock::now();
      sink.clear();
      const runner::ForecastTable& t = out.result.table;
      for (std::size_t i = 0; i < t.rows(); ++i) {
        for (const runner::TableColumn& c : t.columns) sink += esf::host::format_table_value(c.values[i]) + ',';
        sink += '\n';
      }
      write += std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
      ++series;
    });
  }
  if (failed > 0) state.SkipWithError("some series failed");
  state.counters["series/s"] = benchmark::Counter(static_cast<double>(series), benchmark::Counter::kIsRate);
  state.counters["us/series"] =
      benchmark::Counter(static_cast<double>(series) * 1e-6, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
  const double n = static_cast<double>(std::max<std::size_t>(series, 1));
  state.counters["read_us"] = 1e6 * read / n;
  state.counters["fit_us"] = 1e6 * fit / n;
  if (forecast) {
    state.counters["forecast_us"] = 1e6 * fc / n;
    state.counters["write_us"] = 1e6 * write / n;
  }
}

void BM_Forecast(benchmark::State& state) { run(state, true); }
void BM_Fit(benchmark::State& state) { run(state, false); }

void families(benchmark::internal::Benchmark* b) {
  for (int m = 0; m < 7; ++m) {
    for (int threads : {1, 2}) b->Args({m, threads});
  }
  b->ArgNames({"model", "threads"})->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(2);
}

BENCHMARK(BM_Forecast)->Apply(families);
BENCHMARK(BM_Fit)->Apply(families);

}  // namespace
