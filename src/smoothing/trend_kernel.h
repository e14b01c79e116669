// Helpers shared by the kernels of the trended families (linear, double and
// damped trend): the guards of every smoothing kernel, the start values of
// the backward pass (whose walk to the last usable observation the simple
// family shares), the state pair of the whole-series passes and the
// side-by-side grid evaluation.
#pragma once

#include <algorithm>
#include <cmath>

#include "primitives/primitives.h"
#include "regression/regression.h"
#include "smoothing/frame_limits.h"
#include "smoothing/pass_kernel.h"

namespace trend {

using smoothing::kBig;
using smoothing::kErrorLimit;
using smoothing::kMissing;
using smoothing::kOk;
using smoothing::kOverflow;
using smoothing::kRelativeLimit;
using smoothing::kSseLimit;
using smoothing::kStateLimit;
using smoothing::kTiny;
using smoothing::kTooFew;

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

}  // namespace trend
