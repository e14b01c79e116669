// Checks of a run's options against what each one means, made before
// anything runs so that every front end (the command line, the Python
// binding) refuses the same options with the same words. Data-dependent
// refusals (a model the series cannot carry) are model_checks.h's.
#pragma once

#include "runner/families.h"
#include "runner/series_csv.h"

namespace esf::runner {

struct ModelOptions;

// Longest cycle --nseasons may set (the fit keeps several numbers for each
// season).
inline constexpr int kMaxSeasons = 1'000'000;

// Throws RunError naming the option and what it may hold: weights and their
// bounds finite and within [0, 1], lower bound at most the upper; start and
// backcast states finite, factors of a multiplicative model above 0;
// --nseasons from 2 to kMaxSeasons; --lead from 0 to kMaxSeriesPeriods;
// --cl within (0, 1), --level within (0, 100); --holdout not negative.
// `family` is null when the family is chosen automatically.
void validate_options(const ModelOptions& o, const Family* family, bool forecast);

// Once the length of the cycle is known: as many start and backcast factors
// as seasons. Throws RunError.
void validate_cycle(const ModelOptions& o, int nseasons);

}  // namespace esf::runner
