// Fit and forecast methods of double smoothing: one weight for level and
// trend. The fit writes it as LEVEL and as WEIGHT, named LEVEL in the
// estimates, with a label that names both states.
#include "module/host_api.h"
#include "module/method_frame.h"
#include "smoothing/esdfit.h"

namespace {

constexpr esf::MethodFamily kDouble{
    .type = kFamilyDouble,
    .nparms = 1,
    .fit = nesdfit,
    .forecast = nesdfor,
    .weight_items = {{"LEVEL", 0}, {"WEIGHT", 0}, {nullptr, 0}},
    .n_weight_items = 2,
    .names = {"LEVEL", nullptr, nullptr},
    .labels = {"LEVEL/TREND Smoothing Weight", nullptr, nullptr},
    .labels_by_putstvlab = false,
    .trended = true,
    .fit_reads_nseasons = false,
    .forecast_reads_nseasons = false,
    .seasonal = false,
    .type_text = nullptr,
    .code_default = nullptr,
    .winters = false,
    .fit_method_name = "MESDFIT",
    .weight_slot = {0, -1, -1, -1},
};

}  // namespace

extern "C" int mesdfit(PSCPLIST* plist, List self, unsigned char* /*methodName*/, int /*methodLength*/) {
  return esf::run_fit_method(kDouble, plist, self);
}

extern "C" int mesdfor(PSCPLIST* plist, List self, unsigned char* /*methodName*/, int /*methodLength*/) {
  return esf::run_forecast_method(kDouble, plist, self);
}

int esf::mesdfit_ended(PSCPLIST* plist, List self, FITEND* end) {
  return esf::run_fit_method(kDouble, plist, self, end);
}
