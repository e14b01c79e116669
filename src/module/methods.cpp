// The twelve fit and forecast methods. Each finds its family's row in the
// family table by its own name and runs the shared body of its kind with the
// family's drivers; the method table hands them out in the rows' order.
#include <string_view>

#include "module/families.h"
#include "module/host_api.h"
#include "module/method_frame.h"
#include "smoothing/es1fit.h"
#include "smoothing/es2fit.h"
#include "smoothing/es3fit.h"
#include "smoothing/esdfit.h"
#include "smoothing/essfit.h"
#include "smoothing/winfit.h"

namespace {

using esf::Drivers;

constexpr Drivers drivers_of(int type) {
  switch (type) {
    case kFamilySimple:
      return {nes1fit, nes1for};
    case kFamilyDouble:
      return {nesdfit, nesdfor};
    case kFamilyLinear:
      return {nes2fit, nes2for};
    case kFamilyDamped:
      return {nes3fit, nes3for};
    case kFamilySeasonal:
      return {nessfit, nessfor};
    default:
      return {nwinfit, nwinfor};
  }
}

// The row of the family whose method is named `name`; fails to compile when
// the table has no such method.
consteval const esf::Family& row(std::string_view name) { return *esf::family_of_method(name); }

}  // namespace

// The function result of a method is always 0; its outcome travels in the
// return-code argument.
#define ESF_FAMILY_METHODS(fit_name, forecast_name)                                \
  extern "C" int fit_name(PSCPLIST* plist, List self, unsigned char*, int) {       \
    constexpr const esf::Family& family = row(#fit_name);                          \
    return esf::run_fit_method(family, drivers_of(family.type), plist, self);      \
  }                                                                                \
  extern "C" int forecast_name(PSCPLIST* plist, List self, unsigned char*, int) {  \
    constexpr const esf::Family& family = row(#forecast_name);                     \
    return esf::run_forecast_method(family, drivers_of(family.type), plist, self); \
  }

ESF_FAMILY_METHODS(mwinfit, mwinfor)
ESF_FAMILY_METHODS(mes1fit, mes1for)
ESF_FAMILY_METHODS(mes2fit, mes2for)
ESF_FAMILY_METHODS(mesdfit, mesdfor)
ESF_FAMILY_METHODS(mes3fit, mes3for)
ESF_FAMILY_METHODS(messfit, messfor)

#undef ESF_FAMILY_METHODS

namespace {

struct NamedMethod {
  std::string_view name;
  METHODFN method;
};

constexpr NamedMethod kNamedMethods[] = {
    {"mwinfit", mwinfit}, {"mwinfor", mwinfor}, {"mes1fit", mes1fit}, {"mes1for", mes1for},
    {"mes2fit", mes2fit}, {"mes2for", mes2for}, {"mesdfit", mesdfit}, {"mesdfor", mesdfor},
    {"mes3fit", mes3fit}, {"mes3for", mes3for}, {"messfit", messfit}, {"messfor", messfor},
};

}  // namespace

namespace esf {

METHODFN method_named(std::string_view name) {
  for (const NamedMethod& m : kNamedMethods) {
    if (m.name == name) return m.method;
  }
  return nullptr;
}

int fit_ended(int slot, PSCPLIST* plist, List self, FITEND* end) {
  if (slot < 0 || slot >= kNumMethods || slot % 2 != 0) return -1;
  const Family& family = kFamilies[slot / 2];
  return run_fit_method(family, drivers_of(family.type), plist, self, end);
}

}  // namespace esf
