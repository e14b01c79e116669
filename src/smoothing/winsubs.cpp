// Kernel of Winters smoothing, additive and multiplicative: the whole-series
// passes, start values, normalisation of the factors, stability region,
// prediction pass with its variances, numeric derivatives and standard
// errors.  The one-observation recursions are inline in winsubs.h.
//
// A pass runs backward from the start values at the end of the series to the
// first observation, turns round (one more trend step back, the trend then
// runs forward in time) and runs forward; only the forward pass counts
// errors.  The factors are indexed by the season code of each observation.
// The whole-series passes are those of pass_kernel.h, run with the kernel
// record of winsubs.h.
#include "smoothing/winsubs.h"

#include <cfloat>
#include <cmath>
#include <cstring>

#include "module/host_api.h"
#include "numeric/numeric.h"
#include "primitives/primitives.h"
#include "regression/regression.h"
#include "smoothing/factor_lanes.h"
#include "smoothing/pass_kernel.h"

namespace {

using namespace smoothing;
using win::kManyLanes;

constexpr double kStableEps = 1.110223024625157e-16;       // 2^-53
constexpr double kNormThreshold = 1.1368683772161608e-13;  // 2^-43
constexpr int kPoolNumbers = 0x2004;

bool missing(double d) { return esf::is_missing(d); }

int divide(double num, double den, double* quo) { return guarded_divide(num, den, quo); }

}  // namespace

using win::additive_factor;
using win::Kernel;
using win::multiplicative_factor;
using win::psi_weight;
using win::weights_overflow;

void win::normalise(int nseasons, int additive, double* level, double* trend, double* sfactor, double* derlev,
                    double* dertre, double* dersealev, double* derseatre, double* derseasea) noexcept {
  if (nseasons < 1) return;
  const bool with_derivatives = derlev != nullptr;
  double* der[3] = {dersealev, derseatre, derseasea};
  const double count = static_cast<double>(nseasons);
  double sum = 0.0;
  for (int s = 0; s < nseasons; ++s) sum += sfactor[s];
  const double ibar = sum / count;
  double ibder[3] = {0.0, 0.0, 0.0};
  if (with_derivatives) {
    for (int i = 0; i < 3; ++i) {
      double d = 0.0;
      for (int s = 0; s < nseasons; ++s) d += der[i][s];
      ibder[i] = d / count;
    }
  }

  if (additive) {
    if (std::fabs(ibar) < kNormThreshold) return;
    for (int s = 0; s < nseasons; ++s) {
      sfactor[s] -= ibar;
      if (with_derivatives) {
        for (int i = 0; i < 3; ++i) der[i][s] -= ibder[i];
      }
    }
    if (with_derivatives) {
      for (int i = 0; i < 3; ++i) derlev[i] += ibder[i];
    }
    *level += ibar;
    return;
  }

  if (std::fabs(1.0 - ibar) < kNormThreshold) return;
  for (int s = 0; s < nseasons; ++s) {
    sfactor[s] = sfactor[s] / ibar;
    if (with_derivatives) {
      for (int i = 0; i < 3; ++i) divide(der[i][s] - ibder[i] * sfactor[s], ibar, &der[i][s]);
    }
  }
  if (with_derivatives) {
    for (int i = 0; i < 3; ++i) derlev[i] = ibder[i] * *level + derlev[i] * ibar;
  }
  *level = *level * ibar;
  if (with_derivatives) {
    for (int i = 0; i < 3; ++i) dertre[i] = ibder[i] * *trend + dertre[i] * ibar;
  }
  *trend = ibar * *trend;
}

