// The exported drivers of simple exponential smoothing: the shared frame instantiated for its
// trait (es1::Family).
#include "smoothing/es1fit.h"

ESF_DEFINE_DRIVERS(es1::Family, nes1fit, nes1for)
ESF_DEFINE_TABLE_WRITER(es1::Family, es1out)
