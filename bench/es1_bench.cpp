// Simple exponential smoothing: estimation and forecast, per call.
//
//   BM_Fit/<n>              nes1fit: grid, Gauss-Newton search, standard errors
//   BM_PredictionPass/<n>   zes1prd with limits and 12 forecasts, into a row buffer
//   BM_FitAndPredict/<n>    the two together: what a fit plus a 12-step
//                           forecast with limits costs before the table is written
//   BM_Forecast/<n>         nes1for, including the host writing the table to disk
//
// n = 144 is the airline series (examples/AirPassengers.csv); n = 10000 is a
// random walk observed with noise.  Run from a Release build.
//
// Run on (2 X 2096 MHz AMD EPYC, shared), Release, CPU time per call, medians
// of three repetitions; the machine was loaded, so wall times ran about four
// times the CPU times:
//   BM_Fit/144                6.7 us     BM_Fit/10000              441 us
//   BM_PredictionPass/144     0.63 us    BM_PredictionPass/10000    41 us
//   BM_FitAndPredict/144      7.2 us     BM_FitAndPredict/10000    485 us
//   BM_Forecast/144           231 us     BM_Forecast/10000        8347 us
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "../tests/support/smooth_model.h"
#include "smoothing/es1fit.h"
#include "smoothing/es1subs.h"

namespace {

std::vector<double> series(long n) {
  if (n == 144) return smooth_test::example_series("AirPassengers.csv");
  smooth_test::Noise noise(2024);
  std::vector<double> x;
  double level = 500.0;
  for (long t = 0; t < n; ++t) {
    level += 2.0 * noise.next();
    x.push_back(level + 5.0 * noise.next());
  }
  return x;
}

void prepare(smooth_test::Model& m) { zes1svi(m->ts.x, m->ts.misflg, m->fitrange.nobs, 1, &m->svi.level); }

void BM_Fit(benchmark::State& state) {
  const std::vector<double> x = series(state.range(0));
  smooth_test::Model m(x);
  prepare(m);
  for (auto _ : state) {
    benchmark::DoNotOptimize(nes1fit(m.get()));
  }
  state.counters["weight"] = m->pest.parms[0];
}

void BM_PredictionPass(benchmark::State& state) {
  const std::vector<double> x = series(state.range(0));
  smooth_test::Model m(x);
  prepare(m);
  nes1fit(m.get());
  const long lead = 12;
  std::vector<double> rows(7 * (x.size() + lead));
  for (auto _ : state) {
    double level = m->svi.level;
    double mse = 0.0;
    benchmark::DoNotOptimize(zes1prd(m->ts.x, m->ts.misflg, m->ts.descstats.norm, m->fitrange.nobs, m->pest.parms[0],
                                     &level, 0, m->fitrange.nobs - 1, lead, m->pest.mse, 0.05, 0, &mse, rows.data()));
    benchmark::ClobberMemory();
  }
}

void BM_FitAndPredict(benchmark::State& state) {
  const std::vector<double> x = series(state.range(0));
  smooth_test::Model m(x);
  prepare(m);
  const long lead = 12;
  std::vector<double> rows(7 * (x.size() + lead));
  for (auto _ : state) {
    nes1fit(m.get());
    double level = m->svi.level;
    double mse = 0.0;
    benchmark::DoNotOptimize(zes1prd(m->ts.x, m->ts.misflg, m->ts.descstats.norm, m->fitrange.nobs, m->pest.parms[0],
                                     &level, 0, m->fitrange.nobs - 1, lead, m->pest.mse, 0.05, 0, &mse, rows.data()));
    benchmark::ClobberMemory();
  }
}

void BM_Forecast(benchmark::State& state) {
  const std::vector<double> x = series(state.range(0));
  const std::filesystem::path dir =
      std::filesystem::temp_directory_path() / ("es1_bench_" + std::to_string(::getpid()));
  std::filesystem::create_directories(dir);
  esf::host::assign_libref("BENCH", dir);
  smooth_test::Model m(x);
  prepare(m);
  nes1fit(m.get());
  m->parms.parms[0] = m->pest.parms[0];
  m.output("BENCH.ES1OUT");
  for (auto _ : state) {
    benchmark::DoNotOptimize(nes1for(m.get(), 0));
  }
  std::filesystem::remove_all(dir);
}

BENCHMARK(BM_Fit)->Arg(144)->Arg(10000)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_PredictionPass)->Arg(144)->Arg(10000)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_FitAndPredict)->Arg(144)->Arg(10000)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Forecast)->Arg(144)->Arg(10000)->Unit(benchmark::kMicrosecond);

}  // namespace