namespace {

// The triples side by side, one at a time: one observation at a time for
// every triple, so that the independent recursions overlap.  Each triple
// runs exactly the arithmetic of zwinsmo, in the same order, through the
// same inline update, and stops where zwinsmo stops.  Triple j's factors
// are work[j * nseasons ...].
void smooth_many_scalar(const double* x, const char* misflg, double xscale, long n, int nseasons, int additive,
                        const double* w, int count, double level, double trend, const double* sfactor,
                        const int* scodes, double* work, int* rc, double* mse) noexcept {
  double l[kManyLanes];
  double tr[kManyLanes];
  double sse[kManyLanes];
  bool live[kManyLanes];
  for (int j = 0; j < count; ++j) {
    mse[j] = kMissing;
    rc[j] = n < 1 ? kTooFew : kOk;
    if (rc[j] == kOk && weights_overflow(w[3 * j], w[3 * j + 1], w[3 * j + 2])) rc[j] = kOverflow;
    live[j] = rc[j] == kOk;
    l[j] = level;
    tr[j] = trend;
    sse[j] = 0.0;
    if (nseasons > 0) {
      std::memcpy(work + static_cast<long>(j) * nseasons, sfactor, static_cast<size_t>(nseasons) * sizeof(double));
    }
  }
  auto update = [&](int j, double xt, int s, double* e) {
    double xhat = 0.0;
    const int r = win::point(xt, xscale, additive, w[3 * j], w[3 * j + 1], w[3 * j + 2], &l[j], &tr[j],
                             work + static_cast<long>(j) * nseasons, s, &xhat, e);
    if (r < 0) {
      rc[j] = r;
      live[j] = false;
    }
    return r;
  };

  // Backward pass, then the reversal.
  for (long t = n - 1; t >= 0; --t) {
    const int s = scodes[t];
    if (misflg[t]) {
      for (int j = 0; j < count; ++j) {
        if (live[j]) l[j] = l[j] + tr[j];
      }
      continue;
    }
    for (int j = 0; j < count; ++j) {
      double e = 0.0;
      if (live[j]) update(j, x[t], s, &e);
    }
  }
  for (int j = 0; j < count; ++j) {
    l[j] = l[j] + tr[j];
    tr[j] = -tr[j];
  }

  // Forward pass.
  long nmiss = 0;
  for (long t = 0; t < n; ++t) {
    const int s = scodes[t];
    if (misflg[t]) {
      ++nmiss;
      for (int j = 0; j < count; ++j) {
        if (live[j]) l[j] = l[j] + tr[j];
      }
      continue;
    }
    for (int j = 0; j < count; ++j) {
      if (!live[j]) continue;
      double e = 0.0;
      if (update(j, x[t], s, &e) < 0) continue;
      if (std::fabs(e) > kErrorLimit || sse[j] > kSseLimit) {
        rc[j] = kOverflow;
        live[j] = false;
        continue;
      }
      sse[j] += e * e;
    }
  }

  const long nobs = n - nmiss;
  for (int j = 0; j < count; ++j) {
    if (!live[j]) continue;
    if (nobs < 1) {
      rc[j] = kTooFew;
      continue;
    }
    mse[j] = missing(sse[j]) ? kMissing : sse[j] / static_cast<double>(nobs);
  }
}

// The triples in SIMD lanes, kWidth to a vector of type V (M: the vector of
// 64-bit integers that its comparisons give).  Every lane runs the
// operations of zwinsmo in zwinsmo's order, so its values are those of its
// own pass to the bit.  The guards do not stop a lane: each adds its test to
// the lane's `failed` mask, which ends holding whether zwinsmo failed (at
// the first failed test the lane's later values no longer matter).  The
// factors stand season by season, the lanes of one season side by side:
// lane j of season s at work[s * lanes + j], lanes = count rounded up to a
// whole vector.  Lanes past count repeat the first triple.
struct LanesInput {
  const double* x;
  const char* misflg;
  double xscale;
  long n;
  int nseasons;
  const double* w;
  int count;
  double level;
  double trend;
  const double* sfactor;
  const int* scodes;
  double* work;
};

template <class V, class M, int kWidth, bool kAdditive>
[[gnu::always_inline]] inline void lanes_pass(const LanesInput& in, bool* failed, double* sse_out) noexcept {
  const double* x = in.x;
  const char* misflg = in.misflg;
  const double xscale = in.xscale;
  const long n = in.n;
  const int nseasons = in.nseasons;
  const double* w = in.w;
  const int count = in.count;
  const int* scodes = in.scodes;
  double* work = in.work;
  constexpr int kGroups = (win::kManyLanes + kWidth - 1) / kWidth;
  const int groups = (count + kWidth - 1) / kWidth;
  const long lanes = static_cast<long>(groups) * kWidth;
  V wl[kGroups], wt[kGroups], ws[kGroups], l[kGroups], tr[kGroups], sse[kGroups];
  M bad[kGroups];
  for (int g = 0; g < groups; ++g) {
    for (int i = 0; i < kWidth; ++i) {
      const int j = g * kWidth + i < count ? g * kWidth + i : 0;
      wl[g][i] = w[3 * j];
      wt[g][i] = w[3 * j + 1];
      ws[g][i] = w[3 * j + 2];
    }
    l[g] = V{} + in.level;
    tr[g] = V{} + in.trend;
    sse[g] = V{};
    bad[g] = M{};
  }
  for (int s = 0; s < nseasons; ++s) {
    for (long j = 0; j < lanes; ++j) work[s * lanes + j] = in.sfactor[s];
  }

  const V state_limit = V{} + kStateLimit;
  const V upper = V{} + xscale * kRelativeLimit;
  const V minval = V{} + xscale * win::kMinValFactor;
  const V big = V{} + kBig;
  const V one = V{} + 1.0;
  const V error_limit = V{} + kErrorLimit;
  const V sse_limit = V{} + kSseLimit;

  // Backward, the turn, forward.  One observation for every lane: the update
  // of win::point, with its guards as masks; the forward pass adds the error
  // guards and the square.
  for (int pass = 0; pass < 2; ++pass) {
    const bool forward = pass == 1;
    if (forward) {
      for (int g = 0; g < groups; ++g) {
        l[g] = l[g] + tr[g];
        tr[g] = -tr[g];
      }
    }
    for (long k = 0; k < n; ++k) {
      const long t = forward ? k : n - 1 - k;
      if (misflg[t]) {
        for (int g = 0; g < groups; ++g) l[g] = l[g] + tr[g];
        continue;
      }
      const V xv = V{} + x[t];
      double* sf = work + scodes[t] * lanes;
      for (int g = 0; g < groups; ++g) {
        const V ll = l[g];
        const V lt = tr[g];
        V ls;
        std::memcpy(&ls, sf + g * kWidth, sizeof ls);
        M b = bad[g] | (ESF_LANES_ABS(ll) > state_limit) | (ESF_LANES_ABS(lt) > state_limit) |
              (ESF_LANES_ABS(ls) > state_limit);
        V xhat, cl, ct, cs;
        if constexpr (kAdditive) {
          xhat = ls + ll + lt;
          b |= xhat > upper;
          cl = (ll + lt) * (one - wl[g]) + (xv - ls) * wl[g];
          ct = lt * (one - wt[g]) + wt[g] * (cl - ll);
          cs = (xv - cl) * ws[g] + ls * (one - ws[g]);
        } else {
          xhat = (lt + ll) * ls;
          b |= (xhat < minval) | (xhat > upper);
          b |= ~((ESF_LANES_ABS(ls) >= one) | (ESF_LANES_ABS(xv) < ESF_LANES_ABS(ls) * big));
          const V xa = xv / ls;
          cl = xa * wl[g] + (one - wl[g]) * (lt + ll);
          b |= ~((ESF_LANES_ABS(cl) >= one) | (ESF_LANES_ABS(xv) < ESF_LANES_ABS(cl) * big));
          const V xc = xv / cl;
          ct = (cl - ll) * wt[g] + (one - wt[g]) * lt;
          cs = xc * ws[g] + (one - ws[g]) * ls;
          b |= (cl < minval) | (cs < minval);
        }
        l[g] = cl;
        tr[g] = ct;
        std::memcpy(sf + g * kWidth, &cs, sizeof cs);
        if (forward) {
          const V e = xhat - xv;
          b |= (ESF_LANES_ABS(e) > error_limit) | (sse[g] > sse_limit);
          sse[g] = sse[g] + e * e;
        }
        bad[g] = b;
      }
    }
  }

  for (int j = 0; j < count; ++j) {
    failed[j] = bad[j / kWidth][j % kWidth] != 0;
    sse_out[j] = sse[j / kWidth][j % kWidth];
  }
}

using pass::lanes::M2;
using pass::lanes::M4;
using pass::lanes::V2;
using pass::lanes::V4;

template <class V, class M, int kWidth>
[[gnu::always_inline]] inline void lanes_pass_of_form(int additive, const LanesInput& in, bool* failed,
                                                      double* sse) noexcept {
  if (additive) {
    lanes_pass<V, M, kWidth, true>(in, failed, sse);
  } else {
    lanes_pass<V, M, kWidth, false>(in, failed, sse);
  }
}

// Two lanes to a vector: SSE2, which every x86-64 processor has (elsewhere
// the compiler maps the vectors on what the processor has).
void lanes_pass_2(int additive, const LanesInput& in, bool* failed, double* sse) noexcept {
  lanes_pass_of_form<V2, M2, 2>(additive, in, failed, sse);
}

#if defined(__x86_64__)
// Four lanes to a vector, for processors with AVX, chosen at run time.  No
// fused multiply-add: AVX has none, and contraction is off.
__attribute__((target("avx"))) void lanes_pass_4(int additive, const LanesInput& in, bool* failed,
                                                 double* sse) noexcept {
  lanes_pass_of_form<V4, M4, 4>(additive, in, failed, sse);
}
using pass::lanes::has_avx;
#endif

// The derivative passes' lanes (smoothing/factor_lanes.h) of the form
// kAdditive: win::point and win::point_derivative with the derivatives by
// the three weights side by side.  The derivatives of level and trend, the
// chains from step to step, run by wlevel and wseason in the two lanes of
// one vector and by wtrend alone: its term of the trend's derivative and the
// level's term of wlevel's, in one vector, would lengthen the chain of every
// lane by both.  The factors' derivatives and the cross products run in
// four lanes: wlevel, wseason, wtrend and wtrend again (e in the cross
// products).
template <bool kAdditive>
struct DerivativeLanes {
  using V = V4;
  using Update = win::FactorUpdate<kAdditive>;
  static constexpr int kWeightOfLane[4] = {0, 2, 1, 1};
  static constexpr int kValueOfLane[4] = {0, 2, 1, 3};
  struct State {
    double level;
    double trend;
    double xhat;
    V2 dl;       // d level / d wlevel, wseason
    V2 dt;       // d trend / d wlevel, wseason
    double dl1;  // d level / d wtrend
    double dt1;  // d trend / d wtrend
  };
  struct Peaks {
    double state = 0.0;       // |level|, |trend|, |factor| before a step
    double pred = -DBL_MAX;   // the prediction
    double low = DBL_MAX;     // multiplicative: prediction, new level, new factor
    double quotients = 0.0;   // multiplicative: sum of |quotient|
    double derivative = 0.0;  // |derivative by wtrend| before a step
    V2 derivatives = {};      // |derivatives by wlevel, wseason| before a step
    V factor_derivatives = {};
  };
  static void load(const typename Update::State& u, State& s) noexcept {
    s = State{u.level,     u.trend,    u.xhat, V2{u.derlev[0], u.derlev[2]}, V2{u.dertre[0], u.dertre[2]},
              u.derlev[1], u.dertre[1]};
  }
  static void store(const State& s, typename Update::State& u) noexcept {
    u.level = s.level;
    u.trend = s.trend;
    u.xhat = s.xhat;
    u.derlev[0] = s.dl[0], u.derlev[1] = s.dl1, u.derlev[2] = s.dl[1];
    u.dertre[0] = s.dt[0], u.dertre[1] = s.dt1, u.dertre[2] = s.dt[1];
  }
  static double prediction(const State& s, double factor) noexcept {
    return kAdditive ? s.level + s.trend + factor : (s.level + s.trend) * factor;
  }

