// Winters smoothing, multiplicative and additive: start values, the
// estimation and a 12-step prediction pass with limits, per call, on the
// airline series (144 monthly points, 12 seasons).
//
//   BM_FitAndPredict/<additive>  zwinsvi, nwinfit, zwinprd into a row buffer
//   BM_Fit/<additive>            the estimation alone, from fixed start values
//   BM_Pass/<additive>           one whole-series pass (zwinsmo), of which the
//                                grid runs twenty
//   BM_*Step                     per observation step beside a plain loop of
//                                the same arithmetic (below)
//
// Run from a Release build.
//
// Run on (2 X 2596 MHz CPUs, shared, load 16); 2026-11-24, medians of 5, CPU
// time:
//   BM_FitAndPredict/0 (multiplicative)   41.2 us    BM_Fit/0   38.6 us
//   BM_FitAndPredict/1 (additive)         45.7 us    BM_Fit/1   43.0 us
//   BM_Pass/0  1.31 us                    BM_Pass/1  1.20 us
// (88.1 and 112 us for the fit and forecast before the derivative passes ran
// in loops of their own and the grid in SIMD lanes.)
#include <cstring>
#include <vector>

#include <benchmark/benchmark.h>

#include "../tests/support/smooth_model.h"
#include "floor.h"
#include "smoothing/winfit.h"
#include "smoothing/winsubs.h"

namespace {

constexpr long kLead = 12;
constexpr int kSeasons = 12;

// The airline series as a Winters model: season codes from January, the
// three factor arrays.
struct Airline : smooth_test::Model {
  explicit Airline(int additive) : smooth_test::Model(smooth_test::example_series("AirPassengers.csv"), 3) {
    seasons(kSeasons);
    get()->additive = additive;
  }
  int start() {
    WINMODEL* m = get();
    return zwinsvi(m->ts.x, m->ts.misflg, m->fitrange.nobs, kSeasons, 0, m->additive, 1, &m->svi.level, &m->svi.trend,
                   m->svi.sfactor);
  }
};

void BM_FitAndPredict(benchmark::State& state) {
  Airline air(static_cast<int>(state.range(0)));
  WINMODEL* m = air.get();
  const long n = m->fitrange.nobs;
  std::vector<double> rows(9 * (n + kLead));
  std::vector<double> factors(kSeasons);
  for (auto _ : state) {
    if (air.start() != 0 || nwinfit(m) < 0) state.SkipWithError("fit failed");
    double level = m->svi.level, trend = m->svi.trend, mse = 0.0;
    factors.assign(m->svi.sfactor, m->svi.sfactor + kSeasons);
    const int rc = zwinprd(m->ts.x, m->ts.misflg, m->ts.descstats.norm, n, kSeasons, m->additive, m->pest.parms[0],
                           m->pest.parms[1], m->pest.parms[2], &level, &trend, factors.data(), m->ts.scodes, 0, n - 1,
                           kLead, m->pest.mse, 0.05, 0, &mse, rows.data());
    if (rc != 0) state.SkipWithError("prediction failed");
    benchmark::DoNotOptimize(rows.data());
  }
}
BENCHMARK(BM_FitAndPredict)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);

void BM_Fit(benchmark::State& state) {
  Airline air(static_cast<int>(state.range(0)));
  if (air.start() != 0) state.SkipWithError("no start values");
  for (auto _ : state) {
    const int rc = nwinfit(air.get());
    if (rc < 0) state.SkipWithError("fit failed");
    benchmark::DoNotOptimize(air.get()->pest.parms[0]);
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
  WINMODEL* m = air.get();
  std::vector<double> factors(kSeasons);
  for (auto _ : state) {
    factors.assign(m->svi.sfactor, m->svi.sfactor + kSeasons);
    double level = m->svi.level, trend = m->svi.trend, mse = 0.0;
    const int rc = zwinsmo(m->ts.x, m->ts.misflg, m->ts.descstats.norm, m->fitrange.nobs, kSeasons, m->additive, 0.2,
                           0.05, 0.4, &level, &trend, factors.data(), m->ts.scodes, &mse, nullptr, nullptr);
    if (rc != 0) state.SkipWithError("pass failed");
    benchmark::DoNotOptimize(mse);
  }
}
BENCHMARK(BM_Pass)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);

}  // namespace

