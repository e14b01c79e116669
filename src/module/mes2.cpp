// Fit and forecast methods of linear (two-weight trend) smoothing.
//
// Both methods read their arguments in the order every method follows and
// set the return code to 999 at once.  The estimation and the forecast table
// are not wired in yet, so 999 stays standing: "nothing ran".
#include "module/host_api.h"

extern "C" int mes2fit(PSCPLIST* plist, List self, unsigned char* /*methodName*/, int /*methodLength*/) {
  List seriesList = nullptr;
  List modSpecList = nullptr;
  List fitRangeList = nullptr;
  List evalRangeList = nullptr;
  List modelList = nullptr;
  int returnCode = 999;
  char returnCodeMissing = 0;
  int nArgs = 0;
  const int rc = posargs(plist, self, 6, 6, &nArgs, POS_LIST, &seriesList, POS_LIST, &modSpecList, POS_LIST,
                         &fitRangeList, POS_LIST, &evalRangeList, POS_LIST, &modelList, POS_INT, &returnCode,
                         &returnCodeMissing);
  posretd(plist, 7, 999.0, 0);
  (void)rc;
  return 0;
}

extern "C" int mes2for(PSCPLIST* plist, List self, unsigned char* /*methodName*/, int /*methodLength*/) {
  List seriesList = nullptr;
  List modelList = nullptr;
  List evalRangeList = nullptr;
  tchar* dsname = nullptr;
  int dsname_l = 0;
  double cl = 0.5;
  char clMissing = 0;
  int lead = 12;
  char leadMissing = 0;
  int returnCode = 999;
  char returnCodeMissing = 0;
  int nArgs = 0;
  const int rc = posargs(plist, self, 7, 7, &nArgs, POS_LIST, &seriesList, POS_LIST, &modelList, POS_LIST,
                         &evalRangeList, POS_CHAR, &dsname, &dsname_l, POS_DOUBLE, &cl, &clMissing, POS_INT, &lead,
                         &leadMissing, POS_INT, &returnCode, &returnCodeMissing);
  posretd(plist, 8, 999.0, 0);
  (void)rc;
  return 0;
}
