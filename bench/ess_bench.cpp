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
#include <unistd.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "../tests/support/smooth_model.h"
#include "floor.h"
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
    x.push_back(level + 40.0 * std::sin(0.5235987755982988 * static_cast<double>(t % 12)) + 5.0 * noise.next());
  }
  return x;
}

// A model of the series with its season codes and the three factor arrays.
struct SeasonalModel : smooth_test::Model {
  explicit SeasonalModel(const std::vector<double>& x) : smooth_test::Model(x, 2) { seasons(kSeasons); }

  int start() {
    WINMODEL* m = get();
    return zesssvi(m->ts.x, m->ts.misflg, m->fitrange.nobs, kSeasons, 0, 1, &m->svi.level, m->svi.sfactor);
  }
  int predict(double* rows) {
    WINMODEL* m = get();
    double level = m->svi.level;
    double f[kSeasons];
    for (int s = 0; s < kSeasons; ++s) f[s] = m->svi.sfactor[s];
    double mse = 0.0;
    return zessprd(m->ts.x, m->ts.misflg, m->ts.descstats.norm, m->fitrange.nobs, kSeasons, m->pest.parms[0],
                   m->pest.parms[1], &level, f, m->ts.scodes, 0, m->fitrange.nobs - 1, kLead, m->pest.mse, 0.05, 0,
                   &mse, rows);
  }
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
  m.output("SBENCH.FC");
  for (auto _ : state) {
    benchmark::DoNotOptimize(nessfor(m.get(), 0));
  }
  std::filesystem::remove_all(dir);
}

BENCHMARK(BM_SeasonalFitAndPredict)->Arg(144)->Arg(10000)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_SeasonalFit)->Arg(144)->Arg(10000)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_SeasonalForecast)->Arg(144)->Unit(benchmark::kMicrosecond);

}  // namespace