// Per observation step, beside the floor: each benchmark times the module's
// code and a plain loop doing the same arithmetic (no guards, no calls, all
// in locals), alternately in every iteration, so that the ratio comes from
// one run under one load; the times are the thread's processor time.  Counters: ns_step (the module), floor_ns_step
// (the plain loop) and ratio.  A step is one observation of the backward or
// forward pass; the grid counts a step per candidate.
//
//   BM_DerivativePassStep  the estimation's backward and forward passes with
//                          the derivatives of the three weights and the
//                          cross products (multiplicative form)
//   BM_PlainPassStep/<additive>  zwinsmo
//   BM_GridStep/<additive> the twenty grid candidates side by side
//
// Run on (2 X 2596 MHz CPUs, shared, load 12, AVX); 2026-11-24, medians of 5,
// ns per step timed over batches of calls, module / plain loop = ratio:
//   BM_PlainPassStep/0  4.25 / 3.82 = 1.12    BM_PlainPassStep/1  3.97 / 3.79 = 1.05
//   BM_DerivativePassStep  12.4 / 9.56 = 1.29 (1.92 through the frame's
//                          loop one observation at a time, before batches);
//                          8.16 / 9.47 = 0.86 with the three weights'
//                          derivatives in SIMD lanes, AVX-512 (load 5.5)
//   BM_GridStep/0       1.15 / 1.88 = 0.61    BM_GridStep/1       0.62 / 1.63 = 0.38
//                       (four lanes to a vector; the plain loop is scalar)
namespace {

using bench_floor::time_against_floor;

// The plain multiplicative or additive update of one observation.
struct PlainState {
  double level;
  double trend;
};
inline double plain_update(double x, int additive, double a, double b, double c, PlainState& s, double& factor) {
  if (additive) {
    const double xhat = factor + s.level + s.trend;
    const double cl = (s.level + s.trend) * (1.0 - a) + (x - factor) * a;
    const double ct = s.trend * (1.0 - b) + b * (cl - s.level);
    factor = (x - cl) * c + factor * (1.0 - c);
    s.level = cl;
    s.trend = ct;
    return xhat - x;
  }
  const double xhat = (s.trend + s.level) * factor;
  const double cl = x / factor * a + (1.0 - a) * (s.trend + s.level);
  const double ct = (cl - s.level) * b + (1.0 - b) * s.trend;
  factor = x / cl * c + (1.0 - c) * factor;
  s.level = cl;
  s.trend = ct;
  return xhat - x;
}

// The plain loop of a whole-series pass: backward, turn, forward with the
// sum of squared errors.
double plain_pass(const double* x, const int* codes, long n, int additive, const double* w, double level, double trend,
                  double* factors) {
  PlainState s{level, trend};
  for (long t = n - 1; t >= 0; --t) plain_update(x[t], additive, w[0], w[1], w[2], s, factors[codes[t]]);
  s.level = s.level + s.trend;
  s.trend = -s.trend;
  double sse = 0.0;
  for (long t = 0; t < n; ++t) {
    const double e = plain_update(x[t], additive, w[0], w[1], w[2], s, factors[codes[t]]);
    sse += e * e;
  }
  return sse / static_cast<double>(n);
}

void BM_PlainPassStep(benchmark::State& state) {
  Airline air(static_cast<int>(state.range(0)));
  if (air.start() != 0) state.SkipWithError("no start values");
  WINMODEL* m = air.get();
  const long n = m->fitrange.nobs;
  const double w[3] = {0.2, 0.05, 0.4};
  std::vector<double> factors(kSeasons);
  time_against_floor(
      state, 2.0 * static_cast<double>(n),
      [&] {
        factors.assign(m->svi.sfactor, m->svi.sfactor + kSeasons);
        double level = m->svi.level, trend = m->svi.trend, mse = 0.0;
        zwinsmo(m->ts.x, m->ts.misflg, m->ts.descstats.norm, n, kSeasons, m->additive, w[0], w[1], w[2], &level, &trend,
                factors.data(), m->ts.scodes, &mse, nullptr, nullptr);
        benchmark::DoNotOptimize(mse);
      },
      [&] {
        factors.assign(m->svi.sfactor, m->svi.sfactor + kSeasons);
        double mse = plain_pass(m->ts.x, m->ts.scodes, n, m->additive, w, m->svi.level, m->svi.trend, factors.data());
        benchmark::DoNotOptimize(mse);
      });
}
BENCHMARK(BM_PlainPassStep)->Arg(0)->Arg(1)->UseManualTime()->Unit(benchmark::kMicrosecond);

// The plain loop of the derivative passes, multiplicative form: the state,
// the derivatives of level and trend by the three weights in locals, those
// of the factors in one array per weight; the forward pass sums the cross
// products of (the three prediction derivatives, e).
void plain_derivative_passes(const double* x, const int* codes, long n, const double* w, double level, double trend,
                             double* factors, double* dfactors, double* xpx) {
  const double a = w[0], b = w[1], c = w[2];
  const double u = 1.0 - a, v = 1.0 - b, wc = 1.0 - c;
  double dl0 = 0, dl1 = 0, dl2 = 0, dt0 = 0, dt1 = 0, dt2 = 0;
  double acc[10] = {};
  for (int pass = 0; pass < 2; ++pass) {
    for (long k = 0; k < n; ++k) {
      const long t = pass == 0 ? n - 1 - k : k;
      const int s = codes[t];
      const double xt = x[t];
      const double f = factors[s];
      double* ds = dfactors + 3 * s;
      const double ds0 = ds[0], ds1 = ds[1], ds2 = ds[2];
      const double bsum = level + trend;
      const double e = bsum * f - xt;
      const double xa = xt / f;
      const double cl = xa * a + u * bsum;
      const double xc = xt / cl;
      const double ct = (cl - level) * b + v * trend;
      const double p0 = dl0 + dt0, p1 = dl1 + dt1, p2 = dl2 + dt2;
      const double fa = a * xa / f;
      const double nl0 = u * p0 + xa - bsum - fa * ds0;
      const double nl1 = u * p1 - fa * ds1;
      const double nl2 = u * p2 - fa * ds2;
      const double nt0 = v * dt0 + b * (nl0 - dl0);
      const double nt1 = v * dt1 + b * (nl1 - dl1) + cl - level - trend;
      const double nt2 = v * dt2 + b * (nl2 - dl2);
      const double d0 = p0 * f + ds0 * bsum, d1 = p1 * f + ds1 * bsum, d2 = p2 * f + ds2 * bsum;
      const double g = c * xc / cl;
      ds[0] = wc * ds0 - g * nl0;
      ds[1] = wc * ds1 - g * nl1;
      ds[2] = wc * ds2 + xc - f - g * nl2;
      factors[s] = xc * c + wc * f;
      level = cl;
      trend = ct;
      dl0 = nl0, dl1 = nl1, dl2 = nl2, dt0 = nt0, dt1 = nt1, dt2 = nt2;
      if (pass == 1) {
        const double d[4] = {d0, d1, d2, e};
        int k2 = 0;
        for (int i = 0; i < 4; ++i) {
          for (int j = 0; j <= i; ++j) acc[k2++] += d[i] * d[j];
        }
      }
    }
    level += trend;
    trend = -trend;
    dl0 += dt0, dl1 += dt1, dl2 += dt2;
    dt0 = -dt0, dt1 = -dt1, dt2 = -dt2;
  }
  for (int k = 0; k < 10; ++k) xpx[k] = acc[k];
}

void BM_DerivativePassStep(benchmark::State& state) {
  Airline air(0);
  if (air.start() != 0) state.SkipWithError("no start values");
  WINMODEL* m = air.get();
  const double w[3] = {0.2, 0.05, 0.4};
  std::vector<double> factors(kSeasons);
  std::vector<double> dfactors(3 * kSeasons);
  bench_floor::time_derivative_passes<win::Family>(state, m, w, [&](double* xpx) {
    factors.assign(m->svi.sfactor, m->svi.sfactor + kSeasons);
    dfactors.assign(dfactors.size(), 0.0);
    plain_derivative_passes(m->ts.x, m->ts.scodes, m->fitrange.nobs, w, m->svi.level, m->svi.trend, factors.data(),
                            dfactors.data(), xpx);
  });
}
BENCHMARK(BM_DerivativePassStep)->UseManualTime()->Unit(benchmark::kMicrosecond);

// The plain loop of the grid: every candidate's state side by side, one
// observation at a time.
void plain_grid(const double* x, const int* codes, long n, int additive, const double* w, int count, double level,
                double trend, const double* start, double* factors, double* mse) {
  PlainState s[win::kManyLanes];
  double sse[win::kManyLanes];
  for (int j = 0; j < count; ++j) {
    s[j] = {level, trend};
    sse[j] = 0.0;
    std::memcpy(factors + j * kSeasons, start, kSeasons * sizeof(double));
  }
  for (long t = n - 1; t >= 0; --t) {
    for (int j = 0; j < count; ++j) {
      plain_update(x[t], additive, w[3 * j], w[3 * j + 1], w[3 * j + 2], s[j], factors[j * kSeasons + codes[t]]);
    }
  }
  for (int j = 0; j < count; ++j) s[j] = {s[j].level + s[j].trend, -s[j].trend};
  for (long t = 0; t < n; ++t) {
    for (int j = 0; j < count; ++j) {
      const double e =
          plain_update(x[t], additive, w[3 * j], w[3 * j + 1], w[3 * j + 2], s[j], factors[j * kSeasons + codes[t]]);
      sse[j] += e * e;
    }
  }
  for (int j = 0; j < count; ++j) mse[j] = sse[j] / static_cast<double>(n);
}

void BM_GridStep(benchmark::State& state) {
  Airline air(static_cast<int>(state.range(0)));
  if (air.start() != 0) state.SkipWithError("no start values");
  WINMODEL* m = air.get();
  const long n = m->fitrange.nobs;
  constexpr int kCount = smoothing::frame::kGridRows;
  const auto candidates = bench_floor::grid_candidates<win::Family>();
  const double* w = candidates.data();
  std::vector<double> work(kCount * kSeasons);
  int rc[kCount];
  double mse[kCount];
  time_against_floor(
      state, 2.0 * static_cast<double>(n) * kCount,
      [&] {
        win::smooth_many(m->ts.x, m->ts.misflg, m->ts.descstats.norm, n, kSeasons, m->additive, w, kCount, m->svi.level,
                         m->svi.trend, m->svi.sfactor, m->ts.scodes, work.data(), rc, mse);
        benchmark::DoNotOptimize(mse);
      },
      [&] {
        plain_grid(m->ts.x, m->ts.scodes, n, m->additive, w, kCount, m->svi.level, m->svi.trend, m->svi.sfactor,
                   work.data(), mse);
        benchmark::DoNotOptimize(mse);
      });
}
BENCHMARK(BM_GridStep)->Arg(0)->Arg(1)->UseManualTime()->Unit(benchmark::kMicrosecond);

}  // namespace
