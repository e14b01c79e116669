// The sweep operator on a packed symmetric matrix.
//
// Storage: the lower triangle by rows, element (i, j) with i >= j at place
// j + i(i+1)/2.  Sweeping pivot k with d = a(k,k):
//
//   a(k,k) <- -1/d
//   a(k,j) <- a(k,j) / d                      j != k
//   a(i,j) <- a(i,j) - a(i,k) a(k,j) / d      i, j != k
//
// so that row k then holds the coefficients of regressing each column on
// column k, and (j,j) the residual sum of squares of column j.  Sweeping every
// pivot of a positive definite matrix leaves minus its inverse.  Sweeping a
// pivot a second time undoes the first: the same update with d = a(k,k) and
// row k taken with the opposite sign.
#include <cstddef>

#include "module/host_api.h"

namespace {

// Place of element (i, j) in the packed lower triangle.
inline std::size_t place(int i, int j) {
  const auto hi = static_cast<std::size_t>(i > j ? i : j);
  const auto lo = static_cast<std::size_t>(i > j ? j : i);
  return lo + hi * (hi + 1) / 2;
}

}  // namespace

extern "C" void zsweep(double* a, int k, int n, char* cc, double* work, double tol) {
  if (a == nullptr || cc == nullptr || work == nullptr || k < 0 || k >= n) return;
  const double d = a[place(k, k)];
  const bool undo = cc[k] == '1';
  if (!undo && !(d > tol)) return;  // a pivot at or below the tolerance stays unswept
  if (undo && d == 0.0) return;

  // Row k, scaled: work[j] = a(k,j) / d.  For an undo the stored row carries
  // the opposite sign of the forward sweep.
  const double sign = undo ? -1.0 : 1.0;
  for (int j = 0; j < n; ++j) work[j] = j == k ? 0.0 : sign * a[place(k, j)] / d;

  for (int i = 0; i < n; ++i) {
    if (i == k) continue;
    const double aik = a[place(i, k)];
    for (int j = 0; j <= i; ++j) {
      if (j == k) continue;
      a[place(i, j)] -= aik * work[j] * sign;
    }
  }
  for (int j = 0; j < n; ++j) {
    if (j != k) a[place(k, j)] = work[j];
  }
  a[place(k, k)] = -1.0 / d;
  cc[k] = undo ? '0' : '1';
}