  double wl, wt, ws;
  double u, v, w;  // 1 - each weight
  double upper;    // xscale * kRelativeLimit
  double minval;   // xscale * kMinValFactor

  explicit DerivativeLanes(const pass::FactorStep<3, Update>& step) noexcept
      : wl(step.w[0]),
        wt(step.w[1]),
        ws(step.w[2]),
        u(1.0 - wl),
        v(1.0 - wt),
        w(1.0 - ws),
        upper(step.xscale * kRelativeLimit),
        minval(step.xscale * win::kMinValFactor) {}

  bool tripped(const Peaks& pk) const noexcept {
    using pass::lanes::any_above;
    return pk.state > kStateLimit || pk.pred > upper || pk.derivative > kErrorLimit ||
           any_above(pk.derivatives, kErrorLimit) || any_above(pk.factor_derivatives, kErrorLimit) ||
           (!kAdditive && (pk.low < minval || pass::lanes::quotients_fail(pk.quotients)));
  }

  [[gnu::always_inline]] void step(State& s, double* factor, V* dsp, double x, V& d, double& e,
                                   Peaks& pk) const noexcept {
    using pass::lanes::keep_max;
    using pass::lanes::keep_max_magnitude;
    using pass::lanes::keep_min;
    const double ll = s.level;
    const double lt = s.trend;
    const double ls = *factor;
    const V2 dl = s.dl;
    const V2 dt = s.dt;
    const double dl1 = s.dl1;
    const double dt1 = s.dt1;
    const V ds = *dsp;
    const V2 ds02 = {ds[0], ds[1]};
    const double ds1 = ds[2];
    keep_max_magnitude(pk.derivatives, dl);
    keep_max_magnitude(pk.derivatives, dt);
    keep_max(pk.derivative, std::fabs(dl1));
    keep_max(pk.derivative, std::fabs(dt1));
    keep_max_magnitude(pk.factor_derivatives, ds);
    keep_max(pk.state, std::fabs(ll));
    keep_max(pk.state, std::fabs(lt));
    keep_max(pk.state, std::fabs(ls));
    const double b = ll + lt;
    const V2 p = dl + dt;
    const double p1 = dl1 + dt1;
    const V pp = {p[0], p[1], p1, p1};
    double xhat = 0.0;
    double cl = 0.0;
    double ct = 0.0;
    double cs = 0.0;
    V2 nl;
    double nl1 = 0.0;
    V nds;
    double g = ws;  // what multiplies the new level's derivatives in the factors'
    if constexpr (kAdditive) {
      xhat = ls + ll + lt;
      cl = (ll + lt) * u + (x - ls) * wl;
      ct = lt * v + wt * (cl - ll);
      cs = (x - cl) * ws + ls * w;
      nl = u * p - wl * ds02;
      nl[0] = ((nl[0] + x) - ls) - b;
      nl1 = u * p1 - wl * ds1;
      nds = w * ds;
      nds[1] = ((nds[1] + x) - cl) - ls;
      d = pp + ds;
    } else {
      xhat = (lt + ll) * ls;
      const double xa = x / ls;
      cl = xa * wl + u * (lt + ll);
      const double xc = x / cl;
      ct = (cl - ll) * wt + v * lt;
      cs = xc * ws + w * ls;
      const double f = (wl * xa) / ls;
      nl = u * p;
      nl[0] = (nl[0] + xa) - b;
      nl = nl - f * ds02;
      nl1 = u * p1 - f * ds1;
      d = pp * ls + ds * b;
      g = (ws * xc) / cl;
      nds = w * ds;
      nds[1] = (nds[1] + xc) - ls;
      keep_min(pk.low, xhat);
      keep_min(pk.low, cl);
      keep_min(pk.low, cs);
      pk.quotients = pk.quotients + ((std::fabs(xa) + std::fabs(f)) + (std::fabs(xc) + std::fabs(g)));
    }
    keep_max(pk.pred, xhat);
    const V nll = {nl[0], nl[1], nl1, nl1};
    nds = nds - g * nll;
    s.dt = v * dt + wt * (nl - dl);
    s.dt1 = v * dt1 + wt * (nl1 - dl1) + cl - ll - lt;
    e = xhat - x;
    s.level = cl;
    s.trend = ct;
    s.xhat = xhat;
    s.dl = nl;
    s.dl1 = nl1;
    *factor = cs;
    *dsp = nds;
  }
};

template <bool kAdditive>
using WinStep = pass::FactorStep<3, win::FactorUpdate<kAdditive>>;

// The lanes on SSE2 (a vector of four as two of two), and where the
// processor has them on AVX, and on AVX-512, whose 32 registers hold the
// whole state of the loop.
template <bool kAdditive>
int derivative_lanes(const WinStep<kAdditive>& step, bool forward, const pass::DerivativeSeries& in,
                     typename win::FactorUpdate<kAdditive>::State& s, double* sums, long* nmiss,
                     bool* tripped) noexcept {
  return pass::lanes::unchecked_pass(DerivativeLanes<kAdditive>(step), step, forward, in, s, sums, nmiss, tripped);
}
#if defined(__x86_64__)
template <bool kAdditive>
__attribute__((target("avx"))) int derivative_lanes_avx(const WinStep<kAdditive>& step, bool forward,
                                                        const pass::DerivativeSeries& in,
                                                        typename win::FactorUpdate<kAdditive>::State& s, double* sums,
                                                        long* nmiss, bool* tripped) noexcept {
  return pass::lanes::unchecked_pass(DerivativeLanes<kAdditive>(step), step, forward, in, s, sums, nmiss, tripped);
}
template <bool kAdditive>
__attribute__((target("avx512f,avx512vl"))) int derivative_lanes_avx512(const WinStep<kAdditive>& step, bool forward,
                                                                        const pass::DerivativeSeries& in,
                                                                        typename win::FactorUpdate<kAdditive>::State& s,
                                                                        double* sums, long* nmiss,
                                                                        bool* tripped) noexcept {
  return pass::lanes::unchecked_pass(DerivativeLanes<kAdditive>(step), step, forward, in, s, sums, nmiss, tripped);
}
#endif

}  // namespace

