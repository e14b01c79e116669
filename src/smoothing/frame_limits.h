// Numeric guards shared by every smoothing kernel and by the estimation frame.
//
// The guards are plain comparisons with fixed constants, the same in every
// family, so that one series meets the same limits whichever model runs it.
// The values are fixed by the design; they are written to the bit and never
// derived.
#pragma once

#include <cfloat>
#include <cmath>

#include "module/host_api.h"        // host_gcb: the host's overflow values
#include "primitives/primitives.h"  // esf::kMissing

namespace smoothing {

// The limits and result codes, in a namespace of their own so that the
// kernels' namespaces can take them all with one using-directive.
inline namespace limits {

// |level| (or any state) above this is an overflow of the state.
inline constexpr double kStateLimit = 1.3407807929942597e+152;
// A prediction above kRelativeLimit * xscale is an overflow.  Only the upper
// side is tested: a strongly negative level passes until |level| reaches
// kStateLimit.
inline constexpr double kRelativeLimit = 10000.0;
// |e| or |derivative| above this is an overflow; also the "BIG" of the
// estimation frame (steps, cross products, cut fractions).
inline constexpr double kErrorLimit = 1.3407807929943e+154;
inline constexpr double kBig = 1.3407807929943e+154;
// The running sum of squared errors above this is an overflow.
inline constexpr double kSseLimit = 8.988465674311578e+307;
// Below this a weight, a denominator, a step or a mean squared error counts
// as zero.
inline constexpr double kTiny = 1.491668147e-154;

// Internal result codes of kernels and frames.
inline constexpr int kOk = 0;
inline constexpr int kTooFew = -2;       // not enough usable observations
inline constexpr int kNoGridStart = -8;  // no grid candidate could be evaluated
inline constexpr int kOverflow = -9;     // numeric overflow in a pass
inline constexpr int kGuardedDivision = -92;
inline constexpr int kNoMemory = -100;
inline constexpr int kTableFailed = -101;
inline constexpr int kUnusableWeights = -999;
inline constexpr int kNotConverged = 90;  // weights usable; counts as success

inline constexpr double kMissing = esf::kMissing;

}  // namespace limits

// Whether any of the values lies beyond `limit` in absolute value: a state
// or derivative guard of a step.  Every comparison is made, so the guard is
// one branch.
template <class... D>
[[gnu::always_inline]] inline bool beyond(double limit, D... v) noexcept {
  return (... | (std::fabs(v) > limit));
}

// What a step that met a guard leaves: the states (or derivatives) pointed
// to are missing, and the result is the overflow code.
template <class... D>
[[gnu::always_inline]] inline int overflowed(D*... p) noexcept {
  ((*p = kMissing), ...);
  return kOverflow;
}

// How a step meets its guards.  Checked: a guard that trips stops the step
// at once, with its code.  Deferred: the step goes on as though no guard had
// tripped and only remembers that one did, so that a loop over the series
// carries no branch on them; a pass that tripped is run again checked (its
// results are then those of the checked pass), and one that did not has
// the bits of the checked pass, which no guard would have stopped.
struct CheckedGuards {
  static bool trips(bool over) noexcept { return over; }
};
struct DeferredGuards {
  bool tripped = false;
  bool trips(bool over) noexcept {
    tripped |= over;
    return false;
  }
};

// The host's positive and negative overflow values, held in its global
// control block.  Without a host (a kernel called before the image is
// loaded) the largest finite doubles stand in.
inline double overflow_positive() noexcept {
  const GCB* gcb = host_gcb();
  return gcb ? gcb->posovfl : DBL_MAX;
}
inline double overflow_negative() noexcept {
  const GCB* gcb = host_gcb();
  return gcb ? gcb->negovfl : -DBL_MAX;
}

// Guarded division of the kernels and of the one- and two-weight frames.
// Plain division when it cannot overflow: |den| >= 1, or |num| < |den| * kBig;
// result 0.  Otherwise the result is -92 and `*quo` holds
//   den == 0:  the host's positive overflow value for num > 0, its negative
//              overflow value for num < 0, the missing value for num == 0;
//   den != 0:  0 for num == 0, else the host's overflow value of the sign of
//              num * den.
inline int guarded_divide(double num, double den, double* quo) noexcept {
  if (std::fabs(den) >= 1.0 || std::fabs(num) < std::fabs(den) * kBig) {
    *quo = num / den;
    return kOk;
  }
  if (den == 0.0) {
    if (num > 0.0) {
      *quo = overflow_positive();
    } else if (num < 0.0) {
      *quo = overflow_negative();
    } else {
      *quo = kMissing;
    }
  } else if (num == 0.0) {
    *quo = 0.0;
  } else {
    *quo = num * den > 0.0 ? overflow_positive() : overflow_negative();
  }
  return kGuardedDivision;
}

}  // namespace smoothing
