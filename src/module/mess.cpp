// Fit and forecast methods of seasonal exponential smoothing: weights LEVEL
// and SEASONAL, states the level and one factor for each season. Both
// methods read NSEASONS, CODE and TYPE ("EXPO").
#include "module/host_api.h"
#include "module/method_frame.h"
#include "smoothing/essfit.h"

namespace {

constexpr esf::MethodFamily kSeasonal{
    .type = kFamilySeasonal,
    .nparms = 2,
    .fit = nessfit,
    .forecast = nessfor,
    .weight_items = {{"LEVEL", 0}, {"SEASONAL", 1}, {nullptr, 0}},
    .n_weight_items = 2,
    .names = {"LEVEL", "SEASONAL", nullptr},
    .labels = {"LEVEL Smoothing Weight", "SEASONAL Smoothing Weight", nullptr},
    .labels_by_putstvlab = false,
    .trended = false,
    .fit_reads_nseasons = true,
    .forecast_reads_nseasons = true,
    .seasonal = true,
    .type_text = "EXPO",
    .code_default = "EXPOS",
    .winters = false,
    .fit_method_name = "MESSFIT",
    .weight_slot = {0, -1, -1, 1},
};

}  // namespace

extern "C" int messfit(PSCPLIST* plist, List self, unsigned char* /*methodName*/, int /*methodLength*/) {
  return esf::run_fit_method(kSeasonal, plist, self);
}

extern "C" int messfor(PSCPLIST* plist, List self, unsigned char* /*methodName*/, int /*methodLength*/) {
  return esf::run_forecast_method(kSeasonal, plist, self);
}

int esf::messfit_ended(PSCPLIST* plist, List self, FITEND* end) {
  return esf::run_fit_method(kSeasonal, plist, self, end);
}
