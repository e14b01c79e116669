// The host's sweep operator on packed symmetric matrices: sweeping every
// pivot gives minus the inverse, checked by multiplying back to the identity,
// and sweeping a pivot twice gives the matrix back.
#include <cmath>
#include <vector>

#include <gtest/gtest.h>

#include "module/host_api.h"
#include "numeric/numeric.h"

namespace {

using Matrix = std::vector<std::vector<double>>;

std::size_t place(int i, int j) { return static_cast<std::size_t>(esf::packed_index(i, j)); }

// Cross products X'X of a few columns, so the matrices are positive
// definite, and their lower triangle packed by rows.
Matrix cross_products(const Matrix& cols) {
  const std::size_t n = cols.size();
  Matrix m(n, std::vector<double>(n, 0.0));
  for (std::size_t i = 0; i < n; ++i)
    for (std::size_t j = 0; j < n; ++j)
      for (std::size_t t = 0; t < cols[i].size(); ++t) m[i][j] += cols[i][t] * cols[j][t];
  return m;
}
std::vector<double> pack(const Matrix& m) {
  const int n = static_cast<int>(m.size());
  std::vector<double> a(static_cast<std::size_t>(n * (n + 1) / 2));
  for (int i = 0; i < n; ++i)
    for (int j = 0; j <= i; ++j) a[place(i, j)] = m[i][j];
  return a;
}

TEST(HostSweep, SweepingAPivotTwiceRestoresAndEveryPivotGivesMinusTheInverse) {
  const std::vector<Matrix> data = {
      {{1, 1, 1, 1}, {1, 2, 3, 4}},
      {{1, 1, 1, 1, 1}, {1, 2, 3, 4, 5}, {1, 4, 9, 16, 25}},
      {{2, -1, 0.5, 3, 1, 0}, {0.1, 0.2, -0.3, 0.4, 0.5, 0.6}, {5, 3, 1, -1, 2, 8}, {1, 0, 0, 1, 1, 0}},
  };
  for (const Matrix& cols : data) {
    SCOPED_TRACE(cols.size());
    const Matrix m = cross_products(cols);
    const int n = static_cast<int>(m.size());
    std::vector<double> a = pack(m);
    std::vector<char> cc(static_cast<std::size_t>(n), '0');
    std::vector<double> work(static_cast<std::size_t>(n));
    // Sweeping a pivot a second time undoes the first.
    const std::vector<double> original = a;
    for (int twice = 0; twice < 2; ++twice) zsweep(a.data(), 1, n, cc.data(), work.data(), 1e-12);
    EXPECT_EQ(cc[1], '0');
    for (std::size_t i = 0; i < a.size(); ++i) EXPECT_NEAR(a[i], original[i], 1e-12 * (1 + std::fabs(original[i])));
    for (int k = 0; k < n; ++k) zsweep(a.data(), k, n, cc.data(), work.data(), 1e-12);
    for (int i = 0; i < n; ++i) {
      EXPECT_EQ(cc[i], '1');
      for (int j = 0; j < n; ++j) {
        double product = 0;
        for (int k = 0; k < n; ++k) product -= m[i][k] * a[place(k, j)];
        EXPECT_NEAR(product, i == j ? 1.0 : 0.0, 1e-9) << i << "," << j;
      }
    }
  }
}

TEST(HostSweep, PivotAtOrBelowToleranceStaysUnswept) {
  std::vector<double> a = {1e-20, 0.5, 2.0};
  const std::vector<double> before = a;
  char cc[2] = {'0', '0'};
  double work[2];
  zsweep(a.data(), 0, 2, cc, work, 1e-18);
  EXPECT_EQ(cc[0], '0');
  EXPECT_EQ(a, before);
  a[0] = 1e-18;  // equal to the tolerance: still not above it
  zsweep(a.data(), 0, 2, cc, work, 1e-18);
  EXPECT_EQ(cc[0], '0');
}

}  // namespace
