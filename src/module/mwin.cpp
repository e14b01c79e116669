// Fit and forecast methods of Winters smoothing: weights LEVEL, TREND and
// SEASONAL, states level, trend and one factor per season. CODE "WINTA"
// chooses the additive form, anything else the multiplicative one. The fit
// reports a return-code argument that comes in missing; the forecast reads
// the start values before the weights.
#include "module/host_api.h"
#include "module/method_frame.h"
#include "smoothing/winfit.h"

namespace {

constexpr esf::MethodFamily kWinters{
    .type = kFamilyWinters,
    .nparms = 3,
    .fit = nwinfit,
    .forecast = nwinfor,
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
};

}  // namespace

extern "C" int mwinfit(PSCPLIST* plist, List self, unsigned char* /*methodName*/, int /*methodLength*/) {
  return esf::run_fit_method(kWinters, plist, self);
}

extern "C" int mwinfor(PSCPLIST* plist, List self, unsigned char* /*methodName*/, int /*methodLength*/) {
  return esf::run_forecast_method(kWinters, plist, self);
}

int esf::mwinfit_ended(PSCPLIST* plist, List self, FITEND* end) {
  return esf::run_fit_method(kWinters, plist, self, end);
}
