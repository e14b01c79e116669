// Check of values against the range that the module computes with.
#include <cmath>

#include "numeric/numeric.h"
#include "primitives/primitives.h"

extern "C" {

int zmissr(double x, double maxval, long* count) {
  if (esf::is_missing(x)) return 1;
  if (std::fabs(x) <= maxval) return 0;
  if (count != nullptr) ++*count;
  return -1;
}

int zmissrn(const double* x, int n, double maxval, long* count) {
  // The earlier of a missing and a too large value decides.
  for (int i = 0; i < n; ++i) {
    const int status = zmissr(x[i], maxval, count);
    if (status != 0) return status;
  }
  return 0;
}

}  // extern "C"
