// z = x + alpha y over n doubles.
#include <cstring>

#include "numeric/numeric.h"

extern "C" {

void zvaxpy(double* z, const double* x, const double* y, int n, double alpha) {
  if (n <= 0) return;
  if (alpha == 0.0) {
    // y is not read, so a missing value or a NaN in it stays out.
    if (z != x) std::memmove(z, x, static_cast<std::size_t>(n) * sizeof(double));
    return;
  }
  int i = 0;
  for (; i + 1 < n; i += 2) {
    z[i] = x[i] + alpha * y[i];
    z[i + 1] = x[i + 1] + alpha * y[i + 1];
  }
  if (i < n) z[i] = x[i] + alpha * y[i];
}

}  // extern "C"
