// SIMD lanes: the vectors, masks and guard extremes that every pass in lanes
// uses (the grids of the trended, seasonal and Winters families), and the
// unchecked derivative passes of the seasonal families (the step record
// pass::FactorStep) with the derivatives by their weights side by side in
// lanes: lane i of a vector holds the derivative by weight i.  Each lane
// runs exactly the operations of the family's scalar step for its weight, in
// the same order, so that every derivative, state and cross product is that
// of the scalar pass to the bit; a term that only one weight's derivative
// has is applied to that lane alone (adding a zero to the others would turn
// a -0 into +0).  The states and the divisions, one for all weights, stay
// scalar.
//
// While the pass runs, the factors' derivatives stand in a scratch season by
// season, one vector to a season, and the cross products are summed in
// vectors, each product in a lane of its own.
//
// The guards are deferred and not tested one step at a time: the pass keeps
// the extremes of what they test (the family's Peaks) and tests those at the
// end.  A limit test trips at some step exactly when the extreme passes it
// (NaN passes no test and is never kept); a guarded division is taken as
// failed whenever the sum of the magnitudes of the quotients is not below
// kBig / 2, which holds whenever one division failed (its quotient is then
// at least about kBig, infinite or NaN) and otherwise only near the limits.
// When a guard tripped, the caller (pass::derivative_forward and
// pass::derivative_backward) runs the pass again checked.
#pragma once

#include <cmath>
#include <type_traits>

#include "smoothing/pass_kernel.h"

namespace pass::lanes {

typedef double V2 __attribute__((vector_size(16)));
typedef long long M2 __attribute__((vector_size(16)));
typedef double V4 __attribute__((vector_size(32)));
typedef long long M4 __attribute__((vector_size(32)));

template <class V>
inline constexpr int kWidth = static_cast<int>(sizeof(V) / sizeof(double));

// The vector of 64-bit integers that comparisons of V give.
template <class V>
using MaskOf = std::conditional_t<kWidth<V> == 2, M2, M4>;

// No function here takes or gives a vector by value: where the processor
// lacks the vector's width, that would be a call of another convention.  A
// scalar operand of a vector operation stands in every lane as it is (-0
// and NaN included).

#if defined(__x86_64__)
// Whether the processor runs AVX (the lanes' own clones for it).
inline bool has_avx() noexcept { return __builtin_cpu_supports("avx"); }
#endif

// The vector type of an expression of one.
template <class E>
using LaneVector = std::remove_cvref_t<E>;

}  // namespace pass::lanes

// |v| of a lane vector v, lane by lane: v with its sign bits cleared (-0
// becomes +0, a NaN stays a NaN).  A macro, since no function here gives a
// vector by value.
#define ESF_LANES_ABS(v)                                                                   \
  (reinterpret_cast<::pass::lanes::LaneVector<decltype(v)>>(                               \
      reinterpret_cast<::pass::lanes::MaskOf<::pass::lanes::LaneVector<decltype(v)>>>(v) & \
      (::pass::lanes::MaskOf<::pass::lanes::LaneVector<decltype(v)>>{} + 0x7fffffffffffffffLL)))

