// The exported drivers of damped-trend exponential smoothing: the shared frame instantiated for its
// trait (es3::Family).
#include "smoothing/es3fit.h"

ESF_DEFINE_DRIVERS(es3::Family, nes3fit, nes3for)
ESF_DEFINE_TABLE_WRITER(es3::Family, es3out)
