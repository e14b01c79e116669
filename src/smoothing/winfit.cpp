// The exported drivers of Winters smoothing: the shared estimation frame,
// forecast driver and table writer instantiated for its trait (win::Family).
#include "smoothing/winfit.h"

extern "C" {

void nwinfitfree(double* dwlevel, double* dwtrend, double* dwseason) {
  host_free(dwlevel);
  host_free(dwtrend);
  host_free(dwseason);
}

int nwinfit(WINMODEL* model) { return smoothing::frame::fit<win::Family>(model); }

int nwinfor(WINMODEL* model, int startflg) {
  return smoothing::frame::forecast<win::Family>(model, startflg);
}

int winout(DATASET* out, INTERVAL* intv, u_sname* varname, u_slabel* label, u_sname* timeid,
           double stdate, char* align, long nobs, double cl) {
  return smoothing::frame::write_family_table<win::Family>(out, intv, varname, label, timeid,
                                                           stdate, align, nobs, cl);
}

}  // extern "C"
