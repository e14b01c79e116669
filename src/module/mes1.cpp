// Fit and forecast methods of simple exponential smoothing: one weight, the
// level. The fit writes the weight twice into SMOOTHING_WEIGHTS, as WEIGHT
// and as LEVEL; the forecast reads it back as LEVEL.
#include "module/host_api.h"
#include "module/method_frame.h"
#include "smoothing/es1fit.h"

namespace {

constexpr esf::MethodFamily kSimple{
    .type = kFamilySimple,
    .nparms = 1,
    .fit = nes1fit,
    .forecast = nes1for,
    .weight_items = {{"WEIGHT", 0}, {"LEVEL", 0}, {nullptr, 0}},
    .n_weight_items = 2,
    .names = {"LEVEL", nullptr, nullptr},
    .labels = {"LEVEL Smoothing Weight", nullptr, nullptr},
    .labels_by_putstvlab = false,
    .trended = false,
    .fit_reads_nseasons = false,
    .forecast_reads_nseasons = false,
    .seasonal = false,
    .type_text = nullptr,
    .code_default = nullptr,
    .winters = false,
    .fit_method_name = "MES1FIT",
    .weight_slot = {0, -1, -1, -1},
};

}  // namespace

extern "C" int mes1fit(PSCPLIST* plist, List self, unsigned char* /*methodName*/, int /*methodLength*/) {
  return esf::run_fit_method(kSimple, plist, self);
}

extern "C" int mes1for(PSCPLIST* plist, List self, unsigned char* /*methodName*/, int /*methodLength*/) {
  return esf::run_forecast_method(kSimple, plist, self);
}

int esf::mes1fit_ended(PSCPLIST* plist, List self, FITEND* end) {
  return esf::run_fit_method(kSimple, plist, self, end);
}
