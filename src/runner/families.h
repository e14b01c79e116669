// The models the runner offers, one for each form of each row of the module's
// family table (module/families.h): their names, the module's method slots
// that fit and forecast them, and what their lists carry.
#pragma once

#include <array>
#include <span>
#include <string>
#include <string_view>

#include "module/families.h"

namespace esf::runner {

// The weights a family can have, in the order the lists and options name them.
enum WeightKind { kLevel = 0, kTrend = 1, kDamping = 2, kSeasonal = 3, kNumWeightKinds = 4 };
static_assert(kNumWeightKinds == esf::kNumWeightKinds);
inline constexpr const auto& kWeightItem = esf::kWeightKindItem;
inline constexpr std::array<const char*, kNumWeightKinds> kLowerBoundItem = {"WLEVLBND", "WTRELBND", "WDAMLBND",
                                                                             "WSEALBND"};
inline constexpr std::array<const char*, kNumWeightKinds> kUpperBoundItem = {"WLEVUBND", "WTREUBND", "WDAMUBND",
                                                                             "WSEAUBND"};
// The word of each weight in option names: --level-weight, --trend-bounds, ...
inline constexpr std::array<const char*, kNumWeightKinds> kWeightWord = {"level", "trend", "damping", "seasonal"};

struct Family {
  const char* name;   // as the user names it: "simple", "winters-additive"
  const char* title;  // as a report heads it
  int fit_slot;       // slots in the module's method table
  int forecast_slot;
  std::array<bool, kNumWeightKinds> weights;  // which weights it has
  bool trended;
  bool seasonal;
  const char* type;  // TYPE of the model description, or null
  const char* code;  // CODE of the model description, or null
};

// Every model, in the order of the family table.
std::span<const Family> families();
// The family of a name, or null.
const Family* find_family(std::string_view name);
// "simple, double, ..." for messages.
std::string family_names();
// What a method's return code means, in words.
std::string meaning_of_return_code(int code);

}  // namespace esf::runner
