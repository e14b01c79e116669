#include "runner/validate.h"

#include <cmath>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "runner/runner.h"

namespace esf::runner {
namespace {

bool is_multiplicative(const Family* family) {
  return family != nullptr && family->code != nullptr && std::string_view(family->code) == "WINTM";
}

void check_weight(const std::string& option, double w) {
  if (!std::isfinite(w) || w < 0.0 || w > 1.0) {
    throw RunError(fmt::format("{}: {} is not a smoothing weight: a weight lies from 0 to 1", option, w));
  }
}

void check_state(const char* option, const std::optional<double>& v) {
  if (v && !std::isfinite(*v)) throw RunError(fmt::format("{}: {} is not a finite number", option, *v));
}

void check_factors(const char* option, const std::vector<double>& factors, bool multiplicative) {
  for (std::size_t i = 0; i < factors.size(); ++i) {
    const double f = factors[i];
    if (!std::isfinite(f)) throw RunError(fmt::format("{}: factor {} is {}, not a finite number", option, i + 1, f));
    if (multiplicative && f <= 0.0) {
      throw RunError(
          fmt::format("{}: factor {} is {}: the factors of a multiplicative model are above 0", option, i + 1, f));
    }
  }
}

}  // namespace

void validate_options(const ModelOptions& o, const Family* family, bool forecast) {
  for (int k = 0; k < kNumWeightKinds; ++k) {
    if (o.fixed[k]) check_weight(fmt::format("--{}-weight", kWeightWord[k]), *o.fixed[k]);
    if (o.bounds[k].empty()) continue;
    const std::string option = fmt::format("--{}-bounds", kWeightWord[k]);
    if (o.bounds[k].size() != 2) {
      throw RunError(fmt::format("{}: give two bounds, lower and upper (got {})", option, o.bounds[k].size()));
    }
    for (double b : o.bounds[k]) check_weight(option, b);
    if (o.bounds[k][0] > o.bounds[k][1]) {
      throw RunError(
          fmt::format("{}: the lower bound {} is above the upper bound {}", option, o.bounds[k][0], o.bounds[k][1]));
    }
  }
  check_state("--start-level", o.start_level);
  check_state("--start-trend", o.start_trend);
  check_state("--backcast-level", o.backcast_level);
  check_state("--backcast-trend", o.backcast_trend);
  check_factors("--start-factors", o.start_factors, is_multiplicative(family));
  check_factors("--backcast-factors", o.backcast_factors, is_multiplicative(family));
  if (o.nseasons && (*o.nseasons < 2 || *o.nseasons > kMaxSeasons)) {
    throw RunError(fmt::format("--nseasons: {} is not a seasonal cycle: a cycle has from 2 to {} seasons", *o.nseasons,
                               kMaxSeasons));
  }
  if (o.holdout < 0) throw RunError(fmt::format("--holdout: {} is below 0", o.holdout));
  if (!forecast) return;
  if (o.lead < 0 || o.lead > kMaxSeriesPeriods) {
    throw RunError(fmt::format("--lead: {} is not a number of periods to forecast: from 0 to {}, as memory allows",
                               o.lead, kMaxSeriesPeriods));
  }
  if (!(o.cl > 0.0 && o.cl < 1.0)) {
    throw RunError(fmt::format("--cl: {} is not a significance level between 0 and 1", o.cl));
  }
  for (double level : o.levels) {
    if (!(level > 0.0 && level < 100.0)) {
      throw RunError(fmt::format("--level: {} is not a confidence level in percent between 0 and 100", level));
    }
  }
}

void validate_cycle(const ModelOptions& o, int nseasons) {
  if (nseasons <= 0) return;
  for (const auto& [option, factors] :
       {std::pair{"--start-factors", &o.start_factors}, std::pair{"--backcast-factors", &o.backcast_factors}}) {
    if (!factors->empty() && factors->size() != static_cast<std::size_t>(nseasons)) {
      throw RunError(fmt::format("{}: {} factors given for a cycle of {} seasons; give one for each season", option,
                                 factors->size(), nseasons));
    }
  }
}

}  // namespace esf::runner
