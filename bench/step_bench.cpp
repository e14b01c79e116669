// The families without seasons (simple, linear, double, damped) per
// observation step, beside the floor (bench/floor.h), on the airline series:
//
//   BM_PlainPassStep<Family>       z..smo at fixed weights: the backward
//                                  pass, the turn, the forward pass with the
//                                  sum of squares
//   BM_DerivativePassStep<Family>  the estimation's backward and forward
//                                  passes with the derivatives of the
//                                  weights and the cross products
//   BM_GridStep<Family>            the twenty grid candidates side by side
//                                  (a step per candidate)
//
// Each beside a plain loop of the same arithmetic (no guards, no calls, all
// in locals) compiled here; the counter `ratio` is module / plain loop.
// Run from a Release build.
//
// Run on (2 X 2596 MHz CPUs, shared, load 4); 2026-11-24, medians of 5, ns
// per step timed over batches of calls, module / plain loop = ratio:
//              plain pass          derivative passes   grid (per candidate)
//   Simple     1.50 / 1.28 = 1.17  1.70 / 1.39 = 1.22  0.165 / 0.153 = 1.08
//   Linear     3.56 / 3.53 = 1.01  4.70 / 4.58 = 1.03  0.323 / 0.415 = 0.78
//   Double     1.90 / 1.43 = 1.33  2.92 / 2.38 = 1.23  0.310 / 0.402 = 0.77
//   Damped     4.46 / 4.43 = 1.01  8.79 / 7.19 = 1.22  0.331 / 0.464 = 0.71
// The grid runs its lanes four to a vector (AVX, chosen at run time; the
// plain loops here are compiled for SSE2, two to a vector).  In SSE2 lanes
// (width 2 of smooth_many) the grid ratios were Simple 2.2, Linear 1.53,
// Double 1.60, Damped 1.50: the guards' peaks cost as much again as the
// simple family's update.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include <benchmark/benchmark.h>

#include "../tests/support/smooth_model.h"
#include "floor.h"
#include "smoothing/es1fit.h"
#include "smoothing/es2fit.h"
#include "smoothing/es3fit.h"
#include "smoothing/esdfit.h"

