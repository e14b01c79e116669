// Linear, double and damped-trend smoothing: a fit plus a 12-step forecast
// with limits, per call.
//
//   BM_FitAndPredict<Family>/<n>  start values, the estimation (grid and
//                                 search) and the prediction pass with 12
//                                 forecasts into a row buffer
//   BM_Fit<Family>/<n>            the estimation alone
//   BM_Forecast<Family>/<n>       the forecast driver, including the host
//                                 writing the table to disk
//
// n = 144 is the airline series (examples/AirPassengers.csv); n = 10000 is a
// trending random walk observed with noise. Run from a Release build.
//
// Run on (2 X 2096 MHz CPUs, shared); 2026-11-23, medians of 3, CPU time:
//   BM_FitAndPredict<Linear>/144        21.9 us    /10000   2515 us
//   BM_FitAndPredict<Double>/144        31.1 us    /10000   1650 us
//   BM_FitAndPredict<Damped>/144        31.9 us    /10000   6006 us
//   BM_Forecast<...>/144 (table on disk) about 255 us for each family
// The double family evaluates its derivative passes about ten times on the
// airline series; each observation carries a chain of four dependent
// operations in the trend derivative, in the order the recursion fixes.
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "../tests/support/smooth_model.h"
#include "smoothing/es2fit.h"
#include "smoothing/es2subs.h"
#include "smoothing/es3fit.h"
#include "smoothing/es3subs.h"
#include "smoothing/esdfit.h"
#include "smoothing/esdsubs.h"

namespace {

constexpr long kLead = 12;

std::vector<double> series(long n) {
  if (n == 144) return smooth_test::example_series("AirPassengers.csv");
  smooth_test::Noise noise(2025);
  std::vector<double> x;
  double level = 500.0;
  double slope = 0.5;
  for (long t = 0; t < n; ++t) {
    slope += 0.01 * noise.next();
    level += slope + 2.0 * noise.next();
    x.push_back(level + 5.0 * noise.next());
  }
  return x;
}

struct Linear {
  static constexpr int kWeights = 2;
  static int start(WINMODEL* m) {
    return zes2svi(m->ts.x, m->ts.misflg, m->fitrange.nobs, 1, &m->svi.level, &m->svi.trend);
  }
  static int fit(WINMODEL* m) { return nes2fit(m); }
  static int forecast(WINMODEL* m) { return nes2for(m, 0); }
  static int predict(WINMODEL* m, double* rows) {
    double level = m->svi.level, trend = m->svi.trend, mse = 0.0;
    return zes2prd(m->ts.x, m->ts.misflg, m->ts.descstats.norm, m->fitrange.nobs, m->pest.parms[0], m->pest.parms[1],
                   &level, &trend, 0, m->fitrange.nobs - 1, kLead, m->pest.mse, 0.05, 0, &mse, rows);
  }
};

struct Double {
  static constexpr int kWeights = 1;
  static int start(WINMODEL* m) {
    return zesdsvi(m->ts.x, m->ts.misflg, m->fitrange.nobs, 1, &m->svi.level, &m->svi.trend);
  }
  static int fit(WINMODEL* m) { return nesdfit(m); }
  static int forecast(WINMODEL* m) { return nesdfor(m, 0); }
  static int predict(WINMODEL* m, double* rows) {
    double level = m->svi.level, trend = m->svi.trend, mse = 0.0;
    return zesdprd(m->ts.x, m->ts.misflg, m->ts.descstats.norm, m->fitrange.nobs, m->pest.parms[0], &level, &trend, 0,
                   m->fitrange.nobs - 1, kLead, m->pest.mse, 0.05, 0, &mse, rows);
  }
};

struct Damped {
  static constexpr int kWeights = 3;
  static int start(WINMODEL* m) {
    return zes3svi(m->ts.x, m->ts.misflg, m->fitrange.nobs, 1, &m->svi.level, &m->svi.trend);
  }
  static int fit(WINMODEL* m) { return nes3fit(m); }
  static int forecast(WINMODEL* m) { return nes3for(m, 0); }
  static int predict(WINMODEL* m, double* rows) {
    double level = m->svi.level, trend = m->svi.trend, mse = 0.0;
    return zes3prd(m->ts.x, m->ts.misflg, m->ts.descstats.norm, m->fitrange.nobs, m->pest.parms[0], m->pest.parms[1],
                   m->pest.parms[2], &level, &trend, 0, m->fitrange.nobs - 1, kLead, m->pest.mse, 0.05, 0, &mse, rows);
  }
};

template <class F>
void BM_FitAndPredict(benchmark::State& state) {
  const std::vector<double> x = series(state.range(0));
  smooth_test::Model m(x, F::kWeights);
  std::vector<double> rows(8 * (x.size() + kLead));
  int rc = 0;
  for (auto _ : state) {
    F::start(m.get());
    rc = F::fit(m.get());
    benchmark::DoNotOptimize(F::predict(m.get(), rows.data()));
    benchmark::ClobberMemory();
  }
  state.counters["rc"] = rc;
  state.counters["w0"] = m->pest.parms[0];
}

template <class F>
void BM_Fit(benchmark::State& state) {
  const std::vector<double> x = series(state.range(0));
  smooth_test::Model m(x, F::kWeights);
  F::start(m.get());
  for (auto _ : state) {
    benchmark::DoNotOptimize(F::fit(m.get()));
  }
}

template <class F>
void BM_Forecast(benchmark::State& state) {
  const std::vector<double> x = series(state.range(0));
  smooth_test::Model m(x, F::kWeights);
  F::start(m.get());
  F::fit(m.get());
  const std::filesystem::path dir =
      std::filesystem::temp_directory_path() / ("trend_bench_" + std::to_string(::getpid()));
  std::filesystem::create_directories(dir);
  esf::host::assign_libref("TBENCH", dir);
  m.output("TBENCH.FC");
  for (auto _ : state) {
    benchmark::DoNotOptimize(F::forecast(m.get()));
  }
  std::filesystem::remove_all(dir);
}

BENCHMARK_TEMPLATE(BM_FitAndPredict, Linear)->Arg(144)->Arg(10000)->Unit(benchmark::kMicrosecond);
BENCHMARK_TEMPLATE(BM_FitAndPredict, Double)->Arg(144)->Arg(10000)->Unit(benchmark::kMicrosecond);
BENCHMARK_TEMPLATE(BM_FitAndPredict, Damped)->Arg(144)->Arg(10000)->Unit(benchmark::kMicrosecond);
BENCHMARK_TEMPLATE(BM_Fit, Linear)->Arg(144)->Arg(10000)->Unit(benchmark::kMicrosecond);
BENCHMARK_TEMPLATE(BM_Fit, Double)->Arg(144)->Arg(10000)->Unit(benchmark::kMicrosecond);
BENCHMARK_TEMPLATE(BM_Fit, Damped)->Arg(144)->Arg(10000)->Unit(benchmark::kMicrosecond);
BENCHMARK_TEMPLATE(BM_Forecast, Linear)->Arg(144)->Unit(benchmark::kMicrosecond);
BENCHMARK_TEMPLATE(BM_Forecast, Double)->Arg(144)->Unit(benchmark::kMicrosecond);
BENCHMARK_TEMPLATE(BM_Forecast, Damped)->Arg(144)->Unit(benchmark::kMicrosecond);

}  // namespace
