// The shared body of the twelve fit and forecast methods.
//
// Every family's fit method reads the same lists in the same order, fills a
// WINMODEL through the argument readers, runs the family's estimation driver
// and writes PARMVALS, ESTIMATES, FIT_STATS and STARTVALS back; every forecast
// method reads the series and the model list a fit left and runs the family's
// forecast driver. The families differ only in their row of the family
// table (module/families.h) and their drivers, so each method is one call
// (module/methods.cpp):
//
//   return run_fit_method(row, {nes1fit, nes1for}, plist, self);
//
// The function result of a method is always 0; its outcome travels in the
// return-code argument.
#pragma once

#include <string_view>

#include "module/families.h"
#include "module/host_api.h"
#include "module/method_args.h"
#include "module/win_model.h"

namespace esf {

// The estimation and forecast drivers of a family, e.g. nes1fit and nes1for.
struct Drivers {
  int (*fit)(WINMODEL* model);
  int (*forecast)(WINMODEL* model, int startflg);
};

// The body of a fit method (six list arguments and a return code).  When
// `end` is given it receives how the estimation ended (how = FITEND_NONE
// when no estimation ran).
int run_fit_method(const Family& family, Drivers drivers, struct PSCPLIST* plist, List self, FITEND* end = nullptr);

// The fit method in slot `slot` of the method table, with the report of how
// its estimation ended (module/methods.cpp); -1 when the slot holds no fit.
int fit_ended(int slot, struct PSCPLIST* plist, List self, FITEND* end);

// The body of a forecast method (three lists, the output table name, the
// significance level, the lead and a return code).
int run_forecast_method(const Family& family, Drivers drivers, struct PSCPLIST* plist, List self);

// The method exported under `name` (module/methods.cpp), null if none.
METHODFN method_named(std::string_view name);

}  // namespace esf
