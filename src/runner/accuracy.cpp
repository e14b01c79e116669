#include "runner/accuracy.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

namespace esf::runner {

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

bool present(double v) { return std::isfinite(v); }

}  // namespace

Criteria information_criteria(std::span<const double> errors, int k) {
  Criteria c;
  c.k = k;
  c.loglik = c.aic = c.aicc = c.bic = kNaN;
  double sse = 0.0;
  for (double e : errors) {
    if (!present(e)) continue;
    sse += e * e;
    ++c.n;
  }
  if (c.n == 0 || !(sse > 0.0)) return c;
  const double n = static_cast<double>(c.n);
  c.loglik = -0.5 * n * (std::log(2.0 * std::numbers::pi * sse / n) + 1.0);
  c.aic = -2.0 * c.loglik + 2.0 * k;
  if (n - k - 1.0 > 0.0) c.aicc = c.aic + 2.0 * k * (k + 1.0) / (n - k - 1.0);
  c.bic = -2.0 * c.loglik + k * std::log(n);
  return c;
}

int parameter_count(int estimated_weights, bool trended, int nseasons) {
  return estimated_weights + 1 + (trended ? 1 : 0) + (nseasons > 1 ? nseasons - 1 : 0) + 1;
}

Accuracy accuracy(std::span<const double> actual, std::span<const double> forecast, double scale) {
  Accuracy a;
  a.me = a.rmse = a.mae = a.mape = a.smape = a.mase = kNaN;
  double sum = 0.0, sum2 = 0.0, sum_abs = 0.0, sum_pct = 0.0, sum_spct = 0.0;
  long n_pct = 0, n_spct = 0;
  const std::size_t rows = std::min(actual.size(), forecast.size());
  for (std::size_t t = 0; t < rows; ++t) {
    const double x = actual[t], f = forecast[t];
    if (!present(x) || !present(f)) continue;
    const double e = f - x;
    ++a.n;
    sum += e;
    sum2 += e * e;
    sum_abs += std::fabs(e);
    if (x != 0.0) {
      sum_pct += std::fabs(e / x);
      ++n_pct;
    }
    const double denominator = std::fabs(x) + std::fabs(f);
    if (denominator != 0.0) {
      sum_spct += std::fabs(e) / denominator;
      ++n_spct;
    }
  }
  if (a.n == 0) return a;
  const double n = static_cast<double>(a.n);
  a.me = sum / n;
  a.rmse = std::sqrt(sum2 / n);
  a.mae = sum_abs / n;
  if (n_pct > 0) a.mape = 100.0 * sum_pct / static_cast<double>(n_pct);
  if (n_spct > 0) a.smape = 200.0 * sum_spct / static_cast<double>(n_spct);
  if (scale > 0.0 && std::isfinite(scale)) a.mase = a.mae / scale;
  return a;
}

double seasonal_naive_mae(std::span<const double> x, int period) {
  if (period < 1) period = 1;
  double sum = 0.0;
  long n = 0;
  for (std::size_t t = static_cast<std::size_t>(period); t < x.size(); ++t) {
    const double now = x[t], before = x[t - static_cast<std::size_t>(period)];
    if (!present(now) || !present(before)) continue;
    sum += std::fabs(now - before);
    ++n;
  }
  return n == 0 ? kNaN : sum / static_cast<double>(n);
}

double coverage(const std::vector<double>& actual, const std::vector<double>& lower, const std::vector<double>& upper) {
  long inside = 0, n = 0;
  const std::size_t rows = std::min({actual.size(), lower.size(), upper.size()});
  for (std::size_t t = 0; t < rows; ++t) {
    if (!present(actual[t]) || !present(lower[t]) || !present(upper[t])) continue;
    ++n;
    if (actual[t] >= lower[t] && actual[t] <= upper[t]) ++inside;
  }
  return n == 0 ? kNaN : static_cast<double>(inside) / static_cast<double>(n);
}

std::vector<double> conformal_half_widths(const std::vector<std::vector<double>>& errors_by_lead, double level) {
  std::vector<double> out;
  double floor = 0.0;
  for (const std::vector<double>& errors : errors_by_lead) {
    std::vector<double> a;
    for (double e : errors) {
      if (present(e)) a.push_back(std::fabs(e));
    }
    const double m = static_cast<double>(a.size());
    const double rank = std::ceil((m + 1.0) * level);  // 1-based
    if (a.empty() || rank > m) {
      out.push_back(kNaN);
      continue;
    }
    const auto at = a.begin() + static_cast<std::ptrdiff_t>(rank) - 1;
    std::nth_element(a.begin(), at, a.end());
    floor = std::max(floor, *at);
    out.push_back(floor);
  }
  return out;
}

}  // namespace esf::runner
