// Kernel of seasonal exponential smoothing.  See esssubs.h for the
// recursions.  The whole-series passes are those of pass_kernel.h, run with
// the kernel records of esssubs.h; their steps call the inline body of zesspnt
// rather than the exported routine, and both give the same bits.
#include "smoothing/esssubs.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstring>

#include "module/host_api.h"
#include "numeric/numeric.h"
#include "primitives/primitives.h"
#include "regression/regression.h"
#include "smoothing/factor_lanes.h"
#include "smoothing/pass_kernel.h"

using namespace smoothing;

namespace {

// A mean of the factors below this in magnitude is left alone by the
// centring.
constexpr double kCentreThreshold = 1.1368683772161608e-13;
// Margin of the stability region (2^-53).
constexpr double kStableMargin = 1.110223024625157e-16;

// Mean of n doubles, summed in order.
double mean_of(const double* v, int n) {
  double sum = 0.0;
  for (int s = 0; s < n; ++s) sum += v[s];
  return sum / static_cast<double>(n);
}

using pass::lanes::V2;

// The derivative passes' lanes (smoothing/factor_lanes.h): ess::point and
// ess::point_derivative with the derivatives by the two weights in the two
// lanes of a vector.  The level's derivatives, the longest chain from step
// to step, run in a vector of their own, lane 0 (by wlevel) on the chain
// with no move between lanes.  The guards keep their extremes in two vectors
// of four: the magnitudes of the four derivatives, and those of the level
// and the factor beside the prediction (twice).
struct DerivativeLanes {
  using V = V2;
  using V4 = pass::lanes::V4;
  using M4 = pass::lanes::M4;
  using Update = ess::FactorUpdate;
  static constexpr int kWeightOfLane[2] = {0, 1};
  static constexpr int kValueOfLane[2] = {0, 1};
  struct State {
    double level;
    double xhat;
    V dl;  // d level / d wlevel, d wseason
  };
  struct Peaks {
    V4 state = {0.0, 0.0, -DBL_MAX, -DBL_MAX};  // |level|, |factor|, the prediction
    V4 derivatives = {};                        // |derivative| before a step
  };
  static void load(const Update::State& u, State& s) noexcept {
    s = State{u.level, u.xhat, V{u.derlev[0], u.derlev[1]}};
  }
  static void store(const State& s, Update::State& u) noexcept {
    u.level = s.level;
    u.xhat = s.xhat;
    u.derlev[0] = s.dl[0];
    u.derlev[1] = s.dl[1];
  }
  static double prediction(const State& s, double factor) noexcept { return s.level + factor; }

  double wl, ws;
  double u, v;   // 1 - each weight
  double upper;  // xscale * kRelativeLimit

  explicit DerivativeLanes(const pass::FactorStep<2, Update>& step) noexcept
      : wl(step.w[0]), ws(step.w[1]), u(1.0 - wl), v(1.0 - ws), upper(step.xscale * kRelativeLimit) {}

  bool tripped(const Peaks& pk) const noexcept {
    return pk.state[0] > kStateLimit || pk.state[1] > kStateLimit || pk.state[2] > upper ||
           pass::lanes::any_above(pk.derivatives, kErrorLimit);
  }

  [[gnu::always_inline]] void step(State& s, double* factor, V* dsp, double x, V& d, double& e,
                                   Peaks& pk) const noexcept {
    const double ll = s.level;
    const double ls = *factor;
    const V dl = s.dl;
    const V ds = *dsp;
    pass::lanes::keep_max_magnitude(pk.derivatives, __builtin_shufflevector(dl, ds, 0, 1, 2, 3));
    const double xhat = ll + ls;
    // The prediction keeps its sign: the mask clears the sign bits of the
    // level and the factor alone.
    const V4 guarded = {ll, ls, xhat, xhat};
    const M4 mask = {0x7fffffffffffffffLL, 0x7fffffffffffffffLL, -1LL, -1LL};
    const V4 magnitudes = reinterpret_cast<V4>(reinterpret_cast<M4>(guarded) & mask);
    pk.state = pk.state < magnitudes ? magnitudes : pk.state;
    const double cl = (x - ls) * wl + ll * u;
    const double cs = (x - cl) * ws + ls * v;
    // Lane 1 adds -0 and subtracts +0 where lane 0 adds x and subtracts the
    // level and the factor: each leaves it as it is, to the bit.
    const V nl = (((u * dl + V{x, -0.0}) - wl * ds) - V{ll, 0.0}) - V{ls, 0.0};
    V nds = v * ds;
    nds[1] = ((nds[1] + x) - cl) - ls;
    nds = nds - ws * nl;
    d = ds + dl;
    e = xhat - x;
    s.level = cl;
    s.xhat = xhat;
    s.dl = nl;
    *factor = cs;
    *dsp = nds;
  }
};

}  // namespace

