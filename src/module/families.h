// The table of smoothing families: every fact about a family that the module's
// methods and the host programs share, in one place.
//
// Row r of kFamilies is the family whose fit and forecast methods fill slots
// 2r and 2r + 1 of the module's method table; the module builds that table
// from these rows, and host programs find a method's slot from its name.
// Each row also says how the fit reads and writes its lists (method_frame.h)
// and under which model names a host program offers it (`forms`: the
// seasonal families carry their CODE there).
//
// The header is plain data with no dependence on the module's code, so that
// host programs include it without linking the module.
#pragma once

#include <string_view>

namespace esf {

// Model families as numbered in the `type` argument of getstartvals.
enum FamilyType {
  kFamilySimple = 1,
  kFamilyDouble = 2,
  kFamilyLinear = 3,
  kFamilyDamped = 4,
  kFamilySeasonal = 5,
  kFamilyWinters = 6,
};

// The kinds of weight a family may have, in the order of `weight_slot`.
enum WeightKind { kLevelWeight = 0, kTrendWeight = 1, kDampingWeight = 2, kSeasonalWeight = 3 };
inline constexpr int kNumWeightKinds = 4;
// The name of each kind of weight in SMOOTHING_WEIGHTS and the bounds list.
inline constexpr const char* kWeightKindItem[kNumWeightKinds] = {"LEVEL", "TREND", "DAMPING", "SEASONAL"};

// One item of the SMOOTHING_WEIGHTS list a fit writes: its name and the
// index of the weight in pest.parms whose value it holds.
struct WeightItem {
  const char* name;
  int parm;
};

// A model as a host program offers it: its name, a title, and the CODE of
// its model description (null for the families without seasons).
struct FamilyForm {
  const char* name;
  const char* title;
  const char* code;
};

struct Family {
  int type;                     // kFamilySimple ... kFamilyWinters
  const char* fit_method;       // exported name of the fit method
  const char* forecast_method;  // exported name of the forecast method
  int nparms;                   // number of weights, [1, 3]

  // Fit results.
  WeightItem weight_items[3];  // SMOOTHING_WEIGHTS, in order
  int n_weight_items;
  const char* names[3];              // ESTIMATES.NAMES, one per weight
  const char* labels[3];             // ESTIMATES.LABELS, one per weight
  bool labels_by_putstvlab = false;  // LABELS come from putstvlab instead
  bool trended = false;              // states carry a TREND

  // Arguments read beyond the common ones.
  bool fit_reads_nseasons = false;       // NSEASONS into ts.nseasons (fit)
  bool forecast_reads_nseasons = false;  // NSEASONS into ts.nseasons (forecast)
  bool seasonal = false;                 // CODE and TYPE; season codes and factors
  const char* type_text = nullptr;       // the TYPE a seasonal family accepts
  const char* code_default = nullptr;    // CODE when the item is absent
  bool winters = false;                  // CODE "WINTA" sets `additive`; the fit
                                         // reports a missing return-code argument;
                                         // the forecast reads start values first
  const char* fit_method_name;           // upper-case name used in that report

  // Forecast: the place in parms.parms of the level, trend, damping and
  // seasonal weight, -1 where the family has no such weight.
  int weight_slot[kNumWeightKinds];

  // The models a host program offers on this family (one or two).
  FamilyForm forms[2];

