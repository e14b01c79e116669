// The model record of one method call.
//
// A method clears a WINMODEL on its stack, the argument readers fill it, the
// family's engine works on it and the method copies the results out of it into
// the caller's lists.  Nothing lives in it between two calls.  The arrays it
// points to come from the host's current pool and go back before the method
// ends.
//
// The records are plain C layouts in a fixed field order: the host and the
// engines agree on them field by field, so fields are never reordered.
#pragma once

#include "intervals/interval.h"  // INTERVAL
#include "module/export.h"
#include "module/host_api.h"        // XO_PARMS, XOPNSTR
#include "primitives/primitives.h"  // tchar

#ifdef __cplusplus
#include <type_traits>
extern "C" {
#endif

// Counted strings, blank-padded, never terminated.
typedef struct u_sname {
  short name_l;  // used length, [0, 32]
  tchar name[32];
} u_sname;

typedef struct u_slabel {
  short label_l;  // used length, [0, 256]
  tchar label[256];
} u_slabel;

// Descriptive statistics over the non-missing values of a series.
// `norm` = max(|min|, |max|) is the `xscale` of every kernel.
typedef struct DESCSTATS {
  double min;
  double max;
  double mean;
  double norm;
} DESCSTATS;

// The series of one call.
typedef struct TSERIES {
  double* x;       // values; a missing one holds the ordinary missing value
  long nobs;       // length of the series (the length of the DATA list)
  long nnmss;      // reserved, stays 0
  long nmiss;      // values that came in missing, non-numeric or extreme
  long nextr;      // of these, the ones beyond `xextr`
  int nseasons;    // length of the seasonal cycle; 0 unless the family reads it
  double xextr;    // limit above which a value counts as extreme
  int* scodes;     // season code of each observation (seasonal families)
  int nstart;      // season code of observation 0
  char* misflg;    // 1 at a missing observation, else 0
  u_sname name;    // series name
  u_slabel label;  // series label
  u_sname timeid;  // name of the time variable
  DESCSTATS descstats;
  struct INTERVAL interval;  // time interval of the series
} TSERIES;

// Model description.  The methods leave every field at 0: the family is given
// by the method that runs.
typedef struct MODELSPEC {
  u_slabel label;
  int type;
  int code;
  int transform;
  char trended;
  char seasonal;
  long nbackcast;
} MODELSPEC;

// Evaluation statistics.  Only `mse` is ever written: the forecast's
// evaluation pass stores the mean squared error of the evaluated range there.
typedef struct MODELSTATS {
  double* res;
  long nobs;
  long nnmss;
  long nmiss;
  long npmss;
  int nparms;
  double mse;
  double rmse;
  double mape;
  double mae;
  double Rsq;
  double adj_Rsq;
  double a_adj_Rsq;
  double rw_Rsq;
  double aic;
  double sbic;
  double apc;
  double maxerr;
  double minerr;
  double maxprct;
  double minprct;
  double meanerr;
  double mpe;
} MODELSTATS;

// The weights a forecast works with, in the family's order (level, trend,
// then damping or seasonal).  A fit leaves `parms` null with `nparms` set.
typedef struct MODELPARMS {
  int method;  // not read
  int nparms;
  double* parms;
} MODELPARMS;

// The weights a fit produced (or a forecast was given).  One pool block of
// 3 * nparms doubles holds parms, stderr, tvals in that order (a forecast's
// block has a fourth part, MODELPARMS.parms).
typedef struct MODELPEST {
  int method;  // not read
  int nparms;
  double* parms;
  double* stderr;
  double* tvals;
  double* pvalue;  // stays null
  long* df;        // allocated, not read
  double mse;      // error variance estimate, divisor nobs - nparms
} MODELPEST;

// Dates and 0-based indexes into ts.x of one range.
typedef struct TIMERANGE {
  double stdate;
  double enddate;
  long nobs;
  long start;
  long end;
} TIMERANGE;

// A smoothing state.  For seasonal families one pool block of 3 * nseasons
// doubles is shared: startvals.sfactor, svi.sfactor, smooth.sfactor.
typedef struct SMOOTHVALS {
  double level;
  double trend;
  double* sfactor;  // nseasons seasonal factors, indexed by season code
  double xhat;      // last one-step prediction
} SMOOTHVALS;

// Bounds of the weights.  Each array holds lower bound, upper bound and the
// snap tolerance of one weight.
typedef struct WGTBNDS {
  double wlevel[3];
  double wtrend[3];
  double wseason[3];
  double wdamp[3];
  char wlevflg;  // the weight is fixed: its two bounds are equal
  char wtreflg;
  char wseaflg;
  char wdamflg;
  char bounds;     // honour the bounds
  char stability;  // honour the family's stability region
} WGTBNDS;

// The host's handle set of one output table.
typedef struct DATASET {
  XO_PARMS xoparm;
  void* xvp;        // variable-transfer handle from xvputi
  double* strptr;   // the rows waiting for output
  u_slabel dsname;  // two-level table name
  u_slabel fname;
  u_slabel label;
  XOPNSTR xopnstr;
} DATASET;

// Diagnostic switches of a fit.  The fit methods store 0 in the first two
// and the host's option FITTRACE in the third, read once per call.
typedef struct WINOPT {
  char numeric;   // run the derivative check
  char relative;  // relative steps in the check
  char trace;     // print the iteration trace
} WINOPT;

// How an estimation ended, as the frame left it: filled at the end of every
// fit driver, read by the host through esf_fit_end (entry.cpp).
enum {
  FITEND_NONE = 0,             // no estimation ran
  FITEND_CONVERGED = 1,        // the convergence measure fell to its level
  FITEND_STALLED = 2,          // the step could not improve after its halvings
  FITEND_ITERATION_LIMIT = 3,  // the outer iterations ran out
  FITEND_EXACT = 4             // the errors vanished and nothing moved any more
};
// Where a returned weight stands against its bounds.
enum {
  WEIGHT_INSIDE = 0,
  WEIGHT_ON_LOWER = 1,
  WEIGHT_ON_UPPER = 2,
  WEIGHT_FIXED = 3,
  WEIGHT_OUTSIDE = 4  // below the lower or above the upper bound
};
typedef struct FITEND {
  int how;          // FITEND_...
  int rc;           // the driver's result: 0, 90 or negative
  int iterations;   // outer iterations run
  double r;         // convergence measure of the returned point
  int nparms;       // entries of `position`
  int position[3];  // WEIGHT_..., per weight in the family's order
} FITEND;

// All state of one method call.
typedef struct WINMODEL {
  TSERIES ts;
  MODELSPEC spec;
  MODELSTATS stats;
  MODELPARMS parms;
  MODELPEST pest;
  TIMERANGE datarange;
  TIMERANGE evalrange;
  TIMERANGE fitrange;
  DATASET out;
  DATASET outest;        // reserved: no method opens it
  SMOOTHVALS smooth;     // working state; after a pass, the state at its end
  SMOOTHVALS svi;        // the state at which the backward pass starts
  SMOOTHVALS startvals;  // the state at time 0
  WGTBNDS wbnds;
  int additive;    // Winters only: 1 additive, 0 multiplicative
  double cl;       // significance level of the limits, e.g. 0.05
  int lead;        // number of forecasts
  char align;      // 'E', 'M', anything else: beginning of the period
  double* strptr;  // reserved
  void* pool;      // reserved
  WINOPT opt;
  FITEND fitend;  // how the last estimation ended
} WINMODEL;

// Runs the fit method in table slot `slot` (0, 2, 4, 6, 8 or 10) on the
// parameter record `plist`, exactly as the method table's entry would, and
// fills `end` with how its estimation ended.  Returns the method's result;
// -1 for a slot that holds no fit method.
ESF_EXPORT int esf_fit_ended(int slot, PSCPLIST* plist, List self, FITEND* end);

#ifdef __cplusplus
}  // extern "C"

namespace esf {
// A smoothing weight beyond +-this is not usable: the methods refuse to
// forecast with it.
inline constexpr double kWeightLimit = 100.0;
}  // namespace esf

static_assert(std::is_standard_layout_v<WINMODEL> && std::is_trivially_copyable_v<WINMODEL>,
              "WINMODEL must stay a plain record");
static_assert(std::is_standard_layout_v<SMOOTHVALS> && std::is_trivially_copyable_v<SMOOTHVALS>);
static_assert(std::is_standard_layout_v<WGTBNDS> && std::is_trivially_copyable_v<WGTBNDS>);
#endif
