// The exported drivers of Winters smoothing: the shared frame instantiated for its
// trait (win::Family).
#include "smoothing/winfit.h"

void nwinfitfree(double* dwlevel, double* dwtrend, double* dwseason) {
  host_free(dwlevel);
  host_free(dwtrend);
  host_free(dwseason);
}

ESF_DEFINE_DRIVERS(win::Family, nwinfit, nwinfor)
ESF_DEFINE_TABLE_WRITER(win::Family, winout)
