// The shared body of the twelve fit and forecast methods.
//
// Every family's fit method reads the same lists in the same order, fills a
// WINMODEL through the argument readers, runs the family's estimation driver
// and writes PARMVALS, ESTIMATES, FIT_STATS and STARTVALS back; every forecast
// method reads the series and the model list a fit left and runs the family's
// forecast driver. The families differ only in the points a `MethodFamily`
// record names, so each method is one line:
//
//   static constexpr MethodFamily kSimple{ .type = kFamilySimple, ... };
//   extern "C" int mes1fit(struct PSCPLIST* plist, List self,
//                          unsigned char* methodName, int methodLength) {
//     return run_fit_method(kSimple, plist, self);
//   }
//
// The function result of a method is always 0; its outcome travels in the
// return-code argument.
#ifndef ESF_MODULE_METHOD_FRAME_H
#define ESF_MODULE_METHOD_FRAME_H

#include "module/host_api.h"
#include "module/method_args.h"
#include "module/win_model.h"

namespace esf {

// One item of the SMOOTHING_WEIGHTS list a fit writes: its name and the
// index of the weight in pest.parms whose value it holds.
struct WeightItem {
  const char* name;
  int parm;
};

// What distinguishes one family's pair of methods from another's.
struct MethodFamily {
  int type;                                   // kFamilySimple ... kFamilyWinters
  int nparms;                                 // number of weights, [1, 3]
  int (*fit)(WINMODEL* model);                // estimation driver, e.g. nes1fit
  int (*forecast)(WINMODEL* model, int startflg);  // forecast driver, e.g. nes1for

  // Fit results.
  WeightItem weight_items[3];                 // SMOOTHING_WEIGHTS, in order
  int n_weight_items;
  const char* names[3];                       // ESTIMATES.NAMES, one per weight
  const char* labels[3];                      // ESTIMATES.LABELS, one per weight
  bool labels_by_putstvlab;                   // LABELS come from putstvlab instead
  bool trended;                               // states carry a TREND

  // Arguments read beyond the common ones.
  bool fit_reads_nseasons;                    // NSEASONS into ts.nseasons (fit)
  bool forecast_reads_nseasons;               // NSEASONS into ts.nseasons (forecast)
  bool seasonal;                              // CODE and TYPE; season codes and factors
  const char* type_text;                      // the TYPE a seasonal family accepts
  const char* code_default;                   // CODE when the item is absent
  bool winters;                               // CODE "WINTA" sets `additive`; the fit
                                              // reports a missing return-code argument;
                                              // the forecast reads start values first
  const char* fit_method_name;                // upper-case name used in that report

  // Forecast: the place in parms.parms of the level, trend, damping and
  // seasonal weight, -1 where the family has no such weight.
  int weight_slot[4];
};

// The body of a fit method (six list arguments and a return code).  When
// `end` is given it receives how the estimation ended (how = FITEND_NONE
// when no estimation ran).
int run_fit_method(const MethodFamily& family, struct PSCPLIST* plist, List self, FITEND* end = nullptr);

// Each family's fit method with the report of how its estimation ended.
int mes1fit_ended(struct PSCPLIST* plist, List self, FITEND* end);
int mesdfit_ended(struct PSCPLIST* plist, List self, FITEND* end);
int mes2fit_ended(struct PSCPLIST* plist, List self, FITEND* end);
int mes3fit_ended(struct PSCPLIST* plist, List self, FITEND* end);
int messfit_ended(struct PSCPLIST* plist, List self, FITEND* end);
int mwinfit_ended(struct PSCPLIST* plist, List self, FITEND* end);

// The body of a forecast method (three lists, the output table name, the
// significance level, the lead and a return code).
int run_forecast_method(const MethodFamily& family, struct PSCPLIST* plist, List self);

}  // namespace esf

#endif  // ESF_MODULE_METHOD_FRAME_H
