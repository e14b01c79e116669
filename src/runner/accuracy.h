// Measures of a fitted model: the information criteria of its one-step
// errors, the accuracy of forecasts against actual values, the share of
// actual values inside prediction limits, and limits built from the errors of
// forecasts made at many origins.  Plain numbers in, plain numbers out; NaN
// marks a value that is missing or a measure that is undefined.
//
//   Criteria c = information_criteria(errors, parameter_count(family, 12));
//   Accuracy a = accuracy(actual, forecast, seasonal_naive_mae(fit_values, 12));
#pragma once

#include <span>
#include <vector>

namespace esf::runner {

// Information criteria of a model whose one-step errors are independent
// normal with a constant variance, estimated by maximum likelihood:
//   loglik = -n/2 (log(2 pi sse / n) + 1)
//   AIC    = -2 loglik + 2k
//   AICc   = AIC + 2k(k + 1) / (n - k - 1)     (NaN when n - k - 1 <= 0)
//   BIC    = -2 loglik + k log n
// n counts the errors that are not missing, k the parameters (with the
// error variance).  With no errors, or a sum of squares of 0, all are NaN.
struct Criteria {
  long n = 0;
  int k = 0;
  double loglik, aic, aicc, bic;
};
Criteria information_criteria(std::span<const double> errors, int k);

// The number of parameters of a model, counted as state-space smoothing
// models are counted: the estimated weights, the start states (the level,
// the trend when there is one, and nseasons - 1 seasonal factors, the last
// being fixed by the others), and the error variance.
int parameter_count(int estimated_weights, bool trended, int nseasons);

// Accuracy of forecasts f against actual values a, over the pairs where
// both are present:
//   ME    mean of f - a          (positive: the forecasts run high)
//   RMSE  sqrt(mean (f - a)^2)
//   MAE   mean |f - a|
//   MAPE  100 mean |f - a| / |a|            over a != 0
//   sMAPE 200 mean |f - a| / (|a| + |f|)    over |a| + |f| != 0
//   MASE  MAE / scale   (the scale is the in-sample seasonal naive MAE)
struct Accuracy {
  long n = 0;
  double me, rmse, mae, mape, smape, mase;
};
Accuracy accuracy(std::span<const double> actual, std::span<const double> forecast, double scale);

// Mean absolute difference x[t] - x[t - period] over the pairs present:
// the error of the naive forecast that repeats the value one season back
// (period 1 for a series without seasons).  NaN when no pair is present.
double seasonal_naive_mae(std::span<const double> x, int period);

// Share of the actual values that lie within [lower, upper], over the rows
// where all three are present; NaN when there is none.
double coverage(const std::vector<double>& actual, const std::vector<double>& lower, const std::vector<double>& upper);

// Half-widths of limits at each lead from the forecast errors made at many
// origins: errors_by_lead[h - 1] holds the errors of the lead-h forecasts.
// The half-width at a lead is the conformal quantile of the absolute errors,
// the ceil((m + 1) level)-th smallest of the m errors, so that a new error
// drawn like them falls inside with probability at least `level`.  When
// there are too few errors for that rank, or none, the half-width is NaN.
// A half-width never falls below the one at the lead before it.
std::vector<double> conformal_half_widths(const std::vector<std::vector<double>>& errors_by_lead, double level);

}  // namespace esf::runner
