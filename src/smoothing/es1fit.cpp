// The exported drivers of simple exponential smoothing: the shared estimation
// frame, forecast driver and table writer instantiated for the family's trait
// (es1::Family).
#include "smoothing/es1fit.h"

using es1::Family;
using smoothing::frame::fit;
using smoothing::frame::forecast;
using smoothing::frame::write_family_table;

extern "C" {

int nes1fit(WINMODEL* model) { return fit<Family>(model); }

int nes1for(WINMODEL* model, int startflg) { return forecast<Family>(model, startflg); }

int es1out(DATASET* out, INTERVAL* intv, u_sname* varname, u_slabel* label, u_sname* timeid,
           double stdate, char* align, long nobs, double cl) {
  return write_family_table<Family>(out, intv, varname, label, timeid, stdate, align, nobs, cl);
}

}  // extern "C"