namespace {

using bench_floor::time_against_floor;

// ---------------------------------------------------------------------------
// The plain loops. A plain family P has
//   static double update(double x, double a, double b, double c, double& l,
//                        double& t);       one observation on the level l and
//                                          the trend t; returns e
//   static void turn(double a, double b, double c, double& l, double& t);
//   struct Derivatives                     the state and its derivatives by
//                                          the kWeights weights, in members:
//     Derivatives(const double* w, double level, double trend);
//     void step(double x, double* d);      d: the prediction derivatives, e
//     void turn();
// (a, b, c: the weights; the simple family has no trend.)
// ---------------------------------------------------------------------------

struct PlainSimple {
  static constexpr int kWeights = 1;
  static double update(double x, double a, double, double, double& l, double&) {
    const double e = l - x;
    l = x * a + l * (1.0 - a);
    return e;
  }
  static void turn(double, double, double, double&, double&) {}
  struct Derivatives {
    double a, u, l, dl = 0.0;
    Derivatives(const double* w, double level, double) : a(w[0]), u(1.0 - w[0]), l(level) {}
    void step(double x, double* d) {
      d[0] = dl;
      d[1] = l - x;
      dl = x - l + u * dl;
      l = x * a + l * u;
    }
    void turn() {}
  };
};

// Linear and double smoothing turn alike.
inline void turn_forward(double& l, double& t) {
  l = l + t;
  t = -t;
}

struct PlainLinear {
  static constexpr int kWeights = 2;
  static double update(double x, double a, double b, double, double& l, double& t) {
    const double xhat = l + t;
    const double cl = xhat * (1.0 - a) + x * a;
    t = (1.0 - b) * t + b * (cl - l);
    l = cl;
    return xhat - x;
  }
  static void turn(double, double, double, double& l, double& t) { turn_forward(l, t); }
  struct Derivatives {
    double a, b, u, v, l, t, dl0 = 0.0, dl1 = 0.0, dt0 = 0.0, dt1 = 0.0;
    Derivatives(const double* w, double level, double trend)
        : a(w[0]), b(w[1]), u(1.0 - w[0]), v(1.0 - w[1]), l(level), t(trend) {}
    void step(double x, double* d) {
      const double xhat = l + t;
      const double p0 = dl0 + dt0, p1 = dl1 + dt1;
      d[0] = p0;
      d[1] = p1;
      d[2] = xhat - x;
      const double cl = xhat * u + x * a;
      const double nl0 = x - l - t + u * p0;
      const double nl1 = u * p1;
      dt0 = dt0 * v + (nl0 - dl0) * b;
      dt1 = cl - l - t + v * dt1 + b * (nl1 - dl1);
      dl0 = nl0;
      dl1 = nl1;
      t = v * t + b * (cl - l);
      l = cl;
    }
    void turn() {
      turn_forward(l, t);
      turn_forward(dl0, dt0);
      turn_forward(dl1, dt1);
    }
  };
};

struct PlainDouble {
  static constexpr int kWeights = 1;
  static double update(double x, double a, double, double, double& l, double& t) {
    const double xhat = l + t / a;
    const double cl = x * a + (1.0 - a) * l;
    t = t * (1.0 - a) + a * (cl - l);
    l = cl;
    return xhat - x;
  }
  static void turn(double, double, double, double& l, double& t) { turn_forward(l, t); }
  struct Derivatives {
    double a, u, l, t, dl = 0.0, dt = 0.0;
    Derivatives(const double* w, double level, double trend) : a(w[0]), u(1.0 - w[0]), l(level), t(trend) {}
    void step(double x, double* d) {
      d[0] = (dt - t / a) / a + dl;
      d[1] = l + t / a - x;
      const double cl = x * a + u * l;
      const double nl = x - l + u * dl;
      dt = cl - l + dt * u + (nl - dl) * a - t;
      dl = nl;
      t = t * u + a * (cl - l);
      l = cl;
    }
    void turn() {
      turn_forward(l, t);
      turn_forward(dl, dt);
    }
  };
};

struct PlainDamped {
  static constexpr int kWeights = 3;
  static double update(double x, double a, double b, double c, double& l, double& t) {
    const double dtr = c * t;
    const double xhat = l + dtr;
    const double cl = xhat * (1.0 - a) + x * a;
    t = b * (cl - l) + dtr * (1.0 - b);
    l = cl;
    return xhat - x;
  }
  static void turn(double, double, double c, double& l, double& t) {
    t = -(t * c);
    l = l - t;
  }
  struct Derivatives {
    double a, b, c, u, v, l, t, dl[3] = {}, dt[3] = {};
    Derivatives(const double* w, double level, double trend)
        : a(w[0]), b(w[1]), c(w[2]), u(1.0 - w[0]), v(1.0 - w[1]), l(level), t(trend) {}
    void step(double x, double* d) {
      const double dtr = c * t;
      const double xhat = l + dtr;
      const double dd0 = dt[0] * c, dd1 = dt[1] * c, dd2 = dt[2] * c;
      const double p0 = dl[0] + dd0, p1 = dl[1] + dd1, p2 = dl[2] + dd2 + t;
      d[0] = p0;
      d[1] = p1;
      d[2] = p2;
      d[3] = xhat - x;
      const double cl = xhat * u + x * a;
      const double nl0 = x - dtr + u * p0 - l;
      const double nl1 = u * p1;
      const double nl2 = u * p2;
      dt[0] = v * dd0 + b * (nl0 - dl[0]);
      dt[1] = v * dd1 + b * (nl1 - dl[1]) + cl - l - dtr;
      dt[2] = v * (t + dd2) + b * (nl2 - dl[2]);
      dl[0] = nl0;
      dl[1] = nl1;
      dl[2] = nl2;
      t = b * (cl - l) + dtr * v;
      l = cl;
    }
    void turn() {
      for (int i = 0; i < 3; ++i) {
        dl[i] += c * dt[i];
        dt[i] = -(c * dt[i]);
      }
      dl[2] += t;
      dt[2] -= t;
      PlainDamped::turn(a, b, c, l, t);
    }
  };
};

// A whole-series pass: backward, turn, forward with the sum of squares.
template <class P>
double plain_pass(const double* x, long n, const double* w, double l, double t) {
  const double a = w[0], b = w[1], c = w[2];
  for (long k = n - 1; k >= 0; --k) P::update(x[k], a, b, c, l, t);
  P::turn(a, b, c, l, t);
  double sse = 0.0;
  for (long k = 0; k < n; ++k) {
    const double e = P::update(x[k], a, b, c, l, t);
    sse += e * e;
  }
  return sse / static_cast<double>(n);
}

// The derivative passes: backward, turn, forward with the cross products of
// (the prediction derivatives, e), packed lower triangle.
template <class P>
void plain_derivative_passes(const double* x, long n, typename P::Derivatives s, double* xpx) {
  constexpr int nv = P::kWeights + 1;
  constexpr int nx = nv * (nv + 1) / 2;
  double d[nv];
  for (long k = n - 1; k >= 0; --k) s.step(x[k], d);
  s.turn();
  double acc[nx] = {};
  for (long k = 0; k < n; ++k) {
    s.step(x[k], d);
    int m = 0;
    for (int i = 0; i < nv; ++i) {
      for (int j = 0; j <= i; ++j) acc[m++] += d[i] * d[j];
    }
  }
  for (int k = 0; k < nx; ++k) xpx[k] = acc[k];
}

// The grid: every candidate's state side by side, one observation at a time.
constexpr int kCount = smoothing::frame::kGridRows;
template <class P>
void plain_grid(const double* x, long n, const double* w, double level, double trend, double* mse) {
  double a[kCount], b[kCount], c[kCount], l[kCount], t[kCount], sse[kCount];
  for (int j = 0; j < kCount; ++j) {
    a[j] = w[3 * j];
    b[j] = w[3 * j + 1];
    c[j] = w[3 * j + 2];
    l[j] = level;
    t[j] = trend;
    sse[j] = 0.0;
  }
  for (long k = n - 1; k >= 0; --k) {
    const double xt = x[k];
    for (int j = 0; j < kCount; ++j) P::update(xt, a[j], b[j], c[j], l[j], t[j]);
  }
  for (int j = 0; j < kCount; ++j) P::turn(a[j], b[j], c[j], l[j], t[j]);
  for (long k = 0; k < n; ++k) {
    const double xt = x[k];
    for (int j = 0; j < kCount; ++j) {
      const double e = P::update(xt, a[j], b[j], c[j], l[j], t[j]);
      sse[j] += e * e;
    }
  }
  for (int j = 0; j < kCount; ++j) mse[j] = sse[j] / static_cast<double>(n);
}

// ---------------------------------------------------------------------------
// The families: their trait, plain loop, start values, whole-series pass and
// side-by-side pass. kW: the weights of the pass benchmarks.
// ---------------------------------------------------------------------------

struct Simple {
  using Trait = es1::Family;
  using Plain = PlainSimple;
  static constexpr double kW[3] = {0.3, 0.0, 0.0};
  static int start(WINMODEL* m) { return zes1svi(m->ts.x, m->ts.misflg, m->fitrange.nobs, 1, &m->svi.level); }
  static int smooth(WINMODEL* m, const double* w, double* mse) {
    double level = m->svi.level;
    return zes1smo(m->ts.x, m->ts.misflg, m->ts.descstats.norm, m->fitrange.nobs, w[0], &level, mse, nullptr, nullptr);
  }
  static void many(WINMODEL* m, const double* w, int* rc, double* mse) {
    es1::smooth_many(m->ts.x, m->ts.misflg, m->ts.descstats.norm, m->fitrange.nobs, w, kCount, m->svi.level, rc, mse);
  }
};

struct Linear {
  using Trait = es2::Family;
  using Plain = PlainLinear;
  static constexpr double kW[3] = {0.2, 0.05, 0.0};
  static int start(WINMODEL* m) {
    return zes2svi(m->ts.x, m->ts.misflg, m->fitrange.nobs, 1, &m->svi.level, &m->svi.trend);
  }
  static int smooth(WINMODEL* m, const double* w, double* mse) {
    double level = m->svi.level, trend = m->svi.trend;
    return zes2smo(m->ts.x, m->ts.misflg, m->ts.descstats.norm, m->fitrange.nobs, w[0], w[1], &level, &trend, mse,
                   nullptr, nullptr);
  }
  static void many(WINMODEL* m, const double* w, int* rc, double* mse) {
    es2::smooth_many(m->ts.x, m->ts.misflg, m->ts.descstats.norm, m->fitrange.nobs, w, kCount, m->svi.level,
                     m->svi.trend, rc, mse);
  }
};

struct Double {
  using Trait = esd::Family;
  using Plain = PlainDouble;
  static constexpr double kW[3] = {0.2, 0.0, 0.0};
  static int start(WINMODEL* m) {
    return zesdsvi(m->ts.x, m->ts.misflg, m->fitrange.nobs, 1, &m->svi.level, &m->svi.trend);
  }
  static int smooth(WINMODEL* m, const double* w, double* mse) {
    double level = m->svi.level, trend = m->svi.trend;
    return zesdsmo(m->ts.x, m->ts.misflg, m->ts.descstats.norm, m->fitrange.nobs, w[0], &level, &trend, mse, nullptr,
                   nullptr);
  }
  static void many(WINMODEL* m, const double* w, int* rc, double* mse) {
    esd::smooth_many(m->ts.x, m->ts.misflg, m->ts.descstats.norm, m->fitrange.nobs, w, kCount, m->svi.level,
                     m->svi.trend, rc, mse);
  }
};

struct Damped {
  using Trait = es3::Family;
  using Plain = PlainDamped;
  static constexpr double kW[3] = {0.2, 0.05, 0.95};
  static int start(WINMODEL* m) {
    return zes3svi(m->ts.x, m->ts.misflg, m->fitrange.nobs, 1, &m->svi.level, &m->svi.trend);
  }
  static int smooth(WINMODEL* m, const double* w, double* mse) {
    double level = m->svi.level, trend = m->svi.trend;
    return zes3smo(m->ts.x, m->ts.misflg, m->ts.descstats.norm, m->fitrange.nobs, w[0], w[1], w[2], &level, &trend, mse,
                   nullptr, nullptr);
  }
  static void many(WINMODEL* m, const double* w, int* rc, double* mse) {
    es3::smooth_many(m->ts.x, m->ts.misflg, m->ts.descstats.norm, m->fitrange.nobs, w, kCount, m->svi.level,
                     m->svi.trend, rc, mse);
  }
};

// The airline series in a model of family F, with its start values.
template <class F>
struct Airline {
  std::vector<double> values = smooth_test::example_series("AirPassengers.csv");
  smooth_test::Model model{values, F::Trait::kNumWeights};
  explicit Airline(benchmark::State& state) {
    if (F::start(model.get()) != 0) state.SkipWithError("no start values");
  }
  WINMODEL* get() { return model.get(); }
  long n() { return model->fitrange.nobs; }
};

template <class F>
void BM_PlainPassStep(benchmark::State& state) {
  Airline<F> air(state);
  WINMODEL* m = air.get();
  time_against_floor(
      state, 2.0 * static_cast<double>(air.n()),
      [&] {
        double mse = 0.0;
        if (F::smooth(m, F::kW, &mse) != 0) state.SkipWithError("pass failed");
        benchmark::DoNotOptimize(mse);
      },
      [&] {
        double mse = plain_pass<typename F::Plain>(m->ts.x, air.n(), F::kW, m->svi.level, m->svi.trend);
        benchmark::DoNotOptimize(mse);
      });
}

template <class F>
void BM_DerivativePassStep(benchmark::State& state) {
  using Trait = typename F::Trait;
  Airline<F> air(state);
  WINMODEL* m = air.get();
  FITCON fitcon = smoothing::frame::fit_control(m);
  if (Trait::fit_setup(m, &fitcon) != 0) state.SkipWithError("no fit setup");
  POINT point;
  std::memset(&point, 0, sizeof point);
  double xpx[10];
  double plain_xpx[10];
  time_against_floor(
      state, 2.0 * static_cast<double>(air.n()),
      [&] {
        long nmiss = 0;
        if (smoothing::frame::passes<Trait>(m, &fitcon, &point, F::kW, xpx, &nmiss) != 0) {
          state.SkipWithError("passes failed");
        }
        benchmark::DoNotOptimize(xpx);
      },
      [&] {
        plain_derivative_passes<typename F::Plain>(m->ts.x, air.n(), {F::kW, m->svi.level, m->svi.trend}, plain_xpx);
        benchmark::DoNotOptimize(plain_xpx);
      });
  Trait::fit_cleanup(m, &fitcon);
  // The plain loop computes the same sums (up to rounding in its turn).
  constexpr int nv = Trait::kNumWeights + 1;
  double worst = 0.0;
  for (int k = 0; k < nv * (nv + 1) / 2; ++k) {
    worst = std::max(worst, std::fabs(plain_xpx[k] - xpx[k]) / std::fabs(xpx[k]));
  }
  state.counters["plain_rel_diff"] = worst;
}

template <class F>
void BM_GridStep(benchmark::State& state) {
  Airline<F> air(state);
  WINMODEL* m = air.get();
  // The family's candidates, and three weights each for the plain loop.
  const auto candidates = bench_floor::grid_candidates<typename F::Trait>();
  const auto candidates3 = bench_floor::grid_candidates<typename F::Trait, 3>();
  const double* w = candidates.data();
  const double* w3 = candidates3.data();
  int rc[kCount];
  double mse[kCount];
  time_against_floor(
      state, 2.0 * static_cast<double>(air.n()) * kCount,
      [&] {
        F::many(m, w, rc, mse);
        benchmark::DoNotOptimize(mse);
      },
      [&] {
        plain_grid<typename F::Plain>(m->ts.x, air.n(), w3, m->svi.level, m->svi.trend, mse);
        benchmark::DoNotOptimize(mse);
      });
}

#define STEP_BENCHMARKS(F)                                                                      \
  BENCHMARK_TEMPLATE(BM_PlainPassStep, F)->UseManualTime()->Unit(benchmark::kMicrosecond);      \
  BENCHMARK_TEMPLATE(BM_DerivativePassStep, F)->UseManualTime()->Unit(benchmark::kMicrosecond); \
  BENCHMARK_TEMPLATE(BM_GridStep, F)->UseManualTime()->Unit(benchmark::kMicrosecond)

STEP_BENCHMARKS(Simple);
STEP_BENCHMARKS(Linear);
STEP_BENCHMARKS(Double);
STEP_BENCHMARKS(Damped);

}  // namespace
