// Adds one weighted observation to a packed matrix of cross-products.
#include "numeric/numeric.h"
#include "primitives/primitives.h"

extern "C" {

int zscp(const double* data, int nv, double weight, double* sscp) {
  if (skMissArray(data, nv > 0 ? static_cast<QKMemSize>(nv) : 0) != 0) return 0;
  if (wzmis(weight) != 0 || weight == 0.0) return 0;
  for (int i = 0; i < nv; ++i) {
    if (data[i] == 0.0) continue;
    // Row i holds elements (i, 0) .. (i, i) from place i*(i+1)/2.
    double* row = sscp + static_cast<long>(i) * (i + 1) / 2;
    zvaxpy(row, row, data, i + 1, data[i] * weight);
  }
  return 1;
}

}  // extern "C"