#if defined(__x86_64__)
// The same lanes in the AVX encoding, whose three operands spare the copies
// between registers that SSE2's two need.
__attribute__((target("avx"))) int derivative_lanes_avx(const pass::FactorStep<2, ess::FactorUpdate>& step,
                                                        bool forward, const pass::DerivativeSeries& in,
                                                        ess::FactorUpdate::State& s, double* sums, long* nmiss,
                                                        bool* tripped) noexcept {
  return pass::lanes::unchecked_pass(DerivativeLanes(step), step, forward, in, s, sums, nmiss, tripped);
}
#endif

int ess::FactorUpdate::unchecked(const pass::FactorStep<2, FactorUpdate>& step, bool forward,
                                 const pass::DerivativeSeries& in, State& s, double* sums, long* nmiss, bool* tripped,
                                 int isa) noexcept {
#if defined(__x86_64__)
  if ((isa == 0 || isa == 2) && pass::lanes::has_avx()) {
    return derivative_lanes_avx(step, forward, in, s, sums, nmiss, tripped);
  }
#endif
  return pass::lanes::unchecked_pass(DerivativeLanes(step), step, forward, in, s, sums, nmiss, tripped);
}

using ess::Kernel;

extern "C" {

int zesspnt(double x, double xscale, double wlevel, double wseason, double* level, double* sfactor, int scode,
            double* xhat, double* e) {
  return ess::point(x, xscale, wlevel, wseason, level, sfactor, scode, xhat, e);
}

int zessdpd(double x, double wlevel, double wseason, double llevel, double clevel, double lseason, double /*cseason*/,
            double* derlev, double* dersea, double* dervec) {
  return ess::point_derivative(x, wlevel, wseason, llevel, clevel, lseason, derlev, dersea, dervec);
}

int zesssmo(double* x, char* misflg, double xscale, long n, int nseasons, double wlevel, double wseason, double* level,
            double* sfactor, int* scodes, double* mse, double* smoothed, double* strptr) {
  Kernel::State s{*level, sfactor, -1};
  const int rc =
      pass::smooth(Kernel{xscale, wlevel, wseason, nseasons, scodes}, x, misflg, n, s, mse, smoothed, strptr);
  *level = s.level;
  return rc;
}

int zesssvi(double* x, char* misflg, long n, int nseasons, int nstart, int stflg, double* level, double* sfactor) {
  if (n < 1) return kTooFew;
  long t = n - 1;
  while (t > 0 && misflg[t]) --t;
  // Ending at 0 fails even when observation 0 is present: the backward pass
  // needs something to run over.
  if (t == 0) return kTooFew;
  *level = x[t];
  for (int s = 0; s < nseasons; ++s) sfactor[s] = 0.0;
  if (stflg == 0) return kOk;

  double* csfact = static_cast<double*>(host_alloc(static_cast<long>(nseasons) * 8, VM_NUMBERS));
  if (csfact == nullptr) return kNoMemory;
  double ccoef = kMissing;
  const int rc = ztsrdmy(x, misflg, n, nseasons, &ccoef, nullptr, nullptr, csfact, nullptr);
  *level = x[t];
  if (rc == 1) *level = ccoef;  // a reduced fit: the level is its constant
  if (rc == 0 || rc == 1) {
    // The regression's season 0 is the season of observation 0, code nstart.
    int ss = nseasons > 0 ? ((nstart % nseasons) + nseasons) % nseasons : 0;
    for (int i = 0; i < nseasons; ++i) {
      sfactor[ss] = esf::is_missing(csfact[i]) ? 0.0 : csfact[i];
      if (++ss >= nseasons) ss = 0;
    }
  }
  host_free(csfact);
  return rc < 0 ? rc : kOk;
}

int zessnmd(int nseasons, double* level, double* sfactor, double* derlev, double* dersealev, double* derseasea) {
  ess::centre(nseasons, level, sfactor, derlev, dersealev, derseasea);
  return kOk;
}

int zessnrm(int nseasons, double* level, double* sfactor) {
  const double ibar = mean_of(sfactor, nseasons);
  if (std::fabs(ibar) < kCentreThreshold) return kOk;
  for (int s = 0; s < nseasons; ++s) sfactor[s] -= ibar;
  *level += ibar;
  return kOk;
}

int zessstb(int nseasons, double wlevel, double wseason) {
  const double d = (1.0 - wlevel) * wseason;
  return d > kStableMargin && static_cast<double>(nseasons) * wlevel + d > kStableMargin &&
                 2.0 - wlevel - d > kStableMargin
             ? 1
             : 0;
}

int zessprd(double* x, char* misflg, double xscale, long n, int nseasons, double wlevel, double wseason, double* level,
            double* sfactor, int* scodes, long start, long end, long lead, double se2, double siglev, int startflg,
            double* mse, double* strptr) {
  Kernel::State s{*level, sfactor, -1};
  const int rc = pass::predict(Kernel{xscale, wlevel, wseason, nseasons, scodes}, x, misflg, n, s, start, end, lead,
                               se2, siglev, startflg, mse, strptr);
  *level = s.level;
  return rc;
}

int zesspsi(double wlevel, double wseason, int nseasons, long npsi, double* psi) {
  psi[0] = 1.0;
  const double at_cycle = wlevel + (1.0 - wlevel) * wseason;
  for (long i = 1; i < npsi; ++i) {
    psi[i] = (nseasons > 0 && i % nseasons == 0) ? at_cycle : wlevel;
  }
  return kOk;
}

int zessnpd(double* x, char* misflg, double xscale, long n, int nseasons, double wlevel, double wseason, double level,
            double* sfactor, int* scodes, double* deltas, int wkflag, double* pder) {
  pder[0] = pder[1] = kMissing;
  const long bytes = static_cast<long>(nseasons) * 8;
  double* work = static_cast<double*>(host_alloc(bytes, VM_NUMBERS));
  if (work == nullptr) return kNoMemory;
  const double w[2] = {wlevel, wseason};
  const int rc = pass::central_differences<2>(w, deltas, wkflag, pder, [&](const double* v, double* mse) {
    double l = level;
    std::memcpy(work, sfactor, static_cast<size_t>(bytes));
    return zesssmo(x, misflg, xscale, n, nseasons, v[0], v[1], &l, work, scodes, mse, nullptr, nullptr);
  });
  host_free(work);
  return rc;
}

int zessstd(double* xpxdiag, double mse, long nobs, double* parms, double* stderr, double* tvals) {
  return pass::standard_errors<2>(xpxdiag, mse, nobs >= 3, parms, stderr, tvals);
}

}  // extern "C"

