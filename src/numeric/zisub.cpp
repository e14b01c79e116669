// Place of an element of a packed symmetric matrix, and the two minima.
#include "numeric/numeric.h"

namespace {

// Up to this row hi*(hi + 1)/2 is formed in 32 bits.
constexpr int kShortFormMaxRow = 180;

}  // namespace

extern "C" {

long zisub(int i, int j) {
  const int hi = i > j ? i : j;
  const int lo = i > j ? j : i;
  if (hi > kShortFormMaxRow) {
    const long h = hi;
    return lo + h * (h + 1) / 2;
  }
  return lo + hi * (hi + 1) / 2;  // hi*(hi+1) <= 32580
}

int min(int a, int b) { return a < b ? a : b; }

long lmin(long a, long b) { return a < b ? a : b; }

}  // extern "C"
