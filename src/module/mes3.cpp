// Fit and forecast methods of damped-trend smoothing: weights LEVEL, TREND
// and DAMPING, states level and trend. Both methods read NSEASONS.
#include "module/host_api.h"
#include "module/method_frame.h"
#include "smoothing/es3fit.h"

namespace {

constexpr esf::MethodFamily kDamped{
    .type = kFamilyDamped,
    .nparms = 3,
    .fit = nes3fit,
    .forecast = nes3for,
    .weight_items = {{"LEVEL", 0}, {"TREND", 1}, {"DAMPING", 2}},
    .n_weight_items = 3,
    .names = {"LEVEL", "TREND", "DAMPING"},
    .labels = {"LEVEL Smoothing Weight", "TREND Smoothing Weight", "DAMPING Smoothing Weight"},
    .labels_by_putstvlab = false,
    .trended = true,
    .fit_reads_nseasons = true,
    .forecast_reads_nseasons = true,
    .seasonal = false,
    .type_text = nullptr,
    .code_default = nullptr,
    .winters = false,
    .fit_method_name = "MES3FIT",
    .weight_slot = {0, 1, 2, -1},
};

}  // namespace

extern "C" int mes3fit(PSCPLIST* plist, List self, unsigned char* /*methodName*/, int /*methodLength*/) {
  return esf::run_fit_method(kDamped, plist, self);
}

extern "C" int mes3for(PSCPLIST* plist, List self, unsigned char* /*methodName*/, int /*methodLength*/) {
  return esf::run_forecast_method(kDamped, plist, self);
}

int esf::mes3fit_ended(PSCPLIST* plist, List self, FITEND* end) {
  return esf::run_fit_method(kDamped, plist, self, end);
}
