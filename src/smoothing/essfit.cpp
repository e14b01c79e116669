// The exported drivers of seasonal exponential smoothing: the shared frame instantiated for its
// trait (ess::Family).
#include "smoothing/essfit.h"

void nessfitfree(double* dwlevel, double* dwseason) {
  if (dwlevel) host_free(dwlevel);
  if (dwseason) host_free(dwseason);
}

ESF_DEFINE_DRIVERS(ess::Family, nessfit, nessfor)
