// Winters smoothing on the shared estimation frame, with the three-weight
// constrained step, and the forecast driver: the exported drivers of the
// family.  The family's trait is in frame_win.h.
#include "smoothing/winfit.h"

#include "smoothing/frame_win.h"

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
