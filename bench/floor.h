// Timing the module's kernels beside the floor: a plain loop of the same
// arithmetic (no guards, no calls, all in locals) compiled in the same
// benchmark.  Each iteration times the module's code and the plain loop
// alternately, so that their ratio comes from one run under one load; the
// times are the thread's processor time, so that on a shared machine the
// time the thread waits for a processor does not count.
//
// Counters: ns_step (the module), floor_ns_step (the plain loop) and ratio;
// the benchmark's own time is that of a batch of calls of the module.
#pragma once

#include <time.h>

#include <array>
#include <cstring>

#include <benchmark/benchmark.h>

#include "module/win_model.h"
#include "smoothing/frame.h"

namespace bench_floor {

// The thread's processor time in nanoseconds.
inline double thread_ns() {
  timespec ts{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
  return static_cast<double>(ts.tv_sec) * 1e9 + static_cast<double>(ts.tv_nsec);
}

// Times `module` and `plain` alternately, and reports the times per step
// (`steps` per call) and their ratio.  Register the benchmark with
// UseManualTime().
//
// Reading the thread's clock is a system call that costs some hundreds of
// nanoseconds of the thread's own time, as much as a pass over a short
// series: each reading would add it to both times and pull their ratio
// towards 1.  So each is timed over a batch of calls long enough (about
// kBatchNs) for the readings not to count.
inline constexpr double kBatchNs = 100000.0;

// The grid's candidates of the trait F as the side-by-side passes read them:
// candidate k's weights from w[stride * k], those beyond F's count 0.
template <class F, int Stride = F::kNumWeights>
std::array<double, Stride * smoothing::frame::kGridRows> grid_candidates() {
  static_assert(Stride >= F::kNumWeights);
  std::array<double, Stride * smoothing::frame::kGridRows> w{};
  for (int k = 0; k < smoothing::frame::kGridRows; ++k) {
    for (int i = 0; i < F::kNumWeights; ++i) w[Stride * k + i] = F::kGrid[i][k];
  }
  return w;
}

template <class Module, class Plain>
void time_against_floor(benchmark::State& state, double steps, Module module, Plain plain) {
  const double c0 = thread_ns();
  for (int r = 0; r < 8; ++r) plain();
  const double once = (thread_ns() - c0) / 8.0;
  const long batch = once > 0.0 && once < kBatchNs ? static_cast<long>(kBatchNs / once) + 1 : 1;
  double module_ns = 0.0;
  double plain_ns = 0.0;
  for (auto _ : state) {
    const double t0 = thread_ns();
    for (long r = 0; r < batch; ++r) module();
    const double t1 = thread_ns();
    for (long r = 0; r < batch; ++r) plain();
    const double t2 = thread_ns();
    module_ns += t1 - t0;
    plain_ns += t2 - t1;
    state.SetIterationTime((t1 - t0) * 1e-9);
  }
  const double per = steps * static_cast<double>(state.iterations()) * static_cast<double>(batch);
  state.counters["ns_step"] = module_ns / per;
  state.counters["floor_ns_step"] = plain_ns / per;
  state.counters["ratio"] = module_ns / plain_ns;
}

// The estimation's backward and forward passes with the derivatives of the
// trait F's weights and the cross products (frame::passes) at the weights w
// on model m, beside plain(xpx), a plain loop that leaves its cross products
// in xpx.  A step is one observation of either pass.
template <class F, class Plain>
void time_derivative_passes(benchmark::State& state, WINMODEL* m, const double* w, Plain plain) {
  constexpr int nv = F::kNumWeights + 1;
  FITCON fitcon = smoothing::frame::fit_control(m);
  if (F::fit_setup(m, &fitcon) != 0) state.SkipWithError("no derivative arrays");
  POINT point;
  std::memset(&point, 0, sizeof point);
  double xpx[nv * (nv + 1) / 2];
  time_against_floor(
      state, 2.0 * static_cast<double>(m->fitrange.nobs),
      [&] {
        long nmiss = 0;
        if (smoothing::frame::passes<F>(m, &fitcon, &point, w, xpx, &nmiss) != 0) state.SkipWithError("passes failed");
        benchmark::DoNotOptimize(xpx);
      },
      [&] {
        plain(xpx);
        benchmark::DoNotOptimize(xpx);
      });
  F::fit_cleanup(m, &fitcon);
}

}  // namespace bench_floor
