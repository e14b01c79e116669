// Test support for the trended families and the regressions: connects the
// module image to the host stand-in as a host does at load time, and gives
// the small series and least-squares helpers the tests compare against.
#pragma once

#include <cmath>
#include <cstdint>
#include <vector>

#include "host/host.h"
#include "module/host_api.h"

namespace trend_test {

// mcn_main stores the anchors through which the module reaches the pool
// and the overflow values; it runs once per test program.
inline void connect_module() {
  static const bool connected = [] {
    mcn_main(reinterpret_cast<ptr*>(esf::host::gcb_anchor()),
             reinterpret_cast<ptr>(esf::host::pidb()));
    return true;
  }();
  (void)connected;
}

// Deterministic noise in [-1, 1): a linear congruential generator, so that
// every run sees the same series.
class Noise {
 public:
  explicit Noise(std::uint64_t seed) : state_(seed) {}
  double next() {
    state_ = state_ * 6364136223846793005ULL + 1442695040888963407ULL;
    return static_cast<double>(state_ >> 11) / 4503599627370496.0 - 1.0;
  }

 private:
  std::uint64_t state_;
};

// Least squares by Householder reflections in long double: the coefficients
// of y on the columns of X (row-major, `rows` by `cols`). Independent of the
// normal equations that the module sweeps.
inline std::vector<double> least_squares(std::vector<long double> x, std::vector<long double> y,
                                         int rows, int cols) {
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
