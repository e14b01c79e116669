// The host's sweep operator on packed symmetric matrices, checked against an
// inverse computed directly by Gauss-Jordan elimination.
#include <cmath>
#include <vector>

#include <gtest/gtest.h>

#include "module/host_api.h"

namespace {

std::size_t place(int i, int j) {
  const int hi = i > j ? i : j, lo = i > j ? j : i;
  return static_cast<std::size_t>(lo + hi * (hi + 1) / 2);
}

std::vector<double> pack(const std::vector<std::vector<double>>& m) {
  const int n = static_cast<int>(m.size());
  std::vector<double> a(static_cast<std::size_t>(n * (n + 1) / 2));
  for (int i = 0; i < n; ++i)
    for (int j = 0; j <= i; ++j) a[place(i, j)] = m[i][j];
  return a;
}

// The inverse by Gauss-Jordan elimination with partial pivoting.
std::vector<std::vector<double>> inverse(std::vector<std::vector<double>> m) {
  const int n = static_cast<int>(m.size());
  std::vector<std::vector<double>> inv(n, std::vector<double>(n, 0.0));
  for (int i = 0; i < n; ++i) inv[i][i] = 1.0;
  for (int c = 0; c < n; ++c) {
    int p = c;
    for (int r = c + 1; r < n; ++r)
      if (std::fabs(m[r][c]) > std::fabs(m[p][c])) p = r;
    std::swap(m[c], m[p]);
    std::swap(inv[c], inv[p]);
    const double d = m[c][c];
    for (int j = 0; j < n; ++j) {
      m[c][j] /= d;
      inv[c][j] /= d;
    }
    for (int r = 0; r < n; ++r) {
      if (r == c) continue;
      const double f = m[r][c];
      for (int j = 0; j < n; ++j) {
        m[r][j] -= f * m[c][j];
        inv[r][j] -= f * inv[c][j];
      }
    }
  }
  return inv;
}

// Cross products X'X of a few columns, so the matrices are positive definite.
std::vector<std::vector<double>> cross_products(const std::vector<std::vector<double>>& cols) {
  const std::size_t n = cols.size();
  std::vector<std::vector<double>> m(n, std::vector<double>(n, 0.0));
  for (std::size_t i = 0; i < n; ++i)
    for (std::size_t j = 0; j < n; ++j)
      for (std::size_t t = 0; t < cols[i].size(); ++t) m[i][j] += cols[i][t] * cols[j][t];
  return m;
}

TEST(HostSweep, SweepingEveryPivotGivesMinusTheInverse) {
  const std::vector<std::vector<std::vector<double>>> data = {
      {{1, 1, 1, 1}, {1, 2, 3, 4}},
      {{1, 1, 1, 1, 1}, {1, 2, 3, 4, 5}, {1, 4, 9, 16, 25}},
      {{2, -1, 0.5, 3, 1, 0}, {0.1, 0.2, -0.3, 0.4, 0.5, 0.6}, {5, 3, 1, -1, 2, 8}, {1, 0, 0, 1, 1, 0}},
  };
  for (const auto& cols : data) {
    SCOPED_TRACE(cols.size());
    const auto m = cross_products(cols);
    const int n = static_cast<int>(m.size());
    std::vector<double> a = pack(m);
    std::vector<char> cc(static_cast<std::size_t>(n), '0');
    std::vector<double> work(static_cast<std::size_t>(n));
    for (int k = 0; k < n; ++k) zsweep(a.data(), k, n, cc.data(), work.data(), 1e-12);
    const auto inv = inverse(m);
    for (int i = 0; i < n; ++i) {
      EXPECT_EQ(cc[i], '1');
      for (int j = 0; j <= i; ++j) EXPECT_NEAR(a[place(i, j)], -inv[i][j], 1e-9 * (1 + std::fabs(inv[i][j])));
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

TEST(HostSweep, SweepingTwiceRestoresTheMatrix) {
  const auto m = cross_products({{1, 2, 0, 1}, {3, 1, 1, 2}, {0, 1, 4, 1}});
  std::vector<double> a = pack(m);
  const std::vector<double> original = a;
  std::vector<char> cc(3, '0');
  std::vector<double> work(3);
  zsweep(a.data(), 1, 3, cc.data(), work.data(), 1e-12);
  ASSERT_EQ(cc[1], '1');
  zsweep(a.data(), 1, 3, cc.data(), work.data(), 1e-12);
  EXPECT_EQ(cc[1], '0');
  for (std::size_t i = 0; i < a.size(); ++i) EXPECT_NEAR(a[i], original[i], 1e-12 * (1 + std::fabs(original[i])));
}

}  // namespace