  constexpr bool has_weight(int kind) const { return weight_slot[kind] >= 0; }
};

inline constexpr Family kFamilies[] = {
    {
        .type = kFamilyWinters,
        .fit_method = "mwinfit",
        .forecast_method = "mwinfor",
        .nparms = 3,
        .weight_items = {{"LEVEL", 0}, {"TREND", 1}, {"SEASONAL", 2}},
        .n_weight_items = 3,
        .names = {"LEVEL", "TREND", "SEASONAL"},
        .labels = {nullptr, nullptr, nullptr},
        .labels_by_putstvlab = true,
        .trended = true,
        .fit_reads_nseasons = true,
        .forecast_reads_nseasons = true,
        .seasonal = true,
        .type_text = "WINT",
        .code_default = "WINTA",
        .winters = true,
        .fit_method_name = "MWINFIT",
        .weight_slot = {0, 1, -1, 2},
        .forms = {{"winters", "Winters multiplicative smoothing", "WINTM"},
                  {"winters-additive", "Winters additive smoothing", "WINTA"}},
    },
    {
        .type = kFamilySimple,
        .fit_method = "mes1fit",
        .forecast_method = "mes1for",
        .nparms = 1,
        .weight_items = {{"WEIGHT", 0}, {"LEVEL", 0}, {nullptr, 0}},
        .n_weight_items = 2,
        .names = {"LEVEL", nullptr, nullptr},
        .labels = {"LEVEL Smoothing Weight", nullptr, nullptr},
        .fit_method_name = "MES1FIT",
        .weight_slot = {0, -1, -1, -1},
        .forms = {{"simple", "Simple exponential smoothing", nullptr}, {}},
    },
    {
        .type = kFamilyLinear,
        .fit_method = "mes2fit",
        .forecast_method = "mes2for",
        .nparms = 2,
        .weight_items = {{"LEVEL", 0}, {"TREND", 1}, {nullptr, 0}},
        .n_weight_items = 2,
        .names = {"LEVEL", "TREND", nullptr},
        .labels = {"LEVEL Smoothing Weight", "TREND Smoothing Weight", nullptr},
        .trended = true,
        .fit_reads_nseasons = true,
        .fit_method_name = "MES2FIT",
        .weight_slot = {0, 1, -1, -1},
        .forms = {{"linear", "Linear (two-weight) exponential smoothing", nullptr}, {}},
    },
    {
        // One weight for level and trend, written as LEVEL and as WEIGHT and
        // labelled for both states.
        .type = kFamilyDouble,
        .fit_method = "mesdfit",
        .forecast_method = "mesdfor",
        .nparms = 1,
        .weight_items = {{"LEVEL", 0}, {"WEIGHT", 0}, {nullptr, 0}},
        .n_weight_items = 2,
        .names = {"LEVEL", nullptr, nullptr},
        .labels = {"LEVEL/TREND Smoothing Weight", nullptr, nullptr},
        .trended = true,
        .fit_method_name = "MESDFIT",
        .weight_slot = {0, -1, -1, -1},
        .forms = {{"double", "Double exponential smoothing", nullptr}, {}},
    },
    {
        .type = kFamilyDamped,
        .fit_method = "mes3fit",
        .forecast_method = "mes3for",
        .nparms = 3,
        .weight_items = {{"LEVEL", 0}, {"TREND", 1}, {"DAMPING", 2}},
        .n_weight_items = 3,
        .names = {"LEVEL", "TREND", "DAMPING"},
        .labels = {"LEVEL Smoothing Weight", "TREND Smoothing Weight", "DAMPING Smoothing Weight"},
        .trended = true,
        .fit_reads_nseasons = true,
        .forecast_reads_nseasons = true,
        .fit_method_name = "MES3FIT",
        .weight_slot = {0, 1, 2, -1},
        .forms = {{"damped", "Damped-trend exponential smoothing", nullptr}, {}},
    },
    {
        .type = kFamilySeasonal,
        .fit_method = "messfit",
        .forecast_method = "messfor",
        .nparms = 2,
        .weight_items = {{"LEVEL", 0}, {"SEASONAL", 1}, {nullptr, 0}},
        .n_weight_items = 2,
        .names = {"LEVEL", "SEASONAL", nullptr},
        .labels = {"LEVEL Smoothing Weight", "SEASONAL Smoothing Weight", nullptr},
        .fit_reads_nseasons = true,
        .forecast_reads_nseasons = true,
        .seasonal = true,
        .type_text = "EXPO",
        .code_default = "EXPOS",
        .fit_method_name = "MESSFIT",
        .weight_slot = {0, -1, -1, 1},
        .forms = {{"seasonal", "Seasonal exponential smoothing", "EXPOS"}, {}},
    },
};

inline constexpr int kNumFamilies = static_cast<int>(sizeof kFamilies / sizeof kFamilies[0]);
inline constexpr int kNumMethods = 2 * kNumFamilies;

// The name of the method in slot `slot` of the method table.
constexpr const char* method_name(int slot) {
  const Family& f = kFamilies[slot / 2];
  return slot % 2 == 0 ? f.fit_method : f.forecast_method;
}

// The slot of the method named `name`, -1 if none.
constexpr int method_slot(std::string_view name) {
  for (int slot = 0; slot < kNumMethods; ++slot) {
    if (name == method_name(slot)) return slot;
  }
  return -1;
}

// The family whose fit or forecast method is named `name`, null if none.
constexpr const Family* family_of_method(std::string_view name) {
  const int slot = method_slot(name);
  return slot < 0 ? nullptr : &kFamilies[slot / 2];
}

}  // namespace esf