template <bool kAdditive>
int win::FactorUpdate<kAdditive>::unchecked(const pass::FactorStep<3, FactorUpdate>& step, bool forward,
                                            const pass::DerivativeSeries& in, State& s, double* sums, long* nmiss,
                                            bool* tripped, int isa) noexcept {
#if defined(__x86_64__)
  if ((isa == 0 || isa == 3) && __builtin_cpu_supports("avx512vl")) {
    return derivative_lanes_avx512<kAdditive>(step, forward, in, s, sums, nmiss, tripped);
  }
  if ((isa == 0 || isa == 2) && has_avx()) {
    return derivative_lanes_avx<kAdditive>(step, forward, in, s, sums, nmiss, tripped);
  }
#endif
  return derivative_lanes<kAdditive>(step, forward, in, s, sums, nmiss, tripped);
}
template struct win::FactorUpdate<true>;
template struct win::FactorUpdate<false>;

// The triples in SIMD lanes; a triple whose lane failed runs again alone,
// for the code zwinsmo gives it.
void win::smooth_many(const double* x, const char* misflg, double xscale, long n, int nseasons, int additive,
                      const double* w, int count, double level, double trend, const double* sfactor, const int* scodes,
                      double* work, int* rc, double* mse, int width) noexcept {
  if (count < 1) return;
  if (n < 1 || nseasons < 1 || width == 1) {
    smooth_many_scalar(x, misflg, xscale, n, nseasons, additive, w, count, level, trend, sfactor, scodes, work, rc,
                       mse);
    return;
  }
  bool failed[kManyLanes];
  double sse[kManyLanes];
  const LanesInput in{x, misflg, xscale, n, nseasons, w, count, level, trend, sfactor, scodes, work};
#if defined(__x86_64__)
  if ((width == 0 || width == 4) && has_avx()) {
    lanes_pass_4(additive, in, failed, sse);
  } else
#endif
  {
    lanes_pass_2(additive, in, failed, sse);
  }
  long nmiss = 0;
  for (long t = 0; t < n; ++t) nmiss += misflg[t] != 0;
  const long nobs = n - nmiss;
  for (int j = 0; j < count; ++j) {
    const double* wj = w + 3 * j;
    if (failed[j] || weights_overflow(wj[0], wj[1], wj[2])) {
      smooth_many_scalar(x, misflg, xscale, n, nseasons, additive, wj, 1, level, trend, sfactor, scodes, work, rc + j,
                         mse + j);
      continue;
    }
    mse[j] = kMissing;
    if (nobs < 1) {
      rc[j] = kTooFew;
      continue;
    }
    rc[j] = kOk;
    mse[j] = missing(sse[j]) ? kMissing : sse[j] / static_cast<double>(nobs);
  }
}