namespace {

struct GridInput {
  const double* x;
  const char* misflg;
  long n;
  int nseasons;
  const int* scodes;
  const double* w;  // wlevel, wseason of each pair
  int count;
  double level;
  const double* sfactor;
  double* work;
};

// The pairs kWidth to a vector V: the update of ess::point on every lane,
// with the extremes of its guards kept as pass::smooth_many keeps them, into
// `out` (lanes past count repeat pair 0).
template <class V, int kWidth>
[[gnu::always_inline]] inline void grid_lanes(const GridInput& in, pass::LanePeaks& out) noexcept {
  using pass::lanes::keep_max;
  using pass::lanes::keep_max_magnitude;
  constexpr int kGroups = ess::kManyPairs / kWidth;
  const int groups = (in.count + kWidth - 1) / kWidth;
  const long lanes = static_cast<long>(groups) * kWidth;
  V wl[kGroups], ws[kGroups], keep_l[kGroups], keep_s[kGroups], l[kGroups];
  V sse[kGroups], peak_state[kGroups], peak_pred[kGroups], peak_e[kGroups], peak_sse[kGroups];
  for (int g = 0; g < groups; ++g) {
    for (int i = 0; i < kWidth; ++i) {
      const int lane = g * kWidth + i;
      const int j = lane < in.count ? lane : 0;
      wl[g][i] = in.w[2 * j];
      ws[g][i] = in.w[2 * j + 1];
    }
    keep_l[g] = 1.0 - wl[g];
    keep_s[g] = 1.0 - ws[g];
    l[g] = V{} + in.level;
    sse[g] = V{};
    peak_state[g] = V{};
    peak_pred[g] = V{} - DBL_MAX;
    peak_e[g] = V{};
    peak_sse[g] = V{};
  }
  for (int s = 0; s < in.nseasons; ++s) {
    for (long j = 0; j < lanes; ++j) in.work[s * lanes + j] = in.sfactor[s];
  }
  for (int pass = 0; pass < 2; ++pass) {
    const bool forward = pass == 1;
    for (long k = 0; k < in.n; ++k) {
      const long t = forward ? k : in.n - 1 - k;
      if (in.misflg[t]) continue;  // no state changes
      const V xv = V{} + in.x[t];
      double* f = in.work + in.scodes[t] * lanes;
      for (int g = 0; g < groups; ++g) {
        const V lg = l[g];
        V fg;
        std::memcpy(&fg, f + g * kWidth, sizeof fg);
        // std::max of the two magnitudes, as the scalar lanes take it.
        const V al = ESF_LANES_ABS(lg), af = ESF_LANES_ABS(fg);
        keep_max(peak_state[g], al < af ? af : al);
        const V xhat = lg + fg;
        keep_max(peak_pred[g], xhat);
        const V cl = (xv - fg) * wl[g] + lg * keep_l[g];
        const V cs = (xv - cl) * ws[g] + fg * keep_s[g];
        std::memcpy(f + g * kWidth, &cs, sizeof cs);
        l[g] = cl;
        if (forward) {
          const V e = xhat - xv;
          keep_max_magnitude(peak_e[g], e);
          keep_max(peak_sse[g], sse[g]);
          sse[g] = sse[g] + e * e;
        }
      }
    }
  }
  for (int j = 0; j < in.count; ++j) {
    const int g = j / kWidth, i = j % kWidth;
    out.sse[j] = sse[g][i];
    out.peak_state[j] = peak_state[g][i];
    out.peak_pred[j] = peak_pred[g][i];
    out.peak_e[j] = peak_e[g][i];
    out.peak_sse[j] = peak_sse[g][i];
  }
}

// What the grid in lanes leaves for pass::many_results: the extremes of
// every pair and the pairs' weights, whose guard is that of ess::Lanes.
struct GridPeaks : pass::LanePeaks {
  static constexpr bool kMissingSseIsMissing = ess::Lanes::kMissingSseIsMissing;
  const double* w;  // wlevel, wseason of each pair
  bool unusable(int j) const noexcept { return ess::weights_overflow(w[2 * j], w[2 * j + 1]); }
};

// Two lanes to a vector: SSE2, which every x86-64 processor has (elsewhere
// the compiler maps the vectors on what the processor has).
void grid_lanes_2(const GridInput& in, pass::LanePeaks& out) noexcept { grid_lanes<V2, 2>(in, out); }

#if defined(__x86_64__)
// Four lanes to a vector, for processors with AVX, chosen at run time.
__attribute__((target("avx"))) void grid_lanes_4(const GridInput& in, pass::LanePeaks& out) noexcept {
  grid_lanes<pass::lanes::V4, 4>(in, out);
}
#endif

}  // namespace

