// The dates of many consecutive advances at once, as a forecast table dates
// its rows: row t takes zintnx3(iv, x, t, align, 0).
//
//   double dates[156];
//   calendar::aligned_run(&iv, stdate, 0, 156, align, dates);
//
// For a built-in date interval on date values, what does not depend on the
// count (the index of x and its period) is worked out once and each date is
// the first day of an index, with exactly the arithmetic of zintnx2; the end
// of interval t is the begin of interval t + 1 less a day, its middle the
// floored mean of the two. Every other case, and the "S" alignment, takes
// the routine itself for each date.
#pragma once

#include "intervals/interval.h"

namespace calendar __attribute__((visibility("hidden"))) {

  // out[k] = zintnx2(&iv, x, first + k) for k in [0, count), when the interval
  // and the counts are of the kinds computed together; false otherwise, with
  // `out` unspecified.
  bool advance_run(const INTERVAL& iv, double x, long first, long count, double* out) noexcept;

  // out[k] = zintnx3(iv, x, first + k, align, 0) for k in [0, count).
  void aligned_run(INTERVAL * iv, double x, long first, long count, tchar* align, double* out) noexcept;

}  // namespace calendar