double zwincla(double wlevel, double wtrend, double wseason, int nseasons, double se2, long lead, double siglev,
               double* limit) {
  return pass::with_limit(se2 * additive_factor(wlevel, wtrend, wseason, nseasons, lead), siglev, limit);
}

double zwinclm(double wlevel, double wtrend, double wseason, int nseasons, double se2, long lead, double siglev,
               double* sfactor, int scode, double* limit) {
  bool ok = true;
  const double vm = multiplicative_factor(wlevel, wtrend, wseason, nseasons, lead, sfactor, scode, &ok);
  if (!ok) {
    if (limit) *limit = kMissing;
    return vm;
  }
  return pass::with_limit(se2 * vm, siglev, limit);
}

extern "C" {

int zwinpnt(double x, double xscale, int additive, double wlevel, double wtrend, double wseason, double* level,
            double* trend, double* sfactor, int scode, double* xhat, double* e) {
  return win::point(x, xscale, additive, wlevel, wtrend, wseason, level, trend, sfactor, scode, xhat, e);
}

int zwindpd(double x, double wlevel, double wtrend, double wseason, double llevel, double clevel, double ltrend,
            double /*ctrend*/, double lseason, double /*cseason*/, int additive, double* derlev, double* dertre,
            double* dersea, double* dervec) {
  return win::point_derivative(x, wlevel, wtrend, wseason, llevel, clevel, ltrend, lseason, additive, derlev, dertre,
                               dersea, dervec);
}

int zwinsmo(double* x, char* misflg, double xscale, long n, int nseasons, int additive, double wlevel, double wtrend,
            double wseason, double* level, double* trend, double* sfactor, int* scodes, double* mse, double* smoothed,
            double* strptr) {
  Kernel::State s{*level, *trend, sfactor, 0};
  const int rc = pass::smooth(Kernel{xscale, additive, wlevel, wtrend, wseason, nseasons, scodes}, x, misflg, n, s, mse,
                              smoothed, strptr);
  *level = s.level;
  *trend = s.trend;
  return rc;
}

int zwinsvi(double* x, char* misflg, long n, int nseasons, int nstart, int additive, int stflg, double* level,
            double* trend, double* sfactor) {
  *level = kMissing;
  *trend = kMissing;
  if (n < 1) return kTooFew;
  long t = n - 1;
  while (t > 0 && misflg[t]) --t;
  if (t == 0) return kTooFew;

  const double neutral = additive ? 0.0 : 1.0;
  *level = x[t];
  *trend = 0.0;
  for (int s = 0; s < nseasons; ++s) sfactor[s] = neutral;
  if (!stflg || nseasons < 1) return kOk;

  auto* csfact =
      static_cast<double*>(host_alloc(static_cast<long>(nseasons) * static_cast<long>(sizeof(double)), kPoolNumbers));
  if (!csfact) return kNoMemory;
  double ccoef = kMissing;
  const int rc = additive ? ztsrdmy(x, misflg, n, nseasons, &ccoef, trend, nullptr, csfact, nullptr)
                          : ztsrsdm(x, misflg, n, nseasons, &ccoef, trend, csfact, nullptr);
  *level = x[t];
  if (rc < 0) {
    host_free(csfact);
    return rc;
  }
  // The first pass over the data runs backward.
  if (!missing(*trend)) *trend = -*trend;

  // csfact[0] belongs to season nstart.
  int ss = nstart >= 0 && nstart < nseasons ? nstart : 0;
  if (rc == 0) {
    for (int i = 0; i < nseasons; ++i) {
      sfactor[ss] = missing(csfact[i]) ? neutral : csfact[i];
      if (++ss == nseasons) ss = 0;
    }
  } else if (rc == 1) {
    if (additive) {
      *level = ccoef;
    } else {
      ccoef = ccoef / *level;
    }
    for (int i = 0; i < nseasons; ++i) {
      if (additive) {
        sfactor[ss] = missing(csfact[i]) ? 0.0 : csfact[i];
      } else {
        sfactor[ss] = missing(csfact[i]) ? ccoef : csfact[i] * ccoef;
      }
      if (++ss == nseasons) ss = 0;
    }
  }
  host_free(csfact);
  return kOk;
}

int zwinnmd(int nseasons, int additive, double* level, double* trend, double* sfactor, double* derlev, double* dertre,
            double* dersealev, double* derseatre, double* derseasea) {
  win::normalise(nseasons, additive, level, trend, sfactor, derlev, dertre, dersealev, derseatre, derseasea);
  return kOk;
}

int zwinnrm(int nseasons, int additive, double* level, double* trend, double* sfactor) {
  win::normalise(nseasons, additive, level, trend, sfactor, nullptr, nullptr, nullptr, nullptr, nullptr);
  return kOk;
}

int zwinstb(int nseasons, int /*additive*/, double wlevel, double wtrend, double wseason) {
  const double d = wseason * (1.0 - wlevel);
  const double wtreubnd = 2.0 - wlevel - d;
  const double lt = wlevel * wtrend;
  return d > kStableEps && static_cast<double>(nseasons) * wlevel + d > kStableEps && wtreubnd > kStableEps &&
         lt > kStableEps && lt < wtreubnd;
}

int zwinprd(double* x, char* misflg, double xscale, long n, int nseasons, int additive, double wlevel, double wtrend,
            double wseason, double* level, double* trend, double* sfactor, int* scodes, long start, long end, long lead,
            double se2, double siglev, int startflg, double* mse, double* strptr) {
  Kernel::State s{*level, *trend, sfactor, 0};
  const int rc = pass::predict(Kernel{xscale, additive, wlevel, wtrend, wseason, nseasons, scodes}, x, misflg, n, s,
                               start, end, lead, se2, siglev, startflg, mse, strptr);
  *level = s.level;
  *trend = s.trend;
  return rc;
}

int zwinpsi(double wlevel, double wtrend, double wseason, int nseasons, long npsi, double* psi) {
  if (npsi >= 1) psi[0] = 1.0;
  const double b = wlevel * wtrend;
  const double c = wseason * (1.0 - wlevel);
  for (long i = 1; i < npsi; ++i) psi[i] = psi_weight(wlevel, b, c, nseasons, i);
  return kOk;
}

int zwinnpd(double* x, char* misflg, double xscale, long n, int nseasons, int additive, double wlevel, double wtrend,
            double wseason, double level, double trend, double* sfactor, int* scodes, double* deltas, int wkflag,
            double* pder) {
  pder[0] = pder[1] = pder[2] = kMissing;
  const long bytes = static_cast<long>(nseasons > 0 ? nseasons : 1) * static_cast<long>(sizeof(double));
  auto* work = static_cast<double*>(host_alloc(bytes, kPoolNumbers));
  if (!work) return kNoMemory;
  const size_t copy = static_cast<size_t>(nseasons > 0 ? nseasons : 0) * sizeof(double);

  const double w[3] = {wlevel, wtrend, wseason};
  const int rc = pass::central_differences<3>(w, deltas, wkflag, pder, [&](const double* v, double* mse) {
    // One run of zwinsmo from the state handed in.
    if (copy) std::memcpy(work, sfactor, copy);
    double l = level;
    double tr = trend;
    return zwinsmo(x, misflg, xscale, n, nseasons, additive, v[0], v[1], v[2], &l, &tr, work, scodes, mse, nullptr,
                   nullptr);
  });
  host_free(work);
  return rc;
}

int zwinstd(double* xpxdiag, double mse, long nobs, double* parms, double* stderr, double* tvals) {
  return pass::standard_errors<3>(xpxdiag, mse, nobs >= 4, parms, stderr, tvals);
}

}  // extern "C"