// Per observation step, beside the floor (bench/floor.h), on the airline
// series.  Run on (2 X 2596 MHz CPUs, shared, load 12); 2026-11-24, medians
// of 5, ns per step timed over batches of calls, module / plain loop = ratio:
//   BM_SeasonalPlainPassStep       1.72 / 1.43 = 1.21
//   BM_SeasonalDerivativePassStep  4.31 / 3.13 = 1.38 (guards met deferred);
//                                  3.52 / 3.12 = 1.13 with the two weights'
//                                  derivatives in SIMD lanes (load 5.5)
//   BM_SeasonalGridStep            0.74 / 0.64 = 1.15
// (BM_SeasonalFit/144 56.4 us, 101 us before the derivative passes ran in
// loops of their own.)  2026-11-24, load 10, medians of 5: the derivative
// pass 1.10 with the level's derivatives in one vector and the guards'
// extremes in vectors of four, the grid 0.68 with its candidates in SIMD
// lanes; BM_SeasonalFitAndPredict/144 41.4 -> 37.5 us with the extra pass
// at the returned weights gone.
//
//   BM_SeasonalPlainPassStep       zesssmo
//   BM_SeasonalDerivativePassStep  the estimation's backward and forward
//                                  passes with the derivatives of the two
//                                  weights and the cross products
//   BM_SeasonalGridStep            the twenty grid candidates side by side
//                                  (a step per candidate)
namespace {

using bench_floor::time_against_floor;

// The plain update of one observation; returns e.
inline double plain_update(double x, double a, double c, double& level, double& factor) {
  const double xhat = level + factor;
  const double cl = (x - factor) * a + level * (1.0 - a);
  factor = (x - cl) * c + factor * (1.0 - c);
  level = cl;
  return xhat - x;
}

double plain_pass(const double* x, const int* codes, long n, double a, double c, double level, double* factors) {
  for (long t = n - 1; t >= 0; --t) plain_update(x[t], a, c, level, factors[codes[t]]);
  double sse = 0.0;
  for (long t = 0; t < n; ++t) {
    const double e = plain_update(x[t], a, c, level, factors[codes[t]]);
    sse += e * e;
  }
  return sse / static_cast<double>(n);
}

// The plain derivative passes: level and its two derivatives in locals, the
// factors' derivatives in one array (two per season); the forward pass sums
// the cross products of (the two prediction derivatives, e).
void plain_derivative_passes(const double* x, const int* codes, long n, double a, double c, double level,
                             double* factors, double* dfactors, double* xpx) {
  const double u = 1.0 - a, v = 1.0 - c;
  double dl0 = 0, dl1 = 0;
  double acc[6] = {};
  for (int pass = 0; pass < 2; ++pass) {
    for (long k = 0; k < n; ++k) {
      const long t = pass == 0 ? n - 1 - k : k;
      const int s = codes[t];
      const double xt = x[t];
      const double f = factors[s];
      double* ds = dfactors + 2 * s;
      const double ds0 = ds[0], ds1 = ds[1];
      const double e = level + f - xt;
      const double cl = (xt - f) * a + level * u;
      const double nl0 = u * dl0 + xt - a * ds0 - level - f;
      const double nl1 = u * dl1 - a * ds1;
      ds[0] = v * ds0 - c * nl0;
      ds[1] = v * ds1 + xt - cl - f - c * nl1;
      const double d0 = ds0 + dl0, d1 = ds1 + dl1;
      factors[s] = (xt - cl) * c + f * v;
      level = cl;
      dl0 = nl0, dl1 = nl1;
      if (pass == 1) {
        acc[0] += d0 * d0;
        acc[1] += d1 * d0;
        acc[2] += d1 * d1;
        acc[3] += e * d0;
        acc[4] += e * d1;
        acc[5] += e * e;
      }
    }
  }
  for (int k = 0; k < 6; ++k) xpx[k] = acc[k];
}

void BM_SeasonalPlainPassStep(benchmark::State& state) {
  SeasonalModel sm(series(144));
  sm.start();
  WINMODEL* m = sm.get();
  const long n = m->fitrange.nobs;
  std::vector<double> factors(kSeasons);
  time_against_floor(
      state, 2.0 * static_cast<double>(n),
      [&] {
        factors.assign(m->svi.sfactor, m->svi.sfactor + kSeasons);
        double level = m->svi.level, mse = 0.0;
        zesssmo(m->ts.x, m->ts.misflg, m->ts.descstats.norm, n, kSeasons, 0.3, 0.4, &level, factors.data(),
                m->ts.scodes, &mse, nullptr, nullptr);
        benchmark::DoNotOptimize(mse);
      },
      [&] {
        factors.assign(m->svi.sfactor, m->svi.sfactor + kSeasons);
        double mse = plain_pass(m->ts.x, m->ts.scodes, n, 0.3, 0.4, m->svi.level, factors.data());
        benchmark::DoNotOptimize(mse);
      });
}
BENCHMARK(BM_SeasonalPlainPassStep)->UseManualTime()->Unit(benchmark::kMicrosecond);

void BM_SeasonalDerivativePassStep(benchmark::State& state) {
  SeasonalModel sm(series(144));
  sm.start();
  WINMODEL* m = sm.get();
  const double w[2] = {0.3, 0.4};
  std::vector<double> factors(kSeasons);
  std::vector<double> dfactors(2 * kSeasons);
  bench_floor::time_derivative_passes<ess::Family>(state, m, w, [&](double* xpx) {
    factors.assign(m->svi.sfactor, m->svi.sfactor + kSeasons);
    dfactors.assign(dfactors.size(), 0.0);
    plain_derivative_passes(m->ts.x, m->ts.scodes, m->fitrange.nobs, w[0], w[1], m->svi.level, factors.data(),
                            dfactors.data(), xpx);
  });
}
BENCHMARK(BM_SeasonalDerivativePassStep)->UseManualTime()->Unit(benchmark::kMicrosecond);

void BM_SeasonalGridStep(benchmark::State& state) {
  SeasonalModel sm(series(144));
  sm.start();
  WINMODEL* m = sm.get();
  const long n = m->fitrange.nobs;
  constexpr int kCount = smoothing::frame::kGridRows;
  const auto candidates = bench_floor::grid_candidates<ess::Family>();
  const double* w = candidates.data();
  std::vector<double> work(kCount * kSeasons);
  int rc[kCount];
  double mse[kCount];
  double level[kCount];
  time_against_floor(
      state, 2.0 * static_cast<double>(n) * kCount,
      [&] {
        ess::smooth_many(m->ts.x, m->ts.misflg, m->ts.descstats.norm, n, kSeasons, w, kCount, m->svi.level,
                         m->svi.sfactor, m->ts.scodes, work.data(), rc, mse);
        benchmark::DoNotOptimize(mse);
      },
      [&] {
        // Every candidate's state side by side, one observation at a time.
        double sse[kCount];
        for (int j = 0; j < kCount; ++j) {
          level[j] = m->svi.level;
          sse[j] = 0.0;
          for (int s = 0; s < kSeasons; ++s) work[j * kSeasons + s] = m->svi.sfactor[s];
        }
        for (int pass = 0; pass < 2; ++pass) {
          for (long k = 0; k < n; ++k) {
            const long t = pass == 0 ? n - 1 - k : k;
            const double xt = m->ts.x[t];
            const int s = m->ts.scodes[t];
            for (int j = 0; j < kCount; ++j) {
              const double e = plain_update(xt, w[2 * j], w[2 * j + 1], level[j], work[j * kSeasons + s]);
              if (pass == 1) sse[j] += e * e;
            }
          }
        }
        for (int j = 0; j < kCount; ++j) mse[j] = sse[j] / static_cast<double>(n);
        benchmark::DoNotOptimize(mse);
      });
}
BENCHMARK(BM_SeasonalGridStep)->UseManualTime()->Unit(benchmark::kMicrosecond);

}  // namespace
