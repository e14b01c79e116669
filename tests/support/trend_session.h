// Test support for the trended families and the regressions: an independent
// least-squares solve, the comparison of side-by-side passes with single
// ones, and a fit followed by a forecast through the methods.
#pragma once

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <optional>
#include <utility>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <unistd.h>

#include "host/host.h"
#include "module/host_api.h"
#include "support/method_session.h"
#include "support/smooth_model.h"

namespace trend_test {

// The module image connected to the host stand-in, and deterministic noise.
using smooth_test::connect_module;
using smooth_test::Noise;

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

// Relative closeness, with the tolerance scaled by the expected value.
#define TREND_EXPECT_REL(got, want, rel) \
  EXPECT_NEAR((got), (want), (rel) * std::fabs(want) + 1e-300)

// A whole-series pass for one weight set (rc, mse) and the side-by-side pass
// for many, compared set by set: the same return code, and the same bits of
// the mean squared error where it succeeds. Returns how many sets succeeded
// and how many failed a guard, so that a caller can check that both paths
// were taken.
template <class One, class Many>
std::pair<int, int> compare_side_by_side(const std::vector<double>& weights, int p, One one,
                                         Many many) {
  const int sets = static_cast<int>(weights.size()) / p;
  std::vector<int> rc(sets);
  std::vector<double> mse(sets);
  int ok = 0, failed = 0;
  for (int from = 0; from < sets; from += 32) {
    const int count = std::min(32, sets - from);
    many(&weights[from * p], count, &rc[from], &mse[from]);
  }
  for (int j = 0; j < sets; ++j) {
    double want = 0;
    const int want_rc = one(&weights[j * p], &want);
    EXPECT_EQ(rc[j], want_rc) << "set " << j;
    if (want_rc == 0) {
      EXPECT_EQ(std::bit_cast<std::uint64_t>(mse[j]), std::bit_cast<std::uint64_t>(want)) << j;
      ++ok;
    } else {
      ++failed;
    }
  }
  return {ok, failed};
}

using MethodFn = int (*)(PSCPLIST*, List, unsigned char*, int);

// What a fit method followed by a forecast method left behind.
struct MethodRun {
  std::optional<double> fit_rc, forecast_rc;
  std::vector<std::string> weight_names;  // items of SMOOTHING_WEIGHTS
  std::vector<double> weights;
  std::vector<std::string> labels;        // ESTIMATES.LABELS
  std::optional<double> nparms;
  bool trend_in_state = false;            // SMOOTHED_STATE and STARTVALS hold TREND
  bool eval_variance = false;             // the forecast set EVAL_VARIANCE
  bool pool_balanced = false;             // every pool block went back
  smooth_test::Table table;               // the forecast table
};

// Runs `fit` on a series and `forecast` on the model list it left, writing
// the table to a scratch directory, as the object language would.
inline MethodRun run_methods(MethodFn fit, MethodFn forecast, const std::vector<double>& values,
                             const char* interval, double stdate, double cl, double lead) {
  using namespace esf::host;
  method_test::connect_module();
  const std::filesystem::path dir = std::filesystem::temp_directory_path() /
                                    ("trend_methods_" + std::to_string(::getpid()));
  std::filesystem::create_directories(dir);
  assign_libref("TRENDM", dir);
  MethodRun run;
  {
    method_test::CallLists l(values, interval, stdate);
    const std::size_t outstanding = pool_outstanding();
    MethodCall fit_call;
    fit_call.list(l.series).list(l.spec).list(l.fit_range).list(l.eval_range).list(l.model).number(0);
    EXPECT_EQ(fit(fit_call.plist(), nullptr, nullptr, 0), 0);
    run.fit_rc = fit_call.written(7);
    List weights = find_list(find_list(l.model, "PARMVALS"), "SMOOTHING_WEIGHTS");
    for (const SLIST_ITEM* it : items(weights)) {
      run.weight_names.push_back(item_name(it));
      run.weights.push_back(slgetnv(it, 0));
    }
    List estimates = find_list(l.model, "ESTIMATES");
    for (const SLIST_ITEM* it : items(find_list(estimates, "LABELS"))) {
      run.labels.emplace_back(it->data.c.p, it->data.c.len);
    }
    run.nparms = find_number(estimates, "NPARMS");
    run.trend_in_state = find_number(find_list(estimates, "SMOOTHED_STATE"), "TREND").has_value() &&
                         find_number(find_list(l.spec, "STARTVALS"), "TREND").has_value();
    MethodCall for_call;
    for_call.list(l.series).list(l.model).list(l.eval_range).text("TRENDM.FC").number(cl).number(lead).number(0);
    EXPECT_EQ(forecast(for_call.plist(), nullptr, nullptr, 0), 0);
    run.forecast_rc = for_call.written(8);
    run.eval_variance = find_number(estimates, "EVAL_VARIANCE").has_value();
    run.pool_balanced = pool_outstanding() == outstanding;
  }
  run.table = smooth_test::read_table(dir / "fc.csv");
  std::filesystem::remove_all(dir);
  return run;
}

}  // namespace trend_test
