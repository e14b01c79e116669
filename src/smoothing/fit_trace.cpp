// The image-wide switch of the estimation trace. A relaxed atomic: the
// setting is a plain flag that a host program flips before it calls a
// method, and a driver reads it once when it starts.
#include <atomic>

#include "smoothing/frame.h"

namespace {
std::atomic<int> g_fit_trace{0};
}

extern "C" void esf_set_fit_trace(int on) { g_fit_trace.store(on != 0, std::memory_order_relaxed); }

extern "C" int esf_fit_trace(void) { return g_fit_trace.load(std::memory_order_relaxed); }
