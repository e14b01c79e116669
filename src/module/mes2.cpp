// Fit and forecast methods of linear (two-weight trend) smoothing: weights
// LEVEL and TREND, states level and trend. The fit reads NSEASONS.
#include "module/host_api.h"
#include "module/method_frame.h"
#include "smoothing/es2fit.h"

namespace {

constexpr esf::MethodFamily kLinear{
    .type = kFamilyLinear,
    .nparms = 2,
    .fit = nes2fit,
    .forecast = nes2for,
    .weight_items = {{"LEVEL", 0}, {"TREND", 1}, {nullptr, 0}},
    .n_weight_items = 2,
    .names = {"LEVEL", "TREND", nullptr},
    .labels = {"LEVEL Smoothing Weight", "TREND Smoothing Weight", nullptr},
    .labels_by_putstvlab = false,
    .trended = true,
    .fit_reads_nseasons = true,
    .forecast_reads_nseasons = false,
    .seasonal = false,
    .type_text = nullptr,
    .code_default = nullptr,
    .winters = false,
    .fit_method_name = "MES2FIT",
    .weight_slot = {0, 1, -1, -1},
};

}  // namespace

extern "C" int mes2fit(PSCPLIST* plist, List self, unsigned char* /*methodName*/, int /*methodLength*/) {
  return esf::run_fit_method(kLinear, plist, self);
}

extern "C" int mes2for(PSCPLIST* plist, List self, unsigned char* /*methodName*/, int /*methodLength*/) {
  return esf::run_forecast_method(kLinear, plist, self);
}

int esf::mes2fit_ended(PSCPLIST* plist, List self, FITEND* end) {
  return esf::run_fit_method(kLinear, plist, self, end);
}
