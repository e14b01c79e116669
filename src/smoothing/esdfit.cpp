// The exported drivers of the family: the shared estimation frame, forecast
// driver and table writer instantiated for its trait (esd::Family).
#include "smoothing/esdfit.h"

using esd::Family;
using smoothing::frame::fit;
using smoothing::frame::forecast;
using smoothing::frame::write_family_table;

extern "C" {

int nesdfit(WINMODEL* model) { return fit<Family>(model); }

int nesdfor(WINMODEL* model, int startflg) { return forecast<Family>(model, startflg); }

int esdout(DATASET* out, INTERVAL* intv, u_sname* varname, u_slabel* label, u_sname* timeid,
           double stdate, char* align, long nobs, double cl) {
  return write_family_table<Family>(out, intv, varname, label, timeid, stdate, align, nobs,
                                          cl);
}

}  // extern "C"
