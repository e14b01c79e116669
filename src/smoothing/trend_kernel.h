// Helpers shared by the kernels of the trended families (linear, double and
// damped trend): the guards of every smoothing kernel, the start values of
// the backward pass (whose walk to the last usable observation the simple
// family shares), the state pair of the whole-series passes and the
// side-by-side grid evaluation.
#pragma once

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstring>

#include "primitives/primitives.h"
#include "regression/regression.h"
#include "smoothing/factor_lanes.h"
#include "smoothing/frame_limits.h"
#include "smoothing/pass_kernel.h"

namespace trend {

using namespace smoothing::limits;

inline bool missing(double d) noexcept { return esf::is_missing(d); }

// Walks back from the end of the series to the last usable observation.
// Returns its index, or 0 when none lies beyond index 0.
inline long last_usable(const char* misflg, long n) noexcept {
  long t = n - 1;
  while (t > 0 && misflg[t]) --t;
  return t < 0 ? 0 : t;
}

// Start values of the trended families for the backward pass: the level is
// the last usable observation and the trend 0; with `stflg` the trend is the
// slope of a straight line fitted to the series, negated because the first
// pass over the data runs backward in time. The intercept of the line is not
// kept. A series whose only usable observation is the first has no start.
inline int trended_start(double* x, char* misflg, long n, int stflg, double* level, double* trend) noexcept {
  *level = kMissing;
  *trend = kMissing;
  if (n < 1) return kTooFew;
  const long t = last_usable(misflg, n);
  if (t == 0) return kTooFew;
  *level = x[t];
  *trend = 0.0;
  if (!stflg) return kOk;
  const int rc = ztsrdmy(x, misflg, n, 0, level, trend, nullptr, nullptr, nullptr);
  *level = x[t];
  if (!missing(*trend)) *trend = -*trend;
  return rc;
}

using pass::kManyWeights;

// Runs the eligible rows of `rows` candidate weight sets (p weights each)
// through `many`, a side-by-side whole-series routine called as
// many(weights, count, rc, mse), and scatters its answers back by row. An
// ineligible row gets rc 0 and a missing mse, and is not evaluated.
template <int P, class Many>
void evaluate_eligible(const double* w, const bool* eligible, int rows, int* rc, double* mse, Many many) {
  // Cleared only so that no lane counts as unset; lanes past `count` are
  // never read.
  double lane_w[kManyWeights * P] = {};
  int row_of[kManyWeights];
  int count = 0;
  for (int k = 0; k < rows && count < kManyWeights; ++k) {
    rc[k] = kOk;
    mse[k] = kMissing;
    if (!eligible[k]) continue;
    for (int i = 0; i < P; ++i) lane_w[count * P + i] = w[k * P + i];
    row_of[count++] = k;
  }
  int lane_rc[kManyWeights];
  double lane_mse[kManyWeights];
  many(lane_w, count, lane_rc, lane_mse);
  for (int j = 0; j < count; ++j) {
    rc[row_of[j]] = lane_rc[j];
    mse[row_of[j]] = lane_mse[j];
  }
}

// What the kernel records of the trended families share for the passes of
// smoothing/pass_kernel.h: the state pair and its two columns in a row; a
// missing observation of z..smo shows the prediction of its missing step;
// and the turn between the passes of the linear and double families (the
// level steps forward by the trend, the trend points forward in time; the
// damped family has a turn of its own).
struct TrendedKernel {
  struct State {
    double level;
    double trend;
  };
  static constexpr pass::Column kColumns[] = {pass::Column::level, pass::Column::trend};
  static constexpr bool kMissingRepeatsPrediction = false;

  static void put(const State& s, double* cols) noexcept {
    cols[0] = s.level;
    cols[1] = s.trend;
  }
  static void turn(State& s) noexcept {
    s.level = s.level + s.trend;
    s.trend = -s.trend;
  }
};

// What the lanes records of the trended families share for the side-by-side
// pass of pass_kernel.h: the state pair of every lane, one start state for
// all, and the missing step and turn of the linear and double families (the
// damped family has its own). mse is sse / nobs even for a missing sse (only
// an observation that is missing but not flagged leads there).
struct TrendedLanes : pass::LanePeaks {
  static constexpr bool kMissingSseIsMissing = false;

  double l[kManyWeights];
  double tr[kManyWeights];

  void start(int count, double level, double trend) noexcept {
    for (int j = 0; j < count; ++j) {
      l[j] = level;
      tr[j] = trend;
    }
  }
  void skip(int j) noexcept { l[j] = l[j] + tr[j]; }
  void turn(int j) noexcept {
    l[j] = l[j] + tr[j];
    tr[j] = -tr[j];
  }
};

// The weight arrays of the lanes record of a family with one weight w:
// w and 1 - w by lane.
struct OneWeightLaneArrays {
  double w[kManyWeights];
  double keep[kManyWeights];

