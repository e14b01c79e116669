// The exported drivers of linear exponential smoothing: the shared frame instantiated for its
// trait (es2::Family).
#include "smoothing/es2fit.h"

ESF_DEFINE_DRIVERS(es2::Family, nes2fit, nes2for)
ESF_DEFINE_TABLE_WRITER(es2::Family, es2out)