void ess::smooth_many(const double* x, const char* misflg, double xscale, long n, int nseasons, const double* w,
                      int count, double level, const double* sfactor, const int* scodes, double* work, int* rc,
                      double* mse, int width) {
  if (width != 1 && n >= 1 && count >= 1) {
    const GridInput in{x, misflg, n, nseasons, scodes, w, count, level, sfactor, work};
    GridPeaks peaks;
    peaks.w = w;
#if defined(__x86_64__)
    if ((width == 0 || width == 4) && pass::lanes::has_avx()) {
      grid_lanes_4(in, peaks);
    } else
#endif
    {
      grid_lanes_2(in, peaks);
    }
    long nmiss = 0;
    for (long t = 0; t < n; ++t) nmiss += misflg[t] != 0;
    pass::many_results(peaks, xscale, n - nmiss, count, rc, mse);
    return;
  }
  Lanes lanes;
  for (int j = 0; j < count; ++j) {
    lanes.wl[j] = w[2 * j];
    lanes.ws[j] = w[2 * j + 1];
    lanes.keep_l[j] = 1.0 - lanes.wl[j];
    lanes.keep_s[j] = 1.0 - lanes.ws[j];
    lanes.l[j] = level;
  }
  for (int s = 0; s < nseasons; ++s) {
    for (int j = 0; j < count; ++j) work[s * count + j] = sfactor[s];
  }
  lanes.work = work;
  lanes.f = work;
  lanes.scodes = scodes;
  lanes.count = count;
  pass::smooth_many(lanes, x, misflg, xscale, n, count, rc, mse);
}