  void load(int j, const double* wj) noexcept {
    w[j] = wj[0];
    keep[j] = 1.0 - wj[0];
  }
};

// ---------------------------------------------------------------------------
// The grid in SIMD lanes
// ---------------------------------------------------------------------------
//
// z..smo for the grid's weight sets kWidth to a vector of type V (M: the
// vector of 64-bit integers its comparisons give), kGroups vectors at a time
// held in registers across the whole series, so that each step of the
// recursion meets the steps of the other groups while its own result is on
// its way.  Every lane runs the operations of its family's z..smo in their
// order, so its values are those of its own pass to the bit.  A family's
// update in lanes, U, gives
//
//   static constexpr int kWeights;
//   static constexpr bool kPredictionIsLevel;
//                                      the prediction is the level, whose
//                                      guard peaks then serve both
//   template <class V> struct Weights; the weights of a group of lanes and
//                                      what the update derives from them
//   template <class V>
//   static void weights(const V* w, Weights<V>&);
//                                      from weight i of every lane in w[i]
//   template <class V>
//   static void step(const Weights<V>&, const V& x, V& l, V& t, V& xhat,
//                    V& hi, V& lo);    the update on observation x and its
//                                      prediction; hi and lo take the
//                                      largest and smallest of the states
//                                      the update guards (before it)
//   template <class V> static void skip(const Weights<V>&, V& l, V& t);
//   template <class V> static void turn(const Weights<V>&, V& l, V& t);
//
// (Vectors go by reference: these are inlined where AVX is on, and a vector
// by value would be passed another way where it is not.)
//   static bool unusable(const double* w);
//                                      the weight guard of one weight set
//
// The guards do not stop a lane.  A state or prediction guard trips at some
// step exactly when the largest (smallest) value its quantity takes passes
// the limit, so the loops only keep those peaks (a NaN, which no guard
// catches, leaves a peak as it is).  The error and sum-of-squares guards are
// tested at the last observation only: while sse holds no NaN it never
// falls, so it passes its limit before some addition exactly when it does so
// before the last, and an error past kErrorLimit squares to more than
// kSseLimit, which the sum holds from then on.  A lane whose sse ends NaN
// (an observation missing but not flagged) proves nothing: the caller runs
// the grid again the checked way.
using pass::lanes::keep_max;
using pass::lanes::keep_min;
using pass::lanes::M2;
using pass::lanes::M4;
using pass::lanes::V2;
using pass::lanes::V4;

// hi and lo take in a and b.
template <class V>
[[gnu::always_inline]] inline void peaks(V& hi, V& lo, const V& a, const V& b) noexcept {
  keep_max(hi, a);
  keep_max(hi, b);
  keep_min(lo, a);
  keep_min(lo, b);
}

// The weights of a family with one weight w in lanes: w and 1 - w.
struct OneWeightLanes {
  static constexpr int kWeights = 1;
  template <class V>
  struct Weights {
    V w, keep;
  };
  template <class V>
  static void weights(const V* w, Weights<V>& out) noexcept {
    out = {w[0], (V{} + 1.0) - w[0]};
  }
};

// The missing step and the turn of the linear and double families in lanes.
struct LevelTrendLanes {
  static constexpr bool kPredictionIsLevel = false;
  template <class W, class V>
  static void skip(const W&, V& l, V& t) noexcept {
    l = l + t;
  }
  template <class W, class V>
  static void turn(const W&, V& l, V& t) noexcept {
    l = l + t;
    t = -t;
  }
};

struct LanesInput {
  const double* x;
  const char* misflg;
  double xscale;
  long n;
  const double* w;  // kWeights per lane
  int count;
  double level;
  double trend;
};

// Lanes first .. first + kWidth * kGroups - 1 (those past count repeat lane
// `first`): failed[j] whether a guard tripped, sse[j] the sum of squares.
template <class U, class V, class M, int kWidth, int kGroups>
[[gnu::always_inline]] inline void lanes_chunk(const LanesInput& in, int first, bool* failed,
                                               double* sse_out) noexcept {
  constexpr int P = U::kWeights;
  const double* x = in.x;
  const char* misflg = in.misflg;
  const long n = in.n;
  typename U::template Weights<V> wt[kGroups];
  V l[kGroups], t[kGroups], sse[kGroups], hi[kGroups], lo[kGroups], pred[kGroups];
  M bad[kGroups];
  for (int g = 0; g < kGroups; ++g) {
    double lane_w[P][kWidth];
    for (int i = 0; i < kWidth; ++i) {
      const int lane = first + g * kWidth + i;
      const int j = lane < in.count ? lane : first;
      for (int k = 0; k < P; ++k) lane_w[k][i] = in.w[P * j + k];
    }
    V w[P];
    std::memcpy(w, lane_w, sizeof w);
    U::weights(w, wt[g]);
    l[g] = V{} + in.level;
    t[g] = V{} + in.trend;
    sse[g] = V{};
    hi[g] = V{} - DBL_MAX;
    lo[g] = V{} + DBL_MAX;
    pred[g] = V{} - DBL_MAX;
    bad[g] = M{};
  }
  // The backcast, the turn, and the forward pass up to the last observation
  // (the missing steps after it change nothing the pass gives), which alone
  // meets the error and sum-of-squares guards.
  long last = n - 1;
  while (last >= 0 && misflg[last]) --last;
  for (int pass = 0; pass < 2; ++pass) {
    const bool forward = pass == 1;
    if (forward) {
      for (int g = 0; g < kGroups; ++g) U::turn(wt[g], l[g], t[g]);
    }
    const long steps = forward ? last + 1 : n;
    for (long k = 0; k < steps; ++k) {
      const long at = forward ? k : n - 1 - k;
      if (misflg[at]) {
        for (int g = 0; g < kGroups; ++g) U::skip(wt[g], l[g], t[g]);
        continue;
      }
      const V xv = V{} + x[at];
      for (int g = 0; g < kGroups; ++g) {
        V xhat;
        U::step(wt[g], xv, l[g], t[g], xhat, hi[g], lo[g]);
        if constexpr (!U::kPredictionIsLevel) keep_max(pred[g], xhat);
        if (!forward) continue;
        const V e = xhat - xv;
        if (at == last) bad[g] = (ESF_LANES_ABS(e) > kErrorLimit) | (sse[g] > kSseLimit);
        sse[g] = sse[g] + e * e;
      }
    }
  }

  const V upper = V{} + in.xscale * kRelativeLimit;
  for (int g = 0; g < kGroups; ++g) {
    if constexpr (U::kPredictionIsLevel) pred[g] = hi[g];
    bad[g] |= (hi[g] > kStateLimit) | (lo[g] < -kStateLimit) | (pred[g] > upper);
    for (int i = 0; i < kWidth; ++i) {
      const int lane = first + g * kWidth + i;
      if (lane >= in.count) return;
      failed[lane] = bad[g][i] != 0;
      sse_out[lane] = sse[g][i];
    }
  }
}

// Every lane, kWidth * kGroups at a time.
template <class U, class V, class M, int kWidth, int kGroups>
[[gnu::always_inline]] inline void lanes_pass(const LanesInput& in, bool* failed, double* sse) noexcept {
  for (int first = 0; first < in.count; first += kWidth * kGroups) {
    lanes_chunk<U, V, M, kWidth, kGroups>(in, first, failed, sse);
  }
}

// Two lanes to a vector: SSE2, which every x86-64 processor has (elsewhere
// the compiler maps the vectors on what the processor has).
template <class U>
[[gnu::noinline]] void lanes_pass_2(const LanesInput& in, bool* failed, double* sse) noexcept {
  lanes_pass<U, V2, M2, 2, 5>(in, failed, sse);
}

#if defined(__x86_64__)
// Four lanes to a vector, for processors with AVX, chosen at run time.  No
// fused multiply-add: AVX has none, and contraction is off.
template <class U>
[[gnu::noinline]] __attribute__((target("avx"))) void lanes_pass_4(const LanesInput& in, bool* failed,
                                                                   double* sse) noexcept {
  lanes_pass<U, V4, M4, 4, 5>(in, failed, sse);
}
using pass::lanes::has_avx;
#endif

// The side-by-side z..smo of a family: rc[j] and mse[j] for each of the
// count weight sets of in.w, in lanes of the given width (0 the widest the
// processor has, 2 or 4), or by `checked(rc, mse)` (width 1, or when a
// lane's sum of squares ends NaN).
template <class U, class Checked>
void smooth_lanes(const LanesInput& in, int* rc, double* mse, int width, Checked checked) noexcept {
  if (in.count < 1) return;
  if (in.n < 1 || width == 1) {
    checked(rc, mse);
    return;
  }
  bool failed[kManyWeights];
  double sse[kManyWeights];
#if defined(__x86_64__)
  if ((width == 0 || width == 4) && has_avx()) {
    lanes_pass_4<U>(in, failed, sse);
  } else
#endif
  {
    lanes_pass_2<U>(in, failed, sse);
  }
  long nmiss = 0;
  for (long t = 0; t < in.n; ++t) nmiss += in.misflg[t] != 0;
  const long nobs = in.n - nmiss;
  for (int j = 0; j < in.count; ++j) {
    rc[j] = kOk;
    mse[j] = kMissing;
    if (failed[j] || U::unusable(in.w + U::kWeights * j)) {
      rc[j] = kOverflow;
    } else if (std::isnan(sse[j])) {
      checked(rc, mse);
      return;
    } else if (nobs < 1) {
      rc[j] = kTooFew;
    } else {
      mse[j] = sse[j] / static_cast<double>(nobs);
    }
  }
}

// smooth_lanes of a family with the update in lanes U, checked by the
// family's lanes record L for pass::smooth_many, which gives
//   void load(int j, const double* w)   the U::kWeights weights of lane j
//   void start(int count, double level, double trend)
//                                       every lane's start state
template <class U, class L>
void smooth_family(const LanesInput& in, int* rc, double* mse, int width) noexcept {
  smooth_lanes<U>(in, rc, mse, width, [&](int* rc_out, double* mse_out) {
    L lanes;
    for (int j = 0; j < in.count; ++j) lanes.load(j, in.w + U::kWeights * j);
    lanes.start(in.count, in.level, in.trend);
    pass::smooth_many(lanes, in.x, in.misflg, in.xscale, in.n, in.count, rc_out, mse_out);
  });
}

}  // namespace trend
