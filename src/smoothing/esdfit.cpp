// The exported drivers of double exponential smoothing: the shared frame instantiated for its
// trait (esd::Family).
#include "smoothing/esdfit.h"

ESF_DEFINE_DRIVERS(esd::Family, nesdfit, nesdfor)
ESF_DEFINE_TABLE_WRITER(esd::Family, esdout)
