// Checks of a series against a model family before a fit, and of a fit's
// results after it: what cannot give a meaningful model is refused with the
// reason in words, naming the file, line and field where the data is at fault.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace esf::runner {

// What the checks need to know of the model and the series.
// It refers to the caller's texts and values, which must outlive it.
struct SeriesForChecks {
  std::string_view path;           // the series file, for messages
  std::string_view column;         // the value column
  std::span<const double> values;  // the fit range; NaN for missing
  std::span<const long> lines;     // source line of each value, 0 if none
  bool seasonal = false;           // the family has seasonal factors
  bool multiplicative = false;     // the factors multiply the trended line
  int nseasons = 0;                // length of the cycle the fit will use
  bool nseasons_given = false;     // the user set the cycle
  std::string_view interval;       // the interval as written, for messages
};

// The reason the family cannot be fitted to the series, or nothing:
//   a value too large for the module to smooth (the first such row is named);
//   a multiplicative model on a value <= 0 (the first such row is named);
//   a seasonal family with a cycle of 1 or less, or fewer than two full
//   cycles of observations in the fit range;
//   a cycle set larger than half the observations.
std::optional<std::string> refusal(const SeriesForChecks& s);

// The reason a fit's results cannot be used, or nothing: a weight estimate,
// the error variance or a state is missing or not finite.  `what` names
// each number checked ("the LEVEL weight", "the end level", ...).
std::optional<std::string> unusable_result(const std::vector<std::pair<std::string, double>>& numbers);

}  // namespace esf::runner
