// The exported drivers of the family: the shared estimation frame, forecast
// driver and table writer instantiated for its trait (ess::Family).
#include "smoothing/essfit.h"

using ess::Family;
using smoothing::frame::fit;
using smoothing::frame::forecast;
using smoothing::frame::write_family_table;

extern "C" {

int nessfit(WINMODEL* model) { return fit<Family>(model); }

void nessfitfree(double* dwlevel, double* dwseason) {
  if (dwlevel) host_free(dwlevel);
  if (dwseason) host_free(dwseason);
}

int nessfor(WINMODEL* model, int startflg) { return forecast<Family>(model, startflg); }

}  // extern "C"
