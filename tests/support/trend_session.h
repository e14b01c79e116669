// Test support for the trended families and the regressions: an independent
// least-squares solve.
#pragma once

#include <cmath>
#include <vector>

#include "support/smooth_model.h"

namespace trend_test {

// The module image connected to the host stand-in, and deterministic noise.
using smooth_test::connect_module;
using smooth_test::Noise;

// Least squares by Householder reflections in long double: the coefficients
// of y on the columns of X (row-major, `rows` by `cols`). Independent of the
// normal equations that the module sweeps.
inline std::vector<double> least_squares(std::vector<long double> x, std::vector<long double> y, int rows, int cols) {
  for (int k = 0; k < cols; ++k) {
    long double norm = 0.0L;
    for (int i = k; i < rows; ++i) norm += x[i * cols + k] * x[i * cols + k];
    norm = std::sqrt(norm);
    const long double alpha = x[k * cols + k] > 0 ? -norm : norm;
    std::vector<long double> v(rows, 0.0L);
    for (int i = k; i < rows; ++i) v[i] = x[i * cols + k];
    v[k] -= alpha;
    long double vnorm = 0.0L;
    for (int i = k; i < rows; ++i) vnorm += v[i] * v[i];
    if (vnorm == 0.0L) continue;
    for (int j = k; j < cols; ++j) {
      long double dot = 0.0L;
      for (int i = k; i < rows; ++i) dot += v[i] * x[i * cols + j];
      for (int i = k; i < rows; ++i) x[i * cols + j] -= 2.0L * dot / vnorm * v[i];
    }
    long double dot = 0.0L;
    for (int i = k; i < rows; ++i) dot += v[i] * y[i];
    for (int i = k; i < rows; ++i) y[i] -= 2.0L * dot / vnorm * v[i];
  }
  std::vector<double> beta(cols);
  std::vector<long double> b(cols);
  for (int k = cols - 1; k >= 0; --k) {
    long double s = y[k];
    for (int j = k + 1; j < cols; ++j) s -= x[k * cols + j] * b[j];
    b[k] = s / x[k * cols + k];
    beta[k] = static_cast<double>(b[k]);
  }
  return beta;
}

}  // namespace trend_test