namespace pass::lanes {

// The running extremes of the guards, of doubles and lane by lane: a NaN
// value leaves them as they are (a single maxsd or maxpd, minsd or minpd on
// x86).
[[gnu::always_inline]] inline void keep_max(double& peak, double v) noexcept { peak = peak < v ? v : peak; }
[[gnu::always_inline]] inline void keep_min(double& low, double v) noexcept { low = v < low ? v : low; }
template <class V>
[[gnu::always_inline]] inline void keep_max(V& peak, const V& v) noexcept {
  peak = peak < v ? v : peak;
}
template <class V>
[[gnu::always_inline]] inline void keep_min(V& low, const V& v) noexcept {
  low = v < low ? v : low;
}
template <class V>
[[gnu::always_inline]] inline void keep_max_magnitude(V& peak, const V& v) noexcept {
  const V magnitude = ESF_LANES_ABS(v);
  peak = peak < magnitude ? magnitude : peak;
}
template <class V>
[[gnu::always_inline]] inline bool any_above(const V& peak, double limit) noexcept {
  bool above = false;
  for (int i = 0; i < kWidth<V>; ++i) above |= peak[i] > limit;
  return above;
}
// The quotients' sum allows no failed guarded division.
[[gnu::always_inline]] inline bool quotients_fail(double sum) noexcept { return !(sum < smoothing::kBig * 0.5); }

// Element (i, j) of a packed lower triangle.
constexpr int packed(int i, int j) noexcept { return i >= j ? i * (i + 1) / 2 + j : j * (j + 1) / 2 + i; }

// The running sums of the cross products of one row of NV values, the packed
// lower triangle as pass::derivative_loop sums it (element (i, j), i >= j,
// summed as s + v[i] * v[j]), in vectors V; lane k of the row's vector holds
// value kValueOfLane[k].
template <class V, int NV>
struct CrossSums;

// Four values in one vector v: the squares, each value by the next one (and
// the last by the first), each by the one two further on (lanes 0 and 1;
// lanes 2 and 3 sum the same products again).
template <>
struct CrossSums<V4, 4> {
  V4 sq, next, far;
  void load(const double* s, const int* of) noexcept {
    for (int k = 0; k < 4; ++k) {
      sq[k] = s[packed(of[k], of[k])];
      next[k] = s[packed(of[k], of[(k + 1) % 4])];
      far[k] = s[packed(of[k], of[(k + 2) % 4])];
    }
  }
  [[gnu::always_inline]] void add(const V4& v) noexcept {
    sq = sq + v * v;
    next = next + v * __builtin_shufflevector(v, v, 1, 2, 3, 0);
    far = far + v * __builtin_shufflevector(v, v, 2, 3, 0, 1);
  }
  void store(double* s, const int* of) const noexcept {
    for (int k = 0; k < 4; ++k) {
      s[packed(of[k], of[k])] = sq[k];
      s[packed(of[k], of[(k + 1) % 4])] = next[k];
      if (k < 2) s[packed(of[k], of[k + 2])] = far[k];
    }
  }
};

// Three values, the first two in v and the last alone.
template <>
struct CrossSums<V2, 3> {
  V2 sq, cross, last_row;
  double last;
  void load(const double* s, const int* of) noexcept {
    sq = V2{s[packed(of[0], of[0])], s[packed(of[1], of[1])]};
    cross = V2{s[1], s[1]};
    last_row = V2{s[packed(2, of[0])], s[packed(2, of[1])]};
    last = s[5];
  }
  [[gnu::always_inline]] void add(const V2& v, double e) noexcept {
    sq = sq + v * v;
    cross = cross + v * __builtin_shufflevector(v, v, 1, 0);
    last_row = last_row + e * v;
    last = last + e * e;
  }
  void store(double* s, const int* of) const noexcept {
    s[packed(of[0], of[0])] = sq[0], s[packed(of[1], of[1])] = sq[1], s[1] = cross[0];
    s[packed(2, of[0])] = last_row[0], s[packed(2, of[1])] = last_row[1], s[5] = last;
  }
};

// One pass over the series in the direction kForward, with or without
// missing observations.  L, the family's lanes on vectors L::V:
//
//   static constexpr int kWeightOfLane[];
//                                  the weight whose derivative each lane of
//                                  a factor's derivatives holds
//   static constexpr int kValueOfLane[];
//                                  the value of the cross products' row
//                                  (a weight, or P for e) each lane of d
//                                  holds
//   struct State;                  the scalar states, `xhat`, and the
//                                  derivatives of the states
//   struct Peaks;                  the extremes of the guards, from their
//                                  start values
//   static double prediction(const State&, double factor);
//                                  what stands in for a missing observation
//   void step(State&, double* factor, V* ds, double x, V& d, double& e,
//             Peaks&) const;       the family's update and derivative update
//                                  on the factor of the observation's season
//                                  and its derivatives: d the prediction's
//                                  derivatives (lanes 0..P-1), e the error
//   bool tripped(const Peaks&) const;
//
// ds holds the factors' derivatives season by season, `cross` the sums of
// the cross products.
template <class L, int P, bool kForward, bool kAnyMissing>
[[gnu::always_inline]] inline int run_lanes(const L& lanes, const DerivativeSeries& in, const int* scodes,
                                            double* sfactor, typename L::V* ds, typename L::State& st,
                                            CrossSums<typename L::V, P + 1>& cross, long* nmiss_out,
                                            bool* tripped) noexcept {
  using V = typename L::V;
  constexpr int kW = kWidth<V>;
  const long n = in.n;
  const DerivativeSeries series = in;  // a local copy stays in registers
  typename L::State s = st;
  CrossSums<V, P + 1> sums = cross;
  typename L::Peaks peaks;
  long nmiss = 0;
  int rc = kOk;
  for (long k = 0; k < n; ++k) {
    const long t = kForward ? k : n - 1 - k;
    const int code = scodes[t];
    double value = 0.0;
    if (!observation<kForward, kAnyMissing>(series, t, nmiss, value, [&] { return L::prediction(s, sfactor[code]); })) {
      rc = kTooFew;
      break;
    }
    V d;
    double e = 0.0;
    lanes.step(s, sfactor + code, ds + code, value, d, e, peaks);
    if constexpr (kForward) {
      if constexpr (P + 1 == kW) {
        d[P] = e;
        sums.add(d);
      } else {
        sums.add(d, e);
      }
    }
  }
  st = s;
  if constexpr (kForward) {
    cross = sums;
    *nmiss_out = nmiss;
  }
  *tripped = lanes.tripped(peaks);
  return rc;
}

// FactorStep's unchecked pass (see pass::OwnUncheckedLoop) through the
// family's lanes L, with the state converted by
//   static void L::load(const U::State&, State&);
//   static void L::store(const State&, U::State&);
template <class L, int P, class U>
[[gnu::always_inline]] inline int unchecked_pass(const L& lanes, const FactorStep<P, U>& step, bool forward,
                                                 const DerivativeSeries& in, typename U::State& st, double* sums,
                                                 long* nmiss, bool* tripped) noexcept {
  using V = typename L::V;
  constexpr int kW = kWidth<V>;
  const int ns = step.nseasons;
  if (ns < 1 || static_cast<long>(ns) * kW > kSavedDoubles) {
    *tripped = true;  // the checked pass takes it
    return kOk;
  }
  V ds[kSavedDoubles / kW];
  for (int c = 0; c < ns; ++c) {
    for (int k = 0; k < kW; ++k) ds[c][k] = step.dersea[L::kWeightOfLane[k]][c];
  }
  CrossSums<V, P + 1> cross{};
  if (forward) cross.load(sums, L::kValueOfLane);
  typename L::State s;
  L::load(st, s);
  unsigned char flags = 0;
  for (long t = 0; t < in.n; ++t) flags |= static_cast<unsigned char>(in.misflg[t]);
  const int* codes = step.scodes;
  double* f = step.sfactor;
  int rc = kOk;
  if (forward) {
    rc = flags ? run_lanes<L, P, true, true>(lanes, in, codes, f, ds, s, cross, nmiss, tripped)
               : run_lanes<L, P, true, false>(lanes, in, codes, f, ds, s, cross, nmiss, tripped);
  } else {
    rc = flags ? run_lanes<L, P, false, true>(lanes, in, codes, f, ds, s, cross, nmiss, tripped)
               : run_lanes<L, P, false, false>(lanes, in, codes, f, ds, s, cross, nmiss, tripped);
  }
  L::store(s, st);
  for (int c = 0; c < ns; ++c) {
    for (int k = 0; k < kW; ++k) step.dersea[L::kWeightOfLane[k]][c] = ds[c][k];
  }
  if (forward) cross.store(sums, L::kValueOfLane);
  return rc;
}

}  // namespace pass::lanes
