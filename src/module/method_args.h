// Readers that turn a method's argument lists into a filled WINMODEL, the
// writers that hand results back into lists, the mapping of internal codes to
// method return codes, and the small bridge between host lists and the
// module's arrays and interval records.
//
// All routines have C linkage. The readers are shared by the twelve methods;
// the bridge routines are exported for the host's other callers.
#pragma once

#include "intervals/interval.h"
#include "module/export.h"
#include "module/families.h"
#include "module/host_api.h"
#include "module/win_model.h"

// A 1-based index into a host list.
typedef long SLIndex;

// Model families as numbered in the `type` argument of getstartvals.
using enum esf::FamilyType;

namespace esf {
// A value above extreme_limit(n) in absolute value, in a series of n
// observations, counts as extreme: getseries sets it aside as missing.
constexpr double kExtremeFactor = 3.35195198248575e+153;
constexpr double extreme_limit(double n) { return kExtremeFactor * n * n * n; }
}  // namespace esf

#ifdef __cplusplus
extern "C" {
#endif

// ---- Argument readers ------------------------------------------------------

// Copies the DATA list of `tsList` into ts->x / ts->misflg, marking missing,
// non-numeric and extreme values; gives season codes when ts->scodes is
// allocated. Returns the number of non-missing values.
ESF_EXPORT long getseries(List tsList, struct TIMERANGE* datarange, struct TSERIES* ts);

// Builds the data, fit and evaluation ranges, each from the one before.
// Returns 0, or -2 when a range holds fewer than two periods.
ESF_EXPORT int gettimes(List dataRangeList, List fitRangeList, List evalRangeList, long nobs, struct INTERVAL* interval,
                        struct TIMERANGE* datarange, struct TIMERANGE* fitrange, struct TIMERANGE* evalrange);

// Fills the weight bounds from a WEIGHT_BOUNDS list; `wgtbndList` may be null.
ESF_EXPORT void getwgtbnd(List wgtbndList, struct WGTBNDS* wbnds);

// Finds the start of the smoothing passes: 1 when a complete STARTVALS is to
// be used as it stands (only with `sviflg`), 2 when SVI was given, 0 when
// start values were computed and stored as SVI in `modSpecList`, or a
// negative code from the family's start value routine.
ESF_EXPORT int getstartvals(List modSpecList, struct FMCOM* fmcomp, int type, int sviflg, struct WINMODEL* model);

// Reads the weights a forecast works with, from MODEL_SPEC's
// SMOOTHING_WEIGHTS or else from PARMVALS.SMOOTHING_WEIGHTS of `modelList`.
// A null pointer means the family has no such weight. 0 or -999.
ESF_EXPORT int getweights(struct FMCOM* fmcomp, List modSpecList, List modelList, double* wlevel, double* wtrend,
                          double* wdamp, double* wseason);

// Inserts SMOOTHED_STATE (SFACTORS, LEVEL, optionally TREND) into `pestList`.
// 0, or -999 when a list operation failed.
ESF_EXPORT int setsmoothstate(struct FMCOM* fmcomp, struct SMOOTHVALS* smooth, int nseasons, int trend, List pestList);

// Stores the three weight labels at positions 1 to 3 of `stvnmList`.
// 0 or -1. The first two arguments are not used.
ESF_EXPORT int putstvlab(struct INTERVAL* intv, int nseasons, List stvnmList);

// Returns each non-null array to the current pool.
ESF_EXPORT void mfree(double* x, char* misflg, int* scodes, double* sfactor, double* parms, long* df);

// Maps an internal code to the method return code, writes it into the
// return-code argument (slot 7 for rtype 0, else 8) and returns it.
ESF_EXPORT int getreturn(struct PSCPLIST* plist, int rc, int rtype);

// ---- List and interval bridge ------------------------------------------------

// Copies up to nList numeric items of `inList` into `array`, after filling
// array[0..nList-1] with the missing value. Returns the count stored.
ESF_EXPORT long zgetnum(List inList, long nList, double* array);

// Stores array[0..narray-1] at positions nstart, nstart+1, ... 0 or -1.
ESF_EXPORT int zslsetd(List outList, SLIndex nstart, double* array, long narray);
ESF_EXPORT int zslseti(List outList, SLIndex nstart, long* array, long narray);

// Reads integers from positions nstart, nstart+1, ... 0 or -1.
ESF_EXPORT int zslgeti(List iList, SLIndex nstart, long* array, long narray);

// The items of `a` that `b` lacks, compared by string value, as a new list in
// *anotb (null when none). Returns its length, or -1 when a copy failed.
ESF_EXPORT SLIndex slcmplc(struct FMCOM* fmcomp, List a, List b, List* anotb);

// Applies the OLD/NEW pairs of `names` as renames of the items of `target`.
// Returns the number of items renamed.
ESF_EXPORT int zslsrch(struct FMCOM* fmcomp, List names, List target);

// Reads INTERVAL, SINTERVAL and NSEASONS of `intvList` into interval records.
ESF_EXPORT int zqvlint(List intvList, struct INTERVAL* intv, struct INTINFO* info);

// Writes interval records into `intvList` as INTERVAL, TIMEUNIT, SINTERVAL,
// NSEASONS and IDFORMAT.
ESF_EXPORT int zintqvl(struct INTERVAL* intv, struct INTINFO* info, List intvList);

#ifdef __cplusplus
}
#endif
