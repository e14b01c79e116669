// Seasonal smoothing: a fit plus a 12-step forecast with limits, per call.
//
//   BM_SeasonalFitAndPredict/<n>  start values (regression on seasonal
//                                 dummies), the estimation (grid and search)
//                                 and the prediction pass with 12 forecasts
//                                 into a row buffer
//   BM_SeasonalFit/<n>            the estimation alone
//   BM_SeasonalForecast/<n>       the forecast driver, including the host
//                                 writing the table to disk
//
// n = 144 is the airline series (examples/AirPassengers.csv), monthly with
// 12 seasons; n = 10000 is a monthly-patterned random walk with noise.  Run
// from a Release build.
//
// Run on (2 X 2096 MHz CPUs, shared); 2026-11-23, medians of 3, CPU time:
//   BM_SeasonalFitAndPredict/144     104 us    /10000   1779 us
//   BM_SeasonalFit/144               101 us    /10000   1703 us
//   BM_SeasonalForecast/144 (table on disk)   275 us
// The grid's twenty candidates run side by side in one pass.
// On the airline series the search takes 31 iterations: the seasonal
// weight stands on its upper bound and the level weight closes in by the
// one-weight subset step.  Each observation of a derivative pass carries a
// chain of five dependent operations in the level derivative, in the order
// the recursion fixes.
#include <benchmark/benchmark.h>

#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <string>
#include <vector>

#include "../tests/support/smooth_model.h"
#include "smoothing/essfit.h"
#include "smoothing/esssubs.h"

namespace {

constexpr long kLead = 12;
constexpr int kSeasons = 12;

std::vector<double> series(long n) {
  if (n == 144) return smooth_test::example_series("AirPassengers.csv");
  smooth_test::Noise noise(2026);
  std::vector<double> x;
  double level = 500.0;
  for (long t = 0; t < n; ++t) {
    level += 2.0 * noise.next();
    x.push_back(level + 40.0 * std::sin(0.5235987755982988 * static_cast<double>(t % 12)) +
                5.0 * noise.next());
  }
  return x;
}

// A model with the season codes and the three factor arrays of a seasonal
// call.
class SeasonalModel {
 public:
  explicit SeasonalModel(const std::vector<double>& x) : m_(x, 2) {
    WINMODEL* m = m_.get();
    const long n = m->ts.nobs;
    m->ts.nseasons = kSeasons;
    m->ts.scodes = static_cast<int*>(host_alloc(n * 4, VM_NUMBERS));
    for (long t = 0; t < n; ++t) m->ts.scodes[t] = static_cast<int>(t % kSeasons);
    block_ = static_cast<double*>(host_alloc(3 * kSeasons * 8, VM_NUMBERS));
    m->startvals.sfactor = block_;
    m->svi.sfactor = block_ + kSeasons;
    m->smooth.sfactor = block_ + 2 * kSeasons;
  }
  ~SeasonalModel() {
    host_free(m_->ts.scodes);
    host_free(block_);
  }
  WINMODEL* get() { return m_.get(); }
  smooth_test::Model& base() { return m_; }

  int start() {
    WINMODEL* m = m_.get();
    return zesssvi(m->ts.x, m->ts.misflg, m->fitrange.nobs, kSeasons, 0, 1, &m->svi.level,
                   m->svi.sfactor);
  }
  int predict(double* rows) {
    WINMODEL* m = m_.get();
    double level = m->svi.level;
    double f[kSeasons];
    for (int s = 0; s < kSeasons; ++s) f[s] = m->svi.sfactor[s];
    double mse = 0.0;
    return zessprd(m->ts.x, m->ts.misflg, m->ts.descstats.norm, m->fitrange.nobs, kSeasons,
                   m->pest.parms[0], m->pest.parms[1], &level, f, m->ts.scodes, 0,
                   m->fitrange.nobs - 1, kLead, m->pest.mse, 0.05, 0, &mse, rows);
  }

 private:
  smooth_test::Model m_;
  double* block_ = nullptr;
};

void BM_SeasonalFitAndPredict(benchmark::State& state) {
  const std::vector<double> x = series(state.range(0));
  SeasonalModel m(x);
  std::vector<double> rows(8 * (x.size() + kLead));
  int rc = 0;
  for (auto _ : state) {
    m.start();
    rc = nessfit(m.get());
    benchmark::DoNotOptimize(m.predict(rows.data()));
    benchmark::ClobberMemory();
  }
  state.counters["rc"] = rc;
  state.counters["w0"] = m.get()->pest.parms[0];
  state.counters["w1"] = m.get()->pest.parms[1];
}

void BM_SeasonalFit(benchmark::State& state) {
  const std::vector<double> x = series(state.range(0));
  SeasonalModel m(x);
  m.start();
  for (auto _ : state) {
    benchmark::DoNotOptimize(nessfit(m.get()));
  }
}

void BM_SeasonalForecast(benchmark::State& state) {
  const std::vector<double> x = series(state.range(0));
  SeasonalModel m(x);
  m.start();
  nessfit(m.get());
  const std::filesystem::path dir =
      std::filesystem::temp_directory_path() / ("ess_bench_" + std::to_string(::getpid()));
  std::filesystem::create_directories(dir);
  esf::host::assign_libref("SBENCH", dir);
  m.base().output("SBENCH.FC");
  for (auto _ : state) {
    benchmark::DoNotOptimize(nessfor(m.get(), 0));
  }
  std::filesystem::remove_all(dir);
}

BENCHMARK(BM_SeasonalFitAndPredict)->Arg(144)->Arg(10000)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_SeasonalFit)->Arg(144)->Arg(10000)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_SeasonalForecast)->Arg(144)->Unit(benchmark::kMicrosecond);

}  // namespace
