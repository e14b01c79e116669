// Moving padded text into a field, and filling a vector of doubles.
#include <cstring>

#include "primitives/primitives.h"

extern "C" {

void vzmp(const tchar* from, int flen, tchar* to, int tlen) {
  if (tlen <= 0) return;
  if (flen < 0 || from == nullptr) flen = 0;
  const int moved = flen < tlen ? flen : tlen;
  // memmove when the two ranges meet, a straight copy otherwise.
  if (from < to + moved && to < from + moved) {
    std::memmove(to, from, static_cast<std::size_t>(moved));
  } else if (moved > 0) {
    std::memcpy(to, from, static_cast<std::size_t>(moved));
  }
  std::memset(to + moved, ' ', static_cast<std::size_t>(tlen - moved));
}

void vzfdl(double val, double* to, long len) {
  for (long i = 0; i < len; ++i) to[i] = val;
}

}  // extern "C"
