#include "runner/model_checks.h"

#include <cmath>

#include <fmt/format.h>

#include "host/host.h"
#include "module/method_args.h"

namespace esf::runner {

namespace {

std::string place(const SeriesForChecks& s, std::size_t i) {
  const long line = i < s.lines.size() ? s.lines[i] : 0;
  if (line > 0) return fmt::format("{}, line {}, field {}", s.path, line, host::quote_input(s.column));
  return fmt::format("{}, observation {}", s.path, i + 1);
}

}  // namespace

std::optional<std::string> refusal(const SeriesForChecks& s) {
  const long n = static_cast<long>(s.values.size());
  // The module sets aside an extreme value as missing; a series holding one
  // would be fitted without it, or not at all, without a word, so it is
  // refused here by its row.
  const double extreme = esf::extreme_limit(static_cast<double>(n));
  for (std::size_t i = 0; i < s.values.size(); ++i) {
    if (std::fabs(s.values[i]) > extreme) {
      return fmt::format("{} holds {}, too large to smooth (beyond {:.6g} in absolute value)", place(s, i), s.values[i],
                         extreme);
    }
  }
  if (s.nseasons_given && s.nseasons > n / 2) {
    return fmt::format("a cycle of {} seasons is more than half of the {} observations (--nseasons)", s.nseasons, n);
  }
  if (s.seasonal) {
    if (s.nseasons <= 1) {
      return fmt::format(
          "a seasonal model needs a cycle of at least 2 seasons, and the {} interval gives {} "
          "(set one with --nseasons, or choose a model without seasons)",
          s.interval, s.nseasons);
    }
    if (n < 2L * s.nseasons) {
      return fmt::format(
          "a seasonal model needs at least two full cycles of data: {} observations for a cycle of {} "
          "(at least {} wanted)",
          n, s.nseasons, 2 * s.nseasons);
    }
  }
  if (s.multiplicative) {
    for (std::size_t i = 0; i < s.values.size(); ++i) {
      const double v = s.values[i];
      if (std::isnan(v) || v > 0.0) continue;
      return fmt::format(
          "the multiplicative Winters model needs values above 0, and {} holds {} "
          "(choose winters-additive)",
          place(s, i), v);
    }
  }
  return std::nullopt;
}

std::optional<std::string> unusable_result(const std::vector<std::pair<std::string, double>>& numbers) {
  for (const auto& [what, value] : numbers) {
    if (!std::isfinite(value)) {
      return fmt::format("the fit gave no usable value for {}: the model cannot describe this series", what);
    }
  }
  return std::nullopt;
}

}  // namespace esf::runner
