// Winters smoothing, multiplicative and additive: start values, the
// estimation and a 12-step prediction pass with limits, per call, on the
// airline series (144 monthly points, 12 seasons).
//
//   BM_FitAndPredict/<additive>  zwinsvi, nwinfit, zwinprd into a row buffer
//   BM_Fit/<additive>            the estimation alone, from fixed start values
//   BM_Pass/<additive>           one whole-series pass (zwinsmo), of which the
//                                grid runs twenty
//
// Run from a Release build.
//
// Run on (2 X 2096 MHz CPUs, shared); 2026-11-23, medians of 3, CPU time:
//   BM_FitAndPredict/0 (multiplicative)   88.1 us    BM_Fit/0   86.6 us
//   BM_FitAndPredict/1 (additive)        112 us      BM_Fit/1  104 us
//   BM_Pass/0  1.69 us                   BM_Pass/1  1.48 us
// The grid runs its twenty candidates side by side (about 95.7 and 120 us
// for the fit and forecast when it ran them one by one).
#include <benchmark/benchmark.h>

#include <vector>

#include "../tests/support/smooth_model.h"
#include "smoothing/winfit.h"
#include "smoothing/winsubs.h"

namespace {

constexpr long kLead = 12;
constexpr int kSeasons = 12;

// The airline series as a Winters model: season codes from January, the
// three factor arrays in one block.
struct Airline {
  smooth_test::Model model{smooth_test::example_series("AirPassengers.csv"), 3};
  std::vector<int> codes;
  std::vector<double> block = std::vector<double>(3 * kSeasons);

  explicit Airline(int additive) {
    WINMODEL* m = model.get();
    for (long t = 0; t < m->ts.nobs; ++t) codes.push_back(static_cast<int>(t % kSeasons));
    m->ts.nseasons = kSeasons;
    m->ts.scodes = codes.data();
    m->additive = additive;
    m->startvals.sfactor = block.data();
    m->svi.sfactor = block.data() + kSeasons;
    m->smooth.sfactor = block.data() + 2 * kSeasons;
  }
  int start() {
    WINMODEL* m = model.get();
    return zwinsvi(m->ts.x, m->ts.misflg, m->fitrange.nobs, kSeasons, 0, m->additive, 1,
                   &m->svi.level, &m->svi.trend, m->svi.sfactor);
  }
};

void BM_FitAndPredict(benchmark::State& state) {
  Airline air(static_cast<int>(state.range(0)));
  WINMODEL* m = air.model.get();
  const long n = m->fitrange.nobs;
  std::vector<double> rows(9 * (n + kLead));
  std::vector<double> factors(kSeasons);
  for (auto _ : state) {
    if (air.start() != 0 || nwinfit(m) < 0) state.SkipWithError("fit failed");
    double level = m->svi.level, trend = m->svi.trend, mse = 0.0;
    factors.assign(m->svi.sfactor, m->svi.sfactor + kSeasons);
    const int rc = zwinprd(m->ts.x, m->ts.misflg, m->ts.descstats.norm, n, kSeasons, m->additive,
                           m->pest.parms[0], m->pest.parms[1], m->pest.parms[2], &level, &trend,
                           factors.data(), air.codes.data(), 0, n - 1, kLead, m->pest.mse, 0.05, 0,
                           &mse, rows.data());
    if (rc != 0) state.SkipWithError("prediction failed");
    benchmark::DoNotOptimize(rows.data());
  }
}
BENCHMARK(BM_FitAndPredict)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);

void BM_Fit(benchmark::State& state) {
  Airline air(static_cast<int>(state.range(0)));
  if (air.start() != 0) state.SkipWithError("no start values");
  for (auto _ : state) {
    const int rc = nwinfit(air.model.get());
    if (rc < 0) state.SkipWithError("fit failed");
    benchmark::DoNotOptimize(air.model.get()->pest.parms[0]);
  }
}
BENCHMARK(BM_Fit)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);

}  // namespace

namespace {

// One whole-series pass (backward, turn, forward) at a grid point: the grid
// runs twenty of these.
void BM_Pass(benchmark::State& state) {
  Airline air(static_cast<int>(state.range(0)));
  if (air.start() != 0) state.SkipWithError("no start values");
  WINMODEL* m = air.model.get();
  std::vector<double> factors(kSeasons);
  for (auto _ : state) {
    factors.assign(m->svi.sfactor, m->svi.sfactor + kSeasons);
    double level = m->svi.level, trend = m->svi.trend, mse = 0.0;
    const int rc = zwinsmo(m->ts.x, m->ts.misflg, m->ts.descstats.norm, m->fitrange.nobs, kSeasons,
                           m->additive, 0.2, 0.05, 0.4, &level, &trend, factors.data(),
                           air.codes.data(), &mse, nullptr, nullptr);
    if (rc != 0) state.SkipWithError("pass failed");
    benchmark::DoNotOptimize(mse);
  }
}
BENCHMARK(BM_Pass)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);

}  // namespace
