// Diagnostics of the estimation frame: the iteration trace and the check of
// the analytic gradient against the kernel's numeric derivative.
//
// Both print through the host's print service. The trace runs when
// WINMODEL.opt.trace is set: a host program that wants to watch the search
// (the command line's --trace) sets the host option FITTRACE to 1, which
// each fit method reads once as it starts, so the image itself keeps no
// switch. The derivative check stays off (WINMODEL.opt.numeric is 0 in
// every method); it exists for whoever debugs a family's derivative
// recursions. Included by frame.h.
#pragma once

#include <cmath>

#include "module/export.h"
#include "module/host_api.h"

namespace smoothing::frame {

inline constexpr const char* kCheckRule = "----------------------------------------------------";

// The texts of a family's iteration trace and derivative check.
struct Diagnostics {
  const char* weight_heading = nullptr;  // heading of the weight columns, e.g. "   Level  "
  const char* weight_format = nullptr;   // one format for the p weights
  const char* extra_heading = nullptr;   // null, or the heading of dder0, dder1 and phi
  const char* extra_format = nullptr;
  const char* check_title = nullptr;
  const char* check_heading = nullptr;  // null for one weight
};

// The header of the iteration trace.
template <class F>
void trace_head() {
  xps("%n Iter Subit  Criterion  NMiss       MSE  ");
  xps(F::kDiagnostics.weight_heading);
  if (F::kDiagnostics.extra_heading) xps(F::kDiagnostics.extra_heading);
  xps("  Change  Rank  Lambda  StepSize  ");
  xps("%n");
}

// One row of the trace: a grid point (iteration 0) or a trial.  A new page and
// header start a row when fewer than 6 lines are left; the first row of the
// search starts with the header, on a new page when fewer than 12 are left;
// the first trial of a later iteration flushes the output.
template <class F>
void trace_row(WINMODEL* /*model*/, FITCON* fitcon, POINT* point, double stepsize) {
  const XPPRNL* page = xpprnl(0);
  const int left = page ? page->left : 0;
  if (fitcon->iter == 0 && fitcon->subiter == 0) {
    if (left < 12) xppage(0);
    trace_head<F>();
  } else {
    if (left < 6) {
      xppage(0);
      trace_head<F>();
    }
    if (fitcon->subiter == 0) xpoflsh(0);
  }
  xps(" %4i  %4i   %8.98f  %5li  %8.98f  ", fitcon->iter, fitcon->subiter, point->r, point->nmiss, point->mse);
  double w[F::kNumWeights];
  weights_of<F>(*point, w);
  if constexpr (F::kNumWeights == 1) {
    xps(F::kDiagnostics.weight_format, w[0]);
  } else if constexpr (F::kNumWeights == 2) {
    xps(F::kDiagnostics.weight_format, w[0], w[1]);
  } else {
    xps(F::kDiagnostics.weight_format, w[0], w[1], w[2]);
  }
  if (F::kDiagnostics.extra_format) {
    xps(F::kDiagnostics.extra_format, point->dder0, point->dder1, point->phi);
  }
  xpsout("%8.98f  %4i  %6.98f  %8.98f  ", point->change, point->rankxpx, fitcon->lambda, stepsize);
}

// One labelled row of the derivative check.  With one weight the row is the
// exact line "     <LABEL>:  <value>" padded to the block's width; with more
// weights the values follow each other.  `shown[i]` false leaves a blank.
template <int P>
void check_row(const char* single_format, const char* label, const char* value_format, const double* values,
               const bool* shown) {
  if constexpr (P == 1) {
    if (shown[0]) xpsout(single_format, values[0]);
  } else {
    xps(label);
    for (int i = 0; i < P; ++i) {
      if (shown[i]) {
        xps(value_format, values[i]);
      } else {
        xps("%*s", 13, "             ");
      }
    }
    xpsout("");
  }
}

// Compares the analytic gradient of the point with the kernel's central
// difference of the mean squared error at step kCheckDelta, relative when
// opt.relative is set, and prints the comparison.
template <class F>
void derivative_check(WINMODEL* model, FITCON* fitcon, POINT* point) {
  constexpr int p = F::kNumWeights;
  double w[p];
  double deltas[p];
  double numeric[p];
  double derived[p];
  double der_minus_num[p];
  double per_diff[p];
  bool all[p];
  bool per_shown[p];
  weights_of<F>(*point, w);
  for (int i = 0; i < p; ++i) {
    deltas[i] = kCheckDelta;
    numeric[i] = kMissing;
  }
  F::numeric_gradient(model, fitcon, w, deltas, model->opt.relative, numeric);
  for (int i = 0; i < p; ++i) {
    derived[i] = point->grad[i];
    der_minus_num[i] = derived[i] - numeric[i];
    all[i] = true;
    per_shown[i] = std::fabs(derived[i]) > kTiny;
    per_diff[i] = per_shown[i] ? 1.0 - numeric[i] / derived[i] : 0.0;
  }

  xpsout(kCheckRule);
  xpsout(F::kDiagnostics.check_title);
  // A family with more than one form may name the form under the title.
  if constexpr (requires { F::check_subtitle(model); }) xpsout(F::check_subtitle(model));
  xpsout(model->opt.relative ? "     Relative Partial Derivatives Calculated        "
                             : "     Absolute Partial Derivatives Calculated        ");
  xpsout("     MSE = %12.4f                             ", point->mse);
  if (F::kDiagnostics.check_heading) xpsout(F::kDiagnostics.check_heading);
  // Each row: its one-weight line, the label and value format of the longer
  // rows, the values and which of them are shown.
  const struct {
    const char* single;
    const char* label;
    const char* format;
    const double* values;
    const bool* shown;
  } rows[] = {
      {"     WEIGHTS   :  %8.6f                          ", "     WEIGHTS   :  ", "%8.6f     ", w, all},
      {"     DERIVED   :  %8.6f                          ", "     DERIVED   :  ", "%8.6f     ", derived, all},
      {"     NUMERICAL :  %8.6f                          ", "     NUMERICAL :  ", "%8.6f     ", numeric, all},
      {"     DER - NUM :  %8.6E                          ", "     DER - NUM :  ", "%8.6E ", der_minus_num, all},
      {"     PER DIFF  :  %8.6E                          ", "     PER DIFF  :  ", "%8.6E ", per_diff, per_shown},
      {"     DER DELTAS:  %8.2E                          ", "     DER DELTAS:  ", "%8.2E     ", deltas, all},
  };
  for (const auto& row : rows) {
    check_row<p>(row.single, row.label, row.format, row.values, row.shown);
  }
  xpsout(kCheckRule);
}

}  // namespace smoothing::frame
